// A series as binary splitting sees it: its kind, how many terms, how large their numbers, and what a short
// range is.
//
// Range    (a, b] holds the terms k = a + 1 .. b; a node of the recursion carries the numbers of its kind
//          (kind.h).
// Signs    A term's numbers may have any sign and P may be zero. An alternating series may leave the signs to
//          the kind instead: its terms are then those of the series of magnitudes, and a join subtracts where
//          the left part has an odd number of terms.
// Sizes    in nats, by the series' SizeModel; in words here.
#pragma once

#include <memory>

#include "splitting/kind.h"
#include "splitting/size_model.h"

namespace orl {

/// One series for a number of terms. Immutable; may be shared.
template <class W>
class Series {
 public:
  static constexpr u32 word_bits = 8 * sizeof(W);

  virtual ~Series() = default;

  const SeriesKind<W>& kind() const { return kind_; }
  const SizeModel& sizes() const { return *sizes_; }
  u64 terms() const { return terms_; }
  /// Largest number of terms that the recursion hands to end() as a unit.
  u64 leaf_width() const { return leaf_width_; }
  /// Whether joining (a, m] to what follows subtracts.
  bool subtracts(u64 a, u64 m) const { return kind_.subtracts(alternating_, m - a); }

  /// Nats that the terms after a can still contribute: not rising with a, and in no need of being linear.
  virtual DoubleDouble remaining(u64 a) const = 0;
  /// remaining() in words, rounded, and one more.
  u64 remaining_words(u64 a) const;
  /// Nats of the largest number of (a, b], but for the excess.
  DoubleDouble size(u64 a, u64 b) const { return sizes_->size(a, b); }
  /// Number `number` of (a, b] is not longer than this.
  u64 bound_words(u32 number, u64 a, u64 b) const;
  NodeWords bound_words(u64 a, u64 b) const;
  /// Fills the numbers of (a, b], 1 <= b - a <= leaf_width(), in the node's buffers, of bound_words() each. A
  /// number's hash comes from those of its factors and summands, not from its words. Throws
  /// BufferTooSmallException under the end case's name.
  virtual void end(u64 a, u64 b, SeriesNode<W>& out) const = 0;

  // For plans, which bound all nodes of one depth at once --------------------------------------------------
  /// Words of a product of number `number` of two neighbouring ranges whose sizes add up to `nats`, up to
  /// term b.
  u64 product_words(u32 number, DoubleDouble nats, u64 b) const;
  NodeWords product_words(DoubleDouble nats, u64 b) const;
  /// Words of each buffer in which any range of at most `nats` inside (a, b] can be split without further
  /// threads: the bound, and room for the rounding of every right half's start to a multiple of 8.
  NodeWords scratch_words(DoubleDouble nats, u64 a, u64 b) const;

  // Above this a range is split by size, below it by count.
  static constexpr u64 kCountedRange = 100;

 protected:
  /// `kind` outlives the series. `alternating`: as "Signs" has it.
  Series(const SeriesKind<W>& kind, std::unique_ptr<const SizeModel> sizes, u64 leaf_width, u64 terms,
         bool alternating)
      : kind_(kind),
        sizes_(std::move(sizes)),
        leaf_width_(leaf_width),
        terms_(terms),
        alternating_(alternating) {}

 private:
  const SeriesKind<W>& kind_;
  std::unique_ptr<const SizeModel> sizes_;
  u64 leaf_width_;
  u64 terms_;
  bool alternating_;
};

/// A series whose terms fall by `rate` nats each, up to factors that do not matter.
template <class W>
class GeometricSeries : public Series<W> {
 public:
  DoubleDouble remaining(u64 a) const override { return DoubleDouble::from_u64(this->terms() - a) * rate_; }

  /// rint(p W ln 2 / rate + 1.5): the first term left out is below 2^-(p W).
  static u64 terms_for(u64 p, DoubleDouble rate);

 protected:
  /// The series to p words.
  GeometricSeries(const SeriesKind<W>& kind, std::unique_ptr<const SizeModel> sizes, u64 leaf_width, u64 p,
                  DoubleDouble rate, bool alternating)
      : Series<W>(kind, std::move(sizes), leaf_width, terms_for(p, rate), alternating), rate_(rate) {}

 private:
  DoubleDouble rate_;
};

}  // namespace orl
