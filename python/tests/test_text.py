"""Text at the edges: the highest character picks Python's kind, and text is
read eight or sixteen units at a time, long text in pieces of 4096, so a
character is placed at each end of a block and of a piece."""

import json

import pytest

import dovra_json as dj

CHARACTERS = {"NUL": "\x00", "highest ASCII": "\x7f", "lowest Latin-1": "\x80", "highest Latin-1": "\xff",
              "lowest beyond Latin-1": "\u0100", "below the surrogates": "\ud7ff", "above the surrogates": "\ue000",
              "highest BMP": "\uffff", "lowest astral": "\U00010000", "highest astral": "\U0010ffff"}
# (length, position of the character): a text of one character, the ends
# of the first blocks (an astral character's pair straddles 7|8 and
# 15|16), a tail shorter than a block, and a long text's first and later
# pieces.
PLACES = [(1, 0), (7, 6), (9, 7), (9, 8), (16, 15), (17, 15), (17, 16), (33, 32), (70_000, 0), (70_000, 4095),
          (70_000, 4096), (70_000, 69_999)]


def text(character, length, at):
    return "x" * at + character + "x" * (length - at - 1)


@pytest.mark.parametrize("length, at", PLACES, ids=str)
@pytest.mark.parametrize("character", CHARACTERS.values(), ids=CHARACTERS.keys())
def test_text_comes_back(character, length, at):
    s = text(character, length, at)
    assert dj.decode(json.dumps(s, ensure_ascii=False)) == s
    assert dj.decode_response(json.dumps({"lhs": [s, s[:3]]})) == [s, s[:3]]
    written = dj.encode(s)
    assert dj.decode(written) == s
    assert dj.encode(s, as_bytes=True) == written.encode("utf-8")


# The library writes an unpaired surrogate as U+FFFD; a pair, wherever it
# falls, is one character.
@pytest.mark.parametrize("s, expected", [
    ("", ""),
    ("\ud800", "\ufffd"),
    ("a\udc00", "a\ufffd"),
    ("\udc00\ud800", "\ufffd\ufffd"),
    ("\ud83d\ud83d\ude00", "\ufffd\U0001f600"),
    ("x" * 7 + "\ud83d\ude00", "x" * 7 + "\U0001f600"),
    ("x" * 15 + "\ud83d", "x" * 15 + "\ufffd"),
    ("\U0001f600" * 5 + "\ud800" + "y" * 9, "\U0001f600" * 5 + "\ufffd" + "y" * 9),
    ("x" * 5000 + "\udfff" + "\U0001f600" + "x" * 70_000, "x" * 5000 + "\ufffd\U0001f600" + "x" * 70_000),
], ids=lambda v: ascii(v)[:24])
def test_unpaired_surrogates_and_empty_text(s, expected):
    assert dj.decode(json.dumps(s, ensure_ascii=False)) == expected
    written = dj.encode(s)
    assert dj.decode(written) == expected
    assert dj.encode(s, as_bytes=True) == written.encode("utf-8")
