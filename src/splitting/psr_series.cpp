// The list of blocks of a series, and its value.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "core/exceptions.h"
#include "core/format.h"
#include "core/output.h"
#include "numbers/transform.h"
#include "splitting/binary_splitting.h"
#include "splitting/stage_timer.h"

namespace orl {
namespace {

// Forks below the last thread: none, halves of equal size finish together.
constexpr u64 kExtraLevels = 0;
// The smallest block worth giving to one thread, in bits.
constexpr u64 kThreadBits = 221185;
constexpr u64 kManyBlocks = 10000;

u64 round_up_8(u64 n) { return (n + 7) & ~u64{7}; }

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

void warn_of_many_blocks(u64 count) {
  static bool warned = false;
  if (count == kManyBlocks && !warned) {
    warned = true;
    notice_line("Performance Warning: PSR plan has exceeded 10000 blocks.", 'Y');
  }
}

void warn_of_plan_size(u64 count) {
  if (count < kManyBlocks) return;
  notice_line("PSR plan has reached a size of " + format_with_commas(count) + " blocks.", 'Y');
  notice_line("It is not recommended to proceed with such a computation.", 'Y');
}

template <class W>
BigFloat<W> as_big_float(const ExactFloat<W>& x) {
  BigFloat<W> f(x.base, x.size);
  f.T = x.T;
  f.L = x.L;
  f.exp = x.exp;
  f.sign = x.sign;
  return f;
}

/// For member initialisers: what must hold before a plan is built.
s32 checked_power(s32 power) {
  if (power != 1 && power != -1) throw InvalidParametersException("PSR_SeriesB()", "Power must be 1 or -1.");
  return power;
}

}  // namespace

template <class Store>
PSR_Series<Store>::PSR_Series(std::unique_ptr<const Series<W>> series, const SeriesCoefficients& coefficients,
                              s32 power, u64 p, u64 tds, bool reduced)
    : series_(std::move(series)),
      coefficients_(coefficients),
      inverse_(checked_power(power) < 0),
      p_(p),
      tds_(std::max<u64>(tds, 1)),
      division_(p, tds) {
  plan_blocks(reduced);
  const DoubleDouble whole = series_->size(0, series_->terms());
  expansion_ = (whole / words_to_nats<W>(p)).to_double();
  headline_ = std::string("Series ") + kind_name(series_->kind()) + "...  " +
              format_with_commas(series_->terms()) +
              " terms  (Expansion Factor = " + format_float(expansion_, 3) + ")";

  fraction_words_ = round_up_8(blocks_.front()->kept_words() + 2);
  const u64 sum_words = round_up_8(p + 5);
  // U, T, Q U and their sum; then U, the sum and the division.
  const u64 one = LinearHeapBuffer::cut_bytes<W>(fraction_words_),
            sum = LinearHeapBuffer::cut_bytes<W>(sum_words);
  const u64 linear = 2 * one + 2 * sum;
  const auto quotient = [&] { return one + sum + division_.need().ram_bytes; };
  u64 others = linear;
  for (const auto& block : blocks_) others = std::max(others, block->total_bytes());
  // The reciprocal's transform is kept where that does not decide the memory.
  if (quotient() > others)
    division_ = ProvedDivision<Store>(p, tds_, reduced ? DivisionMemory::kLeast : DivisionMemory::kLess);
  need_ = division_.need();
  need_.ram_bytes = std::max(others, quotient());
  for (const auto& block : blocks_) {
    block->use_memory(need_.ram_bytes);
    need_.table_bits = std::max(need_.table_bits, block->product_words() * 8 * sizeof(W));
  }
}

template <class Store>
void PSR_Series<Store>::plan_blocks(bool reduced) {
  u64 width = 1;
  while (width < tds_ << kExtraLevels) width *= 2;
  const DoubleDouble smallest = DoubleDouble::from_u64(width * kThreadBits) * DoubleDouble::ln2();
  const DoubleDouble largest = words_to_nats<W>(reduced ? std::max<u64>(p_ / 2, 1) : p_);
  u64 highest = 0;
  const auto total_with = [&](const PSR_BlockB<W>& block) { return std::max(highest, block.total_bytes()); };
  for (u64 a = 0; a < series_->terms(); a = blocks_.back()->b()) {
    const u64 b = block_end(*series_, a, smallest, largest);
    auto block = std::make_unique<PSR_BlockB<W>>(*series_, a, b, p_, tds_, kExtraLevels, 0, reduced);
    if (tds_ >= 2 && total_with(*block) > highest) {
      // A halving level costs time; it is worth a ninth of the memory.
      auto halved = std::make_unique<PSR_BlockB<W>>(*series_, a, b, p_, tds_, kExtraLevels, 1, reduced);
      const u64 total = total_with(*halved);
      if (total <= highest || total + total / 8 < total_with(*block)) block = std::move(halved);
    }
    highest = total_with(*block);
    blocks_.push_back(std::move(block));
    warn_of_many_blocks(blocks_.size());
  }
  warn_of_plan_size(blocks_.size());
}

template <class Store>
void PSR_Series<Store>::sum_blocks(const RunContext& ctx, SeriesFraction<W>& fraction, Arena heap) const {
  StatusFrame frame(ctx.status, "Series");
  const double whole = series_->size(0, series_->terms()).to_double();
  double done = 0;
  for (u64 i = blocks_.size(); i-- > 0;) {
    const PSR_BlockB<W>& block = *blocks_[i];
    char line[64];
    const bool leaf = block.b() - block.a() <= series_->leaf_width();
    std::snprintf(line, sizeof line, "Series: %c  %llu )", leaf ? 'E' : 'A',
                  static_cast<unsigned long long>(i));
    ctx.status.set_line(line, done / whole);
    Arena rest = heap;
    W* const area = rest.template cut<W>(block.area_words());
    block.run(ctx, fraction, area, rest);
    done += series_->size(block.a(), block.b()).to_double();
  }
}

template <class Store>
void PSR_Series<Store>::finish(const RunContext& ctx, Frame& frame, SeriesFraction<W>& fraction, Number& out,
                               Arena heap) const {
  const u64 sum_words = round_up_8(p_ + 5);
  Arena rest = heap;
  W* const u_words = rest.template cut<W>(fraction_words_);
  Number u = as_big_float(fraction.U), t = as_big_float(fraction.T);
  u.size = fraction_words_;
  t.size = fraction_words_;
  // n = P t + Q u, beyond both of them.
  Arena above = rest;
  above.template cut<W>(fraction_words_);
  Number y(above.template cut<W>(sum_words), sum_words);
  Number sum(above.template cut<W>(sum_words), sum_words);
  t.mul_uW(static_cast<W>(coefficients_.P < 0 ? -coefficients_.P : coefficients_.P), ctx.parallel);
  if (coefficients_.P < 0) t.negate();
  if (coefficients_.Q != 0) {
    y.set_mul_uW(p_ + 1, u, static_cast<W>(coefficients_.Q < 0 ? -coefficients_.Q : coefficients_.Q),
                 ctx.parallel);
    if (coefficients_.Q < 0) y.negate();
  }
  sum.set_add(p_ + 1, t, y, ctx.parallel);
  // d = D u takes u's place, n comes down behind it, the division gets the rest.
  if (u.T != u_words) std::memmove(u_words, u.T, u.L * sizeof(W));
  u.T = u.base = u_words;
  u.mul_uW(static_cast<W>(coefficients_.D), ctx.parallel);
  W* const n_words = rest.template cut<W>(sum_words);
  std::memmove(n_words, sum.T, sum.L * sizeof(W));
  sum.T = sum.base = n_words;
  if (inverse_)
    division_.run(ctx, frame, out, u, sum, rest);
  else
    division_.run(ctx, frame, out, sum, u, rest);
}

template <class Store>
void PSR_Series<Store>::run_fraction(const RunContext& ctx, SeriesFraction<W>& fraction, Arena heap) const {
  if (heap.size < need_.ram_bytes)
    throw BufferTooSmallException("PSR_SeriesB::run()", heap.size, need_.ram_bytes);
  ctx.status.println(headline_);
  fraction = {};
  sum_blocks(ctx, fraction, heap);
}

template <class Store>
void PSR_Series<Store>::run(const RunContext& ctx, Frame& frame, Number& out, Arena heap) const {
  SeriesFraction<W> fraction;
  StageTimer summing(ctx.status, "Summing Series");
  run_fraction(ctx, fraction, heap);
  summing.finish();
  StageTimer finishing(ctx.status, "Finishing Series");
  finish(ctx, frame, fraction, out, heap);
  finishing.finish();
}

template <class Store>
void PSR_Series<Store>::run(const RunContext& ctx, Number& out, Arena heap) const {
  Frame frame;
  run(ctx, frame, out, heap);
}

template class PSR_Series<RamStore<u32>>;
template class PSR_Series<RamStore<u64>>;

}  // namespace orl
