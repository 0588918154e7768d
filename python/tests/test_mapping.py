"""What each Python value becomes and comes back as."""

import io
import types

import numpy as np
import pytest

import dovra_json as dj

NUMERIC_DTYPES = ["float64", "float32", "complex128", "complex64", "int8", "uint8", "int16", "uint16",
                  "int32", "uint32", "int64", "uint64", "bool"]
SHAPES = [(1, 1), (2, 3), (0, 0), (0, 3), (2, 0, 4), (2, 3, 4), (1, 1, 1, 2)]
# A 1x1 array of these classes decodes to Python's own scalar; of the others,
# to a NumPy scalar of its dtype.
PYTHON_SCALARS = {np.dtype("float64"): float, np.dtype("int64"): int, np.dtype("bool"): bool,
                  np.dtype("complex128"): complex}


def same_numbers(a, b):
    """Equal values, NaN equal to NaN, -0.0 distinct from 0.0."""
    if a.dtype.kind in "fc":
        # JSON has one NaN: payloads and the sign of NaN do not survive.
        assert np.array_equal(a, b, equal_nan=True)
        for part in (np.real, np.imag):
            kept = ~np.isnan(part(b))
            assert np.array_equal(np.signbit(part(a))[kept], np.signbit(part(b))[kept])
    else:
        assert np.array_equal(a, b)


def same(a, b):
    """a (decoded) is what b comes back as: the same type, dtype, shape and
    values, a 1x1 array being a scalar of its class."""
    if isinstance(b, (np.generic, float, int, complex)) and not isinstance(b, np.str_):
        b = np.array([[b]], dtype=np.asarray(b).dtype)
    if isinstance(b, np.ndarray) and b.dtype.kind != "O" and b.shape == (1, 1):
        assert type(a) is PYTHON_SCALARS.get(b.dtype, b.dtype.type), (type(a), b.dtype)
        same_numbers(np.array([[a]], dtype=b.dtype), b)
        return
    if isinstance(a, types.MappingProxyType) and b == {}:
        return  # an element of a structure array without fields
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
        else:
            same_numbers(a, b)
    else:
        assert a == b


@pytest.mark.parametrize("shape", SHAPES, ids=str)
@pytest.mark.parametrize("dtype", NUMERIC_DTYPES)
def test_numeric_round_trip(dtype, shape, no_leaks):
    x = (np.arange(int(np.prod(shape))) % 7).astype(dtype).reshape(shape)
    back = dj.decode(dj.encode(x))
    same(back, x)
    assert shape == (1, 1) or back.flags.f_contiguous


def objects(*items, shape=None):
    out = np.empty(len(items), dtype=object)
    for i, item in enumerate(items):
        out[i] = item
    return out.reshape(shape or (1, len(items)), order="F")


@pytest.mark.parametrize("value, expected", [
    (1.5, 1.5),
    (7, 7),
    (-2**53, -2**53),
    (True, True),
    (2 - 1j, 2 - 1j),
    (np.float64(0.25), 0.25),
    (np.int64(-3), -3),
    (np.bool_(False), False),
    (np.float32(0.5), np.float32(0.5)),
    (np.uint64(2**53), np.uint64(2**53)),
    (np.array(3, dtype="int16"), np.int16(3)),  # 0-d becomes 1x1, a scalar
    (np.array([1, 2], dtype="uint8"), np.array([[1, 2]], dtype="uint8")),  # 1-d becomes a row
    ("día\0x😀", "día\0x😀"),
    ("", ""),
    ({"b": 1.0, "a": "t"}, {"a": "t", "b": 1.0}),  # JSON objects are written in byte order
    ({}, {}),
    (types.MappingProxyType({"k": 2}), {"k": 2}),
    ([1.0, "a"], objects(1.0, "a")),  # a list is a 1xn cell
    ((), np.empty((1, 0), dtype=object)),
    (np.array(["ab", "c"]), objects("ab", "c")),  # written as a cell of texts
    (np.nan, np.nan),  # the defaults write the object form, which reads back
    (np.array([[np.inf, -np.inf]]), np.array([[np.inf, -np.inf]])),
], ids=repr)
def test_python_values(value, expected, no_leaks):
    same(dj.decode(dj.encode(value)), expected)


def test_containers_keep_their_shape(no_leaks):
    cell = objects("x", np.zeros((0, 2), dtype="int32"), shape=(2, 1))
    records = objects({"k": "a", "v": np.ones((2, 2))}, {"k": "b", "v": np.zeros((2, 1))})
    nested = np.empty((1, 1), dtype=object)
    nested[0, 0] = {"only": 1}  # a 1x1 object array of a dict stays a cell
    for value in (cell, records, {"inner": {"cell": cell}}, nested):
        same(dj.decode(dj.encode(value)), value)


