// multiply [--target AVX2|AVX512|AVX512-IFMA|Scalar] [--min WORDS] [--max WORDS] [--step FACTOR]
//          [--families ID,ID,...] [--threads N] [--csv FILE]
//
// Products and squares of balanced operands of 64-bit words: what the multiplication table picks, every
// registered algorithm by itself, and GMP's mpn_mul_n and mpn_sqr (always one thread). Rows: every length up
// to 40 words, then lengths a factor apart, and those on both sides of each threshold of the table. All of a
// row run in turns; times are medians in ns per word of one operand, ratios are medians of GMP's time over
// ours in the same turn, so above 1 ours is faster. An algorithm stands at "-" where the product is beyond
// it. --csv adds the figures to FILE, one line per length and algorithm. Ends with the figures of the bars: the
// geometric mean and the worst over products of 5121 to 221184 bits (lengths a factor apart), the worst up to
// 5120 bits, and the ratios at powers of ten words.
#include <gmp.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "multiply/algorithm_table.h"
#include "multiply/setting.h"
#include "simd/target.h"
#include "support/measure.h"
#include "threads/push_pool_framework.h"
#include "threads/simple_frameworks.h"
#include "transforms/registration.h"

using namespace orl;

namespace {

constexpr u64 kSmallBits = 5120, kLargeBits = 221184;

struct Options {
  u64 min_words = 1;
  u64 max_words = kLargeBits / 128;
  double step = 1.3;
  u64 threads = 1;
  std::string families;  // ids with commas; empty: all
  std::string csv;
};

/// Operands and results of one length.
struct Case {
  u64 n;
  std::vector<u64> a, b, product, expected;

  explicit Case(u64 length) : n(length), a(n), b(n), product(2 * n), expected(2 * n) {
    std::mt19937_64 random(length);
    for (u64& word : a) word = random();
    for (u64& word : b) word = random();
  }
  mp_limb_t* limbs(std::vector<u64>& words) { return reinterpret_cast<mp_limb_t*>(words.data()); }
  void gmp(bool square) {
    if (square)
      mpn_sqr(limbs(expected), limbs(a), static_cast<mp_size_t>(n));
    else
      mpn_mul_n(limbs(expected), limbs(a), limbs(b), static_cast<mp_size_t>(n));
  }
};

/// A column: the table, or one algorithm.
struct Column {
  std::string id;
  const Algorithm* algorithm;  // null: the table

  bool holds(u64 words) const {
    return 2 * words <= (algorithm ? algorithm->max_bits() / 64 : basic_table<u64>().max_words());
  }
  void run(const MultiplyContext& ctx, Case& c, bool square) const {
    u64* const T = c.product.data();
    if (algorithm == nullptr)
      square ? basic_table<u64>().sqr(ctx, T, Words{c.a.data(), c.n})
             : basic_table<u64>().mul(ctx, T, Words{c.a.data(), c.n}, Words{c.b.data(), c.n});
    else if (square)
      algorithm->sqr_window(ctx, Window{T, 0, 2 * c.n}, Words{c.a.data(), c.n});
    else
      algorithm->mul_window(ctx, Window{T, 0, 2 * c.n}, Words{c.a.data(), c.n}, Words{c.b.data(), c.n});
  }
};

struct Figure {
  double ns_a_word = 0;  ///< 0: not measured
  double ratio = 0;      ///< GMP's time over ours
};
struct Row {
  u64 words;
  std::vector<Figure> figures;  ///< in the order of the columns; the table comes first
  double gmp_ns_a_word = 0;
  double gmp_spread = 0;  ///< distance of the quartiles over the median
};

template <class Call>
double time_of(Call&& call, u64 count) {
  const double start = bench::now_ns();
  for (u64 i = 0; i < count; ++i) call();
  return (bench::now_ns() - start) / static_cast<double>(count);
}

/// Runs of one row, in turns: each call takes about kTurnNs of a turn, the row about kRowNs.
class Turns {
 public:
  static constexpr double kTurnNs = 20000, kRowNs = 2e8;
  static constexpr u64 kMostTurns = 201, kFewestTurns = 3;
  static constexpr double kOneTurnNs = 3e9;  // a turn that is this long stands alone

