#!/usr/bin/env python3
"""Writes the prime sets and size tables of the integer residue transforms of 64 and 32 bits, and proves them.

Run from the top of the source tree: tools/make_ntt_tables.py
Proved: every prime (p - 1 is factored whole, with a witness for each factor), k * 2^e divides p - 1, leaves of eight
terms find their roots (n <= e + 3), half the product of a set exceeds every coefficient of every row, rows rise and
the last holds exactly the family's largest product.
"""
from math import log2, prod

from proved_primes import proved_prime

# bits: of a residue's word; primes lie between `lowest` * 2^(bits - 1) and 2^(bits - 1).
FAMILIES = {
    "ntt64": dict(bits=64, max_bits=0x3800000000000000, last=(8, 1, 54), lowest=0.93,
                  factors={P: (1, 3, 5, 7) for P in range(4, 9)}, other_work=8, join_work=1.2),
    "ntt32": dict(bits=32, max_bits=0x90000000, last=(4, 3, 24), lowest=0.85,
                  factors={4: (1, 3, 5), 5: (1, 3, 5), 6: (1, 3, 5), 7: (1, 3, 5, 7), 8: (1, 3, 5, 7)},
                  other_work=8, join_work=1.2),
}
SMALLEST_N = 6


def prime_set(family, count, k):
    """The set of the largest e that the interval of primes allows."""
    top = 1 << (family["bits"] - 1)
    for e in range(family["bits"] - 2, 0, -1):
        step, primes = k << e, []
        for c in range((top - 2) // step, 0, -1):
            p = c * step + 1
            if p < family["lowest"] * top or len(primes) == count:
                break
            if proved_prime(p):
                primes.append(p)
        if len(primes) == count:
            return e, primes
    raise SystemExit("no prime set")


def fits(bits, P, k, n, e, primes):
    """A coefficient has at most half of the points as terms; half of the modulus stays free."""
    terms = (k << n) // 2
    largest = terms * ((1 << (bits // 2 * (P - 1))) - 1) ** 2
    rounded = bits * (P - 1) + (terms - 1).bit_length() + 1  # what the program checks
    assert largest < 1 << (rounded - 1)
    return n <= e + 3 and rounded <= prod(primes).bit_length() - 1 and 2 * largest < prod(primes)


def write_family(name, family):
    bits = family["bits"]
    sets = {(P, k): prime_set(family, P, k) for P, ks in family["factors"].items() for k in ks}
    with open(f"src/transforms/{name}_sets.inc", "w") as out:
        out.write("// Written by tools/make_ntt_tables.py.\n")
        for (P, k), (e, primes) in sorted(sets.items()):
            out.write("{%d, %d, %d, {%s}},\n" % (P, k, e, ", ".join("0x%X" % p for p in primes)))
    rows = [(k * (P - 1) * bits << (n - 1), P, k, n) for (P, k), (e, primes) in sets.items()
            for n in range(SMALLEST_N, e + 4) if fits(bits, P, k, n, e, primes)]
    rows = [r for r in rows if r[0] <= family["max_bits"]]
    # A row that costs more than one of at least its capacity is of no use.
    cost = lambda r: r[1] * (r[2] << r[3]) * (r[3] + 2.0 * log2(r[2]) + family["other_work"] +
                                              family["join_work"] * r[1])
    rows.sort(key=lambda r: (r[0], -cost(r)))
    kept, best = [], None
    for r in reversed(rows):
        if r[1:] == family["last"] or (best is not None and cost(r) < best):
            best = cost(r)
            kept.append(r)
    kept.reverse()
    assert kept[-1][0] == family["max_bits"] and all(a[0] < b[0] for a, b in zip(kept, kept[1:]))
    with open(f"src/transforms/{name}_rows.inc", "w") as out:
        out.write("// Written by tools/make_ntt_tables.py.\n")
        for _, P, k, n in kept:
            out.write("{%d, %d, %d},\n" % (P, k, n))


for name, family in FAMILIES.items():
    write_family(name, family)
