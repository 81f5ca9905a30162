// The last linear step of a series: from its fraction P/Q to the numerator and denominator of its value.
#pragma once

#include "numbers/ram_store.h"
#include "splitting/psr_block.h"

namespace orl {

/// Outer coefficients: value = (P * p + Q * q) / (D * q) for the sum p/q. P and D are not zero, D is below 2^63.
struct SeriesCoefficients {
  s64 P = 1;
  s64 Q = 0;
  u64 D = 1;
};

/// n = P T + Q U and d = D U of a fraction T/U, and the hashes that follow from those of T and U: whoever compares them
/// with the words when he has read them proves these sums, and that nothing has changed since.
template <class Store>
struct OuterFraction {
  typename Store::Number n, d;
  u64 n_hash = 0, d_hash = 0;

  /// Whether the words of both are still those of T and U.
  bool is_right(ParallelContext parallel) const {
    return hash_canon(n.computed_hash(parallel)) == hash_canon(n_hash) &&
           hash_canon(d.computed_hash(parallel)) == hash_canon(d_hash);
  }
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

  /// Cuts n and d from `arena`, and has room for the work left behind them.
  template <class Arena>
  Outer cut(Arena& arena) const {
    return cut_all(arena).outer;
  }
  /// The sums of a fraction as PSR_Block leaves it at the start of `heap`; what n and d take is cut from `heap`.
  Outer run(const RunContext& ctx, Fraction& fraction, LinearHeapBuffer& heap) const;

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

}  // namespace orl
