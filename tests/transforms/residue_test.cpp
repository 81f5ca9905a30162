// Products by the residue transforms against GMP: every row of the size table up to a size, at its boundary
// and above the row before it, on all targets of this machine.
#include "transforms/residue.h"

#include <gmp.h>
#include <gtest/gtest.h>

#include <cmath>

#include "frame/exceptions.h"
#include "parallel/simple_frameworks.h"
#include "simd/target.h"
#include "support/multiplication.h"
#include "support/random_words.h"
#include "transforms/residue_bounds.h"
#include "transforms/residue_primes.h"

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

INSTANTIATE_TEST_SUITE_P(Targets, ResidueTest,
                         testing::Values(simd::Target::kScalar, simd::Target::kAvx2, simd::Target::kAvx512));

TEST(ResiduePrimes, RowsRiseAndKeepTheirBounds) {
  u64 before = 0;
  for (const ResidueRow& row : residue_rows()) {
    EXPECT_GT(row.bits(), before);
    EXPECT_NO_THROW(check_residue_bounds(row));
    before = row.bits();
  }
  EXPECT_NO_THROW(c17_algorithm().sizes(0x12C0000000000, 1));
  EXPECT_THROW(c17_algorithm().sizes(0x12C0000000001, 1), LimitExceededException);
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
