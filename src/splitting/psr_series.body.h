// The definitions of psr_series.h, for the files that instantiate them for a store.
#pragma once

#include <algorithm>
#include <cstdio>

#include "core/exceptions.h"
#include "core/format.h"
#include "core/output.h"
#include "functions/proved.body.h"
#include "splitting/exact_steps.h"
#include "splitting/psr_series.h"
#include "splitting/stage_timer.h"

namespace orl {

namespace psr_series {

// The smallest block worth giving to one thread, in bits.
inline constexpr u64 kThreadBits = 221185;
inline constexpr u64 kManyBlocks = 10000;

/// First m in (a, b] with reached(m), which stays true from there on; b when there is none before it.
template <class Predicate>
u64 first_reached(u64 a, u64 b, const Predicate& reached) {
  while (b - a > 1) {
    const u64 m = a + (b - a) / 2;
    (reached(m) ? b : a) = m;
  }
  return b;
}

/// The end of the block that begins at a: where its size reaches the precision that remains behind it, but at
/// least `smallest` and at most `largest` nats.
template <class W>
u64 block_end(const Series<W>& series, u64 a, DoubleDouble smallest, DoubleDouble largest) {
  const u64 end = series.terms();
  u64 m = first_reached(a, end, [&](u64 x) { return series.size(a, x) >= series.remaining(x); });
  const auto grown_to = [&](DoubleDouble nats) {
    return first_reached(a, end, [&](u64 x) { return series.size(a, x) >= nats; });
  };
  if (series.size(a, m) < smallest) m = grown_to(smallest);
  if (series.size(a, m) > largest) m = grown_to(largest);
  return m;
}

/// Says so once, when a plan passes kManyBlocks.
inline void warn_of_many_blocks(u64 count) {
  static bool warned = false;
  if (count == kManyBlocks && !warned) {
    warned = true;
    notice_line("Performance Warning: PSR plan has exceeded 10000 blocks.", 'Y');
  }
}

/// Says how many blocks a plan of that many has.
inline void warn_of_plan_size(u64 count) {
  if (count < kManyBlocks) return;
  notice_line("PSR plan has reached a size of " + format_with_commas(count) + " blocks.", 'Y');
  notice_line("It is not recommended to proceed with such a computation.", 'Y');
}

/// The longest fraction of a series to p words.
template <class W>
u64 fraction_words(const Series<W>& series, u64 p) {
  return std::min(series.remaining_words(0), p + 1) + 2;
}

}  // namespace psr_series

template <class Store>
PSR_Series<Store>::PSR_Series(std::unique_ptr<const Series<W>> series, const Value& value, u64 p,
                              const Store::Budget& budget)
    : series_(std::move(series)),
      inverse_(is_inverse("PSR_SeriesB()", value.power)),
      p_(p),
      budget_(budget),
      outer_(value.coefficients, p, psr_series::fraction_words(*series_, p)),
      division_(p, budget) {
  plan_blocks(value.memory);
  const DoubleDouble whole = series_->size(0, series_->terms());
  expansion_ = (whole / words_to_nats<W>(p)).to_double();
  headline_ = std::string("Series ") + series_->kind().name() + "...  " +
              format_with_commas(series_->terms()) +
              " terms  (Expansion Factor = " + format_float(expansion_, 3) + ")";
  plan_need();
}

template <class Store>
void PSR_Series<Store>::plan_need() {
  const auto blocks = [&](auto& arena) {
    for (const auto& block : blocks_) arena.leave(block->total_bytes());
  };
  const auto finish = [&](auto& arena) {
    outer_.cut(arena);
    arena.leave(division_.need().ram_bytes);
  };
  const Need sums = Store::need_of([&](auto& arena) {
    blocks(arena);
    outer_.cut(arena);
  });
  // The division keeps what it can without deciding the memory.
  for (const DivisionMemory memory : {DivisionMemory::kLess, DivisionMemory::kLeast})
    if (Store::need_of(finish).ram_bytes > sums.ram_bytes)
      division_ = ProvedDivision<Store>(p_, budget_, memory);
  need_ = division_.need();
  need_.ram_bytes = std::max(sums.ram_bytes, Store::need_of(finish).ram_bytes);
  for (const auto& block : blocks_) {
    block->use_memory(need_.ram_bytes);
    need_.table_bits = std::max(need_.table_bits, block->product_words() * 8 * sizeof(W));
  }
}

template <class Store>
void PSR_Series<Store>::plan_blocks(SeriesMemory memory) {
  u64 width = 1;
  while (width < budget_.tds) width *= 2;
  const DoubleDouble smallest = DoubleDouble::from_u64(width * psr_series::kThreadBits) * DoubleDouble::ln2();
  const DoubleDouble largest =
      words_to_nats<W>(memory == SeriesMemory::kReduced ? std::max<u64>(p_ / 2, 1) : p_);
  u64 highest = 0;
  const auto total_with = [&](const PSR_Block<Store>& block) {
    return std::max(highest, block.total_bytes());
  };
  BlockShape shape{p_, std::max<u64>(budget_.tds, 1), 0, memory};
  for (u64 a = 0; a < series_->terms(); a = blocks_.back()->b()) {
    const TermRange range{a, psr_series::block_end(*series_, a, smallest, largest)};
    const auto with_halving = [&](u64 levels) {
      shape.halving = levels;
      return std::make_unique<PSR_Block<Store>>(*series_, range, shape);
    };
    auto block = with_halving(0);
    if (shape.tds >= 2 && total_with(*block) > highest) {
      // A halving level costs time; it is worth a ninth of the memory.
      auto halved = with_halving(1);
      const u64 total = total_with(*halved);
      if (total <= highest || total + total / 8 < total_with(*block)) block = std::move(halved);
    }
    highest = total_with(*block);
    blocks_.push_back(std::move(block));
    psr_series::warn_of_many_blocks(blocks_.size());
  }
  psr_series::warn_of_plan_size(blocks_.size());
}

template <class Store>
void PSR_Series<Store>::run_fraction(const RunContext& ctx, Store::Frame& caller, Fraction& fraction,
                                     Store::Arena heap) const {
  auto frame = caller.enter("PSR_SeriesB::run_fraction()");
  frame.assert_sL("Terms", series_->terms());
  ctx.status.println(headline_);
  fraction = {};
  StatusFrame status(ctx.status, "Series");
  const double whole = series_->size(0, series_->terms()).to_double();
  double done = 0;
  for (u64 i = blocks_.size(); i-- > 0;) {
    const PSR_Block<Store>& block = *blocks_[i];
    char line[64];
    const bool leaf = block.b() - block.a() <= series_->leaf_width();
    std::snprintf(line, sizeof line, "Series: %c  %llu )", leaf ? 'E' : 'A',
                  static_cast<unsigned long long>(i));
    ctx.status.set_line(line, done / whole);
    frame.stage([&] { block.run(ctx, frame, fraction, heap); }, fraction.T, fraction.U);
    done += series_->size(block.a(), block.b()).to_double();
  }
}

template <class Store>
u64 PSR_Series<Store>::finish(const RunContext& ctx, Store::Frame& frame, Fraction& fraction,
                              Store::Number& out, Store::Arena heap) const {
  auto rest = heap;
  OuterFraction<Store> value = outer_.cut(rest);
  frame.stage([&] { outer_.run(ctx, fraction, value, heap); }, value.n, value.d, value.n_hash, value.d_hash);
  if (value.n.signum() == 0) {
    if (inverse_) throw ArithmeticException("PSR_SeriesB::run()", "Divide by zero.");
    out.set_zero();
    return 0;
  }
  show_fault_point("division operand", value.n);
  show_fault_point("division operand", value.d);
  const Hashed<typename Store::Number> n{value.n, value.n_hash}, d{value.d, value.d_hash};
  u64 hash = 0;
  frame.stage(
      [&] {
        hash = inverse_ ? division_.run(ctx, frame, out, d, n, rest)
                        : division_.run(ctx, frame, out, n, d, rest);
      },
      out, hash);
  return hash;
}

template <class Store>
u64 PSR_Series<Store>::run(const RunContext& ctx, Store::Frame& caller, Store::Number& out,
                           Store::Arena heap) const {
  if (heap.size < need_.ram_bytes)
    throw BufferTooSmallException("PSR_SeriesB::run()", heap.size, need_.ram_bytes);
  auto frame = caller.enter("PSR_SeriesB::run()");
  frame.assert_sL("p", p_);
  Fraction fraction;
  StageTimer summing(ctx.status, "Summing Series");
  frame.stage([&] { run_fraction(ctx, frame, fraction, heap); }, fraction.T, fraction.U);
  summing.finish();
  StageTimer finishing(ctx.status, "Finishing Series");
  const u64 hash = finish(ctx, frame, fraction, out, heap);
  finishing.finish();
  return hash;
}

}  // namespace orl
