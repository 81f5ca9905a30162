// fft_bench [--from BITS] [--to BITS] [--step FACTOR] [--target NAME] [--threads N] [--rows]
//
// Products and squares of balanced operands by the floating-point FFT against GMP in the same run, by size:
// nanoseconds per product, per word of one operand, and per point; ratios to mpn_mul_n and mpn_sqr above 1
// mean that ours is faster. --rows takes the largest product of every row of the size table instead of a
// geometric ramp, and prints what tools/make_fft_table.py fits its costs to. Times are medians of rounds that
// alternate with the peer; the spread is the distance of the quartiles.
#include <gmp.h>
#include <sys/mman.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "simd/target.h"
#include "threads/push_pool_framework.h"
#include "threads/simple_frameworks.h"
#include "transforms/fft/fft.h"
#include "transforms/fft/fft_kernels.h"
#include "transforms/fft/fft_table.h"

#ifndef NDEBUG
#error "measure the release build"
#endif

using namespace orl;

namespace {

struct Options {
  u64 from = 5121, to = 221184;
  double step = 1.3;
  simd::Target target = simd::active_target();
  u64 threads = 1;
  bool rows = false;
};

double now_ns() {
  return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

u64 next_random(u64& state) {
  u64 z = state += 0x9e3779b97f4a7c15;
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9;
  z = (z ^ (z >> 27)) * 0x94d049bb133111eb;
  return z ^ (z >> 31);
}

/// Memory as the program's allocator gives it: large blocks on large pages.
struct Block {
  explicit Block(u64 bytes) : size((bytes + 63) & ~u64{63}) {
    constexpr u64 kLargePage = u64{1} << 21;
    const u64 alignment = size < kLargePage ? 64 : kLargePage;
    ptr = std::aligned_alloc(alignment, (size + alignment) & ~(alignment - 1));
    if (!ptr) std::abort();
    if (alignment == kLargePage) madvise(ptr, size, MADV_HUGEPAGE);
    std::memset(ptr, 0, size);
  }
  Block(const Block&) = delete;
  ~Block() { std::free(ptr); }
  LinearHeapBuffer buffer() const { return {ptr, size}; }
  u64 size;
  void* ptr;
};

struct Sample {
  double median, spread;
};
Sample summarise(std::vector<double> t) {
  std::sort(t.begin(), t.end());
  return {t[t.size() / 2], t[t.size() * 3 / 4] - t[t.size() / 4]};
}

/// Times several bodies in turn, each for about `round_ns` a round.
template <class... Bodies>
std::vector<Sample> measure(int rounds, double round_ns, Bodies&&... bodies) {
  std::vector<std::vector<double>> times(sizeof...(bodies));
  const auto run = [&](u64 index, auto& body, u64& count) {
    if (count == 0) {
      body();
      const double start = now_ns();
      body();
      count = std::max<u64>(1, static_cast<u64>(round_ns / std::max(1.0, now_ns() - start)));
    }
    const double start = now_ns();
    for (u64 i = 0; i < count; ++i) body();
    times[index].push_back((now_ns() - start) / static_cast<double>(count));
  };
  std::vector<u64> counts(sizeof...(bodies), 0);
  for (int r = 0; r < rounds; ++r) {
    u64 index = 0;
    ((run(index, bodies, counts[index]), ++index), ...);
  }
  std::vector<Sample> samples;
  for (auto& t : times) samples.push_back(summarise(t));
  return samples;
}

struct Ratios {
  double mul = 0, sqr = 0;
  u64 count = 0;
};

void bench_size(const Options& options, Parallelizer& parallelizer, u64 words, Ratios& ratios) {
  const u64 bits = 2 * words * 64;
  const Algorithm& algorithm = fft_algorithm();
  const Block table_memory(algorithm.table_bytes(bits));
  TransformTables tables(table_memory.buffer());
  algorithm.ensure_tables(tables, bits);
  const MultiplySizes sizes = algorithm.sizes(bits, options.threads);
  const Block scratch(sizes.total_bytes());
  const MultiplyContext ctx{{parallelizer, options.threads}, tables, scratch.buffer()};

  std::vector<u64> a(words), b(words), t(2 * words), g(2 * words);
  u64 state = 1;
  for (u64& x : a) x = next_random(state);
  for (u64& x : b) x = next_random(state);
  const auto limbs = [](std::vector<u64>& v) { return reinterpret_cast<mp_limb_t*>(v.data()); };

  algorithm.mul_window(ctx, Window{t.data(), 0, 2 * words}, Words{a.data(), words}, Words{b.data(), words});
  mpn_mul_n(limbs(g), limbs(a), limbs(b), static_cast<mp_size_t>(words));
  bool right = t == g;
  algorithm.sqr_window(ctx, Window{t.data(), 0, 2 * words}, Words{a.data(), words});
  mpn_sqr(limbs(g), limbs(a), static_cast<mp_size_t>(words));
  right = right && t == g;

  ParametersBox box;
  const Parameters& p = algorithm.parameters_for(box, &tables, bits, options.threads);
  LinearHeapBuffer cut = ctx.scratch;
  void* F = cut.cut_buffer(sizes.transform_bytes).ptr;
  void* tmp = cut.cut_buffer(sizes.scratch_bytes).ptr;

  const int rounds = bits < 1000000 ? 31 : bits < 20000000 ? 11 : 5;
  const auto s = measure(
      rounds, 2e5,
      [&] {
        algorithm.mul_window(ctx, Window{t.data(), 0, 2 * words}, Words{a.data(), words},
                             Words{b.data(), words});
      },
      [&] { mpn_mul_n(limbs(g), limbs(a), limbs(b), static_cast<mp_size_t>(words)); },
      [&] {
        algorithm.sqr_window(ctx, Window{t.data(), 0, 2 * words}, Words{a.data(), words});
      },
      [&] { mpn_sqr(limbs(g), limbs(a), static_cast<mp_size_t>(words)); },
      [&] {
        p.forward(F, Words{a.data(), words}, tmp, ctx.parallel);
      });

  const FftRow& row = find_fft_row(bits);
  const double n = static_cast<double>(words), points = static_cast<double>(row.points());
  const double mul_ratio = s[1].median / s[0].median, sqr_ratio = s[3].median / s[2].median;
  ratios.mul += std::log(mul_ratio);
  ratios.sqr += std::log(sqr_ratio);
  ++ratios.count;
  std::printf("%10lu %2u %2u %2u %9lu %12.0f %6.2f %7.3f %5.1f%% %12.0f %6.2f %12.0f %7.3f %6.2f %6.2f%s\n",
              static_cast<unsigned long>(bits), row.k, row.s, row.w, static_cast<unsigned long>(row.points()),
              s[0].median, s[0].median / n, s[0].median / points, 100 * s[0].spread / s[0].median,
              s[2].median, s[2].median / n, s[4].median, s[4].median / points, mul_ratio, sqr_ratio,
              right ? "" : "  WRONG");
  std::fflush(stdout);
  if (!right) std::exit(1);
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    const char* value = i + 1 < argc ? argv[i + 1] : "";
    if (arg == "--rows") {
      options.rows = true;
      continue;
    }
    ++i;
    if (arg == "--from") {
      options.from = std::strtoull(value, nullptr, 0);
    } else if (arg == "--to") {
      options.to = std::strtoull(value, nullptr, 0);
    } else if (arg == "--step") {
      options.step = std::strtod(value, nullptr);
    } else if (arg == "--threads") {
      options.threads = std::strtoull(value, nullptr, 0);
    } else if (arg == "--target") {
      bool known = false;
      for (auto t :
           {simd::Target::kScalar, simd::Target::kAvx2, simd::Target::kAvx512, simd::Target::kAvx512Ifma})
        if (std::string(value) == simd::target_name(t)) {
          options.target = t;
          known = true;
        }
      if (!known) {
        std::fprintf(stderr, "unknown target %s\n", value);
        return 1;
      }
    } else {
      std::fprintf(stderr, "unknown option %s\n", arg.c_str());
      return 1;
    }
  }
  simd::set_active_target(options.target);
  Parallelizer_None none;
  Parallelizer_PushPool pool;
  Parallelizer& parallelizer = options.threads > 1 ? static_cast<Parallelizer&>(pool) : none;
  std::printf("target %s, kernel %s, %lu tasks, release build\n", simd::target_name(options.target),
              fft_kernels(options.target).name, static_cast<unsigned long>(options.threads));
  std::printf("%10s %2s %2s %2s %9s %12s %6s %7s %6s %12s %6s %12s %7s %6s %6s\n", "bits", "k", "s", "w",
              "points", "mul ns", "/word", "/point", "spread", "sqr ns", "/word", "forward ns", "/point",
              "x mul", "x sqr");
  Ratios ratios;
  if (options.rows) {
    for (const FftRow& row : fft_rows())
      if (row.bits >= options.from && row.bits <= options.to)
        bench_size(options, parallelizer, row.bits / 128, ratios);
  } else {
    for (double bits = static_cast<double>(options.from); bits <= static_cast<double>(options.to);
         bits *= options.step)
      bench_size(options, parallelizer, (static_cast<u64>(bits) + 127) / 128, ratios);
  }
  const double count = static_cast<double>(std::max<u64>(1, ratios.count));
  std::printf("geometric mean: x mul %.2f, x sqr %.2f\n", std::exp(ratios.mul / count),
              std::exp(ratios.sqr / count));
}
