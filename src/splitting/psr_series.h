// The value of a series: the list of its blocks, walked from the last to the first, and the division at the end.
//
// Blocks   block_list.h.
// Proof    one chain of hashes runs from the terms (leaf.h) through merges, folds and cuts and the outer sums to the
//          operands of the division, which is proved by its residual.
// Source   binary splitting: see kind.h. Truncation of the tail at each block: X. Gourdon, P. Sebah, "Binary splitting
//          method", 2001, describes the truncated form; the choice of the blocks is this system's own.
#pragma once

#include <memory>

#include "functions/proved.h"
#include "splitting/outer_sum.h"
#include "splitting/psr_block.h"

namespace orl {

/// Whether `power` asks for the inverse of a value: -1 does, 1 does not. For any other it throws
/// InvalidParametersException `function`, "Power must be 1 or -1.".
bool is_inverse(const char* function, s32 power);

/// The value of a whole series at a precision of p words, or its inverse.
template <class Store>
class PSR_Series {
 public:
  using W = typename Store::Word;
  using Fraction = SeriesFraction<Store>;

  /// What is computed from the series' sum.
  struct Value {
    SeriesCoefficients coefficients;
    s32 power = 1;  ///< 1: the value, -1: its inverse
    SeriesMemory memory = SeriesMemory::kFast;
    SumTitle title{};
  };

  /// A power other than 1 and -1 throws InvalidParametersException "PSR_SeriesB()", "Power must be 1 or -1.".
  PSR_Series(std::unique_ptr<const Series<W>> series, const Value& value, u64 p, const Store::Budget& budget);

  Need need() const { return need_; }
  u64 precision() const { return p_; }
  const Series<W>& series() const { return *series_; }
  const auto& blocks() const { return list_.blocks(); }

  /// out = the value; out holds need().out_words. Returns the hash that out's words must have, known before they were
  /// proved. Throws BufferTooSmallException "PSR_SeriesB::run()" and what blocks and the division throw: "Checksum
  /// Mismatch. Division failed." when its operands are not what the series gave.
  u64 run(const RunContext& ctx, Store::Frame& frame, Store::Number& out, Store::Arena heap) const;
  /// The sum's fraction P/Q alone, to p + 2 words or a few more; numbers lie in `heap`.
  void run_fraction(const RunContext& ctx, Store::Frame& frame, Fraction& fraction, Store::Arena heap) const;

 private:
  void plan_need();
  u64 finish(const RunContext& ctx, Store::Frame& frame, Fraction& fraction, Store::Number& out,
             Store::Arena heap) const;

  std::unique_ptr<const Series<W>> series_;
  bool inverse_;
  u64 p_;
  Store::Budget budget_;
  BlockList<Store, PSR_Block<Store>> list_;
  OuterSum<Store> outer_;
  ProvedDivision<Store> division_;
  Need need_;
};

template <class W>
using PSR_SeriesB = PSR_Series<RamStore<W>>;

}  // namespace orl
