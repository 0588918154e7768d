"""JSON text to NumPy arrays and Python values and back, through the Ixtal
runtime and the dovra JSON builtins library.

    >>> import dovra_json
    >>> dovra_json.decode('{"tntype": "int16", "tnsize": [1, 2], "tndata": [3, 4]}')
    array([[3, 4]], dtype=int16)
    >>> dovra_json.decode(dovra_json.encode({"a": 1.5, "b": [True, "x"]}))
    {'a': 1.5, 'b': array([[True, 'x']], dtype=object)}

The mapping between JSON, host arrays and Python values is in docs/python.md.
"""

import io as _io
import re as _re

from . import _native
from ._version import __version__

__all__ = ["Error", "__version__", "decode", "decode_response", "encode", "load", "load_response", "dump"]

_POSITION = _re.compile(r"line (\d+), column (\d+) \(byte offset (\d+)\)")


class Error(ValueError):
    """A failure reported by the builtins library, the runtime or this module.

    Attributes:
        identifier: the catalogued identifier, e.g.
            "DOVRA:IXTAL:JSON:DecodeIncomplete" (the library's),
            "IXTAL:nomem" (the runtime's) or "dovra_json:TooManyDimensions"
            (this module's, listed in docs/python.md).
        arguments: the message arguments, in order; integers are int,
            texts are str.
        message: the catalog's message with the arguments filled in (also
            str(error)). For a parse error it ends with the context line and
            a caret under the failing byte.
        line, column, offset: where in the text a parse error was found,
            or the value a decode conversion error is about (line from 1;
            column and offset in bytes of the UTF-8 text, from 0); None for
            every other error.
        path: where a conversion failed: in the document for decode
            ("$.lhs[12].pos[1]"), in the value for encode ("{3}.meta(2)");
            None for every other error.
    """

    def __init__(self, message, identifier, arguments, path=None, where=None):
        super().__init__(message)
        self.message = message
        self.identifier = identifier
        self.arguments = tuple(arguments)
        self.path = path
        self.line = self.column = self.offset = None
        if where is not None:
            self.offset, self.line, self.column = where
        elif self.arguments and isinstance(self.arguments[0], str):
            found = _POSITION.search(self.arguments[0])
            if found and identifier.startswith("DOVRA:IXTAL:JSON:Decode"):
                self.line, self.column, self.offset = (int(g) for g in found.groups())

    def __str__(self):
        return self.message

    def __reduce__(self):
        where = None if self.offset is None or self.path is None else (self.offset, self.line, self.column)
        return (type(self), (self.message, self.identifier, self.arguments, self.path, where))


_native._set_error_class(Error)


def decode(text, /):
    """Decode JSON text into Python values.

    Args:
        text: the JSON document, as str, or as UTF-8 in bytes, bytearray or
            memoryview. One final line ending is dropped, as dovra-json does,
            so a file read whole decodes.

    Returns:
        float, int, bool or complex for a 1x1 double, int64, logical or
        complex double array, a NumPy scalar of its dtype for a 1x1 array of
        another numeric class; a NumPy array for any other numeric or
        logical array (the host's shape, Fortran order, the host's dtype);
        str for a char row; dict for a 1x1 structure; an object array for
        cells, structure and string arrays.

    Raises:
        Error: the text is not JSON, or not a value the library can decode,
            or the value has no Python form.
        TypeError: text is none of the types above.
    """
    return _native.decode(text)


def decode_response(text, /):
    """Decode a response document, {"lhs": [output, ...]}.

    Args:
        text: as for decode.

    Returns:
        The list of decoded outputs, or False when the document does not
        have the response's shape.

    Raises:
        Error: the text is not JSON, or an output cannot be decoded.
        TypeError: text is not str, bytes, bytearray or memoryview.
    """
    return _native.decode_response(text)


def encode(value, /, *, format="large", nan_inf="object", pretty=False, as_bytes=False):
    """Encode a value as JSON text.

    Args:
        value: a NumPy array (any strides and byte order), a NumPy scalar,
            float, int (within ±2**53), bool, complex, str, dict with str
            keys, or a list or tuple (a 1xn cell); containers may hold any
            of these.
        format: "large" (objects that keep class and size) or "small" (plain
            JSON arrays where they suffice).
        nan_inf: how NaN and infinities are written in large notation:
            "object" ({"tndata":"NaN"}, which decode reads back) or "string"
            (the bare string "NaN", for other readers; decode refuses it).
            Small notation always writes the object form.
        pretty: indent the text for people to read.
        as_bytes: return the text as UTF-8 bytes instead of str.

    Returns:
        The JSON text, as str or as bytes. With the defaults,
        decode(encode(x)) gives x back (see docs/python.md).

    Raises:
        TypeError: value, or something inside it, has a type with no host
            form; the message names the type.
        OverflowError: an int is outside ±2**53, beyond which JSON numbers
            do not hold integers exactly.
        ValueError: a list, tuple, dict or object array contains itself;
            the message names where.
        Error: the library rejected the value or an option, or containers
            nest deeper than it writes (EncodeNestingTooDeep).
    """
    return _native.encode(value, format, nan_inf, bool(pretty), bool(as_bytes))


def load(fp, /):
    """Decode the JSON document a file holds, read whole; fp may be opened
    in text or binary mode."""
    return _native.decode(fp.read())


def load_response(fp, /):
    """decode_response of the document a file holds, read whole."""
    return _native.decode_response(fp.read())


def _binary(fp):
    if isinstance(fp, _io.TextIOBase):
        return False
    return isinstance(fp, (_io.RawIOBase, _io.BufferedIOBase)) or "b" in getattr(fp, "mode", "")


def dump(value, fp, /, *, format="large", nan_inf="object", pretty=False):
    """Encode value and write the text to a file opened in text mode (as
    str) or binary mode (as UTF-8 bytes); options as for encode."""
    fp.write(encode(value, format=format, nan_inf=nan_inf, pretty=pretty, as_bytes=_binary(fp)))


def _live_arrays():
    """Host arrays created and not yet destroyed, process-wide (for tests)."""
    return _native.live_arrays()
