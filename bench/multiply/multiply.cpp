// multiply [--target AVX2|AVX512|AVX512-IFMA|Scalar] [--min WORDS] [--max WORDS] [--step FACTOR] [--csv]
//
// Products and squares of balanced operands of 64-bit words, one thread: what the multiplication table picks,
// the algorithms BKT and FFT by themselves, and GMP's mpn_mul_n and mpn_sqr. Rows: every length up to 40
// words, then lengths a factor apart, and those on both sides of each threshold of the table. All of a row
// run in turns, many short repetitions of each; times are medians in ns a word of one operand, ratios are
// medians of GMP's time over ours in the same turn, so above 1 ours is faster. Ends with the figures of the
// bars: the geometric mean and the worst over products of 5121 to 221184 bits (lengths a factor apart), the
// worst up to 5120 bits.
#include <gmp.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "numbers/algorithm_table.h"
#include "parallel/simple_frameworks.h"
#include "simd/target.h"
#include "support/measure.h"
#include "transforms/registration.h"

using namespace orl;

namespace {

constexpr u64 kSmallBits = 5120, kLargeBits = 221184;

struct Options {
  u64 min_words = 1;
  u64 max_words = kLargeBits / 128;
  double step = 1.3;
  bool csv = false;
};

class Memory {
 public:
  explicit Memory(u64 bytes)
      : bytes_((bytes + 63) & ~u64{63}), block_(new (std::align_val_t{64}) u8[bytes_ + 64]) {
    std::fill_n(block_.get(), bytes_, u8{0});
  }
  LinearHeapBuffer buffer() const { return {block_.get(), bytes_}; }

 private:
  struct Free {
    void operator()(u8* p) const { ::operator delete[](p, std::align_val_t{64}); }
  };
  u64 bytes_;
  std::unique_ptr<u8[], Free> block_;
};

/// Operands, result and scratch of one length.
struct Case {
  const MultiplyContext& ctx;
  u64 n;
  std::vector<u64> a, b, product, expected;

  Case(const MultiplyContext& context, u64 length)
      : ctx(context), n(length), a(n), b(n), product(2 * n), expected(2 * n) {
    std::mt19937_64 random(length);
    for (u64& word : a) word = random();
    for (u64& word : b) word = random();
  }
  mp_limb_t* limbs(std::vector<u64>& words) { return reinterpret_cast<mp_limb_t*>(words.data()); }

  void gmp_mul() { mpn_mul_n(limbs(expected), limbs(a), limbs(b), static_cast<mp_size_t>(n)); }
  void gmp_sqr() { mpn_sqr(limbs(expected), limbs(a), static_cast<mp_size_t>(n)); }
  void table_mul() { basic_table<u64>().mul(ctx, product.data(), a.data(), n, b.data(), n); }
  void table_sqr() { basic_table<u64>().sqr(ctx, product.data(), a.data(), n); }
  void direct_mul(const Algorithm& algorithm) {
    algorithm.mul_window(ctx, product.data(), 0, 2 * n, a.data(), n, b.data(), n);
  }
  void direct_sqr(const Algorithm& algorithm) {
    algorithm.sqr_window(ctx, product.data(), 0, 2 * n, a.data(), n);
  }
};

/// Times of calls that run in turns. A turn of each takes about kTurnNs.
class Turns {
 public:
  static constexpr double kTurnNs = 20000;
  static constexpr u64 kTurns = 201;

  template <class... Calls>
  static std::vector<std::vector<double>> run(Calls&&... calls) {
    std::vector<std::vector<double>> times(sizeof...(calls));
    const std::vector<u64> counts = {count_for(calls)...};
    u64 turns = kTurns;
    for (u64 count : counts)
      if (count == 1) turns = 31;
    for (u64 turn = 0; turn < turns; ++turn) {
      u64 index = 0;
      ((times[index].push_back(time_of(calls, counts[index])), ++index), ...);
    }
    return times;
  }

