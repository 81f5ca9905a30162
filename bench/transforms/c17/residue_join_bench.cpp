// residue_join_bench [TARGET]
//
// Nanoseconds a point (the least of many) of the join for every P: a run of 2048 points at once, and 32 runs
// of 64 points side by side, 16 points per call.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "simd/target.h"
#include "transforms/c17/residue_kernels.h"

using namespace orl;

namespace {

constexpr u64 kPoints = 2048, kRuns = 32, kCall = 16;

double join_ns(const ResidueKernels& kernels, const ResiduePlan& plan, const std::vector<double>& x, u64 runs,
               u64 call, std::vector<u32>& words) {
  std::vector<ResidueJoinRun> state(runs);
  const u64 points = kPoints / runs;
  double best = 1e300;
  for (int round = 0; round < 300; ++round) {
    const auto start = std::chrono::steady_clock::now();
    for (u64 b = 0; b < runs; ++b)
      state[b] = start_residue_run(plan.row, ProductRing::kPlain, b * points, (b + 1) * points,
                                   {words.data(), 0, words.size()});
    for (u64 i = 0; i < points; i += call)
      for (u64 b = 0; b < runs; ++b) kernels.join(plan, x.data() + b * points + i, kPoints, call, state[b]);
    resolve_residue_runs(plan.row, ProductRing::kPlain, state.data(), runs);
    best = std::min(
        best, std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count());
  }
  return best / static_cast<double>(kPoints);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1)
    for (int t = 0; t < 4; ++t)
      if (std::string(argv[1]) == simd::target_name(static_cast<simd::Target>(t)))
        simd::set_active_target(static_cast<simd::Target>(t));
  const ResidueKernels& kernels = residue_kernels(simd::active_target());
  std::printf("%s kernels\n P   one run  side by side  (ns a point)\n", kernels.name);
  for (u8 P = 4; P <= 9; ++P) {
    const ResidueRow row{P, 1, 11};
    ResiduePlan plan{row, ProductRing::kPlain, &residue_set(row), {}};
    std::vector<double> x(P * kPoints);
    u64 random = 1;
    for (u32 r = 0; r < P; ++r) {
      const ResiduePrime& prime = residue_primes()[plan.set->prime[r]];
      ResidueModulus& m = plan.modulus[r];
      m.p = static_cast<double>(prime.p);
      m.inverse = 1 / m.p;
      m.scale = prime.factor(plan.set->scale[r]);
      for (u64 i = 0; i < kPoints; ++i) {
        random = random * 6364136223846793005 + 1442695040888963407;
        x[r * kPoints + i] = static_cast<double>(random % prime.p);
      }
    }
    std::vector<u32> words(plan.row.bits() / 32);
    const double whole = join_ns(kernels, plan, x, 1, kPoints, words);
    std::printf("%2u  %8.2f  %12.2f\n", P, whole, join_ns(kernels, plan, x, kRuns, kCall, words));
  }
}
