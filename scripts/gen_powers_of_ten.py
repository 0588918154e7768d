#!/usr/bin/env python3
"""Writes ixtal/src/json/powers_of_ten.inc: the powers of ten the shortest
double writer multiplies by, 128 bits each, and checks the integer formulas
for floor(log10 2^q), floor(log10 (3/4 2^q)) and floor(log2 10^e) that the
writer uses over every exponent it meets.

Entry e - kLeast approximates 10^e as g * 2^(floor(log2 10^e) - 127) with
g = floor(10^e * 2^(127 - floor(log2 10^e))) + 1, so 2^127 <= g < 2^128 and
g overestimates by at most one unit: a product with it, cut to 64 bits and
rounded to odd, compares with whole numbers as the exact product does.

Usage: python3 scripts/gen_powers_of_ten.py  (from the tree's root)
"""

import os

LEAST, MOST = -292, 326  # 10^-k for the k of every double's exponent
Q_LEAST, Q_MOST = -1074 - 2, 971 + 2


def floor_log2_pow10(e):
    if e >= 0:
        return (10 ** e).bit_length() - 1
    return -((10 ** -e - 1).bit_length())  # 10^-e is no power of two


def floor_log10_pow2(q, three_quarters=False):
    # The largest k with 10^k <= 2^q (times 3/4), exactly.
    num, den = (2 ** q, 1) if q >= 0 else (1, 2 ** -q)
    if three_quarters:
        num *= 3
        den *= 4
    k = len(str(num // den)) - 1 if num >= den else -1
    if num < den:
        while num * 10 ** -k < den:
            k -= 1
    return k


def check_formulas():
    for q in range(Q_LEAST, Q_MOST + 1):
        assert (q * 661971961083) >> 41 == floor_log10_pow2(q), q
        assert (q * 661971961083 - 274743187321) >> 41 == floor_log10_pow2(q, True), q
    for e in range(LEAST - 2, MOST + 2):
        assert (e * 913124641741) >> 38 == floor_log2_pow10(e), e


def entry(e):
    f = floor_log2_pow10(e)
    shift = 127 - f
    if e >= 0:
        g = (10 ** e << shift) if shift >= 0 else (10 ** e >> -shift)
    else:
        g = (1 << shift) // 10 ** -e
    g += 1
    assert 1 << 127 <= g < 1 << 128, e
    return g


def main():
    check_formulas()
    here = os.path.dirname(os.path.abspath(__file__))
    out = os.path.join(here, "..", "ixtal", "src", "json", "powers_of_ten.inc")
    lines = [
        "// Written by scripts/gen_powers_of_ten.py: do not edit.",
        "// {high, low} of g for 10^%d to 10^%d (see the script)." % (LEAST, MOST),
        "inline constexpr int kLeastPowerOfTen = %d;" % LEAST,
        "inline constexpr std::uint64_t kPowersOfTen128[][2] = {",
    ]
    values = [entry(e) for e in range(LEAST, MOST + 1)]
    for i in range(0, len(values), 2):
        pair = values[i:i + 2]
        lines.append("    " + " ".join("{0x%016x, 0x%016x}," % (g >> 64, g & (2 ** 64 - 1)) for g in pair))
    lines.append("};")
    with open(out, "w") as f:
        f.write("\n".join(lines) + "\n")


if __name__ == "__main__":
    main()
