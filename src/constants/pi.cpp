#include <cmath>

#include "constants/pi.body.h"
#include "constants/pi_terms.h"

namespace orl {
namespace {

constexpr u64 kLeafWidth = 8;

template <class W>
std::unique_ptr<const SizeModel> size_model(const PiTerms<W>& terms) {
  return std::make_unique<FactorialModel>(FactorialModel::Parameters{
      .A = DoubleDouble::parse(terms.Q_nats), .B = 3, .e = 1, .ln_C = std::log(terms.C)});
}

template <class W>
class PiTermSeries final : public GeometricSeries<W> {
 public:
  PiTermSeries(const PiTerms<W>& terms, u64 p)
      : GeometricSeries<W>(common_P2B3<W>(), size_model(terms), kLeafWidth, p,
                           DoubleDouble::parse(terms.rate), terms.alternating),
        terms_(terms) {}

  void end(u64 a, u64 b, SeriesNode<W>& out) const override {
    LeafNode<W> node{leaf_number(out.P()), leaf_number(out.Q()), leaf_number(out.R())};
    const auto term = [&](u64 k, LeafNode<W>& to) { make_pi_term(terms_, k, to); };
    LeafSplitter<W, kPiTermWords<W>, kLeafWidth, decltype(term)>(terms_.leaf, *this, term).run(a, b, node);
    finish_leaf(out.P(), node.P);
    finish_leaf(out.Q(), node.Q);
    finish_leaf(out.R(), node.R);
  }

 private:
  const PiTerms<W>& terms_;
};

}  // namespace

template <class W>
std::unique_ptr<const Series<W>> make_pi_series(PiSeries series, u64 p) {
  const bool chudnovsky = series == PiSeries::kChudnovsky;
  return std::make_unique<PiTermSeries<W>>(chudnovsky ? kChudnovskyTerms<W> : kRamanujanTerms<W>, p);
}

#define ORVANE_INSTANTIATE(W)                                                           \
  template std::unique_ptr<const Series<W>> make_pi_series<W>(PiSeries, u64);           \
  template ConstantPlanPointer<RamStore<W>> make_pi<RamStore<W>>(const PiFormula&, u64, \
                                                                 const RamStore<W>::Budget&);
ORVANE_INSTANTIATE(u32)
ORVANE_INSTANTIATE(u64)
#undef ORVANE_INSTANTIATE

}  // namespace orl
