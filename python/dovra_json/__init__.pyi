from typing import Any, Literal, overload

from _typeshed import SupportsRead, SupportsWrite

__all__ = [
    "Error",
    "__version__",
    "decode",
    "decode_response",
    "dump",
    "encode",
    "load",
    "load_response",
]

__version__: str

_Text = str | bytes | bytearray | memoryview
_Format = Literal["large", "small"]
_NanInf = Literal["string", "object"]

class Error(ValueError):
    identifier: str
    arguments: tuple[int | str, ...]
    message: str
    line: int | None
    column: int | None
    offset: int | None
    path: str | None

def decode(text: _Text, /) -> Any: ...
def decode_response(text: _Text, /) -> list[Any] | Literal[False]: ...
@overload
def encode(
    value: Any,
    /,
    *,
    format: _Format = "large",
    nan_inf: _NanInf = "object",
    pretty: bool = False,
    as_bytes: Literal[False] = False,
) -> str: ...
@overload
def encode(
    value: Any,
    /,
    *,
    format: _Format = "large",
    nan_inf: _NanInf = "object",
    pretty: bool = False,
    as_bytes: Literal[True],
) -> bytes: ...
@overload
def encode(
    value: Any,
    /,
    *,
    format: _Format = "large",
    nan_inf: _NanInf = "object",
    pretty: bool = False,
    as_bytes: bool,
) -> str | bytes: ...
def load(fp: SupportsRead[str] | SupportsRead[bytes], /) -> Any: ...
def load_response(fp: SupportsRead[str] | SupportsRead[bytes], /) -> list[Any] | Literal[False]: ...
def dump(
    value: Any,
    fp: SupportsWrite[str] | SupportsWrite[bytes],
    /,
    *,
    format: _Format = "large",
    nan_inf: _NanInf = "object",
    pretty: bool = False,
) -> None: ...
