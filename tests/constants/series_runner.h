// Ranges of a series run with exactly the planned memory, and the same ranges by GMP.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "constants/e.h"
#include "constants/pi.h"
#include "functions/function_runner.h"
#include "splitting/binary_splitting.h"

namespace orl::test {

/// Signed integers of a range.
struct MpzNode {
  Mpz P, Q, R;
};

/// One term and the merge rule, as they stand in the books: minus signs are in R.
struct MpzSeries {
  bool has_R;
  std::function<MpzNode(u64 k)> term;

  MpzNode range(u64 a, u64 b) const {
    if (b - a == 1) return term(b);
    const u64 m = a + (b - a) / 2;
    const MpzNode l = range(a, m), r = range(m, b);
    return {l.P * r.Q + l.R * r.P, l.Q * r.Q, l.R * r.R};
  }
};

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
inline MpzSeries mpz_e(bool alternating) {
  return {false, [alternating](u64 k) {
            return MpzNode{Mpz(1), Mpz(k), alternating ? Mpz(0) - Mpz(1) : Mpz(1)};
          }};
}

template <class W>
Mpz mpz_of(const ExactFloat<W>& x) {
  const Mpz magnitude = Mpz(x.T, x.L) << static_cast<u64>(x.exp) * 8 * sizeof(W);
  return x.sign ? magnitude : Mpz(0) - magnitude;
}

/// Output buffers of a recursion, between guards.
template <class W>
class NodeBuffers {
 public:
  explicit NodeBuffers(u64 words) : words_(words), store_(3 * (words + 2 * kGuard), kPoison) {
    ExactFloat<W>* const numbers[3] = {&node.P, &node.Q, &node.R};
    for (u64 i = 0; i < 3; ++i) *numbers[i] = ExactFloat<W>(at(i), words);
  }
  bool intact() {
    for (u64 i = 0; i < 3; ++i)
      for (u64 g = 0; g < kGuard; ++g)
        if (at(i)[words_ + g] != kPoison || at(i)[-static_cast<s64>(g) - 1] != kPoison) return false;
    return true;
  }
  SeriesNode<W> node;

 private:
  static constexpr u64 kGuard = 8;
  static constexpr W kPoison = static_cast<W>(0x5bd1e995a5a5a5a5);
  W* at(u64 i) { return store_.data() + i * (words_ + 2 * kGuard) + kGuard; }
  u64 words_;
  std::vector<W> store_;
};

}  // namespace orl::test
