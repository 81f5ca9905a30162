"""Primes with proof, for the scripts that make the tables of the residue transforms."""
from math import gcd


def small_factors(n):
    found, d = [], 2
    while d * d <= n:
        if n % d == 0:
            found.append(d)
            while n % d == 0:
                n //= d
        d += 1
    return found + ([n] if n > 1 else [])


def proved_prime(p):
    """p - 1 is factored whole (its odd part is small), so a witness for each factor proves p."""
    if any(p % d == 0 for d in (3, 5, 7, 11, 13)) or pow(2, p - 1, p) != 1:
        return False
    return all(any(pow(a, p - 1, p) == 1 and gcd(pow(a, (p - 1) // f, p) - 1, p) == 1 for a in range(2, 200))
               for f in small_factors(p - 1))
