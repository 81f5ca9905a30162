#include "splitting/term_series.h"

#include <algorithm>
#include <cmath>

#include "core/exceptions.h"

namespace orl {
namespace {

DoubleDouble ln(u64 n) { return log1p(DoubleDouble::from_u64(n) - DoubleDouble(1)); }

/// A polynomial in k by what its size depends on.
struct Growth {
  DoubleDouble ln_lead = 0;  ///< of its leading coefficient
  u64 degree = 0;
  double roots = 0;  ///< -(sum of the roots)
};

Growth growth_of(const LinearProduct& product) {
  Growth growth{.ln_lead = ln(product.scale)};
  for (const LinearFactor& f : product.factors) {
    const u64 lead = f.slope != 0 ? f.slope : static_cast<u64>(f.constant);
    growth.ln_lead = growth.ln_lead + DoubleDouble(f.times) * ln(lead);
    if (f.slope == 0) continue;
    growth.degree += f.times;
    growth.roots += f.times * static_cast<double>(f.constant) / static_cast<double>(f.slope);
  }
  return growth;
}

/// log2 of the product at k.
long double log2_at(const LinearProduct& product, u64 k) {
  long double log = std::log2(static_cast<long double>(product.scale));
  for (const LinearFactor& f : product.factors)
    log += f.times * std::log2(static_cast<long double>(f.slope * k + static_cast<u64>(f.constant)));
  return log;
}

u64 magnitude_of(s64 x) { return x < 0 ? u64{0} - static_cast<u64>(x) : static_cast<u64>(x); }

/// log2 of the polynomial at k with all its coefficients taken for positive.
long double log2_at(const std::vector<s64>& polynomial, u64 k) {
  long double value = 0;
  for (const s64 c : polynomial)
    value = value * static_cast<long double>(k) + static_cast<long double>(magnitude_of(c));
  return std::log2(value);
}

/// Of a number with that log2, of which the last bits are rounded.
template <class W>
u64 words_for(long double log2) {
  return static_cast<u64>(log2 + 1e-9L) / (8 * sizeof(W)) + 1;
}

/// x = the polynomial at k: Horner's rule, in a machine word as long as it fits.
template <class W>
void set_polynomial_at(LeafNumber<W>& x, const std::vector<s64>& polynomial, u64 k) {
  s64 value = polynomial[0];
  u64 i = 1;
  for (s64 next; i < polynomial.size(); ++i, value = next)
    if (__builtin_mul_overflow(value, k, &next) || __builtin_add_overflow(next, polynomial[i], &next)) break;
  x.set(magnitude_of(value));
  if (value < 0) x.negate();
  for (; i < polynomial.size(); ++i) x.mul_add(k, polynomial[i]);
}

/// The series for p words.
template <class W>
class GeometricTermSeries final : public GeometricSeries<W> {
 public:
  GeometricTermSeries(const TermSeries& of, u64 p, u64 terms, TermLeaf<W> leaf)
      : GeometricSeries<W>(common_P2B3<W>(), std::make_unique<FactorialModel>(sizes_of(of, terms)),
                           leaf.width(), p, rate_of(of), of.alternating),
        leaf_(std::move(leaf)) {}

  void end(u64 a, u64 b, SeriesNode<W>& out) const override { leaf_.end(*this, a, b, out); }

