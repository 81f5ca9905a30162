#!/usr/bin/env python3
"""Writes the prime sets and the size tables of "C17", "VST" and "HNT", and proves them.

Run from the top of the source tree: tools/make_residue_tables.py
Shapes of up to 2^SHARED_LEVELS points per odd factor share the first primes of one list, so that their tables are those of nine
primes; larger ones have sets of their own.
Proved: every prime by Pocklington's criterion (the factored part of p - 1 exceeds sqrt(p)), k * 2^e divides p - 1,
the product of a set exceeds twice every coefficient of every row, wrapped forms included, and 1 / 2048 more; rows rise and reach the family's largest product.
"""
from math import log2, prod

from proved_primes import proved_prime

LIMIT = 1 << 48
MAX_BITS = 0x12C0000000000
HNT_MAX_BITS = 0x7FFF0000000
MAX_REMAINDER = 0x6000000 // 64
SHARED_LEVELS = 32
SHARED_ODD = 105
FACTORS = {6: (1, 3, 5), 7: (1, 3, 5), 8: (1, 3, 5, 7), 9: (1, 3, 5, 7)}


def prime_set(count, k):
    for e in range(46, 20, -1):
        step = k << e
        primes = [c * step + 1 for c in range((LIMIT - 1) // step, 0, -1)]
        primes = [p for p in primes if (1 << 46 if k == 1 else 5 << 43) < p < LIMIT and proved_prime(p)]
        if len(primes) >= count:
            return e, primes[:count]
    raise SystemExit("no prime set")


def shared_primes(count):
    step = SHARED_ODD << SHARED_LEVELS
    primes = (c * step + 1 for c in range((LIMIT - 1) // step, 0, -1))
    return [p for p in primes if proved_prime(p)][:count]


def stretch(row, above, cost):
    """Per mille by which a product may pass a row: made modulo W^n - 1 it costs a per cent more than the row, and the product
    of its lowest words, which is twice as long as they are. Small products are not worth the trouble."""
    if row[2] << row[3] < 1 << 15:
        return 0
    return max(0, int(1000 * min((cost(above) / cost(row) - 1.01) / 2.2, above[0] / row[0] - 1)))


def write_rows(path, rows, cost, stretched=False):
    """The rows that are of use: one that costs more than another of at least its capacity is not. A `stretched` row says
    how far products pass it."""
    rows = sorted(rows, key=lambda r: (r[0], -cost(r)))
    kept, best = [], None
    for r in reversed(rows):
        if best is None or cost(r) < best:
            best = cost(r)
            kept.append(r)
    kept.reverse()
    last = next(i for i, r in enumerate(kept) if r[0] >= MAX_BITS)
    with open(path, "w") as out:
        out.write("// Written by tools/make_residue_tables.py.\n")
        for row, above in zip(kept[: last + 1], kept[1 : last + 1] + [None]):
            columns = list(row[1:]) + ([stretch(row, above, cost) if above else 0] if stretched else [])
            out.write("{%s},\n" % ", ".join(map(str, columns)))


def main():
    shared = shared_primes(9)
    sets = {}
    for P in range(4, 10):
        for k in (1, 3, 5, 7):
            sets[P, k] = [(SHARED_LEVELS, shared[:P]), prime_set(P, k)]
    with open("src/transforms/c17/residue_sets.inc", "w") as out:
        out.write("// Written by tools/make_residue_tables.py.\n")
        for (P, k), both in sorted(sets.items()):
            for e, primes in both:
                out.write("{%d, %d, %d, {%s}},\n" % (P, k, e, ", ".join("0x%X" % p for p in primes)))
    rows = []
    for P, ks in FACTORS.items():
        for k in ks:
            for n in range(8, sets[P, k][1][0] + 1):
                primes = sets[P, k][n > SHARED_LEVELS][1]
                # Where a product wraps, a coefficient has all points as terms and may be negative; the join's
                # estimate asks for 2^-12 of the modulus besides.
                if (1 << 12) * (k << n) * (((1 << 24 * (P - 1)) - 1) ** 2) <= ((1 << 11) - 1) * prod(primes):
                    rows.append((k * (P - 1) * 48 << (n - 1), P, k, n))
    points = lambda r: r[1] * (r[2] << r[3])
    # C17: what a residue costs, in levels, fitted to cyclic products at the capacities of all shapes of 2^24 to 2^25 and of
    # 2^26 to 2^27 bits (Intel Xeon with AVX-512, 2026-11): within 8 % of each of them.
    odd_levels = {1: 0, 3: 1.6, 5: 2.5, 7: 4.4}
    write_rows("src/transforms/c17/residue_rows.inc", [r for r in rows if r[2] << r[3] >= 1 << 9],
               lambda r: points(r) * (r[3] + odd_levels[r[2]] - 7.4 + 0.38 * r[1]), stretched=True)
    # VST: an odd factor's k - 1 products a point cost as much as 1.75 (k - 1) levels.
    write_rows("src/transforms/vst/vst_rows.inc", rows,
               lambda r: points(r) * (r[3] + 1.75 * (r[2] - 1) + 8 + 1.2 * r[1]))

    # HNT: of a product of 2 R words by the FFT, a level of a point costs half a level of a residue; rows stand 2 %
    # apart.
    def hybrid_cost(r):
        fft = 64 * r[4] / 17
        return points(r) * (r[3] + 1.75 * (r[2] - 1) + 8 + 1.2 * r[1]) + 0.5 * fft * (log2(fft) + 10)

    hybrid = []
    for bits, P, k, n in rows:
        words = bits // 32
        lengths = {max(64, words * i // 64 // 64 * 64) for i in (1, 2, 3, 4, 6, 8, 12, 16, 24)}
        for R in {min(R, MAX_REMAINDER) for R in lengths}:
            hybrid.append((32 * (words + R - 1), P, k, n, R))
    hybrid.sort(key=lambda r: (r[0], -hybrid_cost(r)))
    kept, best = [], None
    for r in reversed(hybrid):
        if best is None or (hybrid_cost(r) < best and r[0] < 0.98 * kept[-1][0]):
            best = hybrid_cost(r)
            kept.append(r)
    kept.reverse()
    last = next(i for i, r in enumerate(kept) if r[0] >= HNT_MAX_BITS)
    with open("src/transforms/hnt/hnt_rows.inc", "w") as out:
        out.write("// Written by tools/make_residue_tables.py.\n")
        for row in kept[: last + 1]:
            out.write("{%d, %d, %d, %d},\n" % row[1:])


main()
