// The series of the constants as they stand in the books, for comparison with the nodes of the program.
#pragma once

#include "constants/e.h"
#include "constants/pi.h"
#include "splitting/series_runner.h"

namespace orl::test {

inline MpzSeries mpz_pi(PiSeries series) {
  if (series == PiSeries::kChudnovsky)
    return {true, [](u64 k) {
              const Mpz r = Mpz(6 * k - 5) * Mpz(2 * k - 1) * Mpz(6 * k - 1);
              const Mpz p = r * (Mpz(13591409) + Mpz(545140134) * Mpz(k));
              const Mpz q = Mpz(10939058860032000) * Mpz(k) * Mpz(k) * Mpz(k);
              return MpzNode{Mpz(0) - p, q, Mpz(0) - r};
            }};
  return {
      true, [](u64 k) {
        const Mpz r = Mpz(2 * k - 1) * Mpz(4 * k - 3) * Mpz(4 * k - 1);
        return MpzNode{r * (Mpz(1103) + Mpz(26390) * Mpz(k)), Mpz(3073907232) * Mpz(k) * Mpz(k) * Mpz(k), r};
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

inline MpzSeries mpz_log2() {
  return {true, [](u64 k) {
            const Mpz r = Mpz(k) * Mpz(2 * k - 1);
            return MpzNode{r * Mpz(1794 * k + 1497), Mpz(216) * Mpz(6 * k + 1) * Mpz(6 * k + 5), r};
          }};
}

inline MpzSeries mpz_arcsinlemn(u64 x, u64 y) {
  return {true, [x, y](u64 k) {
            const Mpz r = Mpz(2 * k - 1) * Mpz(4 * k - 3) * Mpz(x * x) * Mpz(x * x);
            return MpzNode{r, Mpz(2 * k) * Mpz(4 * k + 1) * Mpz(y * y) * Mpz(y * y), r};
          }};
}

inline MpzSeries mpz_lemniscate() {
  return {true, [](u64 k) {
            const Mpz r = Mpz(12 * k - 11) * Mpz(12 * k - 7);
            return MpzNode{r * Mpz(126 * k + 5), Mpz(23958) * Mpz(k) * Mpz(k), r};
          }};
}

}  // namespace orl::test