  template <class Call>
  static std::vector<std::vector<double>> run(u64 calls, const std::vector<double>& first_ns, Call&& call) {
    std::vector<u64> counts;
    double turn_ns = 0;
    for (const double ns : first_ns) {
      counts.push_back(static_cast<u64>(std::clamp(kTurnNs / ns, 1.0, 100000.0)));
      turn_ns += ns * static_cast<double>(counts.back());
    }
    u64 turns = std::clamp(static_cast<u64>(kRowNs / turn_ns), kFewestTurns, kMostTurns);
    if (turn_ns > kOneTurnNs) turns = 1;
    std::vector<std::vector<double>> times(calls);
    for (u64 turn = 0; turn < turns; ++turn)
      for (u64 i = 0; i < calls; ++i) {
        if (turns > 1) call(i);  // another's caches and clock rate are not this one's
        times[i].push_back(time_of([&] { call(i); }, counts[i]));
      }
    return times;
  }
};

void require_right(Case& c, const std::string& what) {
  if (c.product == c.expected) return std::fill(c.product.begin(), c.product.end(), u64{0});
  std::fprintf(stderr, "multiply: wrong product by %s of %llu words\n", what.c_str(),
               static_cast<unsigned long long>(c.n));
  std::exit(1);
}

Row measure(const std::vector<Column>& columns, const MultiplyContext& ctx, Case& c, bool square) {
  std::vector<u64> used;
  std::vector<double> first_ns = {time_of([&] { c.gmp(square); }, 1)};
  for (u64 i = 0; i < columns.size(); ++i) {
    if (!columns[i].holds(c.n)) continue;
    columns[i].run(ctx, c, square);  // tables and pages come into the caches
    require_right(c, columns[i].id);
    first_ns.push_back(time_of([&] { columns[i].run(ctx, c, square); }, 1));
    used.push_back(i);
  }
  const auto times = Turns::run(first_ns.size(), first_ns, [&](u64 i) {
    if (i == 0)
      c.gmp(square);
    else
      columns[used[i - 1]].run(ctx, c, square);
  });
  Row row{c.n, std::vector<Figure>(columns.size()), 0, 0};
  for (u64 i = 0; i < used.size(); ++i) {
    std::vector<double> ratios;
    for (u64 turn = 0; turn < times[0].size(); ++turn) ratios.push_back(times[0][turn] / times[i + 1][turn]);
    row.figures[used[i]] = {bench::median(times[i + 1]) / static_cast<double>(c.n), bench::median(ratios)};
  }
  const bench::Timing timing = bench::timing_of(times[0]);
  row.gmp_ns_a_word = timing.median / static_cast<double>(c.n);
  row.gmp_spread = timing.spread;
  return row;
}

void print_row(const std::vector<Column>& columns, const Row& row, const char* operation, std::FILE* csv) {
  const auto words = static_cast<unsigned long long>(row.words);
  std::printf("%s %8llu %10llu %8.2f %5.1f%%", operation, words, 128 * words, row.gmp_ns_a_word,
              100 * row.gmp_spread);
  for (const Figure& figure : row.figures) {
    if (figure.ns_a_word == 0)
      std::printf(" %8s %6s", "-", "-");
    else
      std::printf(" %8.2f %6.2f", figure.ns_a_word, figure.ratio);
  }
  std::printf("\n");
  std::fflush(stdout);
  if (csv == nullptr) return;
  std::fprintf(csv, "%s,%llu,GMP,%.4f,1\n", operation, words, row.gmp_ns_a_word);
  for (u64 i = 0; i < columns.size(); ++i)
    if (row.figures[i].ns_a_word != 0)
      std::fprintf(csv, "%s,%llu,%s,%.4f,%.4f\n", operation, words, columns[i].id.c_str(),
                   row.figures[i].ns_a_word, row.figures[i].ratio);
  std::fflush(csv);
}

void print_heading(const std::vector<Column>& columns) {
  std::printf("%3s %8s %10s %8s %6s", "", "words", "bits", "GMP", "spread");
  for (const Column& column : columns) std::printf(" %8s %6s", column.id.c_str(), "x GMP");
  std::printf("\n");
}

/// Lengths a factor apart from just above the small products, `last` among them.
std::set<u64> ramp(double first, double step, u64 last) {
  std::set<u64> lengths;
  for (double words = first; words < static_cast<double>(last); words *= step)
    lengths.insert(static_cast<u64>(std::lround(words)));
  lengths.insert(last);
  return lengths;
}
std::set<u64> bar_lengths(double step) { return ramp(kSmallBits / 128 + 1, step, kLargeBits / 128); }

std::set<u64> all_lengths(const Options& options) {
  std::set<u64> lengths = ramp(static_cast<double>(std::max(options.min_words, kSmallBits / 128 + 1)),
                               options.step, options.max_words);
  for (u64 words = 1; words <= kSmallBits / 128; ++words) lengths.insert(words);
  for (u64 bits : {kSmallBits, kLargeBits}) lengths.insert(bits / 128);
  for (const auto& entry : basic_table<u64>().entries())
    for (u64 words : {entry.threshold / 2, entry.threshold / 2 + 1}) lengths.insert(words);
  const u64 largest = std::min(options.max_words, basic_table<u64>().max_words() / 2);
  std::erase_if(lengths, [&](u64 words) { return words < options.min_words || words > largest; });
  return lengths;
}

void print_summary(const char* operation, const std::vector<Row>& rows, double step) {
  const std::set<u64> bar = bar_lengths(step);
  double log_sum = 0, worst_small = 1e9, worst_large = 1e9;
  u64 count = 0, worst_small_words = 0, worst_large_words = 0;
  for (const Row& row : rows) {
    const double ratio = row.figures[0].ratio;
    if (128 * row.words <= kSmallBits) {
      if (ratio < worst_small) worst_small_words = row.words;
      worst_small = std::min(worst_small, ratio);
    } else if (128 * row.words <= kLargeBits) {
      if (ratio < worst_large) worst_large_words = row.words;
      worst_large = std::min(worst_large, ratio);
      if (!bar.contains(row.words)) continue;
      log_sum += std::log(ratio);
      ++count;
    } else if (std::abs(std::log10(static_cast<double>(row.words)) -
                        std::round(std::log10(static_cast<double>(row.words)))) < 1e-9) {
      std::printf("%s, %.0e words: %.1f ns a word, %.2f x GMP\n", operation, static_cast<double>(row.words),
                  row.figures[0].ns_a_word, ratio);
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

std::vector<Column> all_columns(const std::string& wanted) {
  std::vector<Column> columns = {{"table", nullptr}};
  for (const auto& [id, instances] : algorithm_registry().all())
    if (instances.basic_u64 != nullptr &&
        (wanted.empty() || ("," + wanted + ",").find("," + id + ",") != std::string::npos))
      columns.push_back({id, instances.basic_u64});
  return columns;
}

/// Tables and scratch for every column and length.
struct Memory {
  bench::Block table_block, scratch;
  TransformTables tables;

  Memory(const std::vector<Column>& columns, const std::set<u64>& lengths, u64 threads)
      : table_block(bytes_of_tables(columns, lengths)),
        scratch(bytes_of_scratch(columns, lengths, threads)),
        tables(table_block.buffer()) {
    for (const Column& column : columns)
      if (column.algorithm) column.algorithm->ensure_tables(tables, largest_bits(column, lengths));
  }

 private:
  static u64 largest_bits(const Column& column, const std::set<u64>& lengths) {
    u64 bits = 128;
    for (u64 words : lengths)
      if (column.holds(words)) bits = 128 * words;
    return bits;
  }
  // The table's algorithms are columns too, or get their tables here.
  static u64 bytes_of_tables(const std::vector<Column>& columns, const std::set<u64>& lengths) {
    u64 bytes = 0;
    for (const Column& column : columns)
      if (column.algorithm) bytes += column.algorithm->table_bytes(largest_bits(column, lengths));
    return bytes;
  }
  static u64 bytes_of_scratch(const std::vector<Column>& columns, const std::set<u64>& lengths, u64 threads) {
    u64 bytes = basic_table<u64>().max_sizes(2 * *lengths.rbegin(), threads).product_bytes;
    for (const Column& column : columns)
      for (u64 words : lengths)
        if (column.algorithm && column.holds(words))
          bytes = std::max(bytes, column.algorithm->sizes(128 * words, threads).total_bytes());
    return bytes;
  }
};

void run(const Options& options) {
  const std::set<u64> lengths = all_lengths(options);
  if (lengths.empty()) return;
  const std::vector<Column> shown = all_columns(options.families);
  const Memory memory(all_columns(""), lengths, options.threads);
  Parallelizer_None none;
  Parallelizer_PushPool pool;
  Parallelizer& parallelizer = options.threads > 1 ? static_cast<Parallelizer&>(pool) : none;
  const MultiplyContext ctx{{parallelizer, options.threads}, memory.tables, memory.scratch.buffer()};

  std::FILE* csv = nullptr;
  if (!options.csv.empty()) {
    csv = std::fopen(options.csv.c_str(), "w");
    if (csv == nullptr) {
      std::perror(options.csv.c_str());
      std::exit(1);
    }
    std::fprintf(csv, "operation,words,family,ns_a_word,ratio\n");
  }
  print_heading(shown);
  std::vector<Row> products, squares;
  for (u64 words : lengths) {
    Case c(words);
    products.push_back(measure(shown, ctx, c, false));
    print_row(shown, products.back(), "mul", csv);
    squares.push_back(measure(shown, ctx, c, true));
    print_row(shown, squares.back(), "sqr", csv);
  }
  if (csv != nullptr) std::fclose(csv);
  std::printf("\n");
  print_summary("mul", products, options.step);
  print_summary("sqr", squares, options.step);
}

Options read_options(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; i += 2) {
    const std::string option = argv[i];
    const bool known = option == "--target" || option == "--min" || option == "--max" || option == "--step" ||
                       option == "--families" || option == "--threads" || option == "--csv";
    if (!known || i + 1 == argc) {
      std::fprintf(stderr,
                   "usage: multiply [--target NAME] [--min WORDS] [--max WORDS] [--step FACTOR] [--families "
                   "ID,...] [--threads N] [--csv FILE]\n");
      std::exit(1);
    }
    const char* value = argv[i + 1];
    if (option == "--target") bench::set_target(value);
    if (option == "--min") options.min_words = std::max<u64>(1, std::strtoull(value, nullptr, 10));
    if (option == "--max") options.max_words = std::strtoull(value, nullptr, 10);
    if (option == "--step") options.step = std::max(1.01, std::strtod(value, nullptr));
    if (option == "--families") options.families = value;
    if (option == "--threads") options.threads = std::max<u64>(1, std::strtoull(value, nullptr, 10));
    if (option == "--csv") options.csv = value;
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
