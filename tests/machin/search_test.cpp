// The parts of the search: smooth arguments, sums over a base, chains.
#include <gtest/gtest.h>

#include "machin/chain.h"
#include "machin/formula_oracle.h"
#include "machin/primes.h"
#include "machin/span_search.h"
#include "machin/stored_formulas.h"
#include "support/screen.h"

namespace orl::test {
namespace {

constexpr u64 kPrimes[] = {2, 3, 5, 7, 11, 13, 17, 19};
constexpr double kNats = 2.3e9;

// Counts: D. H. Lehmer, "On a problem of Stormer", 1964, has the pairs of neighbours; the sums with even x by
// trial up to a million.
TEST(SmoothArguments, AreAllBelowTwoToThe32) {
  for (const u64 count : {1, 2, 4, 6, 8}) {
    const auto base = std::span(kPrimes).first(count);
    const std::vector<u64> arguments = smooth_arguments(base);
    std::vector<u64> expected;
    for (u64 x = 2; x < 1000000; ++x)
      if (cofactor(x + 1, base) == 1 && cofactor(x - 1, base) == 1) expected.push_back(x);
    u64 below = 0;
    while (below < arguments.size() && arguments[below] < 1000000) ++below;
    EXPECT_EQ(std::vector<u64>(arguments.begin(), arguments.begin() + below), expected);
    for (const u64 x : arguments) {
      EXPECT_EQ(cofactor((x + 1) * (x - 1), base), 1u) << x;
      EXPECT_LE(x, kMaxArcCothArgument);
    }
  }
  EXPECT_EQ(smooth_arguments(std::span(kPrimes).first(4)).size(), 29u);
  EXPECT_EQ(smooth_arguments(std::span(kPrimes).first(6)).size(), 83u);
  EXPECT_EQ(smooth_arguments(std::span(kPrimes).first(8)).size(), 202u);
}

std::vector<ArcCothCandidate> candidates_of(std::span<const u64> base, std::span<const u64> arguments) {
  std::vector<ArcCothCandidate> candidates;
  for (const u64 x : arguments) candidates.push_back(make_candidate(base, x, kNats));
  return candidates;
}

// Exponents of n^2.
ExponentVector target_of(std::span<const u64> base, u64 n) {
  ExponentVector target = exponents_over(base, n);
  for (s64& exponent : target) exponent *= 2;
  return target;
}

TEST(ArgumentSets, GiveTheLogarithmOfEveryPrimeOfTheirBase) {
  for (const u64 count : {4, 5, 6, 8}) {
    const auto base = std::span(kPrimes).first(count);
    ASSERT_GE(argument_sets(count).size(), 2u);
    for (const auto set : argument_sets(count)) {
      for (const u64 prime : base) {
        const auto formula = solve(candidates_of(base, set), target_of(base, prime));
        ASSERT_TRUE(formula) << prime;
        EXPECT_TRUE(is_exact_by_gmp(*formula, prime));
      }
    }
  }
}

// The search for ln n among these x, over 2, 3, 5 and 7.
std::optional<MachinFormula> search(std::vector<u64> arguments, u64 n, double bound, u64 tries = 1000) {
  const auto base = std::span(kPrimes).first(4);
  return search_span(candidates_of(base, arguments), target_of(base, n), bound, tries);
}

TEST(SpanSearch, FindsTheCheapestBelowItsBoundAndNoneAtIt) {
  const std::vector<u64> arguments{8749, 4801, 449, 251, 161, 99, 49, 31, 26, 17, 9, 7, 6, 5, 3};
  const MachinFormula best{{8, 8749}, {-2, 4801}, {18, 26}};
  EXPECT_EQ(search(arguments, 2, 100), best);
  EXPECT_EQ(search(arguments, 2, cost(best, kNats) + 0.001), best);
  EXPECT_FALSE(search(arguments, 2, cost(best, kNats) - 0.001));
  EXPECT_FALSE(search(arguments, 2, 100, 2));
  EXPECT_EQ(search(arguments, 1, 100), MachinFormula{});
}

TEST(SpanSearch, LeavesOutWhatHasFractionsOnly) {
  // ArcCoth(17) = ln(9/8)/2 and ArcCoth(2) = ln(3)/2: ln 2 = (2/3) (2 ArcCoth(2) - ArcCoth(17)).
  EXPECT_FALSE(search({17, 2}, 2, 100));
  EXPECT_EQ(search({17, 2}, 8, 100), (MachinFormula{{-2, 17}, {4, 2}}));
}

TEST(Chain, RemovesEveryPrimeBeyondTheBaseAndAvoidsTheBanned) {
  const auto base = std::span(kPrimes).first(4);
  MachinFormula banned;
  for (int round = 0; round < 3; ++round) {
    const auto chain = ChainFinder(base, banned, kNats).find(2147483629);
    ASSERT_TRUE(chain) << round;
    EXPECT_TRUE(share_no_series(chain->terms, banned));
    EXPECT_EQ(chain->terms.size(), chain->primes.size());
    // The terms and what is left of n^2 make up n^2.
    const auto rest = solve(candidates_of(base, argument_sets(4)[0]), chain->rest);
    ASSERT_TRUE(rest);
    MachinFormula whole = chain->terms;
    whole.insert(whole.end(), rest->begin(), rest->end());
    EXPECT_TRUE(is_exact_by_gmp(whole, 2147483629)) << to_string(whole, 2147483629);
    banned.insert(banned.end(), chain->terms.begin(), chain->terms.end());
  }
  // The four arguments that a prime near 2^31 has are used up; there is no other link.
  EXPECT_FALSE(ChainFinder(base, {{1, 4294967257}, {1, 4294967259}, {1, 2147483628}, {1, 2147483630}}, kNats)
                   .find(2147483629));
}

TEST(SpanSearchDeathTest, APrimeBeyondTheBaseIsAFaultOfTheProgram) {
  EXPECT_EXIT(
      {
        console_to_stderr();
        settings().pause_on_fatal = false;
        exponents_over(std::span(kPrimes).first(2), 10);
      },
      ::testing::ExitedWithCode(1), "Non-base prime found in queue.\nPlease report this as a bug.");
}

}  // namespace
}  // namespace orl::test
