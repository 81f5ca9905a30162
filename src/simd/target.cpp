#include "simd/target.h"

#include <cpuid.h>

#include <atomic>
#include <cstdint>
#include <stdexcept>

#include "simd/features.h"

namespace orl::simd {
namespace {

struct Feature {
  const char* name;
  Target since;  // lowest target that asks for it
  bool (*present)();
};

struct Registers {
  std::uint32_t a = 0, b = 0, c = 0, d = 0;
};

Registers cpuid(std::uint32_t leaf, std::uint32_t subleaf = 0) {
  Registers r;
  if (!__get_cpuid_count(leaf, subleaf, &r.a, &r.b, &r.c, &r.d)) return {};
  return r;
}

// Bits of XCR0: register state that the system saves on a switch of context.
bool system_saves(std::uint64_t mask) {
  if (!(cpuid(1).c >> 27 & 1)) return false;  // OSXSAVE
  std::uint32_t low, high;
  asm volatile("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
  return ((std::uint64_t{high} << 32 | low) & mask) == mask;
}
bool system_saves_avx() { return system_saves(0x6); }
bool system_saves_avx512() { return system_saves(0xe6); }

bool leaf1c(int bit) { return cpuid(1).c >> bit & 1; }
bool leaf1d(int bit) { return cpuid(1).d >> bit & 1; }
bool leaf7b(int bit) { return cpuid(7).b >> bit & 1; }
bool leaf7c(int bit) { return cpuid(7).c >> bit & 1; }

const Feature kFeatures[] = {
    {"x64", Target::kScalar, [] { return (cpuid(0x80000001).d >> 29 & 1) != 0; }},
    {"SSE", Target::kScalar, [] { return leaf1d(25); }},
    {"SSE2", Target::kScalar, [] { return leaf1d(26); }},
    {"ABM", Target::kAvx2, [] { return (cpuid(0x80000001).c >> 5 & 1) != 0; }},
    {"BMI1", Target::kAvx2, [] { return leaf7b(3); }},
    {"BMI2", Target::kAvx2, [] { return leaf7b(8); }},
    {"ADX", Target::kAvx2, [] { return leaf7b(19); }},
    {"SSE3", Target::kAvx2, [] { return leaf1c(0); }},
    {"SSSE3", Target::kAvx2, [] { return leaf1c(9); }},
    {"SSE4.1", Target::kAvx2, [] { return leaf1c(19); }},
    {"SSE4.2", Target::kAvx2, [] { return leaf1c(20); }},
    {"AVX", Target::kAvx2, [] { return leaf1c(28) && system_saves_avx(); }},
    {"FMA3", Target::kAvx2, [] { return leaf1c(12) && system_saves_avx(); }},
    {"AVX2", Target::kAvx2, [] { return leaf7b(5) && system_saves_avx(); }},
    {"AVX512-F", Target::kAvx512, [] { return leaf7b(16) && system_saves_avx512(); }},
    {"AVX512-CD", Target::kAvx512, [] { return leaf7b(28) && system_saves_avx512(); }},
    {"AVX512-VL", Target::kAvx512, [] { return leaf7b(31) && system_saves_avx512(); }},
    {"AVX512-BW", Target::kAvx512, [] { return leaf7b(30) && system_saves_avx512(); }},
    {"AVX512-DQ", Target::kAvx512, [] { return leaf7b(17) && system_saves_avx512(); }},
    {"AVX512-IFMA", Target::kAvx512Ifma, [] { return leaf7b(21) && system_saves_avx512(); }},
    {"AVX512-VBMI", Target::kAvx512Ifma, [] { return leaf7c(1) && system_saves_avx512(); }},
};

struct TargetText {
  const char* name;
  const char* features;
};
// By number of the target.
constexpr TargetText kTargetTexts[] = {
    {"Scalar", "    x64, SSE, SSE2"},
    {"AVX2",
     "    x64, ABM, BMI1, BMI2, ADX,\n    SSE, SSE2, SSE3, SSSE3, SSE4.1, SSE4.2,\n"
     "    AVX, FMA3, AVX2"},
    {"AVX512",
     "    x64, ABM, BMI1, BMI2, ADX,\n    SSE, SSE2, SSE3, SSSE3, SSE4.1, SSE4.2,\n"
     "    AVX, FMA3, AVX2,\n    AVX512-(F/CD/VL/BW/DQ)"},
    {"AVX512-IFMA",
     "    x64, ABM, BMI1, BMI2, ADX,\n    SSE, SSE2, SSE3, SSSE3, SSE4.1, SSE4.2,\n"
     "    AVX, FMA3, AVX2,\n    AVX512-(F/CD/VL/BW/DQ/IFMA/VBMI)"},
};

Target detect() {
  Target best = Target::kScalar;
  for (Target t : {Target::kAvx2, Target::kAvx512, Target::kAvx512Ifma})
    if (t <= build_limit() && missing_features(t).empty()) best = t;
  return best;
}

}  // namespace

namespace detail {

constinit std::atomic<int> active{-1};

Target activate_best() {
  int target = -1;
  active.compare_exchange_strong(target, static_cast<int>(best_target()), std::memory_order_relaxed);
  return static_cast<Target>(active.load(std::memory_order_relaxed));
}

}  // namespace detail

const char* target_name(Target target) { return kTargetTexts[static_cast<int>(target)].name; }

const char* target_feature_list(Target target) { return kTargetTexts[static_cast<int>(target)].features; }

std::vector<std::string> missing_features(Target target) {
  std::vector<std::string> missing;
  for (const Feature& f : kFeatures)
    if (f.since <= target && !f.present()) missing.emplace_back(f.name);
  return missing;
}

std::vector<FeatureState> processor_features() {
  std::vector<FeatureState> states;
  for (const Feature& f : kFeatures) states.push_back({f.name, f.present()});
  return states;
}

Target build_limit() {
  for (Target t : {Target::kAvx2, Target::kAvx512})
    if (std::string(ORVANE_FIXED_TARGET) == target_name(t)) return t;
  return Target::kAvx512Ifma;
}

Target best_target() {
  static const Target best = detect();
  return best;
}

void set_active_target(Target target) {
  if (target > best_target())
    throw std::invalid_argument(std::string("this machine cannot run the target ") + target_name(target));
  detail::active.store(static_cast<int>(target), std::memory_order_relaxed);
}

}  // namespace orl::simd
