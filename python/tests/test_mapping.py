"""What each Python value becomes and comes back as."""

import numpy as np
import pytest

import dovra_json as dj

NUMERIC_DTYPES = ["float64", "float32", "complex128", "complex64", "int8", "uint8", "int16", "uint16",
                  "int32", "uint32", "int64", "uint64", "bool"]
SHAPES = [(1, 1), (2, 3), (0, 0), (0, 3), (2, 0, 4), (2, 3, 4), (1, 1, 1, 2)]


def same(a, b):
    """a (decoded) has the same type, dtype, shape and values as b (NaN equal to NaN, -0.0 distinct from 0.0)."""
    assert type(a) is type(b), (type(a), type(b))
    if isinstance(a, dict):  # a was decoded: JSON objects are written in byte order
        assert list(a) == sorted(b, key=lambda k: k.encode("utf-8", "surrogatepass"))
        for k in a:
            same(a[k], b[k])
    elif isinstance(a, np.ndarray):
        assert (a.dtype, a.shape) == (b.dtype, b.shape)
        if a.dtype == object:
            for x, y in zip(a.ravel(order="F"), b.ravel(order="F")):
                same(x, y)
        elif a.dtype.kind in "fc":
            # JSON has one NaN: payloads and the sign of NaN do not survive.
            assert np.array_equal(a, b, equal_nan=True)
            for part in (np.real, np.imag):
                kept = ~np.isnan(part(b))
                assert np.array_equal(np.signbit(part(a))[kept], np.signbit(part(b))[kept])
        else:
            assert np.array_equal(a, b)
    else:
        assert a == b


@pytest.mark.parametrize("shape", SHAPES, ids=str)
@pytest.mark.parametrize("dtype", NUMERIC_DTYPES)
def test_numeric_round_trip(dtype, shape, no_leaks):
    x = (np.arange(int(np.prod(shape))) % 7).astype(dtype).reshape(shape)
    back = dj.decode(dj.encode(x, "large", "object"))
    same(x, back)
    assert back.flags.f_contiguous


@pytest.mark.parametrize("value, expected", [
    (1.5, np.array([[1.5]])),
    (7, np.array([[7]], dtype="int64")),
    (True, np.array([[True]])),
    (2 - 1j, np.array([[2 - 1j]])),
    (np.float32(0.5), np.array([[0.5]], dtype="float32")),
    (np.array([1, 2], dtype="uint8"), np.array([[1, 2]], dtype="uint8")),  # 1-d becomes a row
    ("día\0x", "día\0x"),
    ("", ""),
    ({"b": 1.0, "a": "t"}, {"a": "t", "b": np.array([[1.0]])}),  # JSON objects are written in byte order
    ({}, {}),
    (np.array(["ab", "c"]), np.array([["ab", "c"]], dtype=object)),  # written as a cell of texts
], ids=repr)
def test_python_values(value, expected, no_leaks):
    same(dj.decode(dj.encode(value)), expected)


def test_containers_keep_their_shape(no_leaks):
    cell = np.empty((2, 1), dtype=object)
    cell[0, 0], cell[1, 0] = "x", np.zeros((0, 2), dtype="int32")
    records = np.empty((1, 2), dtype=object)
    records[0, 0], records[0, 1] = {"k": "a", "v": np.ones((1, 1))}, {"k": "b", "v": np.zeros((2, 1))}
    for value in (cell, records, {"inner": {"cell": cell}}):
        same(dj.decode(dj.encode(value, "large", "object")), value)
    row = dj.decode(dj.encode([1.0, "a"]))  # a list is a 1xn cell
    assert (row.dtype, row.shape) == (object, (1, 2))
    same(row[0, 0], np.array([[1.0]]))
    assert row[0, 1] == "a"


def test_any_strides_and_byte_order(no_leaks):
    base = np.arange(24, dtype=">f8").reshape(4, 6)
    for view in (base, base[::2, ::3], base.T, np.ascontiguousarray(base), np.asfortranarray(base)):
        same(dj.decode(dj.encode(view)), np.asfortranarray(view, dtype="float64"))


def test_decode_hands_over_the_host_buffer_without_a_copy(no_leaks):
    a = dj.decode('{"tntype":"double","tnsize":[2,2],"tndata":[1,2,3,4]}')
    assert not a.flags.owndata and a.base is not None and a.flags.f_contiguous
    assert a.tolist() == [[1.0, 3.0], [2.0, 4.0]]
    del a


def test_small_notation_and_string_form():
    x = np.array([[np.nan, np.inf, -np.inf, 1.0]])
    assert dj.encode(x, "small") == '[[{"tndata":"NaN"},{"tndata":"Inf"},{"tndata":"-Inf"},1]]'
    same(dj.decode(dj.encode(x, "small")), x)
    assert dj.decode(dj.encode(np.zeros((1, 3, 1)), "small")).shape == (1, 3)  # trailing 1s are lost
    with pytest.raises(dj.Error):  # the "string" form does not read back
        dj.decode(dj.encode(np.array([[np.nan]]), "large", "string"))


def test_string_arrays_decode_with_missing_elements():
    same(dj.decode('{"tntype":"string","tnsize":[1,2],"tndata":["ab","c"]}'), np.array([["ab", "c"]]))
    same(dj.decode('{"tntype":"string","tnsize":[2,1],"tndata":["ab",null]}'),
         np.array([["ab"], [None]], dtype=object))


def test_decode_response():
    outputs = dj.decode_response('{"lhs": [1, "a"]}')
    same(outputs[0], np.array([[1.0]]))
    assert outputs[1] == "a"
    assert dj.decode_response('{"other": 1}') is False
    assert dj.decode(b'"bytes \xc3\xa9"\n') == "bytes é"
