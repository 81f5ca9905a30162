// The generator's formulas, over all kinds of numbers, and the two checks that guard them.
#include <gtest/gtest.h>

#include <array>
#include <ctime>

#include "machin/formula_oracle.h"
#include "machin/formula_search.h"
#include "machin/generator.h"
#include "support/processor_time.h"
#include "support/random_words.h"
#include "support/screen.h"
#include "support/thrown.h"

namespace orl::test {
namespace {

// Nats of a million, a billion and 10^15 digits.
constexpr double kMillion = 2.3026e6, kBillion = 2.3026e9, kLargest = 2.3026e15;

LogFormulas generate(u64 n, double nats, std::string* screen = nullptr,
                     std::span<const StoredLogFormulas> stored = stored_log_formulas()) {
  LogFormulas formulas;
  const std::clock_t start = std::clock();
  const std::string printed = screen_of("", [&] { formulas = generate_log_formulas(n, nats, stored); });
  EXPECT_LT(std::clock() - start, kProcessorSecond);
  if (screen) *screen = printed;
  return formulas;
}

void expect_right(const MachinFormula& formula, u64 n) {
  ASSERT_FALSE(formula.empty());
  EXPECT_LE(formula.size(), 14u);
  EXPECT_TRUE(is_exact_by_gmp(formula, n)) << to_string(formula, n);
  EXPECT_GT(digits_by_mpfr(formula, n), 280) << to_string(formula, n);
  EXPECT_TRUE(is_proved(formula, n));
  EXPECT_TRUE(agrees_with_log(formula, n));
}

void expect_pair(u64 n, double nats) {
  SCOPED_TRACE("n = " + std::to_string(n));
  const LogFormulas formulas = generate(n, nats);
  expect_right(formulas.primary, n);
  expect_right(formulas.secondary, n);
  EXPECT_TRUE(share_no_series(formulas.primary, formulas.secondary));
  EXPECT_LE(cost(formulas.primary, nats), cost(formulas.secondary, nats));
}

TEST(LogFormulas, AreRightForEveryKindOfNumber) {
  constexpr u64 numbers[] = {
      2,       3,         5,          19,         23,         97,         641,        65537,  // primes
      1000003, 999999937, 2147483587, 2147483629, 2147483647,                                 // large ones
      4,       27,        1024,       1073741824, 1162261467, 2147117569, 2146689000,         // powers
      6,       30030,     31367009,   223092870,  1999999874, 2147210243, 2147483646,         // squarefree
      12,      360360,    1000000000, 2147483640, 2147483642};                                // the rest
  for (const u64 n : numbers) expect_pair(n, n % 3 == 0 ? kMillion : n % 3 == 1 ? kBillion : kLargest);
}

TEST(LogFormulas, AreRightForRandomNumbers) {
  Random random;
  for (int i = 0; i < 40; ++i) {
    const u64 n = std::max<u64>(2, (random.next() >> 33) >> (i % 4 == 0 ? random.below(30) : 0));
    expect_pair(n, i % 2 ? kMillion : kBillion);
  }
}

// The generator stands or falls with its costs: what an independent program found with more time.
TEST(LogFormulas, CostWhatTheBestKnownOnesDo) {
  constexpr struct {
    u64 n;
    double primary, secondary;
  } known[] = {{2, 8.08, 9.65},           {3, 9.35, 9.91},           {5, 9.35, 10.11},
               {10, 9.35, 10.15},         {97, 11.10, 12.11},        {641, 11.65, 13.53},
               {65537, 9.85, 14.26},      {1000003, 12.51, 13.36},   {2147483629, 17.03, 17.77},
               {2147483647, 9.47, 15.08}, {1999999874, 13.68, 15.25}};
  for (const auto& row : known) {
    const LogFormulas formulas = generate(row.n, 2.3e9);
    EXPECT_LE(cost(formulas.primary, 2.3e9), row.primary) << row.n;
    EXPECT_LE(cost(formulas.secondary, 2.3e9), row.secondary) << row.n;
  }
}

TEST(LogFormulas, StoredRowsAreRightAndNoDearerThanASearchFinds) {
  for (const StoredLogFormulas& row : stored_log_formulas()) {
    SCOPED_TRACE("n = " + std::to_string(row.n));
    expect_right(row.formulas.primary, row.n);
    expect_right(row.formulas.secondary, row.n);
    EXPECT_TRUE(share_no_series(row.formulas.primary, row.formulas.secondary));
    std::string screen;
    const LogFormulas formulas = generate(row.n, kBillion, &screen);
    EXPECT_EQ(formulas.primary, row.formulas.primary);
    EXPECT_EQ(formulas.secondary, row.formulas.secondary);
    EXPECT_EQ(screen.find("heuristic"), std::string::npos) << screen;
  }
}

TEST(LogFormulas, AStoredRowStandsInTheOrderOfItsCosts) {
  // Fewer terms win at a million digits, larger x at a billion.
  std::string screen;
  const LogFormulas formulas = generate(5, kMillion, &screen);
  EXPECT_EQ(formulas.primary, (MachinFormula{{8, 5}, {-2, 161}}));
  EXPECT_EQ(formulas.secondary, generate(5, kBillion).primary);
  EXPECT_EQ(screen.find("heuristic"), std::string::npos) << screen;
}

TEST(LogFormulas, APoorStoredRowGivesWayAndBothAreShown) {
  const StoredLogFormulas poor[] = {{3, {{{2, 2}}, {{2, 3}, {2, 5}}}}};
  std::string screen;
  const LogFormulas formulas = generate(9, kBillion, &screen, poor);
  EXPECT_EQ(formulas.primary, (MachinFormula{{456, 251}, {172, 449}, {-120, 4801}, {196, 8749}}));
  EXPECT_NE(
      screen.find("The heuristic has found a better formula than the table entry.\n    Log(3) = 228 ArcCoth"),
      std::string::npos)
      << screen;
  EXPECT_NE(screen.find("    Log(3) = 2 ArcCoth( 2 )\n"), std::string::npos) << screen;
}

// Each check by itself refuses what is not the logarithm.
TEST(LogFormulas, AWrongFormulaIsRefusedByBothChecks) {
  const MachinFormula right{{18, 26}, {-2, 4801}, {8, 8749}};
  ASSERT_TRUE(is_proved(right, 2) && agrees_with_log(right, 2));
  std::vector<MachinFormula> wrong{{}, {{18, 26}, {-2, 4801}}};
  for (u64 i = 0; i < right.size(); ++i) {
    for (const s64 change : {s64{-1}, s64{1}, -2 * right[i].coefficient}) {
      wrong.push_back(right);
      wrong.back()[i].coefficient += change;
    }
    wrong.push_back(right);
    ++wrong.back()[i].x;
  }
  for (const MachinFormula& formula : wrong) {
    EXPECT_FALSE(is_proved(formula, 2)) << to_string(formula, 2);
    EXPECT_FALSE(agrees_with_log(formula, 2)) << to_string(formula, 2);
  }
  for (const u64 n : {1, 3, 4}) EXPECT_FALSE(is_proved(right, n) || agrees_with_log(right, n)) << n;
  // One unit among coefficients of millions, at the largest x: 2^-32 in a sum of magnitude 2^12.
  LogFormulas formulas = generate(223092870, kBillion);
  EXPECT_NO_THROW(require_verified(formulas, 223092870));
  for (u64 i = 0; i < 2; ++i) {
    LogFormulas bad = formulas;
    (i == 0 ? bad.primary : bad.secondary).back().coefficient += 1;
    EXPECT_FALSE(agrees_with_log(i == 0 ? bad.primary : bad.secondary, 223092870));
    EXPECT_EQ(message_of<AlgorithmFailedException>([&] { require_verified(bad, 223092870); }),
              "Unable to verify correctness of formula.\nFormula " + std::to_string(i) +
                  " failed to pass verification.\nPlease report this as a bug.");
  }
}

// Equal in value, but not what two series may be made of.
TEST(LogFormulas, AFormulaOutOfRangeIsNotProved) {
  const MachinFormula formulas[] = {{{9, 26}, {-2, 4801}, {9, 26}, {8, 8749}},     // an x twice
                                    {{18, 26}, {-2, 4801}, {8, 8749}, {0, 7}},     // no coefficient
                                    {{2, 3}, {3000000000, 7}, {-3000000000, 7}}};  // a large one
  for (const MachinFormula& formula : formulas) EXPECT_FALSE(is_proved(formula, 2)) << to_string(formula, 2);
  EXPECT_FALSE(is_proved({{2, 1}}, 2));
  EXPECT_FALSE(is_proved({{2, 4294967296}}, 2));
}

}  // namespace
}  // namespace orl::test
