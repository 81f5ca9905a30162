#include "transforms/hnt/hnt_far.h"

#include "transforms/fft/fft.h"
#include "transforms/hnt/hnt.h"
#include "transforms/vst/vst_far.h"

namespace orl {
namespace {

class HntFar final : public FarFamily {
 public:
  const char* id() const override { return "HNT"; }
  u64 max_bits() const override { return hnt_algorithm().max_bits(); }
  const Algorithm* short_part() const override { return &fft_algorithm(); }

  u32 least_primes() const override { return vst_.least_primes(); }
  u32 most_primes() const override { return vst_.most_primes(); }
  bool holds(const FarShape& shape) const override { return vst_.holds(shape); }
  u64 point_bytes(const FarShape& shape) const override { return vst_.point_bytes(shape); }
  u32 channels(const FarShape& shape) const override { return vst_.channels(shape); }
  u64 packed_bytes(const FarShape& shape) const override { return vst_.packed_bytes(shape); }
  u64 table_bytes(const FarShape& shape) const override { return vst_.table_bytes(shape); }
  u64 node_bytes(const FarShape& shape, u32 levels) const override { return vst_.node_bytes(shape, levels); }
  u64 stripe_bytes(const FarShape& shape, const FarStripe& stripe) const override {
    return vst_.stripe_bytes(shape, stripe);
  }
  u64 runs_bytes(const FarShape& shape, u32 levels) const override { return vst_.runs_bytes(shape, levels); }
  u64 node_scratch_bytes(const FarShape& shape, u32 levels, u64 tasks) const override {
    return vst_.node_scratch_bytes(shape, levels, tasks);
  }
  u64 stripe_scratch_bytes(const FarShape& shape, u32 levels, u64 tasks) const override {
    return vst_.stripe_scratch_bytes(shape, levels, tasks);
  }
  double cost(const FarShape& shape) const override { return vst_.cost(shape); }
  std::unique_ptr<FarTransform> make(const FarShape& shape, ProductRing ring,
                                     LinearHeapBuffer& memory) const override {
    return vst_.make(shape, ring, memory);
  }

 private:
  const FarFamily& vst_ = vst_far_family();
};

}  // namespace

const FarFamily& hnt_far_family() {
  static const HntFar family;
  return family;
}

}  // namespace orl
