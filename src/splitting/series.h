// A series as binary splitting sees it: how many terms, how large their numbers, and what a short range is.
//
// Range    (a, b] holds the terms k = a + 1 .. b; a node of the recursion carries P, Q and, in most kinds, R
// of a range:
//            CommonP2B3     P/Q = sum of P(k)/Q(k) * prod over a < j < k of R(j)/Q(j)
//            Hyperdescent   the same with R(j) = 1, and P(k) counted once: sum of P(k) / prod over a < j <= k
//            of Q(j)
// Signs    Q and R are positive. In an alternating series a merge subtracts when its left half holds an odd
// number of
//          terms, and so does the fold of a block into the tail when the block does.
// Sizes    in nats, as double-doubles; F(x) = ln x! but for less than 1/(12 (x + 1)):
//            size(a, b) = A (b - a) + B (F(b) - F(a))
//            bound      = size + max(0, s) ln((b + 1)/(a + 1)) + max(0, e ln b + ln C) + 1     for P, Q and R
//          with s = -(sum of the roots of Q) and P(k)/Q(k) ~ C k^e: the model of Q leaves out what P has
//          more.
#pragma once

#include "numbers/exact_float.h"
#include "splitting/double_double.h"

namespace orl {

enum class SeriesKind { kCommonP2B3, kHyperdescent };

/// "CommonP2B3", "Hyperdescent".
const char* kind_name(SeriesKind kind);
constexpr bool kind_has_R(SeriesKind kind) { return kind == SeriesKind::kCommonP2B3; }

/// (x + 1/2) ln(1 + x) - x - (1 - ln(2 pi)/2); finite at 0.
DoubleDouble stirling(u64 x);

struct SizeModel {
  DoubleDouble rate;  ///< nats of precision a term; not used where remaining() is overridden
  DoubleDouble A;     ///< nats of Q a term
  double B = 0;       ///< weight of the factorial
  double s = 0;
  double e = 0;
  double ln_C = 0;
};

/// The numbers of a node. Their buffers are the plan's; exponents are 0 as long as nothing is cut.
template <class W>
struct SeriesNode {
  ExactFloat<W> P, Q, R;
};

template <class W>
class Series {
 public:
  static constexpr u32 word_bits = 8 * sizeof(W);

  virtual ~Series() = default;

  SeriesKind kind() const { return kind_; }
  u64 terms() const { return terms_; }
  /// Largest number of terms that the recursion hands to end() as a unit.
  u64 leaf_width() const { return leaf_width_; }
  /// Largest size in words of one term's numbers together.
  u64 term_words() const { return term_words_; }
  bool alternating() const { return alternating_; }
  /// Whether the merge of (a, m] with what follows subtracts.
  bool subtracts(u64 a, u64 m) const { return alternating_ && ((m ^ a) & 1); }

  /// Nats that the terms after a can still contribute.
  virtual DoubleDouble remaining(u64 a) const;
  /// The same in words, rounded, and one more.
  u64 remaining_words(u64 a) const;
  /// Nats of the largest number of (a, b], but for what bound_words adds.
  virtual DoubleDouble size(u64 a, u64 b) const;
  /// No number of (a, b] is longer than this.
  u64 bound_words(u64 a, u64 b) const;
  /// Words of each buffer in which (a, b] can be split without further threads: the bound, and room for the
  /// rounding of every right half's start to a multiple of 8.
  u64 scratch_words(u64 a, u64 b) const;
  /// The m at which both halves have the same size, a < m < b; b - a >= 2.
  virtual u64 midpoint(u64 a, u64 b) const;
  /// Fills P, Q, R of (a, b], 1 <= b - a <= leaf_width(), in their buffers. A term's hash comes from its
  /// words, that of more terms from the hashes of their parts. Throws BufferTooSmallException under the end
  /// case's name.
  virtual void end(u64 a, u64 b, SeriesNode<W>& out) const = 0;

  // For plans, which bound all nodes of one depth at once --------------------------------------------------
  /// Words of a product of numbers of two neighbouring ranges whose sizes add up to `nats`, up to term b.
  u64 product_words(DoubleDouble nats, u64 b) const;
  /// scratch_words of any range of at most `nats` inside (a, b].
  u64 scratch_words(DoubleDouble nats, u64 a, u64 b) const;
  /// Nats by which two halves of a range up to b may differ.
  DoubleDouble imbalance(u64 b) const;

 protected:
  Series(SeriesKind kind, u64 leaf_width, u64 term_words, bool alternating, const SizeModel& model)
      : kind_(kind),
        leaf_width_(leaf_width),
        term_words_(term_words),
        alternating_(alternating),
        model_(model) {}

  /// rint(p W ln 2 / rate + 1.5): the first term left out is below 2^-(p W).
  static u64 terms_for(u64 p, DoubleDouble rate);

  u64 terms_ = 0;

 private:
  DoubleDouble excess(u64 a, u64 b) const;

  SeriesKind kind_;
  u64 leaf_width_;
  u64 term_words_;
  bool alternating_;
  SizeModel model_;
};

/// p words in nats.
template <class W>
DoubleDouble words_to_nats(u64 p);

}  // namespace orl
