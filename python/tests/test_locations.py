"""Conversion errors say where: the path to the value at fault and its
place in the UTF-8 text, beside the catalogued error."""

import pytest

import dovra_json as dj

pytestmark = pytest.mark.skipif(
    not hasattr(dj.Error("", "", ()), "path"),
    reason="dovra_json.Error has no .path in this build")


def _error_of(text):
    with pytest.raises(dj.Error) as caught:
        dj.decode(text)
    return caught.value


# "@" marks the first byte of the value at fault; the document is the text
# without it.
@pytest.mark.parametrize("marked, identifier, path", [
    ('{"rows":[[1,2],[3,@null]]}', "DecodeArrayInconsistentTypes", "$.rows[1][1]"),
    ('[[1,true],[@null,2]]', "DecodeArrayInconsistentTypes", "$[1][0]"),
    ('{"tntype":"int8","tnsize":[1,3],"tndata":[1,2,@300]}', "DecodeInvalidIntegralElem", "$.tndata[2]"),
    ('{"z":@{"tntype":"double","tnsize":[1,3],"tndata":[1,2]}}', "DecodeMismatchedTNSize", "$.z"),
    ('{"tntype":@7,"tnsize":[1,1],"tndata":[1]}', "DecodeInvalidPropertyType", "$.tntype"),
    ('{"\u00e9t\u00e9":@null}', "DecodeNullNotSupported", '$["\u00e9t\u00e9"]'),
])
def test_conversion_errors_say_where(marked, identifier, path):
    text = marked.replace("@", "")
    offset = len(marked[:marked.index("@")].encode("utf-8"))
    e = _error_of(text)
    assert e.identifier == "DOVRA:IXTAL:JSON:" + identifier
    assert (e.path, e.offset, e.line, e.column) == (path, offset, 1, offset)


def test_line_and_column_count_bytes_of_the_utf8_text():
    e = _error_of('{\n  "\u00e9": [1,\n    "x"]\n}')
    assert (e.path, e.line, e.column, e.offset) == ('$["\u00e9"][1]', 3, 4, 18)


def test_parse_errors_have_no_path():
    e = _error_of("[1,\n 2,")
    assert e.path is None
    assert (e.line, e.column, e.offset) == (2, 3, 7)
