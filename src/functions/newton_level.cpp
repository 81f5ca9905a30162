#include "functions/newton_level.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "core/exceptions.h"
#include "multiply/algorithm_table.h"
#include "words/words.h"

// Why m = n + 12 is enough: an operand of n + 3 words times one of h + 2 has at most n + h + 5. The ideal
// value lies at most one word above that, and an error that a level may have (W^(2-h) relative) ends 2 - h
// words above the ideal value's place: below n + 9. As a signed number it is found from its residue when it
// ends below m. The second product, of h + 2 words by h + 2, does not wrap.
//
// What a miscomputation leaves: a wrong word of the estimate adds the operand, shifted, to the residue.
// Unless the operand has long runs of zeros, some of it comes to lie in the three words or more between the
// bound and m, which random words leave clear with probability W^-3. A wrong exponent or top would move only
// few words; the tops are compared as doubles first.

namespace orl {

namespace {

constexpr u64 kWrapGuard = 12;
// Relative error of a product of doubles that are right to 53 bits, and more.
constexpr double kTopError = 0x1p-40;
template <class W>
inline constexpr u64 kHalfWords = sizeof(W) / sizeof(u32);

// Words that the ring of a root's estimate must have.
u64 square_words(const LevelShape& shape) { return shape.below + kWrapGuard; }

[[noreturn]] void tops_disagree(const char* function, u64 top_a, u64 top_b) {
  throw AlgorithmFailedException(function, "Convergence Failure:\n    topA = " + std::to_string(top_a) +
                                               "\n    topB = " + std::to_string(top_b));
}

// The words at the higher of the two tops must agree within one.
template <class W>
void check_tops(const char* function, const BigFloat<W>& a, const BigFloat<W>& product) {
  const s64 top = std::max(a.magnitude(), product.magnitude()) - 1;
  const W top_a = a.word_at(top);
  const W top_b = product.word_at(top);
  if (static_cast<W>(top_a - top_b) > 1 && static_cast<W>(top_b - top_a) > 1)
    tops_disagree(function, top_a, top_b);
}

}  // namespace

template <class W>
Estimate subtract_product(BigFloat<W>& difference, u64 n, const BigFloat<W>& a, const BigFloat<W>& product,
                          const char* function, ParallelContext parallel) {
  const BigFloat<W> dividend = top_words(a, n + 2);
  check_tops(function, dividend, product);
  const int order = BigFloat<W>::cmp(dividend, product);
  if (order == 0) return Estimate::kExact;
  if (order > 0)
    difference.set_usub(n + 1, dividend, product, parallel);
  else
    difference.set_usub(n + 1, product, dividend, parallel);
  return order > 0 ? Estimate::kUnder : Estimate::kOver;
}

template <class W>
LevelShape LevelShape::plain(u64 n) {
  const u64 h = (n + 1) >> 1;
  return {.n = n, .below = h, .product_words = 2 * (h + 2)};
}

template <class W>
LevelShape LevelShape::wrapped(u64 n, u64 tds) {
  const u64 words = n + kWrapGuard;
  LevelShape shape = plain<W>(n);
  if (words > basic_table<W>().max_words()) return shape;
  ParametersBox box;
  const u64 cyclic =
      basic_table<W>().parameters_for(box, nullptr, words, tds, ShapeChoice::kLean).cyclic_words();
  if (cyclic < words * kHalfWords<W> || cyclic % kHalfWords<W> != 0) return shape;
  shape.product_words = words;
  shape.wrap = cyclic / kHalfWords<W>;
  return shape;
}

template <class W>
LevelShape LevelShape::of_root(u64 n, u64 tds) {
  LevelShape shape = wrapped<W>(n, tds);
  shape.dividend = true;
  if (shape.wrap == 0) return shape;
  ParametersBox box, square_box;
  const Parameters& whole =
      basic_table<W>().parameters_for(box, nullptr, shape.product_words, tds, ShapeChoice::kLean);
  const Parameters& square =
      basic_table<W>().parameters_for(square_box, nullptr, square_words(shape), tds, ShapeChoice::kLean);
  const u64 cyclic = square.cyclic_words();
  // It is made in the memory of the level.
  const MultiplySizes room = whole.sizes(), sizes = square.sizes();
  const bool fits = sizes.transform_bytes <= room.transform_bytes &&
                    sizes.scratch_bytes <= room.scratch_bytes && cyclic <= shape.wrap * kHalfWords<W>;
  if (fits && cyclic >= square_words(shape) * kHalfWords<W> && cyclic % kHalfWords<W> == 0)
    shape.square_wrap = cyclic / kHalfWords<W>;
  return shape;
}

template <class W>
LevelProducts<BigFloat<W>>::LevelProducts(const RunContext& ctx, const LevelShape& shape,
                                          LinearHeapBuffer heap)
    : shape_(shape),
      tables_(ctx.tables),
      areas_(lay_out(shape, ctx.parallel.tds, heap)),
      helper_(ctx.multiply(heap), shape.product_words, shape.kept, shape.choice()) {
  if (shape.wrap && helper_.parameters().cyclic_words() != shape.wrap * kHalfWords<W>)
    throw InvalidParametersException("LevelProducts::LevelProducts()", "The plan has another shape.");
}

template <class W>
void LevelProducts<BigFloat<W>>::keep(const BigFloat<W>& t, u64 index) {
  fault_point("newton estimate", t);
  used_ = index;
  kept_[index].top = top_of(t);
  if (!shape_.wrap) return kept().forward(helper_, shape_.below, t, index);
  const BigFloat<W> used = top_words(t, shape_.below + 2);
  kept().clear();
  kept().exp = used.exp;
  kept().L = used.L;
  kept().sign = used.sign;
  kept().magnitude = used.magnitude();
  kept_[index].check = RingCheck(shape_.wrap * kHalfWords<W>);
  kept_[index].check.take(reinterpret_cast<const u32*>(used.T), used.L * kHalfWords<W>, helper_.parallel());
  helper_.parameters().wrapped()->forward_cyclic(helper_.kept(used_), Words<W>{used.T, used.L},
                                                 helper_.scratch(), helper_.parallel());
}

template <class W>
auto LevelProducts<BigFloat<W>>::top_of(const BigFloat<W>& a) -> Top {
  Top top;
  top.value = a.to_double(&top.exp);
  return top;
}

// |x y / ideal| as far as doubles tell. 0 and infinity stand for what is out of their reach.
template <class W>
double LevelProducts<BigFloat<W>>::ratio(const Top& x, const Top& y, const Top& ideal) {
  const s64 words = std::clamp<s64>(x.exp + y.exp - ideal.exp, -9, 9);
  return std::abs(
      std::ldexp(x.value * y.value / ideal.value, static_cast<int>(words) * static_cast<int>(8 * sizeof(W))));
}

// The residue of a times the kept number fills the buffer.
template <class W>
void LevelProducts<BigFloat<W>>::residue(const BigFloat<W>& a) {
  const WrappedProducts& wrapped = *helper_.parameters().wrapped();
  const ParallelContext parallel = helper_.parallel();
  RingCheck check = kept_[used_].check;
  check.multiply(reinterpret_cast<const u32*>(a.T), a.L * kHalfWords<W>, parallel);
  u32* const product = reinterpret_cast<u32*>(buffer_.base);
  wrapped.forward_cyclic(helper_.working(), Words<W>{a.T, a.L}, helper_.scratch(), parallel);
  wrapped.pointwise_cyclic(helper_.working(), helper_.kept(used_), product, helper_.scratch(), parallel);
  fault_point("newton product", product, shape_.wrap * sizeof(W));
  check.compare(product, false, "LevelProducts::residue()", parallel);
  take_buffer(shape_.wrap, a.exp + kept().exp, a.sign == kept().sign);
}

template <class W>
void LevelProducts<BigFloat<W>>::take_buffer(u64 m, s64 exp, u8 sign) {
  buffer_.T = buffer_.base;
  buffer_.L = m;
  buffer_.exp = exp;
  buffer_.sign = sign;
}

// The residue of t^2 modulo W^m - 1 fills the buffer, where t may lie.
template <class W>
void LevelProducts<BigFloat<W>>::square_residue(const BigFloat<W>& t, u64 m) {
  const ParallelContext parallel = helper_.parallel();
  ParametersBox box;
  const Parameters& shape = m == shape_.wrap
                                ? helper_.parameters()
                                : basic_table<W>().parameters_for(box, &tables_, square_words(shape_),
                                                                  parallel.tds, ShapeChoice::kLean);
  if (shape.cyclic_words() != m * kHalfWords<W>)
    throw InvalidParametersException("LevelProducts::square_residue()", "The plan has another shape.");
  const WrappedProducts& wrapped = *shape.wrapped();
  RingCheck check(m * kHalfWords<W>);
  check.take(reinterpret_cast<const u32*>(t.T), t.L * kHalfWords<W>, parallel);
  check.square();
  u32* const product = reinterpret_cast<u32*>(buffer_.base);
  void *const F = helper_.working(), *const tmp = helper_.scratch();
  const s64 exp = 2 * t.exp;
  wrapped.forward_cyclic(F, Words<W>{t.T, t.L}, tmp, parallel);
  wrapped.pointwise_cyclic(F, F, product, tmp, parallel);
  fault_point("newton product", product, m * sizeof(W));
  check.compare(product, false, "LevelProducts::square_residue()", parallel);
  take_buffer(m, exp, 1);
}

// The residue modulo W^m - 1 less A W^at, `at` of any size, L <= m.
template <class W>
void LevelProducts<BigFloat<W>>::subtract(const W* A, u64 L, u64 at, u64 m) {
  const ParallelContext parallel = helper_.parallel();
  W* const C = buffer_.base;
  at %= m;
  const u64 first = std::min(L, m - at);
  u64 end = at + first;
  W borrow = bp_sub(C + at, C + at, A, first, 0, parallel);
  if (first < L) {
    end = L - first;
    borrow = bp_sub(C, C, A + first, end, borrow, parallel);
  }
  // W^m is 1.
  if (borrow != 0 && bp_carry<W>(-1, C + end, m - end, parallel) != 0) bp_carry<W>(-1, C, m, parallel);
}

// The number of least magnitude with the residue in the buffer; minus a residue is its complement.
template <class W>
Estimate LevelProducts<BigFloat<W>>::take_residue(s64 exp, u64 m) {
  const bool negative = buffer_.base[m - 1] >> (8 * sizeof(W) - 1) != 0;
  if (negative) bp_not(buffer_.base, buffer_.base, m, helper_.parallel());
  buffer_.T = buffer_.base;
  buffer_.L = m;
  buffer_.exp = exp;
  buffer_.strip_top_zeros(helper_.parallel());
  error_ = buffer_;
  fault_point("newton error", error_);
  if (buffer_.L == 0) return Estimate::kExact;
  return negative ? Estimate::kUnder : Estimate::kOver;
}

// The product of the top h + 2 words of a in the buffer: whole when wrapped, else to p + 2 words.
template <class W>
void LevelProducts<BigFloat<W>>::into_buffer(u64 p, const BigFloat<W>& a) {
  const BigFloat<W> used = top_words(a, shape_.below + 2);
  if (!shape_.wrap) return BigFloatTransformR<W>::mul_rf_xf(helper_, buffer_, p, used, kept());
  residue(used);
  buffer_.strip_top_zeros(helper_.parallel());
}

template <class W>
void LevelProducts<BigFloat<W>>::multiply(BigFloat<W>& T, u64 p, const BigFloat<W>& a) {
  if (!shape_.wrap)
    return BigFloatTransformR<W>::mul_rf_xf(helper_, T, p, top_words(a, shape_.below + 2), kept());
  into_buffer(p, a);
  T.set_BigFloat(p, buffer_, helper_.parallel());
}

template <class W>
void LevelProducts<BigFloat<W>>::multiply_long(BigFloat<W>& T, const BigFloat<W>& a) {
  const BigFloat<W> used = top_words(a, shape_.n + 3);
  const BigFloat<W> lower = words_below(used, shape_.below + 2);
  multiply(T, shape_.n + 1, used);
  if (lower.L == 0) return;
  into_buffer(shape_.below, lower);
  add_below(T, buffer_, helper_.parallel());
}

template <class W>
Estimate LevelProducts<BigFloat<W>>::take_error_of(BigFloat<W>& e, const char* function) {
  const Estimate side = take_error(e, shape_.below, function, helper_.parallel());
  error_ = e;
  fault_point("newton error", error_);
  return side;
}

template <class W>
Estimate LevelProducts<BigFloat<W>>::square_error(BigFloat<W>& work, const BigFloat<W>& t, W w,
                                                  const char* function) {
  fault_point("newton estimate", t);
  BigFloatTransformR<W>::sqr_rx_xf(helper_, work, shape_.n + 1, t, kept());
  work.mul_uW(w, helper_.parallel());
  return take_error_of(work, function);
}

template <class W>
Estimate LevelProducts<BigFloat<W>>::error(BigFloat<W>& work, const BigFloat<W>& a, const char* function) {
  if (!shape_.wrap) {
    multiply_long(work, a);
    return take_error_of(work, function);
  }
  const BigFloat<W> used = top_words(a, shape_.n + 3);
  const double e = ratio(top_of(used), kept_[used_].top, Top());
  if (!(std::abs(e - 1) < kTopError))
    convergence_failure(function, e < 1 ? "Under-Estimate" : "Over-Estimate", shape_.below, 0);
  residue(used);
  const W one = 1;
  const s64 exp = buffer_.exp;
  if (exp > 0) convergence_failure(function, "Over-Estimate", shape_.below, exp);
  subtract(&one, 1, static_cast<u64>(-exp), shape_.wrap);
  const Estimate side = take_residue(exp, shape_.wrap);
  if (side != Estimate::kExact && error_.magnitude() > error_bound(shape_.below))
    convergence_failure(function, side == Estimate::kOver ? "Over-Estimate" : "Under-Estimate", shape_.below,
                        error_.magnitude());
  return side;
}

template <class W>
Estimate LevelProducts<BigFloat<W>>::difference(BigFloat<W>& work, const BigFloat<W>& a, const BigFloat<W>& b,
                                                const char* function) {
  const ParallelContext parallel = helper_.parallel();
  const BigFloat<W> dividend = top_words(a, shape_.n + 2);
  BigFloat<W> divisor = top_words(b, shape_.n + 3);
  if (!shape_.wrap) {
    multiply_long(work, divisor);
    const Estimate side = subtract_product(areas_.difference, shape_.n, dividend, work, function, parallel);
    error_ = areas_.difference;
    return side;
  }
  check_tops_of(top_of(divisor), kept_[used_].top, dividend, function);
  const s64 exp = divisor.exp + kept().exp;
  if (exp > dividend.exp) {
    // The product ends above the dividend: zeros below the divisor bring them level.
    const u64 zeros = static_cast<u64>(exp - dividend.exp);
    bp_copy(buffer_.base + zeros, divisor.T, divisor.L, parallel);
    bp_fill(buffer_.base, zeros, 0, parallel);
    divisor.T = buffer_.base;
    divisor.L += zeros;
    divisor.exp -= static_cast<s64>(zeros);
  }
  residue(divisor);
  return take_difference(dividend, shape_.wrap, function);
}

// What is made twice the dividend's length in the ring of a square comes off in parts of the ring's length.
template <class W>
Estimate LevelProducts<BigFloat<W>>::take_difference(const BigFloat<W>& dividend, u64 m,
                                                     const char* function) {
  const s64 bottom = buffer_.exp;
  for (u64 at = 0; at < dividend.L; at += m)
    subtract(dividend.T + at, std::min(m, dividend.L - at), static_cast<u64>(dividend.exp - bottom) + at, m);
  const Estimate side = take_residue(bottom, m);
  if (side != Estimate::kExact && error_.magnitude() > dividend.magnitude() + error_bound(shape_.below)) {
    const s64 place = error_.magnitude() - 1;
    const W word = dividend.word_at(place), off = error_.T[error_.L - 1];
    tops_disagree(function, word, static_cast<W>(side == Estimate::kOver ? word + off : word - off));
  }
  return side;
}

// x y must be the dividend, as far as doubles tell.
template <class W>
void LevelProducts<BigFloat<W>>::check_tops_of(const Top& x, const Top& y, const BigFloat<W>& dividend,
                                               const char* function) const {
  const double found = ratio(x, y, top_of(dividend));
  if (std::abs(found - 1) < kTopError) return;
  const W top = dividend.T[dividend.L - 1];
  const double product = found * static_cast<double>(top);
  tops_disagree(function, top, product < 0x1p63 ? static_cast<u64>(product) : ~u64{0});
}

template <class W>
Estimate LevelProducts<BigFloat<W>>::square_difference(BigFloat<W>& work, const BigFloat<W>& a,
                                                       const BigFloat<W>& t, const char* function) {
  fault_point("newton estimate", t);
  const ParallelContext parallel = helper_.parallel();
  const BigFloat<W> dividend = top_words(a, shape_.n + 2);
  BigFloat<W> root = top_words(t, shape_.below + 2);
  if (!shape_.wrap) {
    BigFloatTransformR<W>::sqr_rx_xf(helper_, work, shape_.n + 1, root, kept());
    const Estimate side = subtract_product(areas_.difference, shape_.n, dividend, work, function, parallel);
    error_ = areas_.difference;
    return side;
  }
  check_tops_of(top_of(root), top_of(root), dividend, function);
  if (2 * root.exp > dividend.exp) {
    // The square ends above the dividend: zeros below the root bring them level.
    const u64 zeros = static_cast<u64>(2 * root.exp - dividend.exp + 1) / 2;
    bp_copy(buffer_.base + zeros, root.T, root.L, parallel);
    bp_fill(buffer_.base, zeros, 0, parallel);
    root.T = buffer_.base;
    root.L += zeros;
    root.exp -= static_cast<s64>(zeros);
  }
  const u64 m = shape_.square_wrap ? shape_.square_wrap : shape_.wrap;
  square_residue(root, m);
  return take_difference(dividend, m, function);
}

template <class W>
void LevelProducts<BigFloat<W>>::correct(BigFloat<W>& y, const BigFloat<W>& t, Estimate side,
                                         Correction share) {
  if (side != Estimate::kExact) {
    if (share == Correction::kHalf) error_.mp2(-1, helper_.parallel());
    into_buffer(shape_.below + 1, error_);
  }
  fault_point("newton correction", buffer_);
  apply_correction(y, shape_.n, t, buffer_, side, helper_.parallel());
}

template <class W>
void LevelProducts<BigFloat<W>>::keep_exact(BigFloat<W>& y, const BigFloat<W>& t) const {
  orl::keep_exact(y, shape_.n, t, helper_.parallel());
}

#define ORVANE_INSTANTIATE(W)                                                                                \
  template LevelShape LevelShape::plain<W>(u64);                                                             \
  template LevelShape LevelShape::wrapped<W>(u64, u64);                                                      \
  template LevelShape LevelShape::of_root<W>(u64, u64);                                                      \
  template Estimate subtract_product(BigFloat<W>&, u64, const BigFloat<W>&, const BigFloat<W>&, const char*, \
                                     ParallelContext);                                                       \
  template class LevelProducts<BigFloat<W>>;
ORVANE_INSTANTIATE(u32)
ORVANE_INSTANTIATE(u64)
#undef ORVANE_INSTANTIATE

}  // namespace orl
