"""Failures: the library's and the module's errors as dovra_json.Error,
Python's as TypeError, OverflowError and ValueError; none crashes or keeps
anything."""

import pickle

import numpy as np
import pytest

import dovra_json as dj

# Deeper than the library writes (its parser and encoder stop at 1000).
TOO_DEEP = 1001


INT8 = '{"tntype":"int8","tnsize":[1,1],"tndata":[300]}'
QUUX = '{"tntype":"quux","tnsize":[1,1],"tndata":[1]}'


# position: (line, column, offset) of the failing byte (parse errors) or of
# the value a conversion error is about; path: that value's path.
@pytest.mark.parametrize("text, identifier, arguments, position, path", [
    ("[1,\n 2,", "DOVRA:IXTAL:JSON:DecodeIncomplete",
     ("JSON syntax error at line 2, column 3 (byte offset 7)", "     2,\n       ^"), (2, 3, 7), None),
    ('"\\x"', "DOVRA:IXTAL:JSON:DecodeCharInvalidEscape", None, (1, 1, 1), None),
    ("null", "DOVRA:IXTAL:JSON:DecodeNullNotSupported", (), (1, 0, 0), "$"),
    (INT8, "DOVRA:IXTAL:JSON:DecodeInvalidIntegralElem", ("int8",), (1, INT8.index("300"), INT8.index("300")),
     "$.tndata[0]"),
    (QUUX, "DOVRA:IXTAL:JSON:DecodeInvalidTNType", ("quux",), (1, QUUX.index('"quux"'), QUUX.index('"quux"')),
     "$.tntype"),
    # Shapes and classes NumPy cannot hold.
    ('{"tntype":"cell","tnsize":[1,2' + ",1" * 33 + ',2],"tndata":[1,2,3,4]}', "dovra_json:TooManyDimensions",
     (36, 32), None, None),
    ('{"tntype":"struct","tnsize":[2147483648,4294967296],"tndata":{}}', "IXTAL:nomem", (), None, None),
    ('{"tntype":"double","tnsize":[0,9223372036854775807,2],"tndata":[]}', "IXTAL:nomem", (), None, None),
    ('{"tntype":"int8","tnsize":[1,2],"tncomplex":true,"tndata":[1,2,3,4]}', "dovra_json:NoPythonForm",
     ("complex int8",), None, None),
])
def test_decode_errors(text, identifier, arguments, position, path, no_leaks):
    with pytest.raises(dj.Error) as caught:
        dj.decode(text)
    e = caught.value
    assert isinstance(e, ValueError)
    assert (e.identifier, e.path) == (identifier, path)
    if arguments is not None:
        assert e.arguments == arguments
    assert (e.line, e.column, e.offset) == (position or (None, None, None))
    if position and path is None:
        assert str(e).endswith("^") and "\n" in str(e)
    else:  # the same from inside a response
        with pytest.raises(dj.Error) as caught:
            dj.decode_response('{"lhs":[%s]}' % text)
        assert caught.value.identifier == identifier


def test_errors_pickle_with_every_attribute():
    with pytest.raises(dj.Error) as caught:
        dj.decode("[1,\n 2,")
    e = caught.value
    back = pickle.loads(pickle.dumps(e))
    fields = ("identifier", "arguments", "message", "line", "column", "offset", "path")
    assert type(back) is dj.Error and str(back) == str(e)
    assert [getattr(back, f) for f in fields] == [getattr(e, f) for f in fields]


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
    (np.array([None, 1.0], dtype=object), "NoneType"),
])
def test_unsupported_values_name_their_type(value, named, no_leaks):
    with pytest.raises(TypeError, match=named):
        dj.encode(value)


@pytest.mark.parametrize("value", [2**53 + 1, -(2**53) - 1, 2**63 - 1, 2**64, -(10**400)])
def test_ints_a_double_would_round_are_refused(value, no_leaks):
    with pytest.raises(OverflowError, match=r"±2\*\*53"):
        dj.encode({"id": [value]})


def test_64_bit_arrays_beyond_2_53_go_through_double(no_leaks):
    # The library's own rule for int64 and uint64 arrays, kept: the nearest
    # double is written, so values beyond 2**53 come back rounded, and the
    # largest int64 is written as 2**63, which the reader refuses.
    assert dj.decode(dj.encode(np.array([[2**53 + 1, 3]], dtype="uint64"))).tolist() == [[2**53, 3]]
    with pytest.raises(dj.Error, match="int64") as caught:
        dj.decode(dj.encode(np.array([[2**63 - 1, 0]], dtype="int64")))
    assert caught.value.identifier == "DOVRA:IXTAL:JSON:DecodeInvalidIntegralElem"


def self_containing():
    """(value, the path the error names) for each kind of container."""
    a = []
    a.append(a)
    b = {"k": [1.0]}
    b["k"].append(b)
    c = np.empty((1, 2), dtype=object)
    c[0, 0], c[0, 1] = "x", [c]
    d = np.empty(3, dtype=object)
    d[:] = [{"v": 1}, {"v": 2}, {"v": None}]
    d[2]["v"] = d
    t = ([],)
    t[0].append(t)
    return [(a, "value[0] is value"), (b, "value['k'][1] is value"), (c, "value[0, 1][0] is value"),
            (d, "value[2]['v'] is value"), ({"outer": t}, "value['outer'][0][0] is value['outer']")]


@pytest.mark.parametrize("value, path", self_containing(), ids=lambda v: type(v).__name__)
def test_self_containing_values_are_refused(value, path, no_leaks):
    with pytest.raises(ValueError, match="contains itself") as caught:
        dj.encode(value)
    assert not isinstance(caught.value, dj.Error) and str(caught.value).endswith(path)


def nest(depth, make):
    value = 1.0
    for _ in range(depth):
        value = make(value)
    return value


NESTS = {"list": lambda v: [v], "tuple": lambda v: (v,), "dict": lambda v: {"k": v},
         "ndarray": lambda v: np.array([v, "x"], dtype=object)}


# NumPy frees nested object arrays recursively: 100,000 levels of them would
# overflow the stack in NumPy itself, so they are nested less deep here.
@pytest.mark.parametrize("kind, depth", [(k, TOO_DEEP) for k in NESTS] + [(k, 100_000) for k in ("list", "tuple", "dict")])
def test_nesting_deeper_than_the_library_writes(kind, depth, no_leaks):
    with pytest.raises(dj.Error) as caught:
        dj.encode(nest(depth, NESTS[kind]))
    assert caught.value.identifier == "DOVRA:IXTAL:JSON:EncodeNestingTooDeep"


def test_nesting_the_library_writes_is_written(no_leaks):
    value = nest(300, lambda v: {"k": v})
    assert dj.decode(dj.encode(value, format="small")) == value


@pytest.mark.parametrize("text", [3, None, ["[1]"], memoryview(np.arange(4.0))[::2]], ids=repr)
def test_text_argument_type(text):
    with pytest.raises((TypeError, BufferError)):
        dj.decode(text)
