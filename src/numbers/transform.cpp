#include "numbers/transform.h"

#include <algorithm>

#include "core/exceptions.h"
#include "multiply/algorithm_table.h"
#include "multiply/product_areas.h"
#include "words/capacity.h"
#include "words/words.h"

namespace orl {
namespace {

constexpr const char* kTooSmall = "Convolution length is too small.";

// What an operation needs to know of an operand, raw or transformed.
struct Factor {
  u64 L = 0;
  s64 exp = 0;
  u8 sign = 0;
  u64 hash = 0;
};

template <class W>
struct RawFactor : Factor {
  const W* T = nullptr;

  Words<W> words() const { return {T, L}; }
};

template <class W>
RawFactor<W> raw(const BigFloat<W>& a, u64 p) {
  const u64 n = p + kBigFloatExtraPrecision;
  const u64 cut = a.L > n ? a.L - n : 0;
  return {{a.L - cut, a.exp + static_cast<s64>(cut), a.sign, 0}, a.T + cut};
}

template <class W>
RawFactor<W> raw(const ExactFloat<W>& a) {
  return {{a.L, a.exp, a.sign, a.hash}, a.T};
}

template <class W>
Factor held(const BigFloatTransformR<W>& A) {
  return {A.L, A.exp, A.sign, 0};
}

template <class W>
Factor held(const ExactFloatTransformR<W>& A) {
  return {A.L, A.exp, A.sign, A.hash};
}

template <class W>
void check_product(const TransformHelper<W>& helper, u64 words, const char* function) {
  const u64 bits = words * 8 * sizeof(W);
  if (bits > helper.parameters().max_bits())
    throw ConvolutionTooSmallException(function, kTooSmall, helper.parameters().max_bits(), bits);
}

// The windows that follow are made before anything is written, so that a result may be one of the operands.

// Result at precision p. Not for zero factors.
template <class W>
Window<W> start_product(BigFloat<W>& result, u64 p, const Factor& a, const Factor& b, const char* function) {
  const u64 n = p + kBigFloatExtraPrecision;
  const u64 c = a.L + b.L;
  const u64 skip = c > n ? c - n : 0;
  require_capacity(function, result.size, c - skip);
  result.T = result.base;
  result.L = c - skip;
  result.exp = a.exp + b.exp + static_cast<s64>(skip);
  result.sign = a.sign == b.sign;
  return {result.T, skip, c};
}

// Exact result, extended down to `extend`. The zero words are written at the end.
template <class W>
Window<W> start_product(ExactFloat<W>& result, s64 extend, const Factor& a, const Factor& b,
                        const char* function) {
  const u64 c = a.L + b.L;
  const s64 exp = a.exp + b.exp;
  const u64 zeros = exp > extend ? static_cast<u64>(exp - extend) : 0;
  require_capacity(function, result.size, c + zeros);
  result.T = result.base;
  result.L = c + zeros;
  result.exp = exp - static_cast<s64>(zeros);
  result.sign = a.sign == b.sign;
  result.hash = hash_mul(a.hash, b.hash);
  return {result.T + zeros, 0, c};
}

// What follows every product: zero words below it, and a zero top word dropped.
template <class Number, class W>
void finish_product(Number& result, const Window<W>& target, ParallelContext parallel) {
  bp_fill(result.T, static_cast<u64>(target.T - result.T), 0, parallel);
  if (result.T[result.L - 1] == 0) --result.L;
}

template <class W>
void forward_raw(const TransformHelper<W>& helper, void* F, const RawFactor<W>& a) {
  helper.parameters().forward(F, a.words(), helper.scratch(), helper.parallel());
}

// The operations, for either kind of number: `limit` is the precision or the exponent to extend to.

template <class W, class Number, class Limit>
void multiply_transforms(const TransformHelper<W>& helper, Number& result, Limit limit, const Factor& a,
                         void* F, const Factor& b, const void* G, const char* function) {
  check_product(helper, a.L + b.L, function);
  const Window<W> target = start_product<W>(result, limit, a, b, function);
  helper.parameters().inverse_fmul(F, G, target, helper.scratch(), helper.parallel());
  finish_product(result, target, helper.parallel());
}

template <class W, class Number, class Limit>
void square_transform(const TransformHelper<W>& helper, Number& result, Limit limit, const Factor& a, void* F,
                      const char* function) {
  check_product(helper, 2 * a.L, function);
  const Window<W> target = start_product<W>(result, limit, a, a, function);
  helper.parameters().inverse_fsqr(F, target, helper.scratch(), helper.parallel());
  finish_product(result, target, helper.parallel());
}

// Refuses transforms that were made with another shape, or were destroyed since.
template <class W, class Transform>
void check_shape(const TransformHelper<W>& helper, Transform& A, Transform& B, const char* function) {
  const auto fits = [&](const Transform& X) {
    return X.parameters == &helper.parameters() ||
           (X.parameters != nullptr && helper.parameters().compatible(*X.parameters));
  };
  if (fits(A) && fits(B)) return;
  A.clear();
  B.clear();
  throw InvalidTransformException(function, "Mismatching Transform Parameters");
}

template <class W, class Transform>
void forward_kept(const TransformHelper<W>& helper, Transform& A, const RawFactor<W>& a, u64 index,
                  const char* function) {
  A.clear();
  A.parameters = &helper.parameters();
  if (a.L == 0) return;
  if (helper.max_words() < a.L) throw TransformTooSmallException(function, "Transform length is too small.");
  A.F = helper.kept(index);
  A.exp = a.exp;
  A.L = a.L;
  A.sign = a.sign;
  forward_raw(helper, A.F, a);
}

template <class W, class Number, class Transform, class Limit>
void op_inverse_fsqr(const TransformHelper<W>& helper, Number& T, Limit limit, Transform& A,
                     const char* function) {
  check_shape(helper, A, A, function);
  if (A.L == 0) return T.set_zero();
  square_transform(helper, T, limit, held(A), A.F, function);
  A.parameters = nullptr;
}

template <class W, class Number, class Transform, class Limit>
void op_inverse_fmul(const TransformHelper<W>& helper, Number& T, Limit limit, Transform& A, Transform& B,
                     const char* function) {
  check_shape(helper, A, B, function);
  if (A.L == 0 || B.L == 0) return T.set_zero();
  multiply_transforms(helper, T, limit, held(A), A.F, held(B), B.F, function);
  A.parameters = nullptr;
}

template <class W, class Number, class Limit>
void op_mul_rr_xx(const TransformHelper<W>& helper, Number& T, Limit limit, const RawFactor<W>& a,
                  const RawFactor<W>& b, const char* function) {
  if (a.L == 0 || b.L == 0) return T.set_zero();
  check_product(helper, a.L + b.L, function);
  void* const G = helper.kept(helper.kept_count() - 1);
  forward_raw(helper, helper.working(), a);
  forward_raw(helper, G, b);
  multiply_transforms(helper, T, limit, a, helper.working(), b, G, function);
}

template <class W, class Number, class Limit>
void op_mul_rr_xx(const MultiplyContext& ctx, Number& T, Limit limit, const RawFactor<W>& a,
                  const RawFactor<W>& b, const char* function) {
  if (a.L == 0 || b.L == 0) return T.set_zero();
  const u64 words = a.L + b.L;
  const Window<W> target = start_product<W>(T, limit, a, b, function);
  if (!words_overlap(target, a.words()) && !words_overlap(target, b.words())) {
    basic_table<W>().mul_bounded(ctx, target, a.words(), b.words());
  } else if (ctx.scratch.size >= TransformHelper<W>::bytes(words, ctx.parallel.tds)) {
    const TransformHelper<W> helper(ctx, words);
    forward_raw(helper, helper.working(), a);
    forward_raw(helper, helper.kept(0), b);
    helper.parameters().inverse_fmul(helper.working(), helper.kept(0), target, helper.scratch(),
                                     ctx.parallel);
  } else {
    basic_table<W>().get_lean_algorithm(words).mul_bounded(ctx, target, a.words(), b.words());
  }
  finish_product(T, target, ctx.parallel);
}

template <class W, class Number, class Transform, class Limit>
void op_mul_rf_xf(const TransformHelper<W>& helper, Number& T, Limit limit, const RawFactor<W>& a,
                  Transform& B, const char* function) {
  check_shape(helper, B, B, function);
  if (a.L == 0 || B.L == 0) return T.set_zero();
  check_product(helper, a.L + B.L, function);
  forward_raw(helper, helper.working(), a);
  multiply_transforms(helper, T, limit, a, helper.working(), held(B), B.F, function);
}

template <class W, class Number, class Transform, class Limit>
void op_sqr_rx_xf(const TransformHelper<W>& helper, Number& T, Limit limit, const RawFactor<W>& a,
                  const Transform& A, const char* function) {
  if (a.L == 0) return T.set_zero();
  check_product(helper, 2 * a.L, function);
  bp_copy(static_cast<u64*>(helper.working()), static_cast<const u64*>(A.F),
          helper.parameters().transform_size() / sizeof(u64), helper.parallel());
  square_transform(helper, T, limit, a, helper.working(), function);
}

}  // namespace

// Helper --------------------------------------------------------------------------------------------------

template <class W>
TransformHelper<W>::TransformHelper(const MultiplyContext& ctx, u64 product_words, u64 kept,
                                    ShapeChoice choice)
    : parallel_(ctx.parallel), kept_count_(kept) {
  const char* const function = "TransformHelper::TransformHelper()";
  if (kept == 0 || kept > kMaxKept)
    throw InvalidParametersException(function, "Invalid number of kept transforms.");
  const AlgorithmTable<W>& table = basic_table<W>();
  if (choice == ShapeChoice::kLean)
    table.parameters_for(box_, &ctx.tables, product_words, ctx.parallel.tds, choice);
  else
    table.parameters_within(ctx.scratch.size, 1 + kept, box_, &ctx.tables, product_words, ctx.parallel.tds);
  scratch_ = cut_product_areas(ctx.scratch, box_->sizes(), areas_, 1 + kept, function);
}

template <class W>
u64 TransformHelper<W>::bytes(u64 product_words, u64 tds, u64 kept, ShapeChoice choice) {
  const AlgorithmTable<W>& table = basic_table<W>();
  const auto bytes_of = [&](const MultiplySizes& sizes) {
    return (1 + kept) * sizes.transform_bytes + sizes.scratch_bytes;
  };
  ParametersBox box;
  const u64 lean =
      bytes_of(table.parameters_for(box, nullptr, product_words, tds, ShapeChoice::kLean).sizes());
  return choice == ShapeChoice::kLean ? lean : std::min(lean, bytes_of(table.sizes(product_words, tds)));
}

template <class W>
u64 TransformHelper<W>::max_bytes(u64 product_words, u64 tds, u64 kept) {
  return basic_table<W>().max_least_bytes(product_words, tds, 1 + kept);
}

template <class W>
u64 TransformHelper<W>::max_bounded_bytes(u64 product_words, u64 tds) {
  return basic_table<W>().max_bounded_sizes(product_words, tds, 0).product_bytes;
}

// Truncating ----------------------------------------------------------------------------------------------

template <class W>
void BigFloatTransformR<W>::forward(const Helper& helper, u64 p, const Number& a, u64 index) {
  forward_kept(helper, *this, raw(a, p), index, "BigFloatTransformR::forward()");
  magnitude = exp + static_cast<s64>(L);
}

template <class W>
void BigFloatTransformR<W>::inverse_fsqr(const Helper& helper, Number& T, u64 p, BigFloatTransformR& A) {
  op_inverse_fsqr(helper, T, p, A, "BigFloatTransformR::inverse_fsqr()");
}

template <class W>
void BigFloatTransformR<W>::inverse_fmul(const Helper& helper, Number& T, u64 p, BigFloatTransformR& A,
                                         BigFloatTransformR& B) {
  op_inverse_fmul(helper, T, p, A, B, "BigFloatTransformR::inverse_fmul()");
}

template <class W>
void BigFloatTransformR<W>::mul_rr_xx(const Helper& helper, Number& T, u64 p, const Number& a,
                                      const Number& b) {
  op_mul_rr_xx(helper, T, p, raw(a, p), raw(b, p), "BigFloatTransformR::mul_rr_xx()");
}

template <class W>
void BigFloatTransformR<W>::mul_rr_xx(const MultiplyContext& ctx, Number& T, u64 p, const Number& a,
                                      const Number& b) {
  op_mul_rr_xx(ctx, T, p, raw(a, p), raw(b, p), "BigFloatTransformR::mul_rr_xx()");
}

template <class W>
void BigFloatTransformR<W>::mul_rf_xf(const Helper& helper, Number& T, u64 p, const Number& a,
                                      BigFloatTransformR& B) {
  op_mul_rf_xf(helper, T, p, raw(a, p), B, "BigFloatTransformR::mul_rf_xf()");
}

template <class W>
void BigFloatTransformR<W>::mul_rr_xf(const Helper& helper, Number& T, u64 p, const Number& a,
                                      const Number& b, BigFloatTransformR& B, u64 index) {
  const char* const function = "BigFloatTransformR::mul_rr_xf()";
  B.forward(helper, p, b, index);
  op_mul_rf_xf(helper, T, p, raw(a, p), B, function);
}

template <class W>
void BigFloatTransformR<W>::sqr_rx_xf(const Helper& helper, Number& T, u64 p, const Number& a,
                                      BigFloatTransformR& A, u64 index) {
  A.forward(helper, p, a, index);
  op_sqr_rx_xf(helper, T, p, raw(a, p), A, "BigFloatTransformR::sqr_rx_xf()");
}

// Exact ---------------------------------------------------------------------------------------------------

template <class W>
void ExactFloatTransformR<W>::forward(const Helper& helper, const Number& a, u64 index) {
  forward_kept(helper, *this, raw(a), index, "ExactFloatTransformR::forward()");
  if (L > 0) hash = a.hash;
}

template <class W>
void ExactFloatTransformR<W>::inverse_fsqr(const Helper& helper, Number& T, ExactFloatTransformR& A,
                                           s64 extend) {
  op_inverse_fsqr(helper, T, extend, A, "ExactFloatTransformR::inverse_fsqr()");
}

template <class W>
void ExactFloatTransformR<W>::inverse_fmul(const Helper& helper, Number& T, ExactFloatTransformR& A,
                                           ExactFloatTransformR& B, s64 extend) {
  op_inverse_fmul(helper, T, extend, A, B, "ExactFloatTransformR::inverse_fmul()");
}

template <class W>
void ExactFloatTransformR<W>::mul_rr_xx(const Helper& helper, Number& T, const Number& a, const Number& b,
                                        s64 extend) {
  op_mul_rr_xx(helper, T, extend, raw(a), raw(b), "ExactFloatTransformR::mul_rr_xx()");
}

template <class W>
void ExactFloatTransformR<W>::mul_rr_xx(const MultiplyContext& ctx, Number& T, const Number& a,
                                        const Number& b, s64 extend) {
  op_mul_rr_xx(ctx, T, extend, raw(a), raw(b), "ExactFloatTransformR::mul_rr_xx()");
}

template <class W>
void ExactFloatTransformR<W>::mul_rf_xf(const Helper& helper, Number& T, const Number& a,
                                        ExactFloatTransformR& B, s64 extend) {
  op_mul_rf_xf(helper, T, extend, raw(a), B, "ExactFloatTransformR::mul_rf_xf()");
}

template <class W>
void ExactFloatTransformR<W>::mul_rr_xf(const Helper& helper, Number& T, const Number& a, const Number& b,
                                        ExactFloatTransformR& B, u64 index, s64 extend) {
  const char* const function = "ExactFloatTransformR::mul_rr_xf()";
  B.forward(helper, b, index);
  op_mul_rf_xf(helper, T, extend, raw(a), B, function);
}

template <class W>
void ExactFloatTransformR<W>::sqr_rx_xf(const Helper& helper, Number& T, const Number& a,
                                        ExactFloatTransformR& A, u64 index, s64 extend) {
  A.forward(helper, a, index);
  op_sqr_rx_xf(helper, T, extend, raw(a), A, "ExactFloatTransformR::sqr_rx_xf()");
}

// Products with a shared operand --------------------------------------------------------------------------

template <class W>
bool shared_product_pays(u64 first_words, u64 second_words, u64 tds) {
  const u64 larger = std::max(first_words, second_words);
  const u64 smaller = std::min(first_words, second_words);
  const AlgorithmTable<W>& table = basic_table<W>();
  // A forward transform of Basecase/Karatsuba is a copy: there is nothing to save.
  if (table.get_algorithm(larger).transforms_are_copies()) return false;
  const u64 large = table.sizes(larger, tds).transform_bytes;
  const u64 small = table.sizes(smaller, tds).transform_bytes;
  // Five transforms against 3 + 3 * small / large: even at 2/3 on paper. A shorter product also fills less of
  // its shape, and the two ways met at 0.75 to 0.8 (Zen 4, AVX-512, one thread, 50 to 200000 words of u64).
  return 5 * small >= 4 * large;
}

#define ORL_INSTANTIATE(W)                 \
  template class TransformHelper<W>;       \
  template struct BigFloatTransformR<W>;   \
  template struct ExactFloatTransformR<W>; \
  template bool shared_product_pays<W>(u64, u64, u64);
ORL_INSTANTIATE(u32)
ORL_INSTANTIATE(u64)
#undef ORL_INSTANTIATE

}  // namespace orl
