// Products by the residue transforms against GMP: every row of the size table up to a size, at its boundary
// and above the row before it, on all targets of this machine.
#include "transforms/c17/residue.h"

#include <gtest/gtest.h>

#include <cstring>

#include "core/exceptions.h"
#include "transforms/c17/residue_bounds.h"
#include "transforms/c17/residue_kernels.h"
#include "transforms/c17/residue_primes.h"
#include "transforms/c17/residue_tables.h"
#include "transforms/common/product_test_support.h"

namespace orl {
namespace {

using test::gmp_product;
using test::gmp_wrapped;
using test::GuardedBlock;
using test::operand;
using test::Random;

constexpr u64 kLargestBits = 12000000;

class ResidueTest : public test::TargetTest {};

TEST_P(ResidueTest, EveryRowMultipliesUpToItsEnds) {
  if (GetParam() > simd::best_target()) GTEST_SKIP() << "not on this machine";
  const u64 largest = GetParam() == simd::Target::kScalar ? kLargestBits / 20 : kLargestBits;
  test::check_rows(c17_algorithm(), residue_rows(), largest);
}

// The longest products that a row takes beyond its bits, in the scratch of the next row.
TEST_P(ResidueTest, StretchedRowsMultiplyToTheirEnds) {
  if (GetParam() > simd::best_target() || GetParam() == simd::Target::kScalar) GTEST_SKIP() << "not here";
  Random random;
  SCOPED_TRACE(random.replay());
  const Algorithm& algorithm = c17_algorithm();
  const GuardedBlock memory(algorithm.table_bytes(kLargestBits));
  TransformTables tables(memory.buffer());
  algorithm.ensure_tables(tables, kLargestBits);
  Parallelizer_Spawn spawn;
  u64 stretched = 0;
  for (const ResidueRow& row : residue_rows()) {
    if (row.stretched_bits() > kLargestBits) break;
    if (row.stretch == 0) continue;
    const u64 words = row.stretched_bits() / 32, n = row.bits() / 32;
    const u64 longer = ++stretched % 2 ? words / 2 + 1 : n;
    const std::vector<u32> a = operand(random, longer, stretched % 3);
    const std::vector<u32> b = operand(random, words - longer, stretched / 2 % 3);
    test::check_window(algorithm, tables, spawn, random.between(1, 4), a, b, 0, words, false);
    const std::vector<u32> square = operand(random, words / 2, stretched % 3);
    test::check_window(algorithm, tables, spawn, 2, square, square, 0, 2 * square.size(), true);
  }
  EXPECT_GT(stretched, 5u);
}

// The tables of one shape.
struct OwnTables {
  explicit OwnTables(const ResidueRow& row)
      : memory(ResidueTables::bytes({&row, 1})), tables(memory.buffer()) {
    auto roots = std::make_unique<ResidueTables>();
    roots->grow(tables.memory(), {&row, 1});
    tables.put("C17", std::move(roots));
  }
  GuardedBlock memory;
  TransformTables tables;
};

// Checks of one shape with the tables made for it.
template <class Check>
void check_shape(const ResidueRow& row, u64 threads, Check check) {
  SCOPED_TRACE(testing::Message() << "P " << int{row.P} << " k " << int{row.k} << " n " << int{row.n});
  const OwnTables own(row);
  ParametersBox box;
  check(residue_parameters(box, &own.tables, row, threads));
  EXPECT_TRUE(own.memory.intact());
}

void check_wrapped(const ResidueRow& row, Random& random, u64 threads) {
  check_shape(row, threads, [&](const Parameters& p) { test::check_wrapped(p, random, threads); });
}

TEST_P(ResidueTest, EverySetOfPrimesKeepsTransforms) {
  if (GetParam() > simd::best_target()) GTEST_SKIP() << "not on this machine";
  Random random;
  SCOPED_TRACE(random.replay());
  for (u8 P = 4; P <= 9; ++P)
    for (const u8 k : {1, 3, 5, 7}) {
      const u64 threads = random.between(1, 5);
      check_shape({P, k, static_cast<u8>(random.between(8, 11))}, threads,
                  [&](const Parameters& p) { test::check_kept(p, random, threads); });
    }
}

TEST_P(ResidueTest, EverySetOfPrimesMultipliesModuloPowersLessOrMoreOne) {
  if (GetParam() > simd::best_target()) GTEST_SKIP() << "not on this machine";
  Random random;
  SCOPED_TRACE(random.replay());
  for (u8 P = 4; P <= 9; ++P)
    for (const u8 k : {1, 3, 5, 7})
      check_wrapped({P, k, static_cast<u8>(random.between(8, 10))}, random, random.between(1, 5));
  check_wrapped({4, 3, 13}, random, 3);
}

TEST(ResidueNesting, TilesOfTwoPasses) {
  Random random;
  SCOPED_TRACE(random.replay());
  check_wrapped({4, 1, 20}, random, 3);
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
  SCOPED_TRACE(random.replay());
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

INSTANTIATE_TEST_SUITE_P(Targets, ResidueTest,
                         testing::Values(simd::Target::kScalar, simd::Target::kAvx2, simd::Target::kAvx512));

TEST(ResiduePrimes, RowsRiseAndKeepTheirBounds) {
  u64 before = 0;
  for (const ResidueRow& row : residue_rows()) {
    EXPECT_GT(row.bits(), before);
    EXPECT_NO_THROW(check_residue_bounds(row));
    before = row.bits();
  }
  EXPECT_THROW(check_residue_bounds({4, 1, 7}), InvalidParametersException);
  EXPECT_THROW(check_residue_bounds({4, 1, 44}), InvalidParametersException);
  EXPECT_NO_THROW(c17_algorithm().sizes(0x12C0000000000, 1));
  EXPECT_THROW(c17_algorithm().sizes(0x12C0000000001, 1), LimitExceededException);
}

TEST(ResidueJoin, CarriesRunThroughBlocksBelowTheWindow) {
  // 0xAA...AAB times 3: each block of points ends in ones that the carry of the one before turns to zeros.
  const u64 words = 12000, bits = 32 * words;
  const Algorithm& c17 = c17_algorithm();
  const GuardedBlock memory(c17.table_bytes(bits));
  TransformTables tables(memory.buffer());
  c17.ensure_tables(tables, bits);
  std::vector<u32> a(words - 1, 0xaaaaaaaa);
  a[0] = 0xaaaaaaab;
  Parallelizer_Spawn spawn;
  Random random;
  SCOPED_TRACE(random.replay());
  for (u32 i = 0; i < 40; ++i) {
    const u64 skip = random.below(words - 1), len = random.between(skip + 1, words);
    std::vector<u32> x = a;
    if (i % 2) --x[skip - std::min(skip, random.between(1, 1500))];  // the carry ends here
    test::check_window(c17_algorithm(), tables, spawn, 3, x, {3}, skip, len, false);
    if (HasFatalFailure()) return;
  }
}

TEST(ResidueChecks, RefusesWhatDoesNotFit) {
  const ResidueRow row{4, 3, 8}, longer{4, 3, 13};
  const GuardedBlock memory(ResidueTables::bytes({&row, 1}));
  TransformTables tables(memory.buffer());
  tables.put("C17", std::make_unique<ResidueTables>());
  static_cast<ResidueTables*>(tables.find("C17"))->grow(tables.memory(), {&row, 1});
  ParametersBox box, other_box, longer_box;
  const Parameters& p = residue_parameters(box, &tables, row, 1);
  EXPECT_EQ(p.max_bits(), row.bits());
  EXPECT_TRUE(p.compatible(residue_parameters(other_box, nullptr, row, 1)));
  const Parameters& without_tables = residue_parameters(longer_box, &tables, longer, 1);
  EXPECT_FALSE(p.compatible(without_tables));

  Parallelizer_None none;
  const GuardedBlock F(without_tables.transform_size()), tmp(without_tables.scratch_size());
  void *const f = F.buffer().ptr, *const t = tmp.buffer().ptr;
  std::vector<u32> a(row.bits() / 32 + 1, 5);
  EXPECT_THROW(p.forward(f, Words{a.data(), a.size()}, t, {none, 1}), ConvolutionTooSmallException);
  EXPECT_THROW(p.inverse_fmul(f, f, Window{a.data(), 0, a.size()}, t, {none, 1}),
               ConvolutionTooSmallException);
  EXPECT_THROW(without_tables.forward(f, Words{a.data(), a.size()}, t, {none, 1}),
               InvalidParametersException);
}

TEST(ResidueChecks, RefusesCoefficientsThatAreTooLarge) {
  const u64 bits = 400000;
  const Algorithm& c17 = c17_algorithm();
  const GuardedBlock memory(c17.table_bytes(bits));
  TransformTables tables(memory.buffer());
  c17.ensure_tables(tables, bits);
  ParametersBox box;
  const Parameters& p = c17.parameters_for(box, &tables, bits, 1);
  const GuardedBlock F(p.transform_size()), tmp(std::max<u64>(p.scratch_size(), 64));
  Parallelizer_None none;
  std::vector<u32> a(bits / 64, 77), t(bits / 32);
  p.forward(F.buffer().ptr, Words{a.data(), a.size()}, tmp.buffer().ptr, {none, 1});
  static_cast<double*>(F.buffer().ptr)[17] += 1;
  EXPECT_THROW(p.inverse_fsqr(F.buffer().ptr, Window{t.data(), 0, t.size()}, tmp.buffer().ptr, {none, 1}),
               ConvolutionFailedException);
}

}  // namespace
}  // namespace orl
