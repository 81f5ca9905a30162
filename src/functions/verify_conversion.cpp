#include <algorithm>

#include "core/fault_point.h"
#include "functions/radix_conversion.h"
#include "memory/sizing_arena.h"
#include "multiply/algorithm_table.h"
#include "numbers/transform.h"
#include "words/hash.h"
#include "words/words.h"

namespace orl {

namespace {

template <class W>
constexpr u32 kWordBits = 8 * sizeof(W);

// odd^e by squaring and multiplying by odd, bit by bit from the top: a power that shares nothing with the
// conversion's table. `result` and `other` take turns; odd_power_words(e) + 1 words in result, half of that +
// 2 in other.
template <class W>
CBRv2::Power<W> odd_power(const ConvertPlanP<W>& plan, u64 e, W* result, W* other,
                          const MultiplyContext& ctx) {
  int bit = 63 - __builtin_clzll(e);
  CBRv2::Power<W> power{bit % 2 == 0 ? result : other, 1, 0};
  power.T[0] = plan.odd();
  while (bit-- > 0) {
    const u64 reached = e >> bit;
    W* T = power.T == result ? other : result;
    u64 L = std::min(2 * power.L, plan.odd_power_words(reached & ~u64{1}));
    basic_table<W>().sqr_bounded(ctx, {T, 0, L}, {power.T, power.L});
    L = bp_strip<W>(0, T, L, ctx.parallel);
    if (reached & 1) {
      const W carry = bp_mul_uW(T, T, L, plan.odd(), 0, ctx.parallel);
      if (carry != 0) T[L++] = carry;
    }
    power = {T, L, 0};
  }
  return power;
}

// A[0, L) in halves of at most `half` words.
template <class W>
struct Halves {
  Halves(const W* A, u64 L, u64 half)
      : low(A), low_L(std::min(L, half)), high(A + low_L), high_L(L - low_L) {}
  const W* low;
  u64 low_L;
  const W* high;
  u64 high_L;
};

// Behind the words of a cross product a helper with one kept transform.
template <class W, class Arena>
W* cut_low_product(Arena& arena, u64 half, u64 tds) {
  W* const cross = arena.template cut<W>(half);
  arena.leave(TransformHelper<W>::bytes(2 * half, tds));
  return cross;
}

// The lowest words of a product: E[0, target.len) = A * B modulo W^target.len, target.len <= 2 * half. Low halves are
// multiplied in full, of the cross products what lies below. No product is longer than 2 * half words.
template <class W>
void low_product(const RunContext& ctx, Window<W> target, Words<W> A, Words<W> B, u64 half,
                 LinearHeapBuffer heap) {
  W* const E = target.T;
  const u64 words = target.len;
  bp_fill(E, words, 0, ctx.parallel);
  if (A.count == 0 || words == 0) return;
  const Halves<W> a(A.ptr, A.count, half), b(B.ptr, std::min(B.count, words), half);
  W* const cross = cut_low_product<W>(heap, half, ctx.parallel.tds);
  const TransformHelper<W> helper(ctx.multiply(heap), 2 * half);
  const Parameters& shape = helper.parameters();
  void *const F = helper.working(), *const G = helper.kept(0), *const tmp = helper.scratch();
  // `kept` is what G transforms; T receives the product below `limit`, and its length is returned.
  const auto multiply = [&](W* T, u64 limit, const W* words_a, u64 length, u64 kept) -> u64 {
    const u64 end = std::min(limit, length + kept);
    shape.forward(F, Words<W>{words_a, length}, tmp, ctx.parallel);
    shape.inverse_fmul(F, G, Window<W>{T, 0, end}, tmp, ctx.parallel);
    return end;
  };
  const auto add_cross = [&](const W* words_a, u64 length, u64 kept) {
    if (length == 0 || words <= half) return;
    const u64 count = multiply(cross, words - half, words_a, length, kept);
    const W carry = bp_add(E + half, E + half, cross, count, 0, ctx.parallel);
    bp_carry<W>(carry, E + half + count, words - half - count, ctx.parallel);
  };
  shape.forward(G, Words<W>{a.low, a.low_L}, tmp, ctx.parallel);
  multiply(E, words, b.low, b.low_L, a.low_L);
  add_cross(b.high, b.high_L, a.low_L);
  if (a.high_L == 0) return;
  shape.forward(G, Words<W>{b.low, b.low_L}, tmp, ctx.parallel);
  add_cross(a.high, a.high_L, b.low_L);
}

// Digits D modulo W, and whether each of its words is below the radix.
template <class W>
struct LowDigits {
  W value = 0;
  bool in_range = true;
};

// By Horner's rule in blocks, each of which is then raised to its place.
template <class W>
LowDigits<W> low_digits(W radix, const W* digits, u64 n, ParallelContext parallel) {
  constexpr u64 kMaxTasks = 64, kBlock = 1 << 14;
  const auto of_block = [&](u64 from, u64 to) {
    LowDigits<W> low;
    for (u64 i = to; i-- > from;) {
      low.value = static_cast<W>(low.value * radix + digits[i]);
      low.in_range &= digits[i] < radix;
    }
    return low;
  };
  const u64 tasks = std::clamp<u64>(n / kBlock, 1, std::min(parallel.tds, kMaxTasks));
  if (tasks == 1) return of_block(0, n);
  const u64 block = (n - 1) / tasks + 1;
  LowDigits<W> blocks[kMaxTasks];
  fork_range(parallel.parallelizer, 0, tasks,
             [&](u64 k) { blocks[k] = of_block(std::min(n, k * block), std::min(n, (k + 1) * block)); });
  W step = 1;
  for (u64 bit = u64{1} << 63; bit != 0; bit >>= 1) {
    step *= step;
    if (block & bit) step *= radix;
  }
  LowDigits<W> low;
  for (u64 k = tasks; k-- > 0;) {
    low.value = static_cast<W>(low.value * step + blocks[k].value);
    low.in_range &= blocks[k].in_range;
  }
  return low;
}

}  // namespace

template <class W>
VerifyConversion<W>::VerifyConversion(W radix, u64 digit_words, u64 tds)
    : plan_(ConvertPlanP<W>::make(radix, digit_words, tds)) {
  const u64 m = plan_.fraction_words();
  zero_words_ = digit_words * plan_.shift() / kWordBits<W>;
  power_words_ = plan_.odd_power_words(digit_words) + 1;
  dropped_words_ = m + 1 - zero_words_;
  half_words_ = (dropped_words_ + 1) / 2;
  half_power_words_ = plan_.odd_power_words((digit_words + 1) / 2) + 2;
  need_.table_bits = 2 * std::max(half_words_, half_power_words_) * kWordBits<W>;
  need_.ram_bytes = layout_bytes([&](SizingArena& arena) {
    lay_out(arena);
    arena.leave(power_square_bytes<W>(half_power_words_, tds));
    cut_low_product<W>(arena, half_words_, tds);
  });
}

template <class W>
template <class Arena>
typename VerifyConversion<W>::Areas VerifyConversion<W>::lay_out(Arena& arena) const {
  W* power = arena.template cut<W>(power_words_);
  return {power, arena.template cut<W>(std::max(dropped_words_, half_power_words_))};
}

template <class W>
typename VerifyConversion<W>::Result VerifyConversion<W>::run(const RunContext& ctx, NullStackFrame& parent,
                                                              const W* digits, const BigFloat<W>& x,
                                                              LinearHeapBuffer heap) const {
  heap.leave(need_);
  NullStackFrame frame = parent.enter("VerifyConversion::run()");
  frame.assert_sL("digits", plan_.digit_words());
  Result result;
  frame.stage([&] { result = prove(ctx, digits, x, heap); });
  return result;
}

template <class W>
typename VerifyConversion<W>::Result VerifyConversion<W>::prove(const RunContext& ctx, const W* digits,
                                                                const BigFloat<W>& x,
                                                                LinearHeapBuffer heap) const {
  const u64 n = plan_.digit_words();
  const FractionView<W> F = fraction_of(x, plan_.fraction_words());
  const Areas areas = lay_out(heap);
  W* const E = areas.dropped;

  CBRv2::Power<W> power = odd_power(plan_, n, areas.power, E, ctx.multiply(heap));
  const u32 bits = n * plan_.shift() % kWordBits<W>;
  const W carry = bp_mul_uW(power.T, power.T, power.L, W{1} << bits, 0, ctx.parallel);
  if (carry != 0) power.T[power.L++] = carry;
  power.exp = zero_words_;
  fault_point("verified power", power.T, power.L * sizeof(W));
  CBRv2::CheckP(plan_.radix(), n, power, ctx);

  // F * r^n below W^(m+1), without the zeros at its bottom: E and one word, the lowest of the quotient.
  const u64 m = F.L;
  const u64 words = m + 1 > zero_words_ ? m + 1 - zero_words_ : 0;
  const u64 used = std::min(m, words);
  low_product(ctx, Window<W>{E, 0, words}, Words<W>{F.T, used}, Words<W>{power.T, power.L}, half_words_,
              heap);

  fault_point("dropped part", E, words * sizeof(W));

  // D may be one less than the floor where F * r^n is hardly above a whole number; E is a whole W^m larger then,
  // and nothing but that.
  const LowDigits<W> low = low_digits(plan_.radix(), digits, n, ctx.parallel);
  const W excess = words == 0 ? W{0} - low.value : static_cast<W>(E[words - 1] - low.value);
  const bool above = excess == 1 && words != 0 && (words == 1 || E[words - 2] == 0);
  const u64 radix_hash = hash_fold(plan_.radix());
  u64 dropped = bp_hash(above ? 1 : 0, E, words == 0 ? 0 : words - 1, ctx.parallel);
  if (words != 0) dropped = hash_mul(dropped, hash_word_pow<W>(static_cast<s64>(zero_words_)));
  const u64 D = bp_hash_base(0, radix_hash, digits, n, ctx.parallel);

  Result result;
  result.digits_hash = hash_canon(hash_add(hash_mul(D, hash_word_pow<W>(static_cast<s64>(m))), dropped));
  result.binary_hash = hash_canon(hash_mul(bp_hash(0, F.T, m, ctx.parallel), hash_pow(radix_hash, n)));
  result.ok = low.in_range && (excess == 0 || above) && result.digits_hash == result.binary_hash;
  return result;
}

template class VerifyConversion<u32>;
template class VerifyConversion<u64>;

}  // namespace orl
