// The last linear step of a series: from its fraction P/Q to the numerator and denominator of its value.
#pragma once

#include <algorithm>

#include "numbers/ram_store.h"
#include "splitting/psr_block.h"

namespace orl {

/// Outer coefficients: value = (P * p + Q * q) / (D * q) for the sum p/q. P and D are not zero, D is below 2^63.
struct SeriesCoefficients {
  s64 P = 1;
  s64 Q = 0;
  u64 D = 1;
};

/// n = P T + Q U and d = D U of a fraction T/U, and the hashes that follow from those of T and U.
template <class Store>
struct OuterFraction {
  typename Store::Number n, d;
  u64 n_hash = 0, d_hash = 0;
};

template <class Store>
class OuterSum;

/// In RAM: d takes the place of U at the start of the heap, and n that of T behind it.
template <class W>
class OuterSum<RamStore<W>> {
 public:
  using Fraction = SeriesFraction<RamStore<W>>;
  using Outer = OuterFraction<RamStore<W>>;

  /// For a fraction of at most `fraction_words` words each and a value to p words.
  OuterSum(const SeriesCoefficients& coefficients, u64 p, u64 fraction_words);

  /// Cuts n and d from `arena`; the work of run() takes some of what is left.
  template <class Arena>
  Outer cut(Arena& arena) const {
    return cut_all(arena).outer;
  }
  /// The sums of a fraction as PSR_Block leaves it at the start of `heap`, into `outer`, which was cut from that heap.
  void run(const RunContext& ctx, Fraction& fraction, Outer& outer, LinearHeapBuffer heap) const;

 private:
  struct Cuts {
    Outer outer;
    ExactFloat<W> work;
  };
  template <class Arena>
  Cuts cut_all(Arena& arena) const;

  SeriesCoefficients coefficients_;
  u64 p_;
  u64 d_words_, n_words_;
};

template <class W>
template <class Arena>
typename OuterSum<RamStore<W>>::Cuts OuterSum<RamStore<W>>::cut_all(Arena& arena) const {
  using Store = RamStore<W>;
  Cuts cuts;
  cuts.outer.d = Store::number(arena, d_words_, "orv_D.sf");
  Arena above = arena;
  Store::number(above, d_words_, "orv_T.sf");  // where T may still lie
  cuts.work = Store::exact(above, std::max(d_words_, n_words_) + 8, "orv_N.sf");
  cuts.outer.n = Store::number(arena, n_words_, "orv_N.sf");
  return cuts;
}

}  // namespace orl