def test_structure_arrays_without_fields_cost_nothing_per_element(no_leaks):
    a = dj.decode('{"tntype":"struct","tnsize":[30000,100000],"tndata":{}}')
    assert a.shape == (30000, 100000) and a.dtype == object and a.strides == (0, 0)
    assert not a.flags.writeable and a[123, 4567] == {} and a[0, 0] is a[-1, -1]
    with pytest.raises(TypeError):
        a[0, 0]["x"] = 1  # one mapping stands for every element: it cannot change
    small = dj.decode(dj.encode(a[:2, :3]))
    assert small.shape == (2, 3) and small.strides == (0, 0)


def test_any_strides_and_byte_order(no_leaks):
    base = np.arange(24, dtype=">f8").reshape(4, 6)
    for view in (base, base[::2, ::3], base.T, np.ascontiguousarray(base), np.asfortranarray(base)):
        same(dj.decode(dj.encode(view)), np.asfortranarray(view, dtype="float64"))


@pytest.mark.parametrize("rows", [2, 200])  # copied when small, handed over when large
def test_decoded_arrays_own_their_data(rows, no_leaks):
    a = dj.decode(dj.encode(np.arange(rows * 100.0).reshape(rows, 100)))
    assert a.flags.f_contiguous and a.flags.writeable
    assert a.base is None if rows == 2 else type(a.base).__name__ == "PyCapsule"
    a[0, 0] = -1.0
    assert a.sum() == np.arange(rows * 100.0).sum() - 1
    del a


def test_small_notation_and_string_form():
    x = np.array([[np.nan, np.inf, -np.inf, 1.0]])
    assert dj.encode(x, format="small") == '[[{"tndata":"NaN"},{"tndata":"Inf"},{"tndata":"-Inf"},1]]'
    same(dj.decode(dj.encode(x, format="small")), x)
    assert dj.decode(dj.encode(np.zeros((1, 3, 1)), format="small")).shape == (1, 3)  # trailing 1s are lost
    assert dj.encode(np.nan, nan_inf="string") == '{"tndata":["NaN"],"tnsize":[1,1],"tntype":"double"}'
    with pytest.raises(dj.Error):  # the "string" form does not read back
        dj.decode(dj.encode(np.nan, nan_inf="string"))


@pytest.mark.parametrize("text, expected", [
    ('{"tntype":"string","tnsize":[1,2],"tndata":["ab","c"]}', objects("ab", "c")),
    ('{"tntype":"string","tnsize":[2,1],"tndata":["ab",null]}', objects("ab", None, shape=(2, 1))),
    # One element per code unit: a pair split across elements stays split.
    ('{"tntype":"char","tnsize":[2,2],"tndata":["ab😀"]}', np.array([["a", "\ud83d"], ["b", "\ude00"]])),
])
def test_arrays_of_texts(text, expected):
    same(dj.decode(text), expected)


def test_decode_response():
    outputs = dj.decode_response('{"lhs": [1, "a", [1, 2, 3]]}')
    assert outputs[:2] == [1.0, "a"] and outputs[2].shape == (3, 1)
    assert dj.decode_response(bytearray(b'{"lhs": [true]}')) == [True]
    assert dj.decode_response('{"other": 1}') is False


@pytest.mark.parametrize("text", ['"bytes é"', '"bytes é"\n', b'"bytes \xc3\xa9"\n', bytearray(b'"bytes \xc3\xa9"\r\n'),
                                  memoryview(b'x"bytes \xc3\xa9"')[1:]], ids=repr)
def test_text_inputs(text):
    assert dj.decode(text) == "bytes é"


@pytest.mark.parametrize("value", [{"a": "día 😀", "b": [1.5, True]}, np.arange(3.0), "\ud800"], ids=repr)
def test_bytes_output_is_the_utf8_of_the_text(value):
    assert dj.encode(value, as_bytes=True) == dj.encode(value).encode("utf-8", "surrogatepass")


def test_files_in_text_and_binary_mode(tmp_path):
    value = {"a": np.arange(4, dtype="int8"), "b": "é"}
    for stream in (io.StringIO(), io.BytesIO()):
        dj.dump(value, stream, pretty=True)
        stream.seek(0)
        same(dj.load(stream), {"a": np.arange(4, dtype="int8")[None, :], "b": "é"})
    path = tmp_path / "doc.json"
    path.write_text('{"lhs": [1, "x"]}\n', encoding="utf-8")
    with open(path, "rb") as f:
        assert dj.load_response(f) == [1.0, "x"]


def test_options_are_keyword_only_and_text_positional_only():
    with pytest.raises(TypeError):
        dj.encode(1.0, "small")
    with pytest.raises(TypeError):
        dj.decode(text="1")
