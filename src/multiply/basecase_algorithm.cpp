#include "multiply/basecase_algorithm.h"

#include <algorithm>

#include "core/exceptions.h"
#include "multiply/algorithm_table.h"
#include "multiply/basecase.h"

namespace orl {
namespace {

constexpr u64 kMaxBits = 0x10000;

/// Forward transform: the length in words of 32 bits, then the words. So one made from either word type
/// serves an inverse of the other, and transform_style_scratch of either type is enough for both.
class BasecaseParameters final : public Parameters {
 public:
  BasecaseParameters(u64 words, u64 scratch_bytes) : words_(words) {
    max_bits_ = words * 64;
    transform_size_ = (8 * words + 71) & ~u64{63};
    scratch_size_ = (scratch_bytes + 63) & ~u64{63};  // what is cut from a buffer is a multiple of 64 bytes
  }

  void forward(void* F, const u32* A, u64 AL, void*, ParallelContext) const override { copy_in(F, A, AL); }
  void forward_w(void* F, const u64* A, u64 AL, void*, ParallelContext) const override { copy_in(F, A, AL); }

  void inverse_fsqr(void* F, u32* T, u64 skip, u64 len, void* tmp, ParallelContext) const override {
    square(F, T, skip, len, static_cast<u32*>(tmp));
  }
  void inverse_fsqr_w(void* F, u64* T, u64 skip, u64 len, void* tmp, ParallelContext) const override {
    square(F, T, skip, len, static_cast<u64*>(tmp));
  }
  void inverse_fmul(void* F, const void* G, u32* T, u64 skip, u64 len, void* tmp,
                    ParallelContext) const override {
    product(F, G, T, skip, len, static_cast<u32*>(tmp));
  }
  void inverse_fmul_w(void* F, const void* G, u64* T, u64 skip, u64 len, void* tmp,
                      ParallelContext) const override {
    product(F, G, T, skip, len, static_cast<u64*>(tmp));
  }

  /// Every forward is the operand itself; it only has to fit.
  bool compatible(const Parameters& other) const override {
    const auto* same = dynamic_cast<const BasecaseParameters*>(&other);
    return same != nullptr && same->words_ == words_;
  }

 private:
  template <class W>
  static constexpr u64 kUnit = sizeof(W) / 4;

  template <class W>
  static u64 length(const void* F) {
    return *static_cast<const u64*>(F) / kUnit<W>;
  }
  template <class W>
  static const W* words(const void* F) {
    return reinterpret_cast<const W*>(static_cast<const u64*>(F) + 1);
  }

  template <class W>
  void copy_in(void* F, const W* A, u64 AL) const {
    require_fits("BasecaseParameters::forward()", AL * 8 * sizeof(W));
    *static_cast<u64*>(F) = AL * kUnit<W>;
    std::copy(A, A + AL, reinterpret_cast<W*>(static_cast<u64*>(F) + 1));
  }

  template <class W>
  void square(const void* F, W* T, u64 skip, u64 len, W* tmp) const {
    const u64 L = length<W>(F);
    require_fits("BasecaseParameters::inverse_fsqr()",
                 2 * trim_square(skip, len, L).a_length * 8 * sizeof(W));
    sqr_window(T, skip, len, words<W>(F), L, tmp);
  }

  template <class W>
  void product(const void* F, const void* G, W* T, u64 skip, u64 len, W* tmp) const {
    const u64 FL = length<W>(F), GL = length<W>(G);
    const TrimmedProduct t = trim_product(skip, len, FL, GL);
    require_fits("BasecaseParameters::inverse_fmul()", (t.a_length + t.b_length) * 8 * sizeof(W));
    mul_window(T, skip, len, words<W>(F), FL, words<W>(G), GL, tmp);
  }

  void require_fits(const char* function, u64 bits) const {
    if (bits > max_bits_)
      throw ConvolutionTooSmallException(function, "Convolution length is too small.", max_bits_, bits);
  }

