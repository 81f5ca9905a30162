// How large the numbers of a range of terms are: what a plan of binary splitting knows of a series.
//
// Sizes are in nats, as double-doubles. A model gives the size of a node's largest number; part() tells how
// much of it any other number has, so that short numbers get short buffers. The numbers of a node are no
// longer than their sizes and the excess.
#pragma once

#include "splitting/double_double.h"

namespace orl {

/// (x + 1/2) ln(1 + x) - x - (1 - ln(2 pi)/2), Stirling's formula for ln x! at 1 + x without its first term,
/// so low by less than 1 / (12 (x + 1)); finite at 0.
DoubleDouble stirling(u64 x);
/// stirling(x) - stirling(0) in doubles, of any x >= 0: enough to halve a range to within a term.
double stirling_estimate(double x);

/// p words in nats.
template <class W>
DoubleDouble words_to_nats(u64 p);
/// The words that a number of so many nats fills: rounded down, and one.
template <class W>
u64 nats_to_words(DoubleDouble nats);
/// The nearest whole number of words.
template <class W>
u64 nats_to_words_rounded(DoubleDouble nats);

/// How large the numbers of any range of a series are.
class SizeModel {
 public:
  virtual ~SizeModel() = default;

  /// Nats of the largest number of (a, b], but for the excess. Rises with b, falls with a; that of two
  /// neighbouring ranges is the sum of theirs.
  virtual DoubleDouble size(u64 a, u64 b) const = 0;
  /// Nats of number `number` in a node whose largest has `nats`.
  virtual DoubleDouble part(u32 /*number*/, DoubleDouble nats) const { return nats; }
  /// Nats that any number of (a, b] may have beyond its size. Rises with b, falls with a.
  virtual DoubleDouble excess(u64 a, u64 b) const = 0;
  /// The m at which both halves have the same size to within imbalance(b), a < m < b; b - a >= 2.
  virtual u64 midpoint(u64 a, u64 b) const = 0;
  /// Nats by which two halves of a range up to b may differ.
  virtual DoubleDouble imbalance(u64 b) const = 0;
};

/// Numbers that grow as exp(A k) k!^B:
///
///   size(a, b) = A (b - a) + B (F(b) - F(a)),   F = stirling
///   excess     = max(0, s) ln((b + 1)/(a + 1)) + max(0, e ln b + ln C) + 1
///
/// with s = -(sum of the roots of Q) and P(k)/Q(k) ~ C k^e: the model of Q leaves out what P has more. R has a share of
/// the size, the other numbers all of it.
class FactorialModel final : public SizeModel {
 public:
  /// The constants of the formula.
  struct Parameters {
    DoubleDouble A;  ///< nats of Q per term
    double B = 0;    ///< weight of the factorial
    double s = 0;
    double e = 0;
    double ln_C = 0;
    double R_share = 1;  ///< at most 1
  };
  /// Takes the constants as they are.
  explicit constexpr FactorialModel(const Parameters& parameters) : of_(parameters) {}

  DoubleDouble size(u64 a, u64 b) const override;
  DoubleDouble part(u32 number, DoubleDouble nats) const override;
  DoubleDouble excess(u64 a, u64 b) const override;
  u64 midpoint(u64 a, u64 b) const override;
  DoubleDouble imbalance(u64 b) const override;

 private:
  Parameters of_;
};

}  // namespace orl
