// ramp [--target NAME] [--from BITS] [--to BITS] [--sizes N] [--threads N] [--repeat N] [--csv FILE]
//
// How the cost of a product follows its size: N products (128) of balanced operands spread evenly on a log
// scale over [FROM, TO] bits (2^26 to 2^27), by what the multiplication table picks. Sizes run in turns,
// forward and backward, and the least time of each counts. Then the worst step between neighbours, the whole
// ramp, and each threshold of the table between 2^12 and FROM bits: the size below, the threshold, the size
// above.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "multiply/algorithm_table.h"
#include "multiply/setting.h"
#include "stress/known_answers.h"
#include "support/measure.h"
#include "threads/push_pool_framework.h"
#include "threads/simple_frameworks.h"
#include "transforms/registration.h"

using namespace orl;

namespace {

struct Options {
  double from = 0x1p26, to = 0x1p27;
  u64 sizes = 128, threads = 1, repeat = 3;
  std::string csv;
};

struct Point {
  u64 words;  // of an operand
  double ns = 1e300;
};

/// Operands, product, tables and scratch for any of the sizes.
class Products {
 public:
  Products(u64 most_words, u64 threads, ParallelContext parallel)
      : parallel_(parallel),
        words_(16 * most_words),
        both_(16 * most_words),
        table_block_(basic_table<u64>().table_bytes(128 * most_words)),
        scratch_(basic_table<u64>().max_sizes(2 * most_words, threads).product_bytes),
        tables_(table_block_.buffer()) {
    basic_table<u64>().ensure_tables(tables_, 128 * most_words);
    u64* const a = static_cast<u64*>(words_.buffer().ptr);
    fill_known_words(a, 0, 2 * most_words, 1, parallel);
  }
  double time(u64 words) {
    const u64* const a = static_cast<const u64*>(words_.buffer().ptr);
    u64* const T = static_cast<u64*>(both_.buffer().ptr);
    const u64 calls = std::max<u64>(1, 20000 / words);
    const double start = bench::now_ns();
    for (u64 i = 0; i < calls; ++i)
      basic_table<u64>().mul({parallel_, tables_, scratch_.buffer()}, T, Words{a, words},
                             Words{a + words, words});
    return (bench::now_ns() - start) / static_cast<double>(calls);
  }

 private:
  ParallelContext parallel_;
  bench::Block words_, both_, table_block_, scratch_;
  TransformTables tables_;
};

void measure(Products& products, std::vector<Point>& points, u64 repeat) {
  products.time(points.back().words);
  for (u64 i = 0; i < 2 * repeat; ++i)
    for (u64 j = 0; j < points.size(); ++j) {
      Point& point = i % 2 ? points[points.size() - 1 - j] : points[j];
      point.ns = std::min(point.ns, products.time(point.words));
    }
}

Options read_options(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; i += 2) {
    const std::string option = argv[i];
    const char* value = i + 1 < argc ? argv[i + 1] : "";
    if (option == "--target")
      bench::set_target(value);
    else if (option == "--from")
      options.from = std::strtod(value, nullptr);
    else if (option == "--to")
      options.to = std::strtod(value, nullptr);
    else if (option == "--sizes")
      options.sizes = std::max<u64>(2, std::strtoull(value, nullptr, 10));
    else if (option == "--threads")
      options.threads = std::max<u64>(1, std::strtoull(value, nullptr, 10));
    else if (option == "--repeat")
      options.repeat = std::max<u64>(1, std::strtoull(value, nullptr, 10));
    else if (option == "--csv")
      options.csv = value;
    else {
      std::fprintf(stderr,
                   "usage: ramp [--target NAME] [--from BITS] [--to BITS] [--sizes N] [--threads N] "
                   "[--repeat N] [--csv FILE]\n");
      std::exit(1);
    }
  }
  return options;
}

std::vector<Point> ramp_points(const Options& options) {
  std::vector<Point> points;
  for (u64 i = 0; i < options.sizes; ++i) {
    const double bits =
        options.from *
        std::pow(options.to / options.from, static_cast<double>(i) / static_cast<double>(options.sizes - 1));
    points.push_back({static_cast<u64>(bits / 128)});
  }
  return points;
}

void report(const std::vector<Point>& points) {
  double worst = 0;
  u64 at = 0;
  for (u64 i = 1; i < points.size(); ++i)
    if (points[i].ns / points[i - 1].ns > worst) worst = points[i].ns / points[i - 1].ns, at = i;
  std::printf(
      "%llu sizes: a neighbour costs at most %.3f times as much (at %llu words), the ramp %.3f times\n",
      static_cast<unsigned long long>(points.size()), worst,
      static_cast<unsigned long long>(points[at].words), points.back().ns / points.front().ns);
}

}  // namespace

int main(int argc, char** argv) {
  const Options options = read_options(argc, argv);
  bench::heading("ramp", simd::target_name(simd::active_target()));
  register_multiplication();
  Parallelizer_None none;
  Parallelizer_PushPool pool;
  const ParallelContext parallel{options.threads > 1 ? static_cast<Parallelizer&>(pool) : none,
                                 options.threads};
  std::vector<Point> points = ramp_points(options);
  Products products(points.back().words, options.threads, parallel);
  measure(products, points, options.repeat);
  for (const Point& point : points)
    std::printf("%10llu words %10.3f ms %8.2f ns a word\n", static_cast<unsigned long long>(point.words),
                point.ns / 1e6, point.ns / static_cast<double>(point.words));
  if (!options.csv.empty()) {
    std::FILE* csv = std::fopen(options.csv.c_str(), "w");
    if (csv == nullptr) return std::perror(options.csv.c_str()), 1;
    std::fprintf(csv, "words,ns_a_word\n");
    for (const Point& point : points)
      std::fprintf(csv, "%llu,%.4f\n", static_cast<unsigned long long>(point.words),
                   point.ns / static_cast<double>(point.words));
    std::fclose(csv);
  }
  std::printf("\n");
  report(points);
  for (const auto& entry : basic_table<u64>().entries()) {
    if (entry.threshold * 64 < 4096 || static_cast<double>(entry.threshold) * 64 > options.from) continue;
    const u64 n = entry.threshold / 2;
    std::vector<Point> around = {{n - n / 64}, {n}, {n + 1}, {n + n / 64}};
    measure(products, around, 20 * options.repeat);
    std::printf("threshold of %s, %llu words: %.2f, %.2f | %.2f, %.2f ns a word, step %.3f\n",
                entry.algorithm->id(), static_cast<unsigned long long>(n),
                around[0].ns / static_cast<double>(around[0].words), around[1].ns / static_cast<double>(n),
                around[2].ns / static_cast<double>(n + 1),
                around[3].ns / static_cast<double>(around[3].words), around[2].ns / around[1].ns);
  }
}
