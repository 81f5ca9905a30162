// Products by the algorithm "HNT" against GMP: every row of its size table up to a size, at its boundary and
// above the row before it, on all targets of this machine.
#include "transforms/hnt/hnt.h"

#include <gtest/gtest.h>

#include <cstring>

#include "core/exceptions.h"
#include "transforms/common/product_test_support.h"
#include "transforms/hnt/hnt_tables.h"

namespace orl::test {
namespace {

constexpr u64 kLargestBits = 3000000;

class HntTest : public OnTarget {};
INSTANTIATE_TEST_SUITE_P(Targets, HntTest, every_target(), target_label);

TEST_P(HntTest, EveryRowMultipliesUpToItsEnds) {
  const u64 largest = GetParam() == simd::Target::kScalar ? kLargestBits / 20 : kLargestBits;
  check_rows(hnt_algorithm(), hnt_rows(), largest);
}

using OwnTables = ShapeTables<HntTables, HntRow>;

// Products of all kinds around where the parts meet.
void check_row(const HntRow& row, Random& random, u64 threads) {
  SCOPED_TRACE(testing::Message() << "P " << int{row.P} << " k " << int{row.k} << " n " << int{row.n} << " R "
                                  << row.remainder);
  const OwnTables own("HNT", row);
  ParametersBox box;
  const Parameters& p = hnt_parameters(box, &own.tables, row, threads);
  Parallelizer_Spawn spawn;
  const ParallelContext parallel{spawn, threads};
  const ShapeAreas areas(p);
  void *const f = areas.f, *const g = areas.g, *const t = areas.t;
  const u64 words = row.bits() / 32, L = row.wrapped_words();
  const auto product = [&](const std::vector<u32>& a, const std::vector<u32>& b, u64 skip, u64 len) {
    GuardedWords<u32> T(len - skip, skip);
    p.forward(f, Words{a.data(), a.size()}, t, parallel);
    p.forward(g, Words{b.data(), b.size()}, t, parallel);
    const std::vector<u32> right = gmp_product(a, b);
    const std::vector<u8> before(static_cast<u8*>(g), static_cast<u8*>(g) + p.transform_size());
    p.inverse_fmul(f, g, Window{T.data(), skip, len}, t, parallel);
    EXPECT_EQ(std::memcmp(T.data(), right.data() + skip, 4 * (len - skip)), 0) << skip << " to " << len;
    EXPECT_EQ(std::memcmp(g, before.data(), before.size()), 0);
    EXPECT_TRUE(T.intact());
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
  check_kept(p, random, threads);
}

TEST_P(HntTest, PartsOfAnyLengthMeet) {
  Random random;
  for (const HntRow& row : {HntRow{4, 1, 8, 2}, HntRow{4, 1, 8, 576}, HntRow{5, 3, 8, 65},
                            HntRow{9, 7, 8, 5000}, HntRow{6, 5, 9, 1}, HntRow{7, 1, 9, 2303}})
    if (row.remainder > 1)
      check_row(row, random, random.between(1, 4));
    else
      EXPECT_THROW(check_hnt_row(row), InvalidParametersException);
}

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
  EXPECT_EQ(hnt_algorithm().max_bits(), 0x7FFF0000000u);
}

// A wrong remainder is wrong everywhere, and fills the word that no product reaches.
TEST(HntChecks, CatchesAWrongRemainder) {
  const HntRow row{6, 1, 9, 256};
  const OwnTables own("HNT", row);
  ParametersBox box;
  const Parameters& p = hnt_parameters(box, &own.tables, row, 1);
  const ShapeAreas areas(p);
  Parallelizer_None none;
  std::vector<u32> a(row.bits() / 64, 77), product(2 * a.size());
  p.forward(areas.f, Words{a.data(), a.size()}, areas.t, {none, 1});
  static_cast<double*>(areas.f)[p.transform_size() / 8 - 40] += 0x1p40;
  EXPECT_THROW(p.inverse_fsqr(areas.f, Window{product.data(), 0, product.size()}, areas.t, {none, 1}),
               AlgorithmFailedException);
}

}  // namespace
}  // namespace orl::test
