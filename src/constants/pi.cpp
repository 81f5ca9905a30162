#include "constants/pi.h"

#include <algorithm>
#include <cmath>

#include "constants/pi_terms.h"
#include "core/exceptions.h"
#include "core/status.h"
#include "splitting/stage_timer.h"

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

constexpr const char* kFunction = "Pi_Series_BigFloatR()";
constexpr const char* kRun = "Pi_Series_BigFloatR::run()";

/// A row of the table in pi.h.
struct Row {
  SeriesCoefficients coefficients;
  u64 x;
};

Row row_of(const PiFormula& formula) {
  const bool pi = checked_power(kFunction, formula.power) == 1;
  if (formula.series == PiSeries::kChudnovsky)
    return {{.P = 1, .Q = 13591409, .D = u64{pi ? 4270934400u : 426880u}}, 10005};
  if (pi) return {{.P = 1, .Q = 1103, .D = 9801}, 8};
  return {{.P = 4, .Q = 4412, .D = 9801}, 2};
}

// The series' own power is the opposite of the constant's: it is D Q / (a P + b Q) that Pi takes.
template <class Store>
typename PSR_Series<Store>::Value value_of(const PiFormula& formula) {
  return {row_of(formula).coefficients, -formula.power, formula.memory};
}

}  // namespace

template <class W>
std::unique_ptr<const Series<W>> make_pi_series(PiSeries series, u64 p) {
  if (series == PiSeries::kChudnovsky) return std::make_unique<PiTermSeries<W, ChudnovskyTerm>>(p);
  return std::make_unique<PiTermSeries<W, RamanujanTerm>>(p);
}

template <class Store>
Pi_Series<Store>::Pi_Series(const PiFormula& formula, u64 p, const Budget& budget)
    : kind_(formula.series),
      x_(row_of(formula).x),
      series_(make_pi_series<Word>(formula.series, p + 2), value_of<Store>(formula), p + 2, budget),
      root_(p + 1, budget.tds),
      product_(p + 1, budget) {
  const Need sum = series_.need();
  need_ = Need::max(sum, root_.need());
  need_.out_words = std::max(sum.out_words, product_.out_words());
  need_.ram_bytes = Store::need_of([&](auto& arena) {
                      arena.leave(sum.ram_bytes);
                      cut_root(arena);
                    }).ram_bytes;
  need_.table_bits = std::max(need_.table_bits, product_.product_words() * 8 * sizeof(Word));
}

template <class Store>
template <class AnyArena>
auto Pi_Series<Store>::cut_root(AnyArena& arena) const -> Number {
  Number root = Store::number(arena, root_.need().out_words, "orv_R.sf");
  arena.leave(std::max(root_.need().ram_bytes, product_.heap_bytes()));
  return root;
}

template <class Store>
u64 Pi_Series<Store>::run(const RunContext& ctx, Frame& caller, Number& out, Arena heap) const {
  if (heap.size < need_.ram_bytes) throw BufferTooSmallException(kRun, heap.size, need_.ram_bytes);
  Frame frame = caller.enter(kRun);
  ctx.status.println(kind_ == PiSeries::kChudnovsky ? "Pi - Chudnovsky (1989):" : "Pi - Ramaunjan (1910):");
  u64 hash = 0, root_hash = 0;
  frame.stage([&] { hash = series_.run(ctx, frame, out, heap); }, out);
  Number root = cut_root(heap);
  {
    StageTimer timer(ctx.status, "InvSqrt...");
    frame.stage([&] { root_hash = root_.run(ctx, root, static_cast<Word>(x_), heap); }, out, root);
    timer.finish();
  }
  StageTimer timer(ctx.status, "Large Multiply...");
  frame.stage([&] { hash = product_.run(ctx, frame, {out, hash}, {root, root_hash}, heap); }, out);
  timer.finish();
  return hash;
}

template class Pi_Series<RamStore<u32>>;
template class Pi_Series<RamStore<u64>>;
template std::unique_ptr<const Series<u32>> make_pi_series<u32>(PiSeries, u64);
template std::unique_ptr<const Series<u64>> make_pi_series<u64>(PiSeries, u64);

}  // namespace orl
