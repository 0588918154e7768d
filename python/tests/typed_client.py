"""A client of every public name, for mypy --strict to check against the
stubs (test_typing.py); it is not run."""

import io
from typing import Any, Literal

import dovra_json


def round_trip(text: str | bytes) -> str:
    value: Any = dovra_json.decode(text)
    small: str = dovra_json.encode(value, format="small", nan_inf="string", pretty=True)
    raw: bytes = dovra_json.encode(value, as_bytes=True)
    either: str | bytes = dovra_json.encode(value, as_bytes=len(small) > 10)
    return small + raw.decode() + str(either)


def outputs(body: bytearray | memoryview) -> list[Any]:
    found: list[Any] | Literal[False] = dovra_json.decode_response(body)
    return found if found is not False else []


def files(path: str) -> None:
    with open(path, encoding="utf-8") as text, open(path, "rb") as binary:
        value: Any = dovra_json.load(text)
        response = dovra_json.load_response(binary)
        if response is not False:
            value = response[0]
    out = io.StringIO()
    dovra_json.dump(value, out, format="large", nan_inf="object", pretty=False)
    dovra_json.dump(value, io.BytesIO())


def describe(error: dovra_json.Error) -> str:
    where = ""
    if error.line is not None and error.column is not None and error.offset is not None:
        where = f" at {error.line + 1}:{error.column + 1} ({error.offset})"
    first: int | str | None = error.arguments[0] if error.arguments else None
    return f"{error.identifier}{where} {error.message} {first!r} {error.path or ''}"


def check() -> str:
    try:
        return round_trip("[1, 2]")
    except dovra_json.Error as error:
        assert isinstance(error, ValueError)
        return describe(error) + dovra_json.__version__