  u64 words_;  // of 64 bits
};

template <class W>
class BasecaseAlgorithm final : public Algorithm {
 public:
  BasecaseAlgorithm() : Algorithm(kMaxBits, "BKT", "Basecase/Karatsuba", "MULB", "Basic Multiply") {}

  u64 table_bytes(u64) const override { return 0; }
  void ensure_tables(TransformTables&, u64) const override {}

  MultiplySizes sizes(u64 bits, u64) const override { return shape(bits).sizes(); }
  const Parameters& parameters_for(ParametersBox& out, const TransformTables*, u64 bits, u64) const override {
    return out.emplace<BasecaseParameters>(shape(bits));
  }

  /// A product needs no transforms: the operands are read where they are.
  void sqr_window(const MultiplyContext& ctx, u32* T, u64 skip, u64 len, const u32* A, u64 L) const override {
    square(ctx, T, skip, len, A, L);
  }
  void sqr_window(const MultiplyContext& ctx, u64* T, u64 skip, u64 len, const u64* A, u64 L) const override {
    square(ctx, T, skip, len, A, L);
  }
  void mul_window(const MultiplyContext& ctx, u32* T, u64 skip, u64 len, const u32* A, u64 AL, const u32* B,
                  u64 BL) const override {
    product(ctx, T, skip, len, A, AL, B, BL);
  }
  void mul_window(const MultiplyContext& ctx, u64* T, u64 skip, u64 len, const u64* A, u64 AL, const u64* B,
                  u64 BL) const override {
    product(ctx, T, skip, len, A, AL, B, BL);
  }

 private:
  static BasecaseParameters shape(u64 bits) {
    if (bits > kMaxBits) throw LimitExceededException("BasecaseAlgorithm::parameters_for()", kMaxBits, bits);
    const u64 words = (bits + 63) >> 6;
    return {words, transform_style_scratch<W>(words)};
  }

  template <class V>
  static void square(const MultiplyContext& ctx, V* T, u64 skip, u64 len, const V* A, u64 L) {
    const bool whole = skip == 0 && len == 2 * L;
    const u64 bytes = whole ? sqr_scratch<V>(L) : sqr_window_scratch<V>(skip, len, L);
    V* tmp = scratch<V>(ctx, bytes, "BasecaseAlgorithm::sqr_window()");
    whole ? sqr(T, A, L, tmp) : orl::sqr_window(T, skip, len, A, L, tmp);
  }
  template <class V>
  static void product(const MultiplyContext& ctx, V* T, u64 skip, u64 len, const V* A, u64 AL, const V* B,
                      u64 BL) {
    const bool whole = skip == 0 && len == AL + BL;
    const u64 bytes = whole ? mul_scratch<V>(AL, BL) : mul_window_scratch<V>(skip, len, AL, BL);
    V* tmp = scratch<V>(ctx, bytes, "BasecaseAlgorithm::mul_window()");
    whole ? mul(T, A, AL, B, BL, tmp) : orl::mul_window(T, skip, len, A, AL, B, BL, tmp);
  }
  template <class V>
  static V* scratch(const MultiplyContext& ctx, u64 bytes, const char* function) {
    if (ctx.scratch.size < bytes) throw BufferTooSmallException(function, ctx.scratch.size, bytes);
    return static_cast<V*>(ctx.scratch.ptr);
  }
};

}  // namespace

template <class W>
const Algorithm& basecase_algorithm() {
  static const BasecaseAlgorithm<W> algorithm;
  return algorithm;
}
template const Algorithm& basecase_algorithm<u32>();
template const Algorithm& basecase_algorithm<u64>();

void register_basecase(AlgorithmRegistry& registry) {
  registry.add("BKT", {.basic_u32 = &basecase_algorithm<u32>(), .basic_u64 = &basecase_algorithm<u64>()});
}

}  // namespace orl
