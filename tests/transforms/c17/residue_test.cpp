// Products by the residue transforms against GMP: every row of the size table up to a size, at its boundary
// and above the row before it, on all targets of this machine.
#include "transforms/c17/residue.h"

#include <gtest/gtest.h>

#include "core/exceptions.h"
#include "support/sanitized.h"
#include "transforms/c17/residue_bounds.h"
#include "transforms/c17/residue_far.h"
#include "transforms/c17/residue_kernels.h"
#include "transforms/c17/residue_primes.h"
#include "transforms/c17/residue_tables.h"
#include "transforms/common/far_test_support.h"

namespace orl::test {
namespace {

constexpr u64 kLargestBits = 12000000;

class ResidueTest : public OnTarget {};
INSTANTIATE_TEST_SUITE_P(Targets, ResidueTest, every_target(), target_label);

TEST_P(ResidueTest, EveryRowMultipliesUpToItsEnds) {
  const u64 largest = GetParam() == simd::Target::kScalar ? kLargestBits / 20 : kLargestBits;
  check_rows(c17_algorithm(), residue_rows(), largest);
}

// The longest products that a row takes beyond its bits, in the scratch of the next row.
TEST_P(ResidueTest, StretchedRowsMultiplyToTheirEnds) {
  if (GetParam() == simd::Target::kScalar) GTEST_SKIP() << "takes too long";
  Random random;
  const Algorithm& algorithm = c17_algorithm();
  const AlgorithmTables tables(algorithm, kLargestBits);
  Parallelizer_Spawn spawn;
  u64 stretched = 0;
  for (const ResidueRow& row : residue_rows()) {
    if (row.stretched_bits() > kLargestBits) break;
    if (row.stretch == 0) continue;
    const u64 words = row.stretched_bits() / 32, n = row.bits() / 32;
    const u64 longer = ++stretched % 2 ? words / 2 + 1 : n;
    const std::vector<u32> a = operand(random, longer, stretched % 3);
    const std::vector<u32> b = operand(random, words - longer, stretched / 2 % 3);
    check_window(algorithm, tables, spawn, random.between(1, 4), a, b, 0, words, false);
    const std::vector<u32> square = operand(random, words / 2, stretched % 3);
    check_window(algorithm, tables, spawn, 2, square, square, 0, 2 * square.size(), true);
  }
  EXPECT_GT(stretched, 5u);
}

void check_shape(const ResidueRow& row, Random& random, u64 threads) {
  SCOPED_TRACE(testing::Message() << "P " << int{row.P} << " k " << int{row.k} << " n " << int{row.n});
  const ShapeTables<ResidueTables, ResidueRow> own("C17", row);
  ParametersBox box;
  const Parameters& p = residue_parameters(box, &own.tables, row, threads);
  check_kept(p, random, threads);
  check_wrapped(p, random, threads);
}

TEST_P(ResidueTest, EverySetOfPrimesKeepsTransformsAndWraps) {
  Random random;
  for (u8 P = 4; P <= 9; ++P)
    for (const u8 k : {1, 3, 5, 7})
      check_shape({P, k, static_cast<u8>(random.between(8, 11))}, random, random.between(1, 5));
  check_shape({4, 3, 13}, random, 3);
}

TEST_P(ResidueTest, NumbersOnDisksMultiplyByGroupsOfPrimesAndByRows) {
  Random random;
  const FarFamily& family = c17_far_family();
  for (u32 P = 4; P <= 9; ++P)
    for (const u32 k : {1u, 3u, 5u, 7u}) {
      if ((P + k / 2) % 2 && (kSanitized || GetParam() != simd::Target::kAvx512)) continue;
      check_far(family, {P, k, 9}, {}, random);
    }
  check_far_tells(family, {6, 3, 9});
  check_far(family, {5, 3, 13}, {}, random);
  if (GetParam() == simd::Target::kScalar) return;
  for (u32 levels = 1; levels <= 4; ++levels)
    check_far(family, {4 + levels, 2 * (levels % 4) + 1, 9 + levels}, {levels}, random, levels < 3 ? 3 : 1);
  check_far(family, {4, 1, 14}, {2, 3}, random);
}

TEST(ResidueNesting, StripesOfMoreLevelsThanATileTakes) {
  Random random;
  if (!kSanitized) check_far(c17_far_family(), {4, 1, 18}, {9}, random, 1);
  check_far(c17_far_family(), {4, 3, 14}, {5}, random);
}

TEST(ResidueNesting, TilesOfTwoPasses) {
  Random random;
  check_shape({4, 1, 20}, random, 3);
}

TEST(ResidueNesting, SubtreesBeyondACacheHaveSubtreesOfTheirOwn) {
  // Nested twice: a polynomial times X^e modulo X^m + 1 is the polynomial turned around. Two sequences, the
  // second of which finds the roots that the first one left.
  constexpr u64 m = u64{1} << 17, e = 54321, sequences = 2;
  const ResidueRow row{4, 1, 20};
  const GuardedBlock memory(ResidueTables::bytes({&row, 1}));
  LinearHeapBuffer left = memory.buffer();
  ResidueTables tables;
  tables.grow(left, {&row, 1});
  const ResiduePrime& prime = residue_primes()[residue_set(row).prime[1]];
  const double p = static_cast<double>(prime.p);
  const ResidueModulus modulus{p, 1 / p, tables.roots(residue_set(row).prime[1]), {}, nullptr};
  const GuardedBlock X(8 * m * sequences), G(8 * m * sequences);
  double *const x = static_cast<double*>(X.buffer().ptr), *const g = static_cast<double*>(G.buffer().ptr);
  Random random;
  std::vector<u64> before(m * sequences);
  for (u64 i = 0; i < m * sequences; ++i) {
    before[i] = random.below(prime.p);
    x[i] = prime.factor(before[i]).w;
    g[i] = i % m == e;
  }
  const GuardedBlock roots(residue_roots_bytes(m));
  residue_kernels(simd::best_target())
      .multiply(modulus, {m, 1, sequences, m, 0, roots.buffer().ptr}, x, g, OperandState::kStarted);
  for (u64 i = 0; i < m * sequences; ++i) {
    const u64 scaled = prime.multiply(before[i / m * m + (i + m - e) % m], m / 8);
    const s64 right = static_cast<s64>(i % m < e ? prime.p - scaled : scaled);
    ASSERT_EQ((static_cast<s64>(x[i]) - right) % static_cast<s64>(prime.p), 0) << i;
  }
  EXPECT_TRUE(X.intact() && G.intact());
}

TEST(ResiduePrimes, RowsRiseAndKeepTheirBounds) {
  u64 before = 0;
  for (const ResidueRow& row : residue_rows()) {
    EXPECT_GT(row.bits(), before);
    EXPECT_NO_THROW(check_residue_bounds(row));
    before = row.bits();
  }
  EXPECT_THROW(check_residue_bounds({4, 1, 7}), InvalidParametersException);
  EXPECT_THROW(check_residue_bounds({4, 1, 44}), InvalidParametersException);
  EXPECT_EQ(c17_algorithm().max_bits(), 0x12C0000000000u);
}

}  // namespace
}  // namespace orl::test
