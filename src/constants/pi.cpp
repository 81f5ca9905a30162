#include <cmath>

#include "constants/pi.body.h"
#include "constants/pi_terms.h"

namespace orl {
namespace {

constexpr u64 kLeafWidth = 8;

/// How fast a series converges and its numbers grow.
struct Growth {
  const char* rate;  ///< nats of precision per term
  const char* A;     ///< nats of Q per term, beside k^3
  double C;          ///< P(k)/Q(k) ~ C k

  FactorialModel::Parameters model() const {
    return {.A = DoubleDouble::parse(A), .B = 3, .e = 1, .ln_C = std::log(C)};
  }
};

template <class W>
struct ChudnovskyTerm {
  void operator()(u64 k, LeafNode<W>& out) const {
    if (k < kChudnovskyWide<W>) {
      Pi_Chudnovsky_BSR_End_R1(out.R, k);
      Pi_Chudnovsky_BSR_End_P1(out.P, out.R, k);
      Pi_Chudnovsky_BSR_End_Q1(out.Q, k);
    } else {
      Pi_Chudnovsky_BSR_End_PR2(out.P, out.R, k);
      Pi_Chudnovsky_BSR_End_Q2(out.Q, k);
    }
  }
  static constexpr const char* kFunction = "Pi_Chudnovsky_BSR_End()";
  static constexpr bool kAlternating = true;
  static constexpr Growth kGrowth{"32.65445004176851599077913804969300490729",
                                  "36.93111616078457130182132488791258602081", 3.59e-6};
};

template <class W>
struct RamanujanTerm {
  void operator()(u64 k, LeafNode<W>& out) const {
    if (k < kRamanujanWide<W>) {
      Pi_Ramanujan_BSR_End_R1(out.R, k);
      Pi_Ramanujan_BSR_End_P1(out.P, out.R, k);
      Pi_Ramanujan_BSR_End_Q1(out.Q, k);
    } else {
      Pi_Ramanujan_BSR_End_R2(out.R, k);
      Pi_Ramanujan_BSR_End_P2(out.P, out.R, k);
      Pi_Ramanujan_BSR_End_Q2(out.Q, k);
    }
  }
  static constexpr const char* kFunction = "Pi_Ramanujan_BSR_End()";
  static constexpr bool kAlternating = false;
  // The rate is lower than ln(9801^2) in the sixth decimal, as it was given: a few terms more than the sum needs.
  static constexpr Growth kGrowth{"18.38047627747241588639166145022043732094",
                                  "21.84621530333808625449589681453160567684", 2.75e-4};
};

template <class W, template <class> class Term>
class PiTermSeries final : public GeometricSeries<W> {
 public:
  explicit PiTermSeries(u64 p)
      : GeometricSeries<W>(common_P2B3<W>(), std::make_unique<FactorialModel>(Term<W>::kGrowth.model()),
                           kLeafWidth, p, DoubleDouble::parse(Term<W>::kGrowth.rate), Term<W>::kAlternating) {
  }

  void end(u64 a, u64 b, SeriesNode<W>& out) const override {
    LeafNode<W> node{leaf_number(out.P()), leaf_number(out.Q()), leaf_number(out.R())};
    const Term<W> term;
    LeafSplitter<W, kPiTermWords<W>, kLeafWidth, Term<W>>(Term<W>::kFunction, *this, term).run(a, b, node);
    finish_leaf(out.P(), node.P);
    finish_leaf(out.Q(), node.Q);
    finish_leaf(out.R(), node.R);
  }
};

}  // namespace

template <class W>
std::unique_ptr<const Series<W>> make_pi_series(PiSeries series, u64 p) {
  if (series == PiSeries::kChudnovsky) return std::make_unique<PiTermSeries<W, ChudnovskyTerm>>(p);
  return std::make_unique<PiTermSeries<W, RamanujanTerm>>(p);
}

template class Pi_Series<RamStore<u32>>;
template class Pi_Series<RamStore<u64>>;
template std::unique_ptr<const Series<u32>> make_pi_series<u32>(PiSeries, u64);
template std::unique_ptr<const Series<u64>> make_pi_series<u64>(PiSeries, u64);

}  // namespace orl
