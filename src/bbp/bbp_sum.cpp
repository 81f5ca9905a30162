#include "bbp/bbp_sum.h"

#include <algorithm>

#include "bbp/bbp_kernels.h"
#include "core/exceptions.h"
#include "core/uncopied.h"
#include "memory/aligned_malloc.h"

namespace orl {
namespace {

constexpr u64 kLimbMask = (u64{1} << kBbpLimbBits) - 1;
constexpr u64 kMaxModulus = u64{1} << 63;
constexpr s64 kMaxExponent = s64{1} << 62;
// An index adds at most 2^48 to a sum and the lanes of a limb are added up: 2^14 of them stay below 2^63.
constexpr u64 kMaxIndices = u64{1} << 14;

// Sums of a limb's lanes, 64-byte aligned and zero.
class LaneSums : Uncopied {
 public:
  LaneSums(u64 limb_count, u64 lanes)
      : count_(limb_count * lanes), sums_(static_cast<u64*>(aligned_malloc(count_ * sizeof(u64), 64))) {
    clear();
  }
  ~LaneSums() { aligned_free(sums_); }

  u64* data() { return sums_; }
  void clear() { std::fill_n(sums_, count_, u64{0}); }

 private:
  u64 count_;
  u64* sums_;
};

void fold(const u64* sums, u64 lanes, bool positive, u64* limbs, u64 limb_count) {
  s64 carry = 0;
  for (u64 i = 0; i < limb_count; i++) {
    u64 sum = 0;
    for (u64 lane = 0; lane < lanes; lane++) sum += sums[lanes * i + lane];
    const s64 change = static_cast<s64>(positive ? sum : u64{0} - sum);
    const s64 limb = static_cast<s64>(limbs[i]) + change + carry;
    limbs[i] = static_cast<u64>(limb) & kLimbMask;
    carry = limb >> kBbpLimbBits;
  }
}

void check(const BbpTerm& term, u64 last) {
  const char* fault = nullptr;
  if (term.a < 2 || term.a >= u64{1} << 16 || term.a % 2 != 0 || term.b % 2 == 0)
    fault = "The denominators must be odd and grow by less than 2^16.";
  else if (term.b >= kMaxModulus || last > (kMaxModulus - term.b) / term.a)
    fault = "The denominators must be below 2^63.";
  else if (term.c < -20 || term.c >= 0)
    fault = "The exponents must fall by 1 to 20.";
  else if (term.d > kMaxExponent || term.d < -kMaxExponent || last > u64{kMaxExponent} / u64(-term.c))
    fault = "The exponents must be within 2^62.";
  if (fault) throw InvalidParametersException("bbp_sum()", fault);
}

// First index at which the exponent is below 0.
u64 first_negative(const BbpTerm& term) {
  if (term.d < 0) return 0;
  return static_cast<u64>(term.d) / static_cast<u64>(-term.c) + 1;
}

// First index at which the denominator is not below the limit.
u64 first_above(const BbpTerm& term, u64 limit) {
  if (term.b >= limit) return 0;
  return (limit - term.b + term.a - 1) / term.a;
}

struct Limbs {
  u64* data;
  u64 count;
};

// Adds the terms of indices [first, last): powers where the exponent is not negative, else quotients.
enum class Part { kPowers, kQuotients };
void sum_alike(const BbpKernel& kernel, const BbpTerm& term, Part part, u64 first, u64 last, Limbs limbs) {
  if (first >= last) return;
  LaneSums sums(limbs.count, kernel.lanes);
  const u64 stride = kMaxIndices / kernel.batch * kernel.batch;
  for (u64 k = first; k < last; k += stride) {
    (part == Part::kPowers ? kernel.powers : kernel.quotients)(term, k, std::min(last, k + stride),
                                                               sums.data(), limbs.count);
    fold(sums.data(), kernel.lanes, term.positive, limbs.data, limbs.count);
    sums.clear();
  }
}

}  // namespace

void bbp_sum(simd::Target target, const BbpTerm& term, u64 first, u64 last, u64* limbs, u64 limb_count) {
  if (first >= last) return;
  check(term, last);
  const BbpKernel& kernel = bbp_kernel(target);
  const u64 negative = std::clamp(first_negative(term), first, last);
  const u64 above = first_above(term, kernel.modulus_limit);
  const auto sum = [&](Part part, u64 begin, u64 end) {
    const u64 middle = std::clamp(above, begin, end);
    sum_alike(kernel, term, part, begin, middle, {limbs, limb_count});
    sum_alike(scalar::bbp_kernel, term, part, middle, end, {limbs, limb_count});
  };
  sum(Part::kPowers, first, negative);
  sum(Part::kQuotients, negative, last);
}

void bbp_sum(const BbpTerm& term, u64 first, u64 last, u64* limbs, u64 limb_count) {
  bbp_sum(simd::active_target(), term, first, last, limbs, limb_count);
}

void bbp_add(u64* limbs, const u64* other, u64 limb_count) { fold(other, 1, true, limbs, limb_count); }

const BbpKernel& bbp_kernel(simd::Target target) {
  return simd::kernels_for(target, scalar::bbp_kernel, avx2::bbp_kernel, avx512::bbp_kernel);
}

}  // namespace orl
