// An algorithm that counts the transforms of another one, and can give its shapes wrapped products.
#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "core/exceptions.h"
#include "core/fault_point.h"
#include "multiply/algorithm_table.h"
#include "words/words.h"

namespace orl::test {

/// Transforms made since the last reset, those of wrapped products apart.
struct TransformCounts {
  std::atomic<u64> forward{0}, inverse{0}, forward_cyclic{0}, inverse_cyclic{0};

  void reset() { forward = inverse = forward_cyclic = inverse_cyclic = 0; }
};

/// A shape around a shape of another algorithm. With `wrap` u32 words its wrapped products are whole products
/// of the shape within, which then holds twice as many words, folded. The last byte of a transform tells the
/// kinds apart.
class CountingParameters final : public Parameters, public WrappedProducts {
 public:
  CountingParameters(std::unique_ptr<ParametersBox> inner, u64 wrap, TransformCounts& counts)
      : inner_(std::move(inner)), counts_(counts) {
    max_bits_ = wrap ? 32 * wrap : (*inner_)->max_bits();
    words_ = wrap;
    if (wrap) wrapped_ = this;
    transform_size_ = (*inner_)->transform_size() + kMark;
    scratch_size_ = (*inner_)->scratch_size();
  }

  void forward(void* F, Words<u32> A, void* tmp, ParallelContext parallel) const override {
    ++counts_.forward;
    (*inner_)->forward(F, A, tmp, parallel);
    mark(F) = 'w';
  }
  void inverse_fsqr(void* F, Window<u32> T, void* tmp, ParallelContext parallel) const override {
    ++counts_.inverse;
    check(F, 'w');
    (*inner_)->inverse_fsqr(F, T, tmp, parallel);
    mark(F) = 0;
  }
  void inverse_fmul(void* F, const void* G, Window<u32> T, void* tmp,
                    ParallelContext parallel) const override {
    ++counts_.inverse;
    check(F, 'w');
    check(G, 'w');
    (*inner_)->inverse_fmul(F, G, T, tmp, parallel);
    mark(F) = 0;
    fault_point("product words", T.T, T.count() * sizeof(u32));
  }
  bool compatible(const Parameters& other) const override {
    const auto* o = dynamic_cast<const CountingParameters*>(&other);
    return o && o->words_ == words_ && (*inner_)->compatible(**o->inner_);
  }

  void forward_wrapped(Wrap ring, void* F, Words<u32> A, void* tmp, ParallelContext parallel) const override {
    if (A.count > words_) throw TransformTooSmallException("CountingParameters", "Too long.");
    ++counts_.forward_cyclic;
    (*inner_)->forward(F, A, tmp, parallel);
    mark(F) = kind(ring);
  }
  bool pointwise_wrapped(Wrap ring, void* F, const void* G, u32* T, void* tmp,
                         ParallelContext parallel) const override {
    const std::vector<u32> whole = product(F, G, tmp, parallel, kind(ring));
    const u64 n = words_;
    if (ring == Wrap::cyclic)
      return bp_add(T, whole.data(), whole.data() + n, n, 0) && bp_carry<u32>(1, T, n);
    return bp_sub(T, whole.data(), whole.data() + n, n, 0) && bp_carry<u32>(1, T, n);
  }

 private:
  static constexpr u64 kMark = 64;

  static u8 kind(Wrap ring) { return ring == Wrap::cyclic ? 'c' : 'n'; }
  std::vector<u32> product(void* F, const void* G, void* tmp, ParallelContext parallel, u8 kind) const {
    ++counts_.inverse_cyclic;
    check(F, kind);
    check(G, kind);
    std::vector<u32> whole(2 * words_);
    if (F == G)
      (*inner_)->inverse_fsqr(F, Window{whole.data(), 0, whole.size()}, tmp, parallel);
    else
      (*inner_)->inverse_fmul(F, G, Window{whole.data(), 0, whole.size()}, tmp, parallel);
    mark(F) = 0;
    return whole;
  }
  u8& mark(void* F) const { return static_cast<u8*>(F)[transform_size_ - 1]; }
  void check(const void* F, u8 kind) const {
    if (static_cast<const u8*>(F)[transform_size_ - 1] != kind)
      throw InvalidTransformException("CountingParameters", "Transforms are mixed up.");
  }

  std::unique_ptr<ParametersBox> inner_;
  TransformCounts& counts_;
};

class CountingAlgorithm final : public Algorithm {
 public:
  /// With `step` shapes have wrapped products of a multiple of `step` u32 words; without, none.
  CountingAlgorithm(const Algorithm& inner, TransformCounts& counts, u64 step = 0)
      : Algorithm(step ? inner.max_bits() / 4 : inner.max_bits(), "CNT", "Counting", "CNT", "Counting"),
        inner_(inner),
        counts_(counts),
        step_(step) {}

  u64 table_bytes(u64 bits) const override { return inner_.table_bytes(inner_bits(bits)); }
  void ensure_tables(TransformTables& tables, u64 bits) const override {
    inner_.ensure_tables(tables, inner_bits(bits));
  }
  MultiplySizes sizes(u64 bits, u64 tds) const override {
    ParametersBox box;
    return parameters_for(box, nullptr, bits, tds).sizes();
  }
  const Parameters& parameters_for(ParametersBox& out, const TransformTables* tables, u64 bits,
                                   u64 tds) const override {
    auto inner = std::make_unique<ParametersBox>();
    inner_.parameters_for(*inner, tables, inner_bits(bits), tds);
    return out.emplace<CountingParameters>(std::move(inner), wrap(bits), counts_);
  }

 private:
  u64 wrap(u64 bits) const { return step_ ? ((bits + 31) / 32 + step_ - 1) / step_ * step_ : 0; }
  u64 inner_bits(u64 bits) const { return step_ ? 64 * wrap(bits) : bits; }

  const Algorithm& inner_;
  TransformCounts& counts_;
  u64 step_;
};

/// All products by "FFT", counted, as long as it lives. Whole ones pass the fault site "product words".
template <class W>
class CountedProducts {
 public:
  explicit CountedProducts(u64 step = 0) : table_(make(step, counts_)) {}
  TransformCounts& operator*() { return counts_; }
  TransformCounts* operator->() { return &counts_; }

 private:
  static AlgorithmTable<W> make(u64 step, TransformCounts& counts) {
    AlgorithmTable<W> table("Counting");
    auto algorithm =
        std::make_unique<CountingAlgorithm>(*algorithm_registry().find("FFT")->basic<W>(), counts, step);
    const u64 words = algorithm->max_bits() / (8 * sizeof(W));
    table.add(words, std::move(algorithm));
    return table;
  }

  TransformCounts counts_;
  ScopedBasicTable<W> table_;
};

}  // namespace orl::test
