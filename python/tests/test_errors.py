"""Failures: the library's errors as dovra_json.Error, Python's as TypeError."""

import numpy as np
import pytest

import dovra_json as dj


@pytest.mark.parametrize("text, identifier, arguments, position", [
    ("[1,\n 2,", "DOVRA:IXTAL:JSON:DecodeIncomplete",
     ("JSON syntax error at line 2, column 3 (byte offset 7)", "     2,\n       ^"), (2, 3, 7)),
    ('"\\x"', "DOVRA:IXTAL:JSON:DecodeCharInvalidEscape", None, (1, 1, 1)),
    ("null", "DOVRA:IXTAL:JSON:DecodeNullNotSupported", (), None),
    ('{"tntype":"int8","tnsize":[1,1],"tndata":[300]}', "DOVRA:IXTAL:JSON:DecodeInvalidIntegralElem", ("int8",), None),
    ('{"tntype":"quux","tnsize":[1,1],"tndata":[1]}', "DOVRA:IXTAL:JSON:DecodeInvalidTNType", ("quux",), None),
])
def test_decode_errors(text, identifier, arguments, position, no_leaks):
    with pytest.raises(dj.Error) as caught:
        dj.decode(text)
    e = caught.value
    assert isinstance(e, ValueError)
    assert e.identifier == identifier
    if arguments is not None:
        assert e.arguments == arguments
    assert (e.line, e.column, e.offset) == (position or (None, None, None))
    if position:
        assert str(e).endswith("^") and "\n" in str(e)


def test_option_errors_keep_their_arguments():
    with pytest.raises(dj.Error) as caught:
        dj.encode(1.0, format="medium")
    assert caught.value.identifier == "IXTAL:class:InvalidArgument"
    assert all(isinstance(a, str) for a in caught.value.arguments)


@pytest.mark.parametrize("value, named", [
    (object(), "object"),
    (None, "NoneType"),
    ({"a": {1, 2}}, "set"),
    ({1: 2}, "int"),
    (np.array(["2020-01-01"], dtype="datetime64[D]"), "datetime64"),
    (np.float16(1), "float16"),
    (b"bytes", "bytes"),
])
def test_unsupported_values_name_their_type(value, named, no_leaks):
    with pytest.raises(TypeError, match=named):
        dj.encode(value)


def test_int_outside_int64():
    with pytest.raises(OverflowError):
        dj.encode(2**63)
    assert dj.encode(-2**62) == '{"tndata":[-4611686018427387904],"tnsize":[1,1],"tntype":"int64"}'


def test_text_argument_type():
    with pytest.raises(TypeError, match="int"):
        dj.decode(3)
