// A series of kind CommonP2B3 as data: its terms by their factors, and the value that its sum leads to. Sizes, rate,
// leaves and the names of end cases follow from that.
//
//   Q(k), R(k)   a constant times linear factors
//   P(k)         R(k), where it is a factor, times linear factors times a polynomial
//
//   sum = P(1)/Q(1) + R(1)/Q(1) P(2)/Q(2) + R(1)/Q(1) R(2)/Q(2) P(3)/Q(3) + ...
//
// A row, with its source beside it:
//
//   TermSeries log2_series() {  // J. Zuniga, 2023
//     return {.name = "Log2_Zuniga",
//             .P = {.polynomial = {1794, 1497}},
//             .Q = {216, {{6, 1}, {6, 5}}},
//             .R = {1, {{1, 0}, {2, -1}}},
//             .outer = {.P = 1, .Q = 1497, .D = 2160}};
//   }
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "splitting/leaf.h"
#include "splitting/outer_sum.h"
#include "splitting/series.h"

namespace orl {

/// (slope k + constant)^times, positive for every k >= 1. Slope 0 makes a constant.
struct LinearFactor {
  u64 slope = 0;
  s64 constant = 0;
  u32 times = 1;
};

/// scale * product of factors; positive.
struct LinearProduct {
  u64 scale = 1;
  std::vector<LinearFactor> factors{};
};

/// P(k) = R(k) * product * polynomial, of either sign.
struct TermNumerator {
  bool times_R = true;             ///< whether R(k) is a factor
  LinearProduct product{};         ///< factors of its own beside the polynomial
  std::vector<s64> polynomial{1};  ///< coefficients from the highest power of k down to the constant
  bool negative = false;           ///< a minus before all of it
};

/// One series. Where it alternates, R stands for its magnitude: the minus signs are in R(k) / Q(k).
struct TermSeries {
  std::string name;  ///< of its end cases: "Zeta3_AZ1" has Zeta3_AZ1_BSR_End_R1() and so on
  TermNumerator P{};
  LinearProduct Q{};
  LinearProduct R{};
  bool alternating = false;
  SeriesCoefficients outer{};
  /// Nats of precision that a term brings; null: ln of the leading coefficient of Q through that of R, which have one
  /// degree.
  const char* rate = nullptr;
  /// What the wide end cases of P and R are called, such as Name_BSR_End_P2().
  const char* wide_P = "P2";
  const char* wide_R = "R2";
};

/// Nats of precision per term.
DoubleDouble rate_of(const TermSeries& series);
/// The size of its numbers up to term `last`, for a series whose Q grows no slower than its R.
FactorialModel::Parameters sizes_of(const TermSeries& series, u64 last);

/// A product as it multiplies a leaf's number: as few machine words as its factors fit into up to some k.
class WordProduct {
 public:
  WordProduct() = default;
  /// For k <= last, at which every factor fits 64 bits.
  WordProduct(const LinearProduct& product, u64 last);
  /// x = the product at k.
  template <class W>
  void set(LeafNumber<W>& x, u64 k) const;
  /// x *= the product at k.
  template <class W>
  void multiply(LeafNumber<W>& x, u64 k) const;

 private:
  struct Factor {
    u64 slope, constant;
  };
  template <class Use>
  void for_each_word(u64 k, const Use& use) const;

  std::vector<Factor> factors_;
  std::vector<u64> ends_;  // of the factors of each word
};

/// The leaves of a series up to some term. For a Series<W> of its own; make_term_series() has one.
template <class W>
class TermLeaf {
 public:
  /// For terms 1 .. last. Throws LimitExceededException when a linear factor of the last one passes 64 bits.
  TermLeaf(TermSeries of, u64 last);

  /// The most terms of a leaf.
  u64 width() const { return LeafSplitter<W, Term>::width(term_words_); }
  /// P, Q, R of the term k. Throws BufferTooSmallException under the name of the end case: Name_BSR_End_P1(), while every
  /// linear factor fits a word, Name_BSR_End_P2() from there on, and so for Q and R.
  void term(u64 k, LeafNode<W>& out) const;
  /// Series<W>::end(): (a, b] of `series`, b - a <= width(). Throws BufferTooSmallException as term() does, or under
  /// Name_BSR_End().
  void end(const Series<W>& series, u64 a, u64 b, SeriesNode<W>& out) const;

 private:
  // One number of a term in exceptions, and the words that its buffer must hold.
  struct EndCase {
    std::string function;
    u64 words;
  };
  struct EndCases {
    EndCase P, Q, R;
  };
  struct Term {
    const TermLeaf& leaf;
    void operator()(u64 k, LeafNode<W>& out) const { leaf.term(k, out); }
  };

  EndCases end_cases(u64 k, const char* wide_P, const char* wide_Q, const char* wide_R) const;
  void set_P(LeafNumber<W>& P, const LeafNumber<W>& R, u64 k) const;

  static constexpr u64 kOwnWords = 512 / sizeof(W);  // of P's factors beside R

  TermSeries of_;
  WordProduct P_, Q_, R_;
  std::string leaf_name_;
  u64 last_narrow_;  // the last k at which every linear factor fits a word
  EndCases narrow_ends_, wide_ends_;
  u64 term_words_;
};

/// The series for p words: as many terms as its rate asks for.
template <class W>
std::unique_ptr<const Series<W>> make_term_series(const TermSeries& of, u64 p);

}  // namespace orl
