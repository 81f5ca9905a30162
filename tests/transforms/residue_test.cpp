// Products by the residue transforms against GMP: every row of the size table up to a size, at its boundary
// and above the row before it, on all targets of this machine.
#include "transforms/residue.h"

#include <gmp.h>
#include <gtest/gtest.h>

#include <cstring>

#include "frame/exceptions.h"
#include "parallel/simple_frameworks.h"
#include "simd/target.h"
#include "support/multiplication.h"
#include "support/random_words.h"
#include "transforms/residue_bounds.h"
#include "transforms/residue_primes.h"
#include "transforms/residue_tables.h"

namespace orl {
namespace {

using test::GuardedBlock;
using test::Random;

constexpr u64 kLargestBits = 12000000;

std::vector<u32> gmp_product(const std::vector<u32>& a, const std::vector<u32>& b) {
  mpz_t x, y;
  mpz_inits(x, y, nullptr);
  mpz_import(x, a.size(), -1, 4, 0, 0, a.data());
  mpz_import(y, b.size(), -1, 4, 0, 0, b.data());
  mpz_mul(x, x, y);
  std::vector<u32> product(a.size() + b.size() + 2);
  size_t count;
  mpz_export(product.data(), &count, -1, 4, 0, 0, x);
  mpz_clears(x, y, nullptr);
  product.resize(a.size() + b.size());
  return product;
}

std::vector<u32> operand(Random& random, u64 words, u64 kind) {
  std::vector<u32> a(words);
  for (u32& w : a) w = kind == 0 ? ~u32{0} : kind == 1 ? random.word<u32>() : random.edge_word<u32>();
  return a;
}

void check(const TransformTables& tables, Parallelizer& parallelizer, u64 threads, const std::vector<u32>& a,
           const std::vector<u32>& b, u64 skip, u64 len, bool square) {
  const Algorithm& c17 = c17_algorithm();
  const MultiplySizes sizes = c17.sizes((a.size() + b.size()) * 32, threads);
  const GuardedBlock scratch(square ? sizes.square_bytes() : sizes.total_bytes());
  const MultiplyContext ctx{{parallelizer, threads}, tables, scratch.buffer()};
  const GuardedBlock target((4 * (len - skip) + 63) / 64 * 64);
  u32* T = static_cast<u32*>(target.buffer().ptr);
  if (square)
    c17.sqr_window(ctx, T, skip, len, a.data(), a.size());
  else
    c17.mul_window(ctx, T, skip, len, a.data(), a.size(), b.data(), b.size());
  const std::vector<u32> right = gmp_product(a, b);
  ASSERT_TRUE(std::equal(right.begin() + static_cast<s64>(skip), right.begin() + static_cast<s64>(len), T));
  ASSERT_TRUE(scratch.intact() && target.intact());
}

class ResidueTest : public testing::TestWithParam<simd::Target> {
 protected:
  ResidueTest() : before_(simd::active_target()) {
    if (GetParam() <= simd::best_target()) simd::set_active_target(GetParam());
  }
  ~ResidueTest() override { simd::set_active_target(before_); }
  simd::Target before_;
};

TEST_P(ResidueTest, EveryRowMultipliesUpToItsEnds) {
  if (GetParam() > simd::best_target()) GTEST_SKIP() << "not on this machine";
  Random random;
  SCOPED_TRACE(random.replay());
  const u64 largest = GetParam() == simd::Target::kScalar ? kLargestBits / 20 : kLargestBits;
  const Algorithm& c17 = c17_algorithm();
  const GuardedBlock memory(c17.table_bytes(largest));
  TransformTables tables(memory.buffer());
  c17.ensure_tables(tables, largest);
  Parallelizer_None none;
  Parallelizer_Spawn spawn;
  u64 below = 64, number = 0;
  for (const ResidueRow& row : residue_rows()) {
    if (row.bits() > largest) break;
    SCOPED_TRACE(testing::Message() << "P " << int{row.P} << " k " << int{row.k} << " n " << int{row.n});
    const u64 words = row.bits() / 32, kind = number++ % 3;
    const u64 al = number % 2 ? words / 2 : random.between(1, words - 1);
    const u64 bl = words - al;
    check(tables, none, 1, operand(random, al, 0), operand(random, bl, 0), 0, words, false);
    const std::vector<u32> a = operand(random, al, kind), b = operand(random, bl, 2);
    const u64 skip = random.below(words), len = random.between(skip + 1, words);
    check(tables, spawn, random.between(1, 5), a, b, skip, len, false);
    const u64 low = below / 32 + 1;
    const std::vector<u32> s = operand(random, low / 2 + 1, 2);
    check(tables, none, 1, s, s, 0, 2 * s.size(), true);
    below = row.bits();
    if (HasFatalFailure()) return;
  }
  EXPECT_TRUE(memory.intact());
}

// One shape: a transform is kept over two products and squared at last; windows of 64-bit words.
void check_shape(const ResidueRow& row, Random& random, u64 threads) {
  SCOPED_TRACE(testing::Message() << "P " << int{row.P} << " k " << int{row.k} << " n " << int{row.n});
  const GuardedBlock memory(ResidueTables::bytes({&row, 1}));
  TransformTables tables(memory.buffer());
  auto roots = std::make_unique<ResidueTables>();
  roots->grow(tables.memory(), {&row, 1});
  tables.put("C17", std::move(roots));
  ParametersBox box;
  const Parameters& p = residue_parameters(box, &tables, row, threads);
  Parallelizer_Spawn spawn;
  const ParallelContext parallel{spawn, threads};
  const GuardedBlock F(p.transform_size()), G(p.transform_size()), tmp(p.scratch_size());
  void *const f = F.buffer().ptr, *const g = G.buffer().ptr, *const t = tmp.buffer().ptr;
  const u64 words = row.bits() / 64;
  const std::vector<u32> kept = operand(random, 2 * (words / 2), random.below(2));
  const auto as_u64 = [](const std::vector<u32>& v) { return reinterpret_cast<const u64*>(v.data()); };
  const auto expect_window = [&](const std::vector<u32>& other, u64 skip, u64 len, const u64* T) {
    const std::vector<u32> right = gmp_product(kept, other);
    EXPECT_EQ(std::memcmp(T, right.data() + 2 * skip, 8 * (len - skip)), 0) << skip << " to " << len;
  };
  p.forward_w(g, as_u64(kept), kept.size() / 2, t, parallel);
  const std::vector<u8> before(static_cast<u8*>(g), static_cast<u8*>(g) + p.transform_size());
  for (const u64 other_words : {words - words / 2, random.between(1, words / 2)}) {
    const std::vector<u32> other = operand(random, 2 * other_words, random.below(3));
    const u64 all = words / 2 + other_words, skip = random.below(all / 2) | 1,
              len = random.between(skip + 1, all);
    const GuardedBlock target((8 * (len - skip) + 63) / 64 * 64);
    p.forward_w(f, as_u64(other), other_words, t, parallel);
    p.inverse_fmul_w(f, g, static_cast<u64*>(target.buffer().ptr), skip, len, t, parallel);
    expect_window(other, skip, len, static_cast<u64*>(target.buffer().ptr));
    EXPECT_EQ(std::memcmp(g, before.data(), before.size()), 0);
    EXPECT_TRUE(target.intact());
  }
  std::vector<u64> square(kept.size());
  p.inverse_fsqr_w(g, square.data(), 0, square.size(), t, parallel);
  expect_window(kept, 0, square.size(), square.data());
  EXPECT_TRUE(F.intact() && G.intact() && tmp.intact() && memory.intact());
}

TEST_P(ResidueTest, EverySetOfPrimesKeepsTransforms) {
  if (GetParam() > simd::best_target()) GTEST_SKIP() << "not on this machine";
  Random random;
  SCOPED_TRACE(random.replay());
  for (u8 P = 4; P <= 9; ++P)
    for (const u8 k : {1, 3, 5, 7})
      check_shape({P, k, static_cast<u8>(random.between(8, 11))}, random, random.between(1, 5));
}

TEST(ResidueNesting, SubtreesBeyondACacheHaveSubtreesOfTheirOwn) {
  Random random;
  SCOPED_TRACE(random.replay());
  check_shape({4, 1, 17}, random, 2);
  check_shape({4, 1, 21}, random, 2);  // nested twice
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
    check(tables, spawn, 3, x, {3}, skip, len, false);
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
  EXPECT_THROW(p.forward(f, a.data(), a.size(), t, {none, 1}), ConvolutionTooSmallException);
  EXPECT_THROW(p.inverse_fmul(f, f, a.data(), 0, a.size(), t, {none, 1}), ConvolutionTooSmallException);
  EXPECT_THROW(without_tables.forward(f, a.data(), a.size(), t, {none, 1}), InvalidParametersException);
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
  p.forward(F.buffer().ptr, a.data(), a.size(), tmp.buffer().ptr, {none, 1});
  static_cast<double*>(F.buffer().ptr)[17] += 1;
  EXPECT_THROW(p.inverse_fsqr(F.buffer().ptr, t.data(), 0, t.size(), tmp.buffer().ptr, {none, 1}),
               ConvolutionFailedException);
}

}  // namespace
}  // namespace orl
