#include "multiply/basecase_algorithm.h"

#include <algorithm>

#include "core/exceptions.h"
#include "core/round_up.h"
#include "multiply/algorithm_table.h"
#include "multiply/basecase.h"

namespace orl {
namespace {

constexpr u64 kMaxBits = 0x10000;

/// Forward transform: the length in words W, as a u64, then the words.
template <class W>
class BasecaseParameters final : public Parameters {
 public:
  /// Products of up to `words` words of 64 bits.
  explicit BasecaseParameters(u64 words) : words_(words) {
    max_bits_ = words * 64;
    const MultiplySizes bytes = sizes_of(words);
    transform_size_ = bytes.transform_bytes;
    scratch_size_ = bytes.scratch_bytes;
  }
  /// What is cut from a buffer is a multiple of 64 bytes.
  static MultiplySizes sizes_of(u64 words) {
    return {round_up_64(8 * words + 8), round_up_64(transform_style_scratch<W>(words))};
  }

  void forward(void* F, Words<u32> A, void*, ParallelContext) const override {
    const Words<W> a = words_of<W>(A);
    require_fits("BasecaseParameters::forward()", a.count);
    *static_cast<u64*>(F) = a.count;
    std::copy(a.ptr, a.ptr + a.count, reinterpret_cast<W*>(static_cast<u64*>(F) + 1));
  }
  void inverse_fsqr(void* F, Window<u32> T, void* tmp, ParallelContext) const override {
    const Window<W> t = window_of_words<W>(T);
    const Words<W> a = held(F);
    require_fits("BasecaseParameters::inverse_fsqr()", 2 * trim_square(t.skip, t.len, a.count).a_length);
    sqr_window(t, a, static_cast<W*>(tmp));
  }
  void inverse_fmul(void* F, const void* G, Window<u32> T, void* tmp, ParallelContext) const override {
    const Window<W> t = window_of_words<W>(T);
    const Words<W> a = held(F), b = held(G);
    const TrimmedProduct trimmed = trim_product(t.skip, t.len, a.count, b.count);
    require_fits("BasecaseParameters::inverse_fmul()", trimmed.a_length + trimmed.b_length);
    mul_window(t, a, b, static_cast<W*>(tmp));
  }

  /// Every forward is the operand itself; it only has to fit.
  bool compatible(const Parameters& other) const override {
    const auto* same = dynamic_cast<const BasecaseParameters*>(&other);
    return same != nullptr && same->words_ == words_;
  }

 private:
  static Words<W> held(const void* F) {
    const u64* const length = static_cast<const u64*>(F);
    return {reinterpret_cast<const W*>(length + 1), *length};
  }
  void require_fits(const char* function, u64 words) const {
    const u64 bits = words * 8 * sizeof(W);
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

  MultiplySizes sizes(u64 bits, u64) const override {
    return BasecaseParameters<W>::sizes_of(shape_words(bits));
  }
  const Parameters& parameters_for(ParametersBox& out, const TransformTables*, u64 bits, u64) const override {
    return out.emplace<BasecaseParameters<W>>(shape_words(bits));
  }
  u64 schoolbook_words() const override {
    return 2 * std::min(kKaratsubaMulWords<W>, kKaratsubaSqrWords<W>) - 1;
  }
  bool transforms_are_copies() const override { return true; }

  /// A product needs no transforms: the operands are read where they are.
  void sqr_window(const MultiplyContext& ctx, Window<u32> T, Words<u32> A) const override {
    const Window<W> t = window_of_words<W>(T);
    const Words<W> a = words_of<W>(A);
    const bool whole = t.skip == 0 && t.len == 2 * a.count;
    const u64 bytes = whole ? sqr_scratch<W>(a.count) : sqr_window_scratch<W>(t.skip, t.len, a.count);
    W* tmp = scratch(ctx, bytes, "BasecaseAlgorithm::sqr_window()");
    whole ? sqr(t.T, a.ptr, a.count, tmp) : orl::sqr_window(t, a, tmp);
  }
  void mul_window(const MultiplyContext& ctx, Window<u32> T, Words<u32> A, Words<u32> B) const override {
    const Window<W> t = window_of_words<W>(T);
    const Words<W> a = words_of<W>(A), b = words_of<W>(B);
    const bool whole = t.skip == 0 && t.len == a.count + b.count;
    const u64 bytes =
        whole ? mul_scratch<W>(a.count, b.count) : mul_window_scratch<W>(t.skip, t.len, a.count, b.count);
    W* tmp = scratch(ctx, bytes, "BasecaseAlgorithm::mul_window()");
    whole ? mul(t.T, a.ptr, a.count, b.ptr, b.count, tmp) : orl::mul_window(t, a, b, tmp);
  }

 private:
  /// Words of 64 bits of the shape for a product.
  static u64 shape_words(u64 bits) {
    if (bits > kMaxBits) throw LimitExceededException("BasecaseAlgorithm::parameters_for()", kMaxBits, bits);
    return (bits + 63) >> 6;
  }
  static W* scratch(const MultiplyContext& ctx, u64 bytes, const char* function) {
    if (ctx.scratch.size < bytes) throw BufferTooSmallException(function, ctx.scratch.size, bytes);
    return static_cast<W*>(ctx.scratch.ptr);
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
