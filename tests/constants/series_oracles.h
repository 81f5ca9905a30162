// The series of the constants as they stand in the books, for comparison with the nodes of the program.
#pragma once

#include "constants/e.h"
#include "constants/pi.h"
#include "splitting/series_runner.h"

namespace orl::test {

inline Mpz mpz_at(const LinearProduct& product, u64 k) {
  Mpz value(product.scale);
  for (const LinearFactor& f : product.factors)
    for (u32 i = 0; i < f.times; ++i)
      value = value * (Mpz(f.slope) * Mpz(k) + (f.constant < 0 ? Mpz(0) - Mpz(static_cast<u64>(-f.constant))
                                                               : Mpz(static_cast<u64>(f.constant))));
  return value;
}

/// What a row of data says; that the constants' rows are right is seen by their values.
inline MpzSeries mpz_terms(const TermSeries& of) {
  return {true, [of](u64 k) {
            const Mpz R = mpz_at(of.R, k);
            Mpz P(0);
            for (const s64 c : of.P.polynomial) {
              P = P * Mpz(k);
              P = c < 0 ? P - Mpz(static_cast<u64>(-c)) : P + Mpz(static_cast<u64>(c));
            }
            P = P * mpz_at(of.P.product, k);
            if (of.P.times_R) P = P * R;
            return MpzNode{of.P.negative ? Mpz(0) - P : P, mpz_at(of.Q, k), of.alternating ? Mpz(0) - R : R};
          }};
}

/// Hyperdescent is the common rule with R = 1, or -1 when it alternates.
inline MpzSeries mpz_e(ETaylor series) {
  const bool alternating = series == ETaylor::kAlternating;
  return {false, [alternating](u64 k) {
            return MpzNode{Mpz(1), Mpz(k), alternating ? Mpz(0) - Mpz(1) : Mpz(1)};
          }};
}

inline MpzSeries mpz_arccoth(u64 x) {
  return {true, [x](u64 k) {
            const Mpz r = Mpz(2 * k + 1);
            return MpzNode{Mpz(1), Mpz(x) * Mpz(x) * r, r};
          }};
}

}  // namespace orl::test
