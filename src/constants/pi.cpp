#include "constants/pi.h"

#include <algorithm>

#include "constants/pi_terms.h"
#include "core/exceptions.h"
#include "core/status.h"
#include "splitting/stage_timer.h"

namespace orl {
namespace {

constexpr u64 kLeafWidth = 8;
constexpr u64 kTermWords = 23;  // R, P and Q together, wide form

SizeModel chudnovsky_model() {
  static const DoubleDouble rate = DoubleDouble::parse("32.65445004176851599077913804969300490729");
  static const DoubleDouble growth = DoubleDouble::parse("36.93111616078457130182132488791258602081");
  return {rate, growth, 3, 0, 1, -12.537};  // ln C: 3.59e-6
}

SizeModel ramanujan_model() {
  // Lower than ln(9801^2) in the sixth decimal, as it was given: the sum gets a few terms more than it needs.
  static const DoubleDouble rate = DoubleDouble::parse("18.38047627747241588639166145022043732094");
  static const DoubleDouble growth = DoubleDouble::parse("21.84621530333808625449589681453160567684");
  return {rate, growth, 3, 0, 1, -8.198};  // ln C: 2.75e-4
}

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
  static constexpr u8 kSignP = 0;
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
  static constexpr u8 kSignP = 1;
};

template <class W, template <class> class Term>
class PiTermSeries final : public Series<W> {
 public:
  PiTermSeries(const SizeModel& model, u64 p)
      : Series<W>(SeriesKind::kCommonP2B3, kLeafWidth, kTermWords, Term<W>::kAlternating, model) {
    this->terms_ = Series<W>::terms_for(p, model.rate);
  }

  void end(u64 a, u64 b, SeriesNode<W>& out) const override {
    LeafNode<W> node{leaf_number(out.P), leaf_number(out.Q), leaf_number(out.R)};
    const Term<W> term;
    LeafSplitter<W, kPiTermWords<W>, kLeafWidth, Term<W>>(Term<W>::kFunction, Term<W>::kAlternating, term)
        .run(a, b, node);
    finish_leaf(out.P, node.P, Term<W>::kSignP);
    finish_leaf(out.Q, node.Q, 1);
    finish_leaf(out.R, node.R, 1);
  }
};

/// a, b, c of the outer coefficients and the word under the root.
struct Formula {
  SeriesCoefficients coefficients;
  u64 x;
};

Formula formula(PiSeries series, s32 power) {
  if (power != 1 && power != -1)
    throw InvalidParametersException("Pi_Series_BigFloatR()", "Power must be 1 or -1.");
  if (series == PiSeries::kChudnovsky) {
    if (power == 1) return {{1, 13591409, 4270934400}, 10005};
    return {{1, 13591409, 426880}, 10005};
  }
  if (power == 1) return {{1, 1103, 9801}, 8};
  return {{4, 4412, 9801}, 2};
}

}  // namespace

template <class W>
std::unique_ptr<const Series<W>> make_pi_series(PiSeries series, u64 p) {
  if (series == PiSeries::kChudnovsky)
    return std::make_unique<PiTermSeries<W, ChudnovskyTerm>>(chudnovsky_model(), p);
  return std::make_unique<PiTermSeries<W, RamanujanTerm>>(ramanujan_model(), p);
}

// The series' own power is the opposite of the constant's: it is D Q / (a P + b Q) that Pi takes.
template <class Store>
Pi_Series<Store>::Pi_Series(PiSeries series, s32 power, bool reduced, u64 p, u64 tds)
    : kind_(series),
      p_(p),
      x_(formula(series, power).x),
      series_(make_pi_series<W>(series, p + 2), formula(series, power).coefficients, -power, p + 2, tds,
              reduced),
      root_(p + 1, tds),
      product_(p + 1, tds) {
  const Need sum = series_.need(), root = root_.need();
  root_words_ = root.out_words;
  const u64 root_bytes = LinearHeapBuffer::cut_bytes<W>(root_words_);
  need_ = Need::max(sum, root);
  need_.out_words = std::max(sum.out_words, product_.out_words());
  need_.ram_bytes = std::max(sum.ram_bytes, root_bytes + std::max(root.ram_bytes, product_.heap_bytes()));
  need_.table_bits = std::max(need_.table_bits, product_.product_words() * 8 * sizeof(W));
}

template <class Store>
void Pi_Series<Store>::run(const RunContext& ctx, Number& out, Arena heap) const {
  if (heap.size < need_.ram_bytes)
    throw BufferTooSmallException("Pi_Series_BigFloatR::run()", heap.size, need_.ram_bytes);
  ctx.status.println(kind_ == PiSeries::kChudnovsky ? "Pi - Chudnovsky (1989):" : "Pi - Ramaunjan (1910):");
  series_.run(ctx, out, heap);
  const u64 out_hash = out.computed_hash(ctx.parallel);
  Number root(heap.template cut<W>(root_words_), root_words_);
  {
    StageTimer stage(ctx.status, "InvSqrt...");
    root_.run(ctx, root, static_cast<W>(x_), heap);
    stage.finish();
  }
  const u64 root_hash = root.computed_hash(ctx.parallel);
  StageTimer stage(ctx.status, "Large Multiply...");
  product_.run(ctx, out, out_hash, root, root_hash, heap);
  stage.finish();
}

template class Pi_Series<RamStore<u32>>;
template class Pi_Series<RamStore<u64>>;
template std::unique_ptr<const Series<u32>> make_pi_series<u32>(PiSeries, u64);
template std::unique_ptr<const Series<u64>> make_pi_series<u64>(PiSeries, u64);

}  // namespace orl