 private:
  TermLeaf<W> leaf_;
};

}  // namespace

DoubleDouble rate_of(const TermSeries& series) {
  if (series.rate) return DoubleDouble::parse(series.rate);
  const Growth Q = growth_of(series.Q), R = growth_of(series.R);
  if (Q.degree != R.degree) internal_error("rate_of()", series.name + " has no rate.");
  return Q.ln_lead - R.ln_lead;
}

FactorialModel::Parameters sizes_of(const TermSeries& series, u64 last) {
  const Growth Q = growth_of(series.Q), R = growth_of(series.R);
  Growth P = growth_of(series.P.product);
  P.degree += series.P.polynomial.size() - 1;
  P.ln_lead = P.ln_lead + ln(magnitude_of(series.P.polynomial[0]));
  if (series.P.times_R) {
    P.degree += R.degree;
    P.ln_lead = P.ln_lead + R.ln_lead;
  }
  // Each of the n terms of a range has A + B ln(last + 1) nats in Q at most, and the difference of the logarithms of both
  // leading coefficients less in R.
  const double per_term =
      Q.ln_lead.to_double() + static_cast<double>(Q.degree) * std::log(static_cast<double>(last) + 1);
  const double less = Q.degree == R.degree ? (Q.ln_lead - R.ln_lead).to_double() : 0;
  return {.A = Q.ln_lead,
          .B = static_cast<double>(Q.degree),
          .s = std::max(Q.roots, R.roots),
          .e = static_cast<double>(P.degree) - static_cast<double>(Q.degree),
          .ln_C = (P.ln_lead - Q.ln_lead).to_double(),
          .R_share = 1 - less / per_term * (1 - 1e-9)};
}

WordProduct::WordProduct(const LinearProduct& product, u64 last) {
  u128 together = 1;
  const auto append = [&](const Factor& factor) {
    const u64 value = factor.slope * last + factor.constant;
    if (!factors_.empty() && together * value >> 64 != 0) {
      ends_.push_back(factors_.size());
      together = 1;
    }
    together *= value;
    factors_.push_back(factor);
  };
  for (const LinearFactor& f : product.factors)
    for (u32 i = 0; i < f.times; ++i) append({f.slope, static_cast<u64>(f.constant)});
  if (product.scale != 1) append({0, product.scale});
  if (!factors_.empty()) ends_.push_back(factors_.size());
}

template <class Use>
void WordProduct::for_each_word(u64 k, const Use& use) const {
  const Factor* factor = factors_.data();
  for (const u64 end : ends_) {
    u64 word = 1;
    for (const Factor* const stop = factors_.data() + end; factor != stop; ++factor)
      word *= factor->slope * k + factor->constant;
    use(word);
  }
}

template <class W>
void WordProduct::set(LeafNumber<W>& x, u64 k) const {
  bool first = true;
  for_each_word(k, [&](u64 word) {
    if (first)
      x.set(word);
    else
      x.mul(word);
    first = false;
  });
  if (first) x.set(1);
}

template <class W>
void WordProduct::multiply(LeafNumber<W>& x, u64 k) const {
  for_each_word(k, [&](u64 word) { x.mul(word); });
}

template <class W>
TermLeaf<W>::TermLeaf(TermSeries of, u64 last) : of_(std::move(of)), leaf_name_(of_.name + "_BSR_End()") {
  const auto last_below = [&](u64 largest) {
    s128 k = ~u64{0};
    for (const LinearProduct* product : {&of_.Q, &of_.R, &of_.P.product})
      for (const LinearFactor& f : product->factors)
        if (f.slope != 0) k = std::min(k, (s128{largest} - f.constant) / f.slope);
    return static_cast<u64>(k);
  };
  if (const u64 limit = last_below(~u64{0}); last > limit)
    throw LimitExceededException(leaf_name_, limit, last,
                                 "The terms of this series have factors of more than 64 bits.");
  P_ = WordProduct(of_.P.product, last);
  Q_ = WordProduct(of_.Q, last);
  R_ = WordProduct(of_.R, last);
  last_narrow_ = last_below(static_cast<W>(~W{0}));
  narrow_ends_ = end_cases(std::min(last_narrow_, last), "P1", "Q1", "R1");
  wide_ends_ = end_cases(last, of_.wide_P, "Q2", of_.wide_R);
  term_words_ = std::max({wide_ends_.P.words, wide_ends_.Q.words, wide_ends_.R.words});
}

template <class W>
typename TermLeaf<W>::EndCases TermLeaf<W>::end_cases(u64 k, const char* P, const char* Q,
                                                      const char* R) const {
  const u64 R_words = words_for<W>(log2_at(of_.R, k));
  const u64 own_words = words_for<W>(log2_at(of_.P.product, k) + log2_at(of_.P.polynomial, k));
  if (own_words > kOwnWords) internal_error(leaf_name_, "The polynomial of P is too large.");
  const auto named = [&](const char* number, u64 words) {
    return EndCase{of_.name + "_BSR_End_" + number + "()", words};
  };
  return {named(P, own_words + (of_.P.times_R ? R_words : 0)), named(Q, words_for<W>(log2_at(of_.Q, k))),
          named(R, R_words)};
}

template <class W>
void TermLeaf<W>::set_P(LeafNumber<W>& P, const LeafNumber<W>& R, u64 k) const {
  W words[kOwnWords];
  LeafNumber<W> own{words, kOwnWords};
  LeafNumber<W>& x = of_.P.times_R ? own : P;
  set_polynomial_at(x, of_.P.polynomial, k);
  P_.multiply(x, k);
  if (of_.P.times_R) {
    if (own.L == 1 && !own.negative) {
      P.copy(R);
      P.mul(own.T[0]);
    } else {
      P.set_product(R, own);
    }
  }
  if (of_.P.negative) P.negate();
}

template <class W>
void TermLeaf<W>::term(u64 k, LeafNode<W>& out) const {
  const EndCases& ends = k <= last_narrow_ ? narrow_ends_ : wide_ends_;
  check_end_capacity(ends.R.function.c_str(), out.R, ends.R.words);
  R_.set(out.R, k);
  check_end_capacity(ends.P.function.c_str(), out.P, ends.P.words);
  set_P(out.P, out.R, k);
  check_end_capacity(ends.Q.function.c_str(), out.Q, ends.Q.words);
  Q_.set(out.Q, k);
}

template <class W>
void TermLeaf<W>::end(const Series<W>& series, u64 a, u64 b, SeriesNode<W>& out) const {
  LeafNode<W> node{leaf_number(out.P()), leaf_number(out.Q()), leaf_number(out.R())};
  const Term term{*this};
  LeafSplitter<W, Term>(leaf_name_.c_str(), series, term_words_, term).run(a, b, node);
  finish_leaf(out.P(), node.P);
  finish_leaf(out.Q(), node.Q);
  finish_leaf(out.R(), node.R);
}

template <class W>
std::unique_ptr<const Series<W>> make_term_series(const TermSeries& of, u64 p) {
  const u64 terms = GeometricSeries<W>::terms_for(p, rate_of(of));
  return std::make_unique<GeometricTermSeries<W>>(of, p, terms, TermLeaf<W>(of, terms));
}

#define ORVANE_INSTANTIATE(W) \
  template class TermLeaf<W>; \
  template std::unique_ptr<const Series<W>> make_term_series<W>(const TermSeries&, u64);
ORVANE_INSTANTIATE(u32)
ORVANE_INSTANTIATE(u64)
#undef ORVANE_INSTANTIATE

}  // namespace orl
