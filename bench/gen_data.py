#!/usr/bin/env python3
"""Writes the benchmark data sets into bench/data/ (git-ignored).

Every JSON text comes with a reference file written from the same Python
values, so the benchmark checks decoders against data that no JSON parser
produced. Binary files are little-endian; matrices are stored column-major
(first index fastest), the host's storage order.

    python3 bench/gen_data.py [--out DIR] [--force]

The seed is fixed: the same script writes the same bytes. A stamp file with
the script's digest lets a second run skip the work.
"""

import argparse
import hashlib
import json
import os
import random
import struct
import sys

SEED = 20261121
ROWS = COLS = 1000
N_INT32 = 1_000_000
N_STRINGS = 100_000
N_RECORDS = 20_000


def write_bytes(path, data):
    tmp = path + ".tmp"
    with open(tmp, "wb") as f:
        f.write(data)
    os.replace(tmp, path)


def column_major(rows):
    """The elements of a list of rows in storage order."""
    return [rows[i][j] for j in range(len(rows[0])) for i in range(len(rows))]


def small_notation_matrix(rows, fmt):
    # Row i is the outermost level: element (i, j) is json[i][j].
    return ("[" + ",".join("[" + ",".join(fmt(v) for v in row) + "]" for row in rows) + "]").encode()


def gen_doubles(rng, out):
    # Normal deviates give a realistic mix of magnitudes, signs and the odd
    # exponent form; repr() is the shortest text that reads back exactly.
    rows = [[rng.gauss(0.0, 1.0) for _ in range(COLS)] for _ in range(ROWS)]
    write_bytes(os.path.join(out, "doubles_1000x1000.json"), small_notation_matrix(rows, repr))
    write_bytes(os.path.join(out, "doubles_1000x1000.f64"), struct.pack("<%dd" % (ROWS * COLS), *column_major(rows)))


def gen_integers(rng, out):
    rows = [[rng.randint(0, 99999) for _ in range(COLS)] for _ in range(ROWS)]
    write_bytes(os.path.join(out, "integers_1000x1000.json"), small_notation_matrix(rows, str))
    write_bytes(os.path.join(out, "integers_1000x1000.f64"),
                struct.pack("<%dd" % (ROWS * COLS), *map(float, column_major(rows))))


def gen_int32(rng, out):
    values = [rng.randint(-2**31, 2**31 - 1) for _ in range(N_INT32)]
    text = '{"tndata":[' + ",".join(map(str, values)) + '],"tnsize":[1,%d],"tntype":"int32"}' % N_INT32
    write_bytes(os.path.join(out, "int32_1e6.json"), text.encode())
    write_bytes(os.path.join(out, "int32_1e6.i32"), struct.pack("<%di" % N_INT32, *values))


def gen_complex(rng, out):
    # Encoder input only: interleaved (re, im) pairs in storage order.
    pairs = []
    for _ in range(ROWS * COLS):
        pairs.append(rng.gauss(0.0, 1.0))
        pairs.append(rng.gauss(0.0, 1.0))
    write_bytes(os.path.join(out, "complex_1000x1000.c128"), struct.pack("<%dd" % len(pairs), *pairs))


# Pieces of string content: (JSON text, decoded text). Plain ASCII dominates,
# as in real payloads; the rest covers every escape form and raw UTF-8 of
# two, three and four bytes.
ASCII = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789 .,:;-_"
ESCAPES = [('\\"', '"'), ("\\\\", "\\"), ("\\/", "/"), ("\\b", "\b"), ("\\f", "\f"),
           ("\\n", "\n"), ("\\r", "\r"), ("\\t", "\t"), ("\\u0001", "\x01"), ("\\u001f", "\x1f")]
RAW_UTF8 = ["\u00e9", "\u00fc", "\u00df", "\u0416", "\u20ac", "\u4e2d", "\u6587", "\uff21",
            "\U0001F600", "\U0001D11E"]


def string_piece(rng):
    r = rng.random()
    if r < 0.86:
        c = rng.choice(ASCII)
        return c, c
    if r < 0.91:
        return rng.choice(ESCAPES)
    if r < 0.97:
        c = rng.choice(RAW_UTF8)
        return c, c
    # \u escapes of non-ASCII text, surrogate pairs for the astral plane.
    c = rng.choice(RAW_UTF8)
    cp = ord(c)
    if cp < 0x10000:
        return "\\u%04x" % cp, c
    cp -= 0x10000
    return "\\u%04X\\u%04X" % (0xD800 + (cp >> 10), 0xDC00 + (cp & 0x3FF)), c


def random_string(rng, max_pieces):
    n = rng.randint(0, max_pieces)
    text, value = [], []
    for _ in range(n):
        t, v = string_piece(rng)
        text.append(t)
        value.append(v)
    return '"' + "".join(text) + '"', "".join(value)


