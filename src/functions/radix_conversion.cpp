#include "functions/radix_conversion.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "core/exceptions.h"
#include "core/fault_point.h"
#include "core/status.h"
#include "multiply/algorithm_table.h"
#include "multiply/basecase.h"
#include "multiply/transform_words.h"
#include "words/hash.h"
#include "words/words.h"

namespace orl {

template <class W>
FractionView<W> fraction_of(const BigFloat<W>& x, u64 limit) {
  if (x.L == 0 || x.exp >= 0) return {};
  if (x.magnitude() < 0) throw InvalidParametersException("CBRv2::fraction_of()", "Number is out of range.");
  const u64 stored = static_cast<u64>(-x.exp);
  const u64 used = std::min(stored, limit);
  return {x.T + (stored - used), used};
}

template FractionView<u32> fraction_of(const BigFloat<u32>&, u64);
template FractionView<u64> fraction_of(const BigFloat<u64>&, u64);

namespace CBRv2 {
namespace {

// Decimal digits in a word of binary.
template <class W>
constexpr double kDigitsPerWord = sizeof(W) == 4 ? 9.632959861247398246839644631183776856582
                                                 : 19.26591972249479649367928926236755371316;

// Shows the size of what is multiplied, in decimal digits of its words.
template <class W>
void show_size(StatusNode& status, u64 words, double done) {
  char text[48];
  std::snprintf(text, sizeof(text), "Multiplying...    %.0f", kDigitsPerWord<W> * static_cast<double>(words));
  status.set_line(text, done);
}

[[noreturn]] void throw_overlap_mismatch(u64 words, u64 expected, u64 actual) {
  throw AlgorithmFailedException(
      "CBRv2::convert_L()", "Overlap Mismatch:\n    RL = " + std::to_string(words) + "\n    Expected = " +
                                std::to_string(expected) + "\n    Actual   = " + std::to_string(actual));
}

// One run of a plan. Nodes are (digits, fraction): digits[1, n) are written and digits[0] is returned,
// because in a high part it is the word that overlaps the low part.
template <class W>
class Conversion {
 public:
  using Plan = ConvertPlanP<W>;
  using Fraction = FractionView<W>;

  Conversion(const Plan& plan, const RunContext& ctx, W* digits)
      : plan_(plan), tables_(ctx.tables), digits_(digits) {}

  void run(const RunContext& ctx, Fraction f, LinearHeapBuffer heap);

 private:
  struct Split {
    u64 level;
    u64 low;   // digit words of the low part
    u64 high;  // of the high part without the overlap
  };

  void settle(const RunContext& ctx, Fraction f);
  void make_shapes();
  const Parameters& shape(u64 level, u64 tds, ParametersBox& box) const;
  void keep_transforms(const RunContext& ctx, LinearHeapBuffer& heap);
  Split split(u64 n, u64 levels) const;
  Fraction cut(Fraction f, u64 n) const;
  Fraction low_fraction(const RunContext& ctx, const Split& s, Fraction f, W* out,
                        LinearHeapBuffer heap) const;
  void multiply(const RunContext& ctx, u64 level, W* T, u64 skip, u64 end, Fraction f,
                LinearHeapBuffer heap) const;
  template <class Product>
  void multiply_pieces(u64 level, W* T, u64 skip, u64 end, Fraction f, W* upper, ParallelContext parallel,
                       Product&& product) const;
  template <class Window>
  void multiply_windows(u64 level, W* T, u64 skip, u64 end, ParallelContext parallel, Window&& window) const;
  W halves(const RunContext& ctx, const Split& s, W* D, Fraction low, Fraction high, LinearHeapBuffer heap);
  W join(const Split& s, W* D, W low_bottom, W overlap) const;
  W convert(const RunContext& ctx, W* D, Fraction f, u64 n, u64 levels, LinearHeapBuffer heap);
  W convert_T(const RunContext& ctx, const Split& s, W* D, Fraction low, Fraction high,
              LinearHeapBuffer heap);
  W convert_L(const RunContext& ctx, const Split& s, W* D, Fraction low, Fraction high,
              LinearHeapBuffer heap);
  W base_case(W* D, Fraction f, u64 n);
  // The low part of every node comes first, so all digits below D are done in a serial run.
  double progress(const W* D) const {
    return static_cast<double>(D - digits_) / static_cast<double>(plan_.digit_words());
  }

