// Products whose forward transforms are kept and used again.
//
// A name is op_<before>_<after>, one letter per operand: r raw words, f forward-transformed, x not wanted.
// Before is what is at hand, after what is kept.
//
// Helper   takes the shape of a product length from basic_table<W>() and cuts its scratch: one working
//          transform, `kept` kept ones, working scratch. All products made with it must fit that shape. Where
//          the scratch does not hold the row's shape its lean algorithm's is taken.
// Results  every operand is read before the result is written, so here a result may share words with an
//          operand, and may be the same object.
// Zero     a zero operand clears the result; no transform is touched.
// Errors   BufferTooSmallException for a short result and ConvolutionTooSmallException for a product that
//          does not fit, both under the name of the operation.
#pragma once

#include "core/types.h"
#include "multiply/algorithm_table.h"
#include "numbers/big_float.h"
#include "numbers/exact_float.h"

namespace orl {

/// The shape and the scratch that products of up to a length share.
template <class W>
class TransformHelper {
 public:
  /// A shape for products of up to `product_words` words with `kept` (at most kMaxKept) kept transforms.
  /// Throws BufferTooSmallException "TransformHelper::TransformHelper()" when ctx.scratch is below bytes().
  TransformHelper(const MultiplyContext& ctx, u64 product_words, u64 kept = 1,
                  ShapeChoice choice = ShapeChoice::kRow);
  TransformHelper(const TransformHelper&) = delete;
  TransformHelper& operator=(const TransformHelper&) = delete;

  static constexpr u64 kMaxKept = 4;

  /// Bytes of scratch that a helper of exactly this length must have.
  static u64 bytes(u64 product_words, u64 tds, u64 kept = 1, ShapeChoice choice = ShapeChoice::kRow);
  /// Bytes of scratch that are enough for any helper of at most this length.
  static u64 max_bytes(u64 product_words, u64 tds, u64 kept = 1);

  /// Bytes of scratch of a product of at most this length that keeps nothing, mul_rr_xx over a
  /// MultiplyContext: about half of max_bytes() where the algorithm has products of half the length.
  static u64 max_bounded_bytes(u64 product_words, u64 tds);

  const Parameters& parameters() const { return *box_; }
  ParallelContext parallel() const { return parallel_; }
  void* working() const { return areas_[0]; }
  /// Area of the kept transform `index`, in [0, kept).
  void* kept(u64 index) const { return areas_[1 + index]; }
  u64 kept_count() const { return kept_count_; }
  void* scratch() const { return scratch_; }
  /// Largest product of the shape, in words.
  u64 max_words() const { return box_->max_bits() / (8 * sizeof(W)); }

 private:
  ParametersBox box_;
  ParallelContext parallel_;
  u64 kept_count_;
  void* areas_[1 + kMaxKept] = {};
  void* scratch_ = nullptr;
};

/// A forward transform and what its number looked like.
template <class W>
struct BigFloatTransformR {
  const Parameters* parameters = nullptr;
  void* F = nullptr;
  s64 exp = 0;
  u64 L = 0;  ///< length of the transformed words; 0: the number was zero
  u8 sign = 0;
  s64 magnitude = 0;  ///< exp + L

  using Helper = TransformHelper<W>;
  using Number = BigFloat<W>;

  /// Forgets the transform; its memory is the helper's.
  void clear() { *this = {}; }
  /// The top p + 2 words of a, transformed into helper.kept(index). Throws TransformTooSmallException
  /// "Transform length is too small.".
  void forward(const Helper& helper, u64 p, const Number& a, u64 index = 0);

  /// T = A^2 and T = A * B at precision p: the top p + 2 words of the product, truncated. A's transform is
  /// destroyed.
  static void inverse_fsqr(const Helper& helper, Number& T, u64 p, BigFloatTransformR& A);
  /// Throws InvalidTransformException "Mismatching Transform Parameters" unless the shapes are compatible;
  /// both transforms are then discarded.
  static void inverse_fmul(const Helper& helper, Number& T, u64 p, BigFloatTransformR& A,
                           BigFloatTransformR& B);

  /// T = a * b at precision p, raw operands cut to p + 2 words. Takes the last kept area for b.
  static void mul_rr_xx(const Helper& helper, Number& T, u64 p, const Number& a, const Number& b);
  /// As above without a helper, in the memory at hand: ctx.scratch holds Helper::max_bounded_bytes() of the
  /// product's words, and the more it holds the faster the product may be.
  static void mul_rr_xx(const MultiplyContext& ctx, Number& T, u64 p, const Number& a, const Number& b);
  /// b is transformed already and stays so.
  static void mul_rf_xf(const Helper& helper, Number& T, u64 p, const Number& a, BigFloatTransformR& B);
  /// b's transform is kept in B, at helper.kept(index).
  static void mul_rr_xf(const Helper& helper, Number& T, u64 p, const Number& a, const Number& b,
                        BigFloatTransformR& B, u64 index = 0);
  /// T = a^2; a's transform is kept in A, at helper.kept(index).
  static void sqr_rx_xf(const Helper& helper, Number& T, u64 p, const Number& a, BigFloatTransformR& A,
                        u64 index = 0);
};

/// Kept transforms of exact numbers: whole products, hashes kept in step. The last argument of a product is
/// the exponent that the result is extended down to, as in ExactFloat::set_mul.
template <class W>
struct ExactFloatTransformR {
  const Parameters* parameters = nullptr;
  void* F = nullptr;
  s64 exp = 0;
  u64 L = 0;
  u8 sign = 0;
  u64 hash = 0;

  using Helper = TransformHelper<W>;
  using Number = ExactFloat<W>;
  static constexpr s64 kNoExtend = Number::kNoExtend;

  /// Each works as that of BigFloatTransformR with its name, on whole products.
  void clear() { *this = {}; }
  void forward(const Helper& helper, const Number& a, u64 index = 0);

  /// `extend`: the exponent down to which the result is filled with zeros.
  static void inverse_fsqr(const Helper& helper, Number& T, ExactFloatTransformR& A, s64 extend = kNoExtend);
  static void inverse_fmul(const Helper& helper, Number& T, ExactFloatTransformR& A, ExactFloatTransformR& B,
                           s64 extend = kNoExtend);
  static void mul_rr_xx(const Helper& helper, Number& T, const Number& a, const Number& b,
                        s64 extend = kNoExtend);
  static void mul_rr_xx(const MultiplyContext& ctx, Number& T, const Number& a, const Number& b,
                        s64 extend = kNoExtend);
  static void mul_rf_xf(const Helper& helper, Number& T, const Number& a, ExactFloatTransformR& B,
                        s64 extend = kNoExtend);
  static void mul_rr_xf(const Helper& helper, Number& T, const Number& a, const Number& b,
                        ExactFloatTransformR& B, u64 index = 0, s64 extend = kNoExtend);
  static void sqr_rx_xf(const Helper& helper, Number& T, const Number& a, ExactFloatTransformR& A,
                        u64 index = 0, s64 extend = kNoExtend);
};

/// Whether two products with an operand in common, such as c = a * b and d = b * e, of first_words and
/// second_words words, cost less with one shape and b's transform made once than as two products: five
/// transforms of the larger shape against three of each.
template <class W>
bool shared_product_pays(u64 first_words, u64 second_words, u64 tds);

}  // namespace orl
