// Formulas of logarithms held against GMP and MPFR.
#pragma once

#include <mpfr.h>

#include <cmath>
#include <cstdlib>

#include "machin/formula.h"
#include "support/gmp_oracle.h"

namespace orl::test {

/// prod (x + 1)^c = n^2 prod (x - 1)^c with every negative power on the other side: as integers where they
/// are short, and modulo the prime 2^4253 - 1 where they have millions of bits.
inline bool is_exact_by_gmp(const MachinFormula& formula, u64 n) {
  double bits = 0;
  for (const MachinTerm& term : formula)
    bits += std::fabs(static_cast<double>(term.coefficient)) * std::log2(static_cast<double>(term.x) + 1);
  const bool whole = bits < 1e6;
  Mpz modulus(1);
  mpz_mul_2exp(modulus, modulus, 4253);
  mpz_sub_ui(modulus, modulus, 1);
  Mpz sides[2] = {Mpz(1), Mpz(n * n)};
  const auto multiply = [&](Mpz& side, u64 base, u64 exponent) {
    Mpz power(base);
    if (whole)
      mpz_pow_ui(power, power, exponent);
    else
      mpz_powm_ui(power, power, exponent, modulus);
    mpz_mul(side, side, power);
    if (!whole) mpz_mod(side, side, modulus);
  };
  for (const MachinTerm& term : formula) {
    const bool negative = term.coefficient < 0;
    const u64 exponent = static_cast<u64>(std::abs(term.coefficient));
    multiply(sides[negative], term.x + 1, exponent);
    multiply(sides[!negative], term.x - 1, exponent);
  }
  return sides[0] == sides[1];
}

/// Decimal digits to which the sum agrees with ln n, in arithmetic of 1000 bits.
inline double digits_by_mpfr(const MachinFormula& formula, u64 n) {
  mpfr_t sum, term;
  mpfr_inits2(1000, sum, term, nullptr);
  mpfr_log_ui(sum, n, MPFR_RNDN);
  mpfr_neg(sum, sum, MPFR_RNDN);
  for (const MachinTerm& part : formula) {
    mpfr_set_ui(term, part.x, MPFR_RNDN);
    mpfr_ui_div(term, 1, term, MPFR_RNDN);
    mpfr_atanh(term, term, MPFR_RNDN);
    mpfr_mul_si(term, term, part.coefficient, MPFR_RNDN);
    mpfr_add(sum, sum, term, MPFR_RNDN);
  }
  const double digits = mpfr_zero_p(sum) ? 1000 : -static_cast<double>(mpfr_get_exp(sum)) * std::log10(2.0);
  mpfr_clears(sum, term, nullptr);
  return digits;
}

}  // namespace orl::test