def pack_text(s):
    b = s.encode("utf-8")
    return struct.pack("<I", len(b)) + b


def pack_value(v):
    # A tagged value: 'b' bool, 'd' double, 's' UTF-8 text.
    if isinstance(v, bool):
        return b"b" + struct.pack("<B", v)
    if isinstance(v, (int, float)):
        return b"d" + struct.pack("<d", float(v))
    return b"s" + pack_text(v)


def gen_strings(rng, out):
    texts, values = [], []
    for _ in range(N_STRINGS):
        t, v = random_string(rng, 54)
        texts.append(t)
        values.append(v)
    # A response document: the response-decode builtin turns it into a
    # 100000-by-1 cell of char rows.
    write_bytes(os.path.join(out, "strings_100k.json"), ('{"lhs":[' + ",".join(texts) + "]}").encode())
    write_bytes(os.path.join(out, "strings_100k.ref"),
                struct.pack("<I", len(values)) + b"".join(pack_value(v) for v in values))


CITIES = ["Aarhus", "Bergen", "C\u00f3rdoba", "Dnipro", "Esbjerg", "Fukuoka \u798f\u5ca1", "Gda\u0144sk", "Hu\u00e9"]


def gen_records(rng, out):
    texts, records = [], []
    for i in range(N_RECORDS):
        name_text, name = random_string(rng, 16)
        city = rng.choice(CITIES)
        rec = {"id": i + 1, "name": name, "score": rng.gauss(50.0, 20.0), "active": rng.random() < 0.5,
               "city": city, "level": rng.randint(0, 9)}
        texts.append('{"id":%d,"name":%s,"score":%r,"active":%s,"city":%s,"level":%d}' % (
            rec["id"], name_text, rec["score"], "true" if rec["active"] else "false",
            json.dumps(city, ensure_ascii=False), rec["level"]))
        records.append(rec)
    text = '{"tndata":[' + ",".join(texts) + '],"tnsize":[%d,1],"tntype":"cell"}' % N_RECORDS
    write_bytes(os.path.join(out, "records_20k.json"), text.encode())
    # Decoded structures list their fields in ascending byte order of the keys.
    fields = sorted(records[0], key=lambda k: k.encode())
    ref = [struct.pack("<II", len(records), len(fields))] + [pack_text(f) for f in fields]
    for rec in records:
        ref.extend(pack_value(rec[f]) for f in fields)
    write_bytes(os.path.join(out, "records_20k.ref"), b"".join(ref))


# --- the shape suite ---------------------------------------------------------
#
# Records of an integer id, a short name, a boolean and a double score, with
# keys in byte order so that a decoded structure lists its fields in text
# order and writes back the same text; the same records plus a row of three
# numbers, or plus a record holding a record. Each body comes as a response
# and as a large-notation cell. Next to each JSON file: the host array it
# decodes to (.ref, a tagged tree made from the Python values, not from the
# text) and what a walk of the text in order meets (.walk).

N_MIXED = 4_000
NAME_LETTERS = "abcdefghijklmnopqrstuvwxyz"


def short_name(rng):
    n = rng.randint(3, 10)
    return rng.choice(NAME_LETTERS).upper() + "".join(rng.choice(NAME_LETTERS) for _ in range(n - 1))


def flat_record(rng, i):
    return {"id": i + 1, "name": short_name(rng), "ok": rng.random() < 0.5, "score": rng.gauss(50.0, 20.0)}


def with_row(rng, rec):
    out = dict(rec)
    out["row"] = [rng.gauss(0.0, 1.0) for _ in range(3)]
    return {k: out[k] for k in sorted(out, key=lambda k: k.encode())}


def with_nested(rng, rec):
    out = dict(rec)
    out["meta"] = {"city": rng.choice(CITIES),
                   "geo": {"lat": round(rng.uniform(-90, 90), 4), "lon": round(rng.uniform(-180, 180), 4)}}
    return {k: out[k] for k in sorted(out, key=lambda k: k.encode())}


def mixed_output(rng):
    kind = rng.choice(["matrix", "text", "scalar", "record", "int32"])
    if kind == "matrix":  # at least two columns: a one-column matrix writes back as a flat list
        rows, cols = rng.randint(1, 8), rng.randint(2, 8)
        return [[rng.gauss(0.0, 1.0) for _ in range(cols)] for _ in range(rows)]
    if kind == "text":
        return "".join(string_piece(rng)[1] for _ in range(rng.randint(1, 30)))
    if kind == "scalar":
        return rng.choice([rng.gauss(0.0, 100.0), rng.randint(-10**6, 10**6), rng.random() < 0.5])
    if kind == "record":
        return flat_record(rng, rng.randint(0, 10**6))
    k = rng.randint(2, 40)
    return {"tndata": [rng.randint(-2**31, 2**31 - 1) for _ in range(k)], "tnsize": [1, k], "tntype": "int32"}


