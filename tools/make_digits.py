#!/usr/bin/python3
"""Writes the stored digits of every constant, which runs compare theirs with.

    tools/make_digits.py [FOLDER]      (default: Digits/ of this tree)

Run by the python that the packages belong to. The digits are mpmath's (package python3-mpmath): its formulas and its arithmetic share nothing with this
program. Each value is compared with MPFR's (package python3-gmpy2), or one by another formula, before it is
written: the integer part, the point, the first 10,000 decimal digits, cut and not rounded, and no line end.
A file is named after the constant as the program names it.
"""

import pathlib
import sys

import gmpy2
import mpmath

DIGITS = 10000
GUARD_DIGITS = 50

def zeta3_by_binomials():
    """5/2 sum (-1)^(k-1) / (k^3 binomial(2k, k)), in integers."""
    scale = 10 ** (DIGITS + 2 * GUARD_DIGITS)
    total, inverse, k = 0, scale, 0
    while inverse:
        k += 1
        inverse = inverse * k // (2 * (2 * k - 1))
        total += inverse // k ** 3 if k % 2 else -(inverse // k ** 3)
    return gmpy2.mpfr(5 * total) / (2 * scale)


def lemniscate_by_arcsines():
    """8 arcsl(1/2) + 4 arcsl(7/23), arcsl(x) = sum binomial(2k, k) x^(4k+1) / (4^k (4k+1)), in integers."""
    scale = 10 ** (DIGITS + 2 * GUARD_DIGITS)
    total = 0
    for factor, p, q in ((8, 1, 2), (4, 7, 23)):
        term, k = factor * scale * p // q, 0
        while term:
            total += term // (4 * k + 1)
            k += 1
            term = term * (2 * k - 1) * p ** 4 // (2 * k * q ** 4)
    return gmpy2.mpfr(total) / scale


# Name, the value by mpmath, the same by MPFR.
CONSTANTS = [
    ("Pi", lambda: +mpmath.pi, gmpy2.const_pi),
    ("e", lambda: +mpmath.e, lambda: gmpy2.exp(1)),
    ("Golden Ratio", lambda: +mpmath.phi, lambda: (gmpy2.sqrt(5) + 1) / 2),
    ("Sqrt(2)", lambda: mpmath.sqrt(2), lambda: gmpy2.sqrt(2)),
    ("Log(2)", lambda: +mpmath.ln2, gmpy2.const_log2),
    # MPFR's zeta takes many minutes here.
    ("Zeta(3)", lambda: +mpmath.apery, lambda: zeta3_by_binomials()),
    ("Catalan", lambda: +mpmath.catalan, gmpy2.const_catalan),
    ("Lemniscate", lambda: 2 * mpmath.pi / mpmath.agm(1, mpmath.sqrt(2)), lambda: lemniscate_by_arcsines()),
    ("Euler-Mascheroni Constant", lambda: +mpmath.euler, gmpy2.const_euler),
]


def text_of(scaled):
    """Floor(x * 10^(DIGITS + GUARD_DIGITS)) as text with the point, cut to DIGITS."""
    text = str(scaled).rjust(DIGITS + GUARD_DIGITS + 1, "0")
    point = len(text) - DIGITS - GUARD_DIGITS
    guard = text[point + DIGITS:]
    # A run of equal guard digits would leave the last digit to rounding.
    assert guard[:20] not in ("0" * 20, "9" * 20), "more guard digits are needed"
    return text[:point] + "." + text[point:point + DIGITS]


def main():
    root = pathlib.Path(__file__).resolve().parent.parent
    folder = pathlib.Path(sys.argv[1]) if len(sys.argv) > 1 else root / "Digits"
    folder.mkdir(parents=True, exist_ok=True)
    sys.set_int_max_str_digits(0)
    mpmath.mp.dps = DIGITS + 2 * GUARD_DIGITS
    gmpy2.get_context().precision = int((DIGITS + 2 * GUARD_DIGITS) * 3.33)
    scale = 10 ** (DIGITS + GUARD_DIGITS)
    for name, by_mpmath, by_mpfr in CONSTANTS:
        text = text_of(int(mpmath.floor(by_mpmath() * scale)))
        second = text_of(int(gmpy2.floor(by_mpfr() * scale)))
        if text != second:
            sys.exit(f"{name}: mpmath and MPFR disagree")
        (folder / f"{name}.txt").write_bytes(text.encode())
        print(f"{name}: {text[:22]}... {len(text.split('.')[1])} digits")


if __name__ == "__main__":
    main()