 private:
  template <class Call>
  static double time_of(Call& call, u64 count) {
    const double start = bench::now_ns();
    for (u64 i = 0; i < count; ++i) call();
    return (bench::now_ns() - start) / static_cast<double>(count);
  }
  template <class Call>
  static u64 count_for(Call& call) {
    u64 count = 1;
    while (time_of(call, count) * static_cast<double>(count) < kTurnNs && count < 100000) count *= 2;
    return count;
  }
};

struct Figure {
  double ns_a_word = 0;
  double ratio = 0;  ///< GMP's time over ours
};
struct Row {
  u64 words;
  Figure table;
  std::optional<Figure> basecase, fft;
  double gmp_ns_a_word = 0;
  double gmp_spread = 0;  ///< distance of the quartiles over the median
};

Figure figure_of(const std::vector<double>& ours, const std::vector<double>& gmp, u64 words) {
  std::vector<double> ratios;
  for (u64 i = 0; i < ours.size(); ++i) ratios.push_back(gmp[i] / ours[i]);
  return {bench::median(ours) / static_cast<double>(words), bench::median(ratios)};
}

const Algorithm* fitting(const char* id, u64 bits) {
  const AlgorithmInstances* instances = algorithm_registry().find(id);
  if (instances == nullptr || instances->basic_u64 == nullptr) return nullptr;
  return bits <= instances->basic_u64->max_bits() ? instances->basic_u64 : nullptr;
}

void require_right(Case& c, const char* what) {
  if (c.product == c.expected) {
    std::fill(c.product.begin(), c.product.end(), 0);
    return;
  }
  std::fprintf(stderr, "multiply: wrong %s of %llu words\n", what, static_cast<unsigned long long>(c.n));
  std::exit(1);
}

Row measure(Case& c, bool square) {
  const Algorithm* basecase = fitting("BKT", 128 * c.n);
  const Algorithm* fft = fitting("FFT", 128 * c.n);
  const auto gmp = [&] { square ? c.gmp_sqr() : c.gmp_mul(); };
  const auto table = [&] { square ? c.table_sqr() : c.table_mul(); };
  const auto with = [&](const Algorithm* algorithm) {
    return [&c, algorithm, square] {
      if (algorithm) square ? c.direct_sqr(*algorithm) : c.direct_mul(*algorithm);
    };
  };
  gmp();
  table();
  require_right(c, "product by the table");
  for (const Algorithm* algorithm : {basecase, fft}) {
    if (algorithm == nullptr) continue;
    with(algorithm)();
    require_right(c, algorithm->name());
  }

  const auto times = Turns::run(table, gmp, with(basecase), with(fft));
  Row row{c.n, figure_of(times[0], times[1], c.n), {}, {}, 0, 0};
  if (basecase) row.basecase = figure_of(times[2], times[1], c.n);
  if (fft) row.fft = figure_of(times[3], times[1], c.n);
  const bench::Timing timing = bench::timing_of(times[1]);
  row.gmp_ns_a_word = timing.median / static_cast<double>(c.n);
  row.gmp_spread = timing.spread;
  return row;
}

void print_cell(const std::optional<Figure>& figure) {
  if (figure)
    std::printf(" %8.2f %6.2f", figure->ns_a_word, figure->ratio);
  else
    std::printf(" %8s %6s", "-", "-");
}

void print_row(const Row& row, const char* operation, bool csv) {
  const auto words = static_cast<unsigned long long>(row.words);
  if (csv) {
    std::printf("%s,%llu,%llu,%.4f,%.4f", operation, words, 128 * words, row.gmp_ns_a_word, row.gmp_spread);
    for (const std::optional<Figure>& figure : {std::optional(row.table), row.basecase, row.fft})
      figure ? std::printf(",%.4f,%.4f", figure->ns_a_word, figure->ratio) : std::printf(",,");
    std::printf("\n");
  } else {
    std::printf("%s %6llu %9llu %8.2f %5.1f%%", operation, words, 128 * words, row.gmp_ns_a_word,
                100 * row.gmp_spread);
    print_cell(row.table);
    print_cell(row.basecase);
    print_cell(row.fft);
    std::printf("\n");
  }
  std::fflush(stdout);
}

void print_heading(const Options& options) {
  if (options.csv)
    std::printf(
        "operation,words,bits,gmp_ns_a_word,gmp_spread,table_ns_a_word,table_ratio,bkt_ns_a_word,bkt_ratio,"
        "fft_ns_a_word,fft_ratio\n");
  else
    std::printf("%3s %6s %9s %8s %6s %8s %6s %8s %6s %8s %6s\n", "", "words", "bits", "GMP", "spread",
                "table", "x GMP", "BKT", "x GMP", "FFT", "x GMP");
}

/// Lengths a factor apart over the products of 5121 to 221184 bits, the ends among them.
std::set<u64> ramp(double step, u64 last) {
  std::set<u64> lengths;
  for (double words = static_cast<double>(kSmallBits / 128 + 1); words < static_cast<double>(last);
       words *= step)
    lengths.insert(static_cast<u64>(words));
  lengths.insert(last);
  return lengths;
}

std::set<u64> all_lengths(const Options& options) {
  std::set<u64> lengths = ramp(options.step, std::max(options.max_words, kLargeBits / 128));
  for (u64 words = 1; words <= kSmallBits / 128; ++words) lengths.insert(words);
  for (u64 bits : {kSmallBits, kLargeBits}) lengths.insert(bits / 128);
  for (const auto& entry : basic_table<u64>().entries())
    for (u64 words : {entry.threshold / 2, entry.threshold / 2 + 1}) lengths.insert(words);
  const u64 largest = std::min(options.max_words, basic_table<u64>().max_words() / 2);
  std::erase_if(lengths, [&](u64 words) { return words < options.min_words || words > largest; });
  return lengths;
}

void print_summary(const char* operation, const std::vector<Row>& rows, double step) {
  const std::set<u64> bar = ramp(step, kLargeBits / 128);
  double log_sum = 0, worst_small = 1e9, worst_large = 1e9;
  u64 count = 0, worst_small_words = 0, worst_large_words = 0;
  for (const Row& row : rows) {
    const double ratio = row.table.ratio;
    if (128 * row.words <= kSmallBits) {
      if (ratio < worst_small) worst_small_words = row.words;
      worst_small = std::min(worst_small, ratio);
    } else if (128 * row.words <= kLargeBits) {
      if (ratio < worst_large) worst_large_words = row.words;
      worst_large = std::min(worst_large, ratio);
      if (!bar.contains(row.words)) continue;
      log_sum += std::log(ratio);
      ++count;
    }
  }
  if (count != 0)
    std::printf(
        "%s, products of 5121 to 221184 bits: geometric mean %.2f x GMP over %llu lengths, worst %.2f at "
        "%llu "
        "words\n",
        operation, std::exp(log_sum / static_cast<double>(count)), static_cast<unsigned long long>(count),
        worst_large, static_cast<unsigned long long>(worst_large_words));
  if (worst_small_words != 0)
    std::printf("%s, products of up to 5120 bits: at most %.2f of GMP's time, at %llu words\n", operation,
                1 / worst_small, static_cast<unsigned long long>(worst_small_words));
}

void run(const Options& options) {
  const std::set<u64> lengths = all_lengths(options);
  if (lengths.empty()) return;
  const u64 bits = 128 * *lengths.rbegin();
  u64 table_bytes = 0, scratch_bytes = basic_table<u64>().max_sizes(bits / 64, 1).total_bytes();
  for (const char* id : {"BKT", "FFT"})
    for (u64 words : lengths)
      if (const Algorithm* algorithm = fitting(id, 128 * words)) {
        table_bytes = std::max(table_bytes, algorithm->table_bytes(128 * words));
        scratch_bytes = std::max(scratch_bytes, algorithm->sizes(128 * words, 1).total_bytes());
      }
  const Memory table_memory(table_bytes), scratch(scratch_bytes);
  TransformTables tables(table_memory.buffer());
  if (const Algorithm* fft = fitting("FFT", bits)) fft->ensure_tables(tables, bits);
  Parallelizer_None none;
  const MultiplyContext ctx{{none, 1}, tables, scratch.buffer()};

  print_heading(options);
  std::vector<Row> products, squares;
  for (u64 words : lengths) {
    Case c(ctx, words);
    products.push_back(measure(c, false));
    print_row(products.back(), "mul", options.csv);
    squares.push_back(measure(c, true));
    print_row(squares.back(), "sqr", options.csv);
  }
  if (options.csv) return;
  std::printf("\n");
  print_summary("mul", products, options.step);
  print_summary("sqr", squares, options.step);
}

simd::Target target_named(const std::string& name) {
  for (simd::Target target :
       {simd::Target::kScalar, simd::Target::kAvx2, simd::Target::kAvx512, simd::Target::kAvx512Ifma})
    if (name == simd::target_name(target)) return target;
  std::fprintf(stderr, "multiply: unknown target %s\n", name.c_str());
  std::exit(1);
}

Options read_options(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    const std::string option = argv[i];
    if (option == "--csv") {
      options.csv = true;
      continue;
    }
    const bool known = option == "--target" || option == "--min" || option == "--max" || option == "--step";
    if (!known || i + 1 == argc) {
      std::fprintf(stderr,
                   "usage: multiply [--target NAME] [--min WORDS] [--max WORDS] [--step FACTOR] [--csv]\n");
      std::exit(1);
    }
    const char* value = argv[++i];
    if (option == "--target") simd::set_active_target(target_named(value));
    if (option == "--min") options.min_words = std::strtoull(value, nullptr, 10);
    if (option == "--max") options.max_words = std::strtoull(value, nullptr, 10);
    if (option == "--step") options.step = std::max(1.01, std::strtod(value, nullptr));
  }
  return options;
}

}  // namespace

int main(int argc, char** argv) {
  const Options options = read_options(argc, argv);
  bench::heading("multiply", simd::target_name(simd::active_target()));
  register_multiplication();
  run(options);
}
