"""JSON text to NumPy arrays and back, through the Ixtal runtime and the
dovra JSON builtins library.

    >>> import dovra_json
    >>> dovra_json.decode('{"tntype": "int16", "tnsize": [1, 2], "tndata": [3, 4]}')
    array([[3, 4]], dtype=int16)

The mapping between JSON, host arrays and Python values is in docs/python.md.
"""

import re as _re

from . import _native
from ._version import __version__

__all__ = ["Error", "__version__", "decode", "decode_response", "encode"]

_POSITION = _re.compile(r"line (\d+), column (\d+) \(byte offset (\d+)\)")


class Error(ValueError):
    """A failure reported by the builtins library or the runtime.

    Attributes:
        identifier: the catalogued identifier, e.g.
            "DOVRA:IXTAL:JSON:DecodeIncomplete".
        arguments: the message arguments, in order; integers are int,
            texts are str.
        message: the catalog's message with the arguments filled in (also
            str(error)). For a parse error it ends with the context line and
            a caret under the failing byte.
        line, column, offset: where a parse error was found, as the
            message gives them (line from 1; column and offset in bytes of
            the UTF-8 text, from 0); None for every other error.
    """

    def __init__(self, message, identifier, arguments):
        super().__init__(message)
        self.message = message
        self.identifier = identifier
        self.arguments = tuple(arguments)
        self.line = self.column = self.offset = None
        if self.arguments and isinstance(self.arguments[0], str):
            found = _POSITION.search(self.arguments[0])
            if found and identifier.startswith("DOVRA:IXTAL:JSON:Decode"):
                self.line, self.column, self.offset = (int(g) for g in found.groups())

    def __str__(self):
        return self.message

    def __reduce__(self):
        return (type(self), (self.message, self.identifier, self.arguments))


_native._set_error_class(Error)


def decode(text):
    """Decode JSON text into arrays.

    Args:
        text: the JSON document, as str or as UTF-8 bytes. One final line
            ending is dropped, as dovra-json does, so a file read whole
            decodes.

    Returns:
        A NumPy array for numeric, logical and string arrays (the host's
        shape, Fortran order, the host's dtype), str for a char row, dict for
        a 1x1 structure, an object array for cells and structure arrays.

    Raises:
        Error: the text is not JSON, or not a value the library can decode.
        TypeError: text is neither str nor bytes.
    """
    return _native.decode(text)


def decode_response(text):
    """Decode a response document, {"lhs": [output, ...]}.

    Returns:
        The list of decoded outputs, or False when the document does not
        have the response's shape.

    Raises:
        Error: the text is not JSON, or an output cannot be decoded.
    """
    return _native.decode_response(text)


def encode(value, format="large", nan_inf="string", pretty=False):
    """Encode a value as JSON text.

    Args:
        value: a NumPy array (any strides and byte order), a NumPy scalar,
            float, int (must fit int64), bool, complex, str, dict with str
            keys, or a list or tuple (a 1xn cell).
        format: "large" (objects that keep class and size) or "small" (plain
            JSON arrays where they suffice).
        nan_inf: "string" ({"tndata": "NaN"}) or "object".
        pretty: indent the text for people to read.

    Returns:
        The JSON text as str.

    Raises:
        TypeError: value, or something inside it, has a type with no host
            form; the message names the type.
        OverflowError: an int does not fit int64.
        Error: the library rejected the value or an option.
    """
    return _native.encode(value, format, nan_inf, bool(pretty))


def _live_arrays():
    """Host arrays created and not yet destroyed, process-wide (for tests)."""
    return _native.live_arrays()
