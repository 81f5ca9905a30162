// residue_bench [FAMILY] [TARGET [THREADS [WORDS...]]]
//
// n x n word products and squares by a FAMILY of residue transforms (C17, the default, VST, HNT, N64 or
// N32) beside GMP in the same run: nanoseconds per word of one operand (the least of several), and ratios;
// above 1 ours is faster.
#include <gmp.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "simd/target.h"
#include "threads/push_pool_framework.h"
#include "threads/simple_frameworks.h"
#include "transforms/c17/residue.h"
#include "transforms/hnt/hnt.h"
#include "transforms/ntt/ntt.h"
#include "transforms/vst/vst.h"

using namespace orl;

namespace {

template <class Body>
double least_ns(u64 words, Body&& body) {
  const int rounds = words >= 1000000 ? 2 : words >= 100000 ? 5 : 30;
  double best = 1e300;
  for (int i = 0; i < rounds; ++i) {
    const auto start = std::chrono::steady_clock::now();
    body();
    best = std::min(
        best, std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count());
  }
  return best / static_cast<double>(words);
}

void bench(const Algorithm& algorithm, Parallelizer& parallelizer, u64 threads, u64 n) {
  const u64 bits = 128 * n;
  std::vector<u8> table_memory(algorithm.table_bytes(bits) + 64);
  TransformTables tables(
      LinearHeapBuffer(reinterpret_cast<u8*>((reinterpret_cast<u64>(table_memory.data()) + 63) & ~u64{63}),
                       algorithm.table_bytes(bits)));
  algorithm.ensure_tables(tables, bits);
  const u64 bytes = algorithm.sizes(bits, threads).total_bytes();
  void* scratch = std::aligned_alloc(64, (bytes + 63) & ~u64{63});
  const MultiplyContext ctx{{parallelizer, threads}, tables, LinearHeapBuffer(scratch, bytes)};
  std::vector<u64> a(n), b(n), t(2 * n), g(2 * n);
  u64 x = 1;
  for (u64 i = 0; i < n; ++i) {
    a[i] = x = x * 6364136223846793005 + 1442695040888963407;
    b[i] = x = (x ^ x >> 33) * 6364136223846793005 + 1;
  }
  const double own = least_ns(n, [&] {
    algorithm.mul_window(ctx, Window{t.data(), 0, 2 * n}, Words{a.data(), n}, Words{b.data(), n});
  });
  const double peer = least_ns(n, [&] {
    mpn_mul_n(reinterpret_cast<mp_limb_t*>(g.data()), reinterpret_cast<mp_limb_t*>(a.data()),
              reinterpret_cast<mp_limb_t*>(b.data()), static_cast<mp_size_t>(n));
  });
  const bool right = t == g;
  const double square = least_ns(n, [&] {
    algorithm.sqr_window(ctx, Window{t.data(), 0, 2 * n}, Words{a.data(), n});
  });
  std::printf("%10lu  %7.1f ns  square %7.1f  gmp %7.1f  ratio %5.2f  %5.1f bytes/word  %s\n", n, own, square,
              peer, peer / own, static_cast<double>(bytes) / static_cast<double>(n),
              right ? "right" : "WRONG");
  std::free(scratch);
}

}  // namespace

int main(int argc, char** argv) {
  const Algorithm* algorithm = &c17_algorithm();
  for (const Algorithm* a :
       {&c17_algorithm(), &vst_algorithm(), &hnt_algorithm(), &n64_algorithm(), &n32_algorithm()})
    if (argc > 1 && std::string(argv[1]) == a->id()) {
      algorithm = a;
      --argc;
      ++argv;
      break;
    }
  if (argc > 1)
    for (int t = 0; t < 4; ++t)
      if (std::string(argv[1]) == simd::target_name(static_cast<simd::Target>(t)))
        simd::set_active_target(static_cast<simd::Target>(t));
  const u64 threads = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 1;
  Parallelizer_None none;
  Parallelizer_PushPool pool;
  Parallelizer& parallelizer = threads > 1 ? static_cast<Parallelizer&>(pool) : none;
  std::vector<u64> sizes;
  for (int i = 3; i < argc; ++i) sizes.push_back(std::strtoull(argv[i], nullptr, 10));
  if (sizes.empty()) sizes = {10000, 100000, 1000000};
  std::printf("%s, %s, %lu threads\n", algorithm->id(), simd::target_name(simd::active_target()), threads);
  for (u64 n : sizes) bench(*algorithm, parallelizer, threads, n);
}
