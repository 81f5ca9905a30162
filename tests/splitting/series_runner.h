// Ranges of a series run with exactly the planned memory, and the same ranges by GMP.
#pragma once

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "functions/function_runner.h"
#include "splitting/psr_series.h"

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

template <class W>
Mpz mpz_of(const ExactFloat<W>& x) {
  const Mpz magnitude = Mpz(x.T, x.L) << static_cast<u64>(x.exp) * 8 * sizeof(W);
  return x.sign ? magnitude : Mpz(0) - magnitude;
}

/// Output buffers of a recursion, between guards.
template <class W>
class NodeBuffers {
 public:
  NodeBuffers(const SeriesKind<W>& kind, const NodeWords& words) : words_(words) {
    node.count = kind.numbers();
    for (u32 i = 0; i < node.count; ++i) {
      stores_[i].assign(words[i] + 2 * kGuard, kPoison);
      node[i] = ExactFloat<W>(stores_[i].data() + kGuard, words[i]);
    }
  }
  bool intact() const {
    const auto poisoned = [](W word) { return word == kPoison; };
    for (u32 i = 0; i < node.count; ++i)
      if (!std::all_of(stores_[i].begin(), stores_[i].begin() + kGuard, poisoned) ||
          !std::all_of(stores_[i].end() - kGuard, stores_[i].end(), poisoned))
        return false;
    return true;
  }
  SeriesNode<W> node;

 private:
  static constexpr s64 kGuard = 8;
  static constexpr W kPoison = static_cast<W>(0x5bd1e995a5a5a5a5);
  NodeWords words_;
  std::vector<W> stores_[kMaxNodeNumbers];
};

/// Runs the sum of a plan alone.
template <class W>
void run_fraction(const PSR_SeriesB<W>& plan, const RunContext& ctx, SeriesFraction<RamStore<W>>& fraction,
                  LinearHeapBuffer heap) {
  plan.run_fraction(ctx, frame, fraction, heap);
}

}  // namespace orl::test