def pack_tree(v):
    """The host array v decodes to, in the .ref tags: 'b', 'd', 's' as above;
    'm' double matrix, 'i' int32 matrix (u32 rows, u32 cols, column-major
    values); 'c' cell (rows, cols, elements); 'r' 1x1 structure (u32 field
    count, then name and value of each field in byte order of the names)."""
    if isinstance(v, (bool, int, float, str)):
        return pack_value(v)
    if isinstance(v, list):
        rows = v if v and isinstance(v[0], list) else [[x] for x in v]
        return b"m" + struct.pack("<II", len(rows), len(rows[0])) + struct.pack(
            "<%dd" % (len(rows) * len(rows[0])), *map(float, column_major(rows)))
    if v.get("tntype") == "cell":
        rows, cols = v["tnsize"]
        return b"c" + struct.pack("<II", rows, cols) + b"".join(pack_tree(x) for x in v["tndata"])
    if v.get("tntype") == "int32":
        rows, cols = v["tnsize"]
        return b"i" + struct.pack("<II", rows, cols) + struct.pack("<%di" % len(v["tndata"]), *v["tndata"])
    keys = sorted(v, key=lambda k: k.encode())
    return b"r" + struct.pack("<I", len(keys)) + b"".join(pack_text(k) + pack_tree(v[k]) for k in keys)


def walk_totals(v, t):
    """What a walk of the text in order meets: [numbers, their sum (added
    left to right, as a reader walking the text adds them), string bytes,
    trues, falses]. Keys are not values."""
    if isinstance(v, bool):
        t[3 if v else 4] += 1
    elif isinstance(v, (int, float)):
        t[0] += 1
        t[1] += v
    elif isinstance(v, str):
        t[2] += len(v.encode("utf-8"))
    elif isinstance(v, list):
        for x in v:
            walk_totals(x, t)
    else:
        for x in v.values():
            walk_totals(x, t)
    return t


def write_shape(out, name, doc, decoded):
    text = json.dumps(doc, ensure_ascii=False, separators=(",", ":"), allow_nan=False)
    write_bytes(os.path.join(out, name + ".json"), text.encode())
    write_bytes(os.path.join(out, name + ".ref"), pack_tree(decoded))
    n, total, string_bytes, trues, falses = walk_totals(doc, [0, 0.0, 0, 0, 0])
    write_bytes(os.path.join(out, name + ".walk"), struct.pack("<QdQQQ", n, total, string_bytes, trues, falses))


def gen_shapes(rng, out):
    flat = [flat_record(rng, i) for i in range(N_RECORDS)]
    bodies = {"flat": flat, "row": [with_row(rng, r) for r in flat], "nested": [with_nested(rng, r) for r in flat]}
    for kind, records in bodies.items():
        cell = {"tntype": "cell", "tnsize": [len(records), 1], "tndata": records}
        # A response decodes to the cell of its outputs, as the cell does.
        write_shape(out, "response_" + kind, {"lhs": records}, cell)
        write_shape(out, "cell_" + kind, cell, cell)
    outputs = [mixed_output(rng) for _ in range(N_MIXED)]
    write_shape(out, "mixed_4000", {"lhs": outputs}, {"tntype": "cell", "tnsize": [N_MIXED, 1], "tndata": outputs})


GENERATORS = [gen_doubles, gen_integers, gen_int32, gen_complex, gen_strings, gen_records, gen_shapes]


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--out", default=os.path.join(here, "data"))
    ap.add_argument("--force", action="store_true", help="write the files even if the stamp is current")
    args = ap.parse_args()

    with open(os.path.abspath(__file__), "rb") as f:
        digest = hashlib.sha256(f.read()).hexdigest()
    os.makedirs(args.out, exist_ok=True)
    stamp = os.path.join(args.out, "stamp")
    if not args.force and os.path.exists(stamp) and open(stamp).read().strip() == digest:
        print("bench data up to date in %s" % args.out)
        return 0

    for gen in GENERATORS:
        # One generator per stream, so a change to one data set leaves the
        # others' bytes alone.
        gen(random.Random("%d:%s" % (SEED, gen.__name__)), args.out)
    write_bytes(stamp, (digest + "\n").encode())
    for name in sorted(os.listdir(args.out)):
        if name != "stamp":
            print("%-26s %10.2f MB" % (name, os.path.getsize(os.path.join(args.out, name)) / 1e6))
    return 0


if __name__ == "__main__":
    sys.exit(main())
