#include <algorithm>
#include <cstring>
#include <memory>

#include "frame/exceptions.h"
#include "simd/target.h"
#include "transforms/fft.h"
#include "transforms/fft_kernels.h"
#include "transforms/fft_table.h"

namespace orl {
namespace {

constexpr const char* kId = "FFT";
constexpr u64 kMaxBits = 0x6000000;
// Kernels read and write whole vectors at the end of the packed points.
constexpr u64 kFieldSlack = 32;

class FftParameters final : public Parameters {
 public:
  FftParameters(const FftRow& row, const FftTables* tables)
      : kernels_(fft_kernels(simd::active_target())),
        plan_{row.k, row.s - 1 - kFftBlockLevels, row.w, tables} {
    max_bits_ = row.bits;
    transform_size_ = sizeof(double) * row.points();
    scratch_size_ = LinearHeapBuffer::cut_bytes<u8>(plan_.field_bytes() + kFieldSlack);
  }

  void forward(void* F, const u32* A, u64 AL, void* tmp, ParallelContext) const override {
    if (AL * 32 > max_bits_)
      throw ConvolutionTooSmallException("FFT", "Convolution length is too small.", max_bits_, AL * 32);
    u8* fields = static_cast<u8*>(tmp);
    std::memcpy(fields, A, AL * 4);
    std::memset(fields + AL * 4, 0, scratch_size_ - AL * 4);
    kernels_.forward(plan_, static_cast<double*>(F), fields);
  }
  void inverse_fsqr(void* F, u32* T, u64 skip, u64 len, void* tmp, ParallelContext) const override {
    kernels_.inverse_square(plan_, static_cast<double*>(F));
    finish(F, T, skip, len, tmp);
  }
  void inverse_fmul(void* F, const void* G, u32* T, u64 skip, u64 len, void* tmp,
                    ParallelContext) const override {
    kernels_.inverse_multiply(plan_, static_cast<double*>(F), static_cast<const double*>(G));
    finish(F, T, skip, len, tmp);
  }

  bool compatible(const Parameters& other) const override {
    const FftParameters* o = dynamic_cast<const FftParameters*>(&other);
    return o && o->plan_.k == plan_.k && o->plan_.levels == plan_.levels && o->plan_.w == plan_.w &&
           &o->kernels_ == &kernels_;
  }

 private:
  void finish(const void* F, u32* T, u64 skip, u64 len, void* tmp) const {
    if (len * 32 > max_bits_)
      throw ConvolutionTooSmallException("FFT", "Convolution length is too small.", max_bits_, len * 32);
    u8* fields = static_cast<u8*>(tmp);
    kernels_.pack(plan_, static_cast<const double*>(F), fields);
    std::memcpy(T, fields + 4 * skip, 4 * (len - skip));
  }

  const FftKernels& kernels_;
  FftPlan plan_;
};

class FftAlgorithm final : public Algorithm {
 public:
  FftAlgorithm() : Algorithm(kMaxBits, kId, "Floating-Point FFT", "FFTv3", "Short-Vector FMA") {}

  u64 table_bytes(u64 bits) const override { return FftTables::bytes(largest_shapes(bits)); }
  void ensure_tables(TransformTables& tables, u64 bits) const override {
    auto* own = static_cast<FftTables*>(tables.find(kId));
    if (!own) {
      tables.put(kId, std::make_unique<FftTables>());
      own = static_cast<FftTables*>(tables.find(kId));
    }
    own->grow(tables.memory(), largest_shapes(bits));
  }
  MultiplySizes sizes(u64 bits, u64) const override {
    return FftParameters(find_fft_row(bits), nullptr).sizes();
  }
  const Parameters& parameters_for(ParametersBox& out, const TransformTables* tables, u64 bits,
                                   u64) const override {
    const FftTables* own = tables ? static_cast<const FftTables*>(tables->find(kId)) : nullptr;
    return out.emplace<FftParameters>(find_fft_row(bits), own);
  }

 private:
  // Largest s of each odd factor among the shapes of products up to `bits`.
  static std::array<u32, 3> largest_shapes(u64 bits) {
    std::array<u32, 3> s{};
    const FftRow& last = find_fft_row(bits);
    for (const FftRow& row : fft_rows()) {
      if (row.bits > last.bits) break;
      s[row.k / 2] = std::max(s[row.k / 2], row.s);
    }
    return s;
  }
};

}  // namespace

const Algorithm& fft_algorithm() {
  static const FftAlgorithm algorithm;
  return algorithm;
}

}  // namespace orl