  const Plan& plan_;
  const TransformTables& tables_;
  W* digits_;
  Power<W> powers_[Plan::kMaxLevels];
  ParametersBox shapes_[Plan::kMaxLevels];
  std::array<void*, Plan::kMaxLevels> kept_{};
  bool near_above_ = false;  // set by the leaf of the lowest digits
};

template <class W>
void Conversion<W>::run(const RunContext& ctx, Fraction f, LinearHeapBuffer heap) {
  const u64 n = plan_.digit_words();
  if (plan_.levels() == 0) {
    digits_[0] = base_case(digits_, f, n);
    return;
  }
  // Less than W^2 units are less than the last digit.
  const u64 below = plan_.fraction_words() - f.L, tiny = below < 2 ? std::min(2 - below, f.L) : 0;
  if (bp_strip<W>(0, f.T + tiny, f.L - tiny) == 0) return bp_fill(digits_, n, 0, ctx.parallel);
  LinearHeapBuffer first;
  const auto areas = plan_.cut_powers(heap, first);
  orl_CBRv2_ci_btrf_build_table(plan_, ctx, powers_, areas, first);
  make_shapes();
  const Split top = split(n, plan_.levels());
  // The largest product comes first and needs all the scratch; the kept transforms take its place.
  const Fraction low = low_fraction(ctx, top, f, areas.low, first);
  keep_transforms(ctx, heap);
  digits_[0] = halves(ctx, top, digits_, low, cut(f, top.high + 1), heap);
  if (near_above_) settle(ctx, f);
}

// What is left behind the last digit came within W^-1 of 1. All errors make it smaller, so the digits may be a
// unit short: they are when f is the fraction of one unit more exactly, or lies k units of its own lowest word
// above it. k is found modulo 2^61 - 1, where a k that is not small means something else.
template <class W>
void Conversion<W>::settle(const RunContext& ctx, Fraction f) {
  constexpr u64 kOrder = (u64{1} << 61) - 2, kSmall = u64{1} << 24;
  const u64 n = plan_.digit_words(), radix = hash_fold(plan_.radix());
  const u64 next = hash_add(bp_hash_base(0, radix, digits_, n, ctx.parallel), 1);
  const u64 ideal =
      hash_mul(hash_mul(next, hash_word_pow<W>(static_cast<s64>(f.L))), hash_pow(radix, kOrder - n % kOrder));
  const u64 k = hash_canon(hash_sub(bp_hash(0, f.T, f.L, ctx.parallel), ideal));
  if (k >= kSmall) return;
  u64 i = 0;
  while (i + 1 < n && digits_[i] == plan_.radix() - 1) digits_[i++] = 0;
  ++digits_[i];
}

template <class W>
void Conversion<W>::make_shapes() {
  for (u64 i = 0; i < plan_.levels(); ++i)
    if (plan_.level(i).transform) plan_.shape(i, shapes_[i], &tables_, 1);
}

// A level's shape for `tds` tasks: a serial one is at hand, any other is built into `box`.
template <class W>
const Parameters& Conversion<W>::shape(u64 level, u64 tds, ParametersBox& box) const {
  if (tds == 1) return *shapes_[level];
  return plan_.shape(level, box, &tables_, tds);
}

template <class W>
void Conversion<W>::keep_transforms(const RunContext& ctx, LinearHeapBuffer& heap) {
  kept_ = plan_.cut_kept(heap);
  for (u64 i = 0; i + 1 < plan_.levels(); ++i) {
    if (!kept_[i]) continue;
    ParametersBox box;
    const Parameters& parallel_shape = shape(i, ctx.parallel.tds, box);
    LinearHeapBuffer scratch = heap;
    void* tmp = scratch.cut<u8>(parallel_shape.scratch_size());
    const MiddleShape<W> middle{plan_.level(i).form, parallel_shape};
    middle.forward(kept_[i], {powers_[i].T, powers_[i].L}, tmp, ctx.parallel);
  }
}

// The highest level below `levels` whose power leaves digits for the low part.
template <class W>
typename Conversion<W>::Split Conversion<W>::split(u64 n, u64 levels) const {
  u64 level = levels - 1;
  while (plan_.level(level).digits >= n) --level;
  const u64 high = plan_.level(level).digits;
  return {level, n - high, high};
}

// The top words of f that n digits depend on.
template <class W>
typename Conversion<W>::Fraction Conversion<W>::cut(Fraction f, u64 n) const {
  const u64 used = std::min(f.L, plan_.fraction_words(n));
  return {f.T + (f.L - used), used};
}

// frac(f * r^high), as many words of it as the low digits depend on. The words of f that the power's exponent
// lifts over the point do not count, nor do words of the product above the point.
template <class W>
typename Conversion<W>::Fraction Conversion<W>::low_fraction(const RunContext& ctx, const Split& s,
                                                             Fraction f, W* out,
                                                             LinearHeapBuffer heap) const {
  const u64 lifted = std::min(f.L, powers_[s.level].exp);
  f.L -= lifted;
  const u64 length = std::min(f.L, plan_.fraction_words(s.low));
  if (length != 0) multiply(ctx, s.level, out, f.L - length, f.L, f, heap);
  fault_point("conversion fraction", out, length * sizeof(W));
  return {out, length};
}

// T[0, end - skip) = words [skip, end) of f * (words of the level's power).
template <class W>
void Conversion<W>::multiply(const RunContext& ctx, u64 level, W* T, u64 skip, u64 end, Fraction f,
                             LinearHeapBuffer heap) const {
  const Power<W>& power = powers_[level];
  if (!plan_.level(level).transform) {
    W* tmp = heap.cut<W>(mul_window_scratch<W>(skip, end, f.L, power.L) / sizeof(W));
    return mul_window({T, skip, end}, {f.T, f.L}, {power.T, power.L}, tmp);
  }
  ParametersBox box;
  const ProductForm form = plan_.level(level).form;
  const Parameters& sized = shape(level, ctx.parallel.tds, box);
  const auto areas = plan_.cut_product(heap, level, sized, kept_[level] != nullptr);
  void* const G = kept_[level] ? kept_[level] : areas.G;
  const MiddleShape<W> middle{form, sized};
  if (!kept_[level]) middle.forward(G, {power.T, power.L}, areas.tmp, ctx.parallel);
  const auto product = [&](W* out, u64 begin, u64 stop, const W* words, u64 count) {
    middle.run({areas.F, G, areas.tmp}, power.L, {out, begin, stop}, {words, count}, areas.result,
               ctx.parallel);
  };
  if (form == ProductForm::whole)
    return multiply_pieces(level, T, skip, end, f, areas.upper, ctx.parallel, product);
  multiply_windows(level, T, skip, end, ctx.parallel, [&](W* out, u64 begin, u64 stop) {
    // Words of f further down reach less than a unit of the window.
    const u64 from = begin > power.L ? begin - power.L : 0;
    if (bp_strip<W>(0, f.T + from, stop - from) == 0) return bp_fill(out, stop - begin, 0, ctx.parallel);
    product(out, begin - from, stop - from, f.T + from, stop - from);
  });
}

// By whole products of pieces of f.
template <class W>
template <class Product>
void Conversion<W>::multiply_pieces(u64 level, W* T, u64 skip, u64 end, Fraction f, W* upper,
                                    ParallelContext parallel, Product&& product) const {
  const u64 piece = plan_.level(level).piece_words;
  if (f.L <= piece) return product(T, skip, end, f.T, f.L);
  // The upper piece's product lies `piece` words up; what both carry past `end` is integer part.
  const u64 low_end = std::max(skip, std::min(end, piece + powers_[level].L));
  if (low_end > skip) product(T, skip, low_end, f.T, piece);
  bp_fill(T + (low_end - skip), end - low_end, 0, parallel);
  const u64 from = skip > piece ? skip - piece : 0;
  const u64 count = end - piece - from;
  product(upper, from, end - piece, f.T + piece, f.L - piece);
  W* at = T + (piece + from - skip);
  bp_add(at, at, upper, count, 0, parallel);
}

// By middle products of pieces of the window, whose shared word joins them.
template <class W>
template <class Window>
void Conversion<W>::multiply_windows(u64 level, W* T, u64 skip, u64 end, ParallelContext parallel,
                                     Window&& window) const {
  if (end - skip <= plan_.level(level).piece_words) return window(T, skip, end);
  const u64 shared = skip + (end - skip - 1) / 2;
  W* upper = T + (shared - skip);
  window(T, skip, shared + 1);
  const W below = *upper;
  window(upper, shared, end);
  join_windows(upper, end - shared, below, parallel);
}

template <class W>
W Conversion<W>::convert(const RunContext& ctx, W* D, Fraction f, u64 n, u64 levels, LinearHeapBuffer heap) {
  f = cut(f, n);
  if (levels == 0 || n < Plan::kBaseDigits) return base_case(D, f, n);
  const Split s = split(n, levels);
  W* out = heap.cut<W>(plan_.level(s.level).low_words);
  const Fraction low = low_fraction(ctx, s, f, out, heap);
  return halves(ctx, s, D, low, cut(f, s.high + 1), heap);
}

template <class W>
W Conversion<W>::halves(const RunContext& ctx, const Split& s, W* D, Fraction low, Fraction high,
                        LinearHeapBuffer heap) {
  const bool upper = s.level >= plan_.thread_level();
  if (upper) show_size<W>(ctx.status, plan_.level(s.level).low_words, progress(D));
  return plan_.forks(s.level, ctx.parallel.tds) ? convert_T(ctx, s, D, low, high, heap)
                                                : convert_L(ctx, s, D, low, high, heap);
}

template <class W>
W Conversion<W>::convert_L(const RunContext& ctx, const Split& s, W* D, Fraction low, Fraction high,
                           LinearHeapBuffer heap) {
  const W bottom = convert(ctx, D, low, s.low, s.level, heap);
  const W overlap = convert(ctx, D + s.low - 1, high, s.high + 1, s.level, heap);
  return join(s, D, bottom, overlap);
}

template <class W>
W Conversion<W>::convert_T(const RunContext& ctx, const Split& s, W* D, Fraction low, Fraction high,
                           LinearHeapBuffer heap) {
  const RunContext left = ctx.with_parallel(ctx.parallel.left()).with_status(silent_status());
  const RunContext right = ctx.with_parallel(ctx.parallel.right()).with_status(silent_status());
  LinearHeapBuffer left_heap = heap.cut_buffer(plan_.node_bytes(s.level, left.parallel.tds));
  LinearHeapBuffer right_heap = heap.cut_buffer(plan_.node_bytes(s.level, right.parallel.tds));
  W bottom = 0, overlap = 0;
  fork_pair(
      ctx.parallel.parallelizer,
      [&] { overlap = convert(left, D + s.low - 1, high, s.high + 1, s.level, left_heap); },
      [&] { bottom = convert(right, D, low, s.low, s.level, right_heap); });
  return join(s, D, bottom, overlap);
}

template <class W>
W Conversion<W>::join(const Split& s, W* D, W low_bottom, W overlap) const {
  const W low_word = s.low == 1 ? low_bottom : D[s.low - 1];
  match_overlap(plan_.radix(), D + s.low, s.high, low_word, overlap, s.low + s.high);
  return low_bottom;
}

template <class W>
W Conversion<W>::base_case(W* D, Fraction f, u64 n) {
  // fraction_words(n) <= n + 1 + kGuardWords, as a digit word holds at most one word of binary.
  W buffer[Plan::kBaseDigits + 1 + Plan::kGuardWords];
  const u64 length = plan_.fraction_words(n);
  const u64 used = std::min(f.L, length);
  std::fill_n(buffer, length - used, W{0});
  std::copy_n(f.T + (f.L - used), used, buffer + (length - used));
  for (u64 i = n - 1; i > 0; --i) {
    const u64 start = length - plan_.fraction_words(i + 1);
    D[i] = bp_mul_uW(buffer + start, buffer + start, length - start, plan_.radix());
  }
  const u64 start = length - plan_.fraction_words(1);
  const W last = bp_mul_uW(buffer + start, buffer + start, length - start, plan_.radix());
  if (D == digits_) near_above_ = buffer[length - 1] == static_cast<W>(~W{0});
  return last;
}

}  // namespace

template <class W>
void match_overlap(W radix, W* high, u64 length, W low_word, W high_word, u64 digits) {
  const W last = radix - 1;
  const auto ripple = [&](W from, W to) {
    u64 i = 0;
    while (i < length && high[i] == from) high[i++] = to;
    return i;
  };
  if (low_word == high_word) return;
  if (low_word == 0 && high_word == last) {
    if (const u64 i = ripple(last, 0); i < length) ++high[i];
    return;
  }
  if (low_word == last && high_word == 0) {
    if (const u64 i = ripple(0, last); i < length) --high[i];
    return;
  }
  if (low_word == high_word + 1 || high_word == low_word + 1) return;
  throw_overlap_mismatch(digits, high_word, low_word);
}

template <class W>
void join_windows(W* upper, u64 length, W below, ParallelContext parallel) {
  const auto off = static_cast<std::make_signed_t<W>>(below - *upper);
  if (off < -kMaxWindowOff || off > kMaxWindowOff) throw_overlap_mismatch(length, *upper, below);
  bp_carry<W>(off, upper, length, parallel);
}

template void join_windows(u32*, u64, u32, ParallelContext);
template void join_windows(u64*, u64, u64, ParallelContext);
template void match_overlap(u32, u32*, u64, u32, u32, u64);
template void match_overlap(u64, u64*, u64, u64, u64, u64);

}  // namespace CBRv2

template <class W>
void ConvertPlanP<W>::run(const RunContext& ctx, NullStackFrame& parent, W* digits, const BigFloat<W>& x,
                          LinearHeapBuffer heap) const {
  if (ctx.parallel.tds != tds_)
    throw InvalidParametersException("ConvertPlanP::populate_fft_plans()", "Thread Inconsistency");
  heap.leave(need_);
  NullStackFrame frame = parent.enter("ConvertPlanP::run()");
  frame.assert_sL("digits", digit_words_);
  const StatusFrame status(ctx.status, "Multiplying...    ");
  frame.stage([&] {
    CBRv2::Conversion<W> conversion(*this, ctx, digits);
    conversion.run(ctx, fraction_of(x, fraction_words()), heap);
    fault_point("conversion digits", digits, digit_words_ * sizeof(W));
  });
}

template void ConvertPlanP<u32>::run(const RunContext&, NullStackFrame&, u32*, const BigFloat<u32>&,
                                     LinearHeapBuffer) const;
template void ConvertPlanP<u64>::run(const RunContext&, NullStackFrame&, u64*, const BigFloat<u64>&,
                                     LinearHeapBuffer) const;

}  // namespace orl
