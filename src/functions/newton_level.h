// The products of one Newton level of n words over one of h.
//
// A level multiplies by its estimate t of h + 2 words: a full-length operand, then the error of that product.
// t is transformed once for all of them.
//
// Plain    a shape of 2 (h + 2) words. A full-length operand is taken in two halves, and the product is cut
// to
//          n + 3 words.
// Wrapped  a shape with products modulo W^m - 1, m a few words above n. The product of n + h + 5 words is
//          known but for about n: its top is that of 1, or of the dividend. The residue less what is ideal is
//          congruent to the error, which is shorter than m words and so is found whole, with its sign. Five
//          transforms of a level become three.
#pragma once

#include "functions/newton_steps.h"
#include "numbers/big_float.h"
#include "numbers/transform.h"

namespace orl {

/// The way that a level takes, chosen when it is planned.
struct LevelShape {
  u64 n = 0;
  u64 below = 0;          ///< h
  u64 product_words = 0;  ///< that the shape is asked for
  u64 wrap = 0;           ///< m; 0: plain
  u64 kept = 1;           ///< numbers whose transforms are kept at once, 1 or 2

  template <class W>
  static LevelShape plain(u64 n);
  /// Wrapped when the shape of that length offers it.
  template <class W>
  static LevelShape wrapped(u64 n, u64 tds);

  /// Words of the buffer of LevelProducts.
  u64 buffer_words() const { return wrap ? wrap : below + 3; }
  template <class W>
  u64 bytes(u64 tds) const {
    return TransformHelper<W>::bytes(product_words, tds, kept);
  }
};

/// difference = |a - product| to n + 3 words; kUnder when a is larger. Throws AlgorithmFailedException
/// "Convergence Failure: ..." when the tops disagree.
template <class W>
Estimate subtract_product(BigFloat<W>& difference, u64 n, const BigFloat<W>& a, const BigFloat<W>& product,
                          const char* function, ParallelContext parallel);

template <class W>
class LevelProducts {
 public:
  /// `buffer` holds shape.buffer_words(); ctx.scratch the shape's bytes. Throws BufferTooSmallException, and
  /// InvalidParametersException when ctx leads to another shape than the plan's.
  LevelProducts(const MultiplyContext& ctx, const LevelShape& shape, W* buffer);
  LevelProducts(const LevelProducts&) = delete;
  LevelProducts& operator=(const LevelProducts&) = delete;

  /// Transforms the top h + 2 words of t, to keep them as number `index` of shape.kept, and uses them.
  void keep(const BigFloat<W>& t, u64 index = 0);
  /// Uses number `index` again: "the kept number" below.
  void use(u64 index) { used_ = index; }
  /// T = t^2 to n + 3 words, and t is kept. Plain shapes only.
  void keep_and_square(BigFloat<W>& T, const BigFloat<W>& t);
  /// T = the top h + 2 words of a times the kept number, to p + 2 words.
  void multiply(BigFloat<W>& T, u64 p, const BigFloat<W>& a);
  /// T = the top n + 3 words of a times the kept number, to n + 3 words.
  void multiply_long(BigFloat<W>& T, const BigFloat<W>& a);

  /// Of e = a times the kept number, ideally 1, finds |e - 1|, and says on which side e is. `work` holds n +
  /// 4 words. Fails as take_error.
  Estimate error(BigFloat<W>& work, const BigFloat<W>& a, const char* function);
  /// The same for an e that is at hand; it stays in use.
  Estimate error_of(BigFloat<W>& e, const char* function);
  /// Finds |a - b * kept|: kUnder when a is larger. The plain way needs both numbers of n + 4 and n + 3
  /// words, the wrapped way none. Throws AlgorithmFailedException "Convergence Failure: ..." when the tops
  /// disagree.
  Estimate difference(BigFloat<W>& work, BigFloat<W>& plain_difference, const BigFloat<W>& a,
                      const BigFloat<W>& b, const char* function);
  /// The error that was found, halved.
  void halve_error() { error_.mp2(-1, helper_.parallel()); }
  /// y = t -+ the error found times the kept number, to n + 2 words.
  void correct(BigFloat<W>& y, const BigFloat<W>& t, Estimate side);

 private:
  struct Kept {
    BigFloatTransformR<W> transform;
    double top = 0;  ///< the number as a double times W^top_exp
    s64 top_exp = 0;
  };

  BigFloatTransformR<W>& kept() { return kept_[used_].transform; }
  double top_ratio(const BigFloat<W>& a, const BigFloat<W>& ideal) const;
  void residue(const BigFloat<W>& a);
  void subtract(const W* A, u64 L, u64 at);
  Estimate take_residue(s64 exp);
  void into_buffer(u64 p, const BigFloat<W>& a);

  const TransformHelper<W> helper_;
  const LevelShape shape_;
  BigFloat<W> buffer_;
  BigFloat<W> error_;
  Kept kept_[2];
  u64 used_ = 0;
};

}  // namespace orl
