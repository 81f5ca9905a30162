// The products of one Newton level of n words over one of h.
//
// A level multiplies by its estimate t of h + 2 words: a full-length operand, then the error of that product.
// t is transformed once for all of them.
//
// Plain    a shape of 2 (h + 2) words. A full-length operand is taken in two halves, and the product is cut
//          to n + 3 words.
// Wrapped  a shape with products modulo W^m - 1, m a few words above n. The product of n + h + 5 words is
//          known but for about n: its top is that of 1, or of the dividend. The residue less what is ideal is
//          congruent to the error, which is shorter than m words and so is found whole, with its sign. Five
//          transforms of a level become three. The square of the estimate of a root is known but for its lower
//          half: where the shape has a ring of about h words it is taken in that, in a half of a transform each way.
#pragma once

#include "functions/newton_steps.h"
#include "multiply/ring_check.h"
#include "numbers/big_float.h"
#include "numbers/run_context.h"
#include "numbers/transform.h"

namespace orl {

/// The way that a level takes, chosen when it is planned.
struct LevelShape {
  u64 n = 0;
  u64 below = 0;          ///< h
  u64 product_words = 0;  ///< that the shape is asked for
  u64 wrap = 0;           ///< m; 0: plain
  u64 square_wrap = 0;    ///< m of the square of a root's estimate, where that is another one
  u64 kept = 1;           ///< numbers whose transforms are kept at once, 1 or 2
  bool dividend = false;  ///< the ideal product is a dividend, else 1

  /// What the helper of the level takes: a wrapped one has its ring from the lean algorithm.
  ShapeChoice choice() const { return wrap ? ShapeChoice::kLean : ShapeChoice::kRow; }
  /// Two halves of a full-length operand.
  template <class W>
  static LevelShape plain(u64 n);
  /// Wrapped when the shape of that length offers it.
  template <class W>
  static LevelShape wrapped(u64 n, u64 tds);
  /// As above, with a ring for the square.
  template <class W>
  static LevelShape of_root(u64 n, u64 tds);
};

/// How much of an error a step takes off.
enum class Correction { kWhole, kHalf };

/// difference = |a - product| to n + 3 words, a cut to its top n + 2; kUnder when a is larger. Throws
/// AlgorithmFailedException "Convergence Failure: ..." when the tops disagree.
template <class W>
Estimate subtract_product(BigFloat<W>& difference, u64 n, const BigFloat<W>& a, const BigFloat<W>& product,
                          const char* function, ParallelContext parallel);

template <class Number>
class LevelProducts;

/// The products of a level in RAM.
template <class W>
class LevelProducts<BigFloat<W>> {
 public:
  /// Where the buffers of a level lie.
  struct Areas {
    BigFloat<W> buffer;      ///< m words, or a short product
    BigFloat<W> difference;  ///< from a dividend, where nothing wraps
  };
  /// Cuts what the products of a level take; transforms come last and are left to the rest of `arena`.
  template <class Arena>
  static Areas lay_out(const LevelShape& shape, u64 tds, Arena& arena) {
    const auto number = [&](u64 words) { return BigFloat<W>(arena.template cut<W>(words), words); };
    Areas areas;
    areas.buffer = number(shape.wrap ? shape.wrap : shape.below + 3);
    if (shape.dividend && !shape.wrap) areas.difference = number(shape.n + 3);
    arena.leave(
        Need{.ram_bytes = TransformHelper<W>::bytes(shape.product_words, tds, shape.kept, shape.choice()),
             .table_bits = shape.product_words * 8 * sizeof(W)});
    return areas;
  }

  /// `heap` holds what lay_out takes for as many tasks as the shape was planned for. Throws
  /// BufferTooSmallException, and InvalidParametersException when ctx leads to another shape than the plan's.
  LevelProducts(const RunContext& ctx, const LevelShape& shape, LinearHeapBuffer heap);
  LevelProducts(const LevelProducts&) = delete;
  LevelProducts& operator=(const LevelProducts&) = delete;

  /// Transforms the top h + 2 words of t, to keep them as number `index` of shape.kept, and uses them.
  void keep(const BigFloat<W>& t, u64 index = 0);
  /// Uses number `index` again: "the kept number" below.
  void use(u64 index) { used_ = index; }
  /// T = the top h + 2 words of a times the kept number, to p + 2 words.
  void multiply(BigFloat<W>& T, u64 p, const BigFloat<W>& a);
  /// T = the top n + 3 words of a times the kept number, to n + 3 words.
  void multiply_long(BigFloat<W>& T, const BigFloat<W>& a);

  /// Computes |e - 1| for e = a * kept, which is 1 in exact arithmetic, and says on which side e is. `work`
  /// holds n + 4 words. Fails as take_error.
  Estimate error(BigFloat<W>& work, const BigFloat<W>& a, const char* function);
  /// Computes |e - 1| for e = w t^2, and keeps t. `work` holds e afterwards and stays in use. Plain shapes
  /// only.
  Estimate square_error(BigFloat<W>& work, const BigFloat<W>& t, W w, const char* function);
  /// Computes |a - b * kept|: kUnder when a is larger. The plain way uses `work`, of n + 4 words. Throws
  /// AlgorithmFailedException "Convergence Failure: ..." when the tops disagree.
  Estimate difference(BigFloat<W>& work, const BigFloat<W>& a, const BigFloat<W>& b, const char* function);
  /// Computes |a - t^2| for the top h + 2 words of t, and keeps nothing; else as difference().
  Estimate square_difference(BigFloat<W>& work, const BigFloat<W>& a, const BigFloat<W>& t,
                             const char* function);
  /// y = t -+ the error found, or half of it, times the kept number, to n + 2 words; y = t where there was none.
  void correct(BigFloat<W>& y, const BigFloat<W>& t, Estimate side, Correction share = Correction::kWhole);
  /// y = t, a unit of its lowest place up: the iteration found t exact.
  void keep_exact(BigFloat<W>& y, const BigFloat<W>& t) const;

 private:
  /// A number as a double times W^exp.
  struct Top {
    double value = 1;
    s64 exp = 0;
  };
  struct Kept {
    BigFloatTransformR<W> transform;
    Top top;
    RingCheck check{1};  ///< of wrapped products with the number
  };

  BigFloatTransformR<W>& kept() { return kept_[used_].transform; }
  Estimate take_error_of(BigFloat<W>& e, const char* function);
  static Top top_of(const BigFloat<W>& a);
  static double ratio(const Top& x, const Top& y, const Top& ideal);
  void check_tops_of(const Top& x, const Top& y, const BigFloat<W>& dividend, const char* function) const;
  void residue(const BigFloat<W>& a);
  void square_residue(const BigFloat<W>& t, u64 m);
  void take_buffer(u64 m, s64 exp, u8 sign);
  void subtract(const W* A, u64 L, u64 at, u64 m);
  Estimate take_residue(s64 exp, u64 m);
  Estimate take_difference(const BigFloat<W>& dividend, u64 m, const char* function);
  void into_buffer(u64 p, const BigFloat<W>& a);

  const LevelShape shape_;
  const TransformTables& tables_;
  Areas areas_;
  const TransformHelper<W> helper_;
  BigFloat<W>& buffer_ = areas_.buffer;
  BigFloat<W> error_;
  Kept kept_[2];
  u64 used_ = 0;
};

template <class W>
using RamLevelProducts = LevelProducts<BigFloat<W>>;

}  // namespace orl
