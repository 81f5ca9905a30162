// Products by the algorithm "HNT" against GMP: every row of its size table up to a size, at its boundary and
// above the row before it, on all targets of this machine.
#include "transforms/hnt/hnt.h"

#include <gtest/gtest.h>

#include <cstring>

#include "core/exceptions.h"
#include "transforms/common/product_test_support.h"
#include "transforms/hnt/hnt_tables.h"

namespace orl {
namespace {

using test::gmp_product;
using test::GuardedBlock;
using test::operand;
using test::Random;

constexpr u64 kLargestBits = 3000000;

class HntTest : public test::TargetTest {};

TEST_P(HntTest, EveryRowMultipliesUpToItsEnds) {
  if (GetParam() > simd::best_target()) GTEST_SKIP() << "not on this machine";
  const u64 largest = GetParam() == simd::Target::kScalar ? kLargestBits / 20 : kLargestBits;
  test::check_rows(hnt_algorithm(), hnt_rows(), largest);
}

struct OwnTables {
  explicit OwnTables(const HntRow& row) : memory(HntTables::bytes({&row, 1})), tables(memory.buffer()) {
    auto parts = std::make_unique<HntTables>();
    parts->grow(tables.memory(), {&row, 1});
    tables.put("HNT", std::move(parts));
  }
  GuardedBlock memory;
  TransformTables tables;
};

// Products of all kinds around where the parts meet, each by a transform that is kept.
void check_row(const HntRow& row, Random& random, u64 threads) {
  SCOPED_TRACE(testing::Message() << "P " << int{row.P} << " k " << int{row.k} << " n " << int{row.n} << " R "
                                  << row.remainder);
  const OwnTables own(row);
  ParametersBox box;
  const Parameters& p = hnt_parameters(box, &own.tables, row, threads);
  Parallelizer_Spawn spawn;
  const ParallelContext parallel{spawn, threads};
  const GuardedBlock F(p.transform_size()), G(p.transform_size()), tmp(p.scratch_size());
  void *const f = F.buffer().ptr, *const g = G.buffer().ptr, *const t = tmp.buffer().ptr;
  const u64 words = row.bits() / 32, L = row.wrapped_words();
  const auto product = [&](const std::vector<u32>& a, const std::vector<u32>& b, u64 skip, u64 len) {
    const GuardedBlock target((4 * (len - skip) + 63) / 64 * 64);
    u32* T = static_cast<u32*>(target.buffer().ptr);
    p.forward(f, Words{a.data(), a.size()}, t, parallel);
    p.forward(g, Words{b.data(), b.size()}, t, parallel);
    const std::vector<u32> right = gmp_product(a, b);
    const std::vector<u8> before(static_cast<u8*>(g), static_cast<u8*>(g) + p.transform_size());
    p.inverse_fmul(f, g, Window{T, skip, len}, t, parallel);
    EXPECT_EQ(std::memcmp(T, right.data() + skip, 4 * (len - skip)), 0) << skip << " to " << len;
    EXPECT_EQ(std::memcmp(g, before.data(), before.size()), 0);
    EXPECT_TRUE(target.intact());
  };
  for (u32 i = 0; i < 3; ++i) {
    const u64 al = random.between(1, words - 1), bl = words - al, skip = random.below(words);
    product(operand(random, al, i), operand(random, bl, random.below(3)), skip,
            random.between(skip + 1, words));
  }
  // Multiples of W^L - 1: H + Q is W^L - 1, or both are 0.
  const std::vector<u32> ones(L, ~u32{0});
  product(ones, {1}, 0, L + 1);
  product(ones, operand(random, row.remainder - 1, 2), 0, words);
  product(ones, {0}, 0, L + 1);
  // An operand longer than L words, all ones but its lowest: the fold carries through.
  std::vector<u32> folded(words - 2, ~u32{0});
  if (folded.size() > L) product(folded, {~u32{0}, ~u32{0}}, 0, words);

  const std::vector<u32> s = operand(random, words / 2, 2);
  std::vector<u32> square(2 * s.size());
  p.forward(g, Words{s.data(), s.size()}, t, parallel);
  p.inverse_fsqr(g, Window{square.data(), 0, square.size()}, t, parallel);
  EXPECT_EQ(square, gmp_product(s, s));
  EXPECT_TRUE(F.intact() && G.intact() && tmp.intact() && own.memory.intact());
}

TEST_P(HntTest, PartsOfAnyLengthMeet) {
  if (GetParam() > simd::best_target()) GTEST_SKIP() << "not on this machine";
  Random random;
  SCOPED_TRACE(random.replay());
  for (const HntRow& row : {HntRow{4, 1, 8, 2}, HntRow{4, 1, 8, 576}, HntRow{5, 3, 8, 65},
                            HntRow{9, 7, 8, 5000}, HntRow{6, 5, 9, 1}, HntRow{7, 1, 9, 2303}})
    if (row.remainder > 1)
      check_row(row, random, random.between(1, 4));
    else
      EXPECT_THROW(check_hnt_row(row), InvalidParametersException);
}

INSTANTIATE_TEST_SUITE_P(Targets, HntTest,
                         testing::Values(simd::Target::kScalar, simd::Target::kAvx2, simd::Target::kAvx512));

TEST(HntShapes, EveryRowKeepsItsBounds) {
  u64 before = 0;
  for (const HntRow& row : hnt_rows()) {
    EXPECT_GT(row.bits(), before);
    EXPECT_NO_THROW(check_hnt_row(row));
    EXPECT_LE(hnt_remainder_bound(row), 0.5);
    before = row.bits();
  }
  EXPECT_THROW(check_hnt_row({4, 1, 8, 577}), InvalidParametersException);
  EXPECT_THROW(check_hnt_row({4, 1, 30, kHntMaxRemainder + 1}), InvalidParametersException);
  EXPECT_NO_THROW(hnt_algorithm().sizes(0x7FFF0000000, 1));
  EXPECT_THROW(hnt_algorithm().sizes(0x7FFF0000001, 1), LimitExceededException);
}

TEST(HntChecks, RefusesWhatDoesNotFit) {
  const HntRow row{4, 3, 8, 128}, other{4, 3, 8, 129};
  const OwnTables own(row);
  ParametersBox box, same_box, other_box;
  const Parameters& p = hnt_parameters(box, &own.tables, row, 1);
  EXPECT_EQ(p.max_bits(), row.bits());
  const Parameters& without_tables = hnt_parameters(same_box, nullptr, row, 1);
  EXPECT_TRUE(p.compatible(without_tables));
  EXPECT_FALSE(p.compatible(hnt_parameters(other_box, nullptr, other, 1)));
  Parallelizer_None none;
  const GuardedBlock F(p.transform_size()), tmp(p.scratch_size());
  void *const f = F.buffer().ptr, *const t = tmp.buffer().ptr;
  std::vector<u32> a(row.bits() / 32 + 1, 5);
  EXPECT_THROW(p.forward(f, Words{a.data(), a.size()}, t, {none, 1}), ConvolutionTooSmallException);
  EXPECT_THROW(p.inverse_fmul(f, f, Window{a.data(), 0, a.size()}, t, {none, 1}),
               ConvolutionTooSmallException);
  EXPECT_THROW(without_tables.forward(f, Words{a.data(), a.size() / 2}, t, {none, 1}),
               InvalidParametersException);
}

TEST(HntChecks, CatchesCorruptedData) {
  const HntRow row{6, 1, 9, 256};
  const OwnTables own(row);
  ParametersBox box;
  const Parameters& p = hnt_parameters(box, &own.tables, row, 1);
  const GuardedBlock F(p.transform_size()), tmp(p.scratch_size());
  void *const f = F.buffer().ptr, *const t = tmp.buffer().ptr;
  Parallelizer_None none;
  std::vector<u32> a(row.bits() / 64, 77), product(2 * a.size());
  p.forward(f, Words{a.data(), a.size()}, t, {none, 1});
  static_cast<double*>(f)[17] += 1;
  try {
    p.inverse_fsqr(f, Window{product.data(), 0, product.size()}, t, {none, 1});
    FAIL() << "a changed residue went unseen";
  } catch (const AlgorithmFailedException& e) {
    EXPECT_EQ(e.message(), "Coefficient is too large.");
  }
  // A wrong remainder is wrong everywhere, and fills the word that no product reaches.
  p.forward(f, Words{a.data(), a.size()}, t, {none, 1});
  double* last = static_cast<double*>(f) + p.transform_size() / 8 - 40;
  *last += 0x1p40;
  EXPECT_THROW(p.inverse_fsqr(f, Window{product.data(), 0, product.size()}, t, {none, 1}),
               AlgorithmFailedException);
}

}  // namespace
}  // namespace orl
