// Products by the integer residue transforms against GMP: every row of the size tables up to a size, every
// set of primes, products modulo W^n - 1 and W^n + 1, on all targets of this machine.
#include "transforms/ntt/ntt.h"

#include <gtest/gtest.h>

#include "core/exceptions.h"
#include "support/sanitized.h"
#include "transforms/common/far_test_support.h"
#include "transforms/ntt/ntt_far.h"
#include "transforms/ntt/ntt_primes.h"
#include "transforms/ntt/ntt_tables.h"

namespace orl::test {
namespace {

using simd::Target;
using WordVector = std::vector<u32>;

template <class R>
class NttTest : public testing::Test {
 protected:
  static const Algorithm& algorithm() { return sizeof(R) == 8 ? n64_algorithm() : n32_algorithm(); }

  // A shape that need not stand in the table, with tables and areas of its own.
  struct Shape {
    explicit Shape(const NttRow<R>& row)
        : own(algorithm().id(), row), p(ntt_parameters(box, &own.tables, row)), areas(p) {}
    ShapeTables<NttTables<R>, NttRow<R>> own;
    ParametersBox box;
    const Parameters& p;
    ShapeAreas areas;
  };

  static void check_shape(const NttRow<R>& row, Random& random, u64 threads) {
    SCOPED_TRACE(testing::Message() << "P " << int{row.P} << " k " << int{row.k} << " n " << int{row.n});
    const Shape shape(row);
    check_kept(shape.p, random, threads);
    check_wrapped(shape.p, random, threads);
  }
};

using Residues = testing::Types<u64, u32>;
TYPED_TEST_SUITE(NttTest, Residues);

TYPED_TEST(NttTest, EveryRowMultipliesUpToItsEnds) {
  for_each_target([&](Target target) {
    check_rows(this->algorithm(), ntt_rows<TypeParam>(), target == simd::best_target() ? 2000000 : 150000);
  });
}

TYPED_TEST(NttTest, EverySetOfPrimesKeepsTransformsAndWraps) {
  Random random;
  for_each_target([&](Target) {
    u32 sets = 0;
    for (u8 P = 4; P <= 8; ++P)
      for (const u8 k : {1, 3, 5, 7}) {
        if (!find_ntt_set<TypeParam>(P, k)) continue;
        this->check_shape({P, k, static_cast<u8>(random.between(6, 9))}, random, random.between(1, 5));
        ++sets;
      }
    EXPECT_EQ(sets, sizeof(TypeParam) == 8 ? 20u : 17u);
  });
}

TYPED_TEST(NttTest, SubtreesBeyondACacheHaveSubtreesOfTheirOwn) {
  Random random;
  this->check_shape({4, 1, 13}, random, 2);
  this->check_shape({5, 3, 14}, random, 3);
  this->check_shape({4, 1, 17}, random, 2);
}

TYPED_TEST(NttTest, ThreadsDoNotChangeAProduct) {
  Random random;
  const NttRow<TypeParam> row{6, 3, 13};
  const typename TestFixture::Shape one(row), four(row);
  Parallelizer_Spawn spawn;
  const u64 n = row.bits() / 32;
  const WordVector a = random.words<u32>(n), b = random.words<u32>(n);
  WordVector T(n), U(n);
  const auto run = [&](const auto& s, u64 threads, WordVector& out) {
    const ShapeAreas& at = s.areas;
    s.p.wrapped()->forward_negacyclic(at.f, Words{a.data(), n}, at.t, {spawn, threads});
    s.p.wrapped()->forward_negacyclic(at.g, Words{b.data(), n}, at.t, {spawn, threads});
    return s.p.wrapped()->pointwise_negacyclic(at.f, at.g, out.data(), at.t, {spawn, threads});
  };
  EXPECT_EQ(run(one, 1, T), run(four, 4, U));
  EXPECT_EQ(T, U);
  EXPECT_EQ(std::memcmp(one.areas.g, four.areas.g, one.p.transform_size()), 0);
}

TYPED_TEST(NttTest, RowsRiseToTheLargestProduct) {
  const Algorithm& algorithm = this->algorithm();
  u64 before = 0;
  for (const NttRow<TypeParam>& row : ntt_rows<TypeParam>()) {
    EXPECT_GT(row.bits(), before);
    EXPECT_TRUE(ntt_row_is_sound(row));
    ParametersBox box;
    const Parameters& p = algorithm.parameters_for(box, nullptr, before + 1, 1);
    EXPECT_EQ(p.max_bits(), row.bits());
    EXPECT_EQ(p.cyclic_words() * 32, ntt_row_wraps(row) ? row.bits() : 0);
    EXPECT_GE(p.transform_size(), sizeof(TypeParam) * row.P * row.points());
    before = row.bits();
  }
  EXPECT_EQ(before, algorithm.max_bits());
  EXPECT_THROW(algorithm.table_bytes(before + 1), LimitExceededException);
  EXPECT_GT(algorithm.table_bytes(before), algorithm.table_bytes(before / 4));
  ParametersBox box;
  EXPECT_THROW(ntt_parameters<TypeParam>(box, nullptr, {4, 1, 5}), InvalidParametersException);
  EXPECT_THROW(ntt_parameters<TypeParam>(box, nullptr, {4, 1, 58}), InvalidParametersException);
  EXPECT_THROW(ntt_parameters<TypeParam>(box, nullptr, {4, 9, 8}), InvalidParametersException);
}

TYPED_TEST(NttTest, LargestShapesDoNotWrap) {
  ParametersBox box;
  EXPECT_EQ(this->algorithm().parameters_for(box, nullptr, this->algorithm().max_bits(), 1).wrapped(),
            nullptr);
}

// A residue that is wrong makes a coefficient too large in all but a share of 2^-spare of the cases; then the
// words do not match the hash.
TYPED_TEST(NttTest, AWrongResidueIsSeen) {
  Random random;
  const typename TestFixture::Shape shape({5, 1, 9});
  Parallelizer_None none;
  const ParallelContext one{none, 1};
  const u64 words = shape.p.max_bits() / 64;
  u32 thrown = 0;
  for (u32 i = 0; i < 30; ++i) {
    const WordVector a = random.plain_words<u32>(words);
    for (void* area : {shape.areas.f, shape.areas.g})
      shape.p.forward(area, Words{a.data(), words}, shape.areas.t, one);
    static_cast<TypeParam*>(shape.areas.g)[random.below(5 << 9)] ^=
        TypeParam{1} << random.below(8 * sizeof(TypeParam) - 1);
    WordVector T(2 * words);
    try {
      shape.p.inverse_fmul(shape.areas.f, shape.areas.g, Window{T.data(), 0, T.size()}, shape.areas.t, one);
      EXPECT_NE(T, gmp_product(a, a));
    } catch (const ConvolutionFailedException&) {
      ++thrown;
    }
  }
  EXPECT_GE(thrown, 25u);
}

TEST(N64Far, NumbersOnDisksMultiplyByGroupsOfPrimesAndByRows) {
  Random random;
  const FarFamily& family = n64_far_family();
  for_each_target([&](simd::Target target) {
    if (target == simd::Target::kAvx2) return;  // runs what scalar runs
    for (u32 P = 4; P <= 8; ++P)
      for (const u32 k : {1u, 3u, 5u, 7u})
        if ((P + k / 2) % 2 == (target == simd::Target::kScalar)) check_far(family, {P, k, 9}, {}, random);
    check_far_tells(family, {6, 3, 9});
    check_far(family, {4, 3, 13}, {}, random);
    for (u32 levels = 1; levels <= 5; ++levels)
      check_far(family, {3 + levels, 2 * (levels % 4) + 1, 9 + levels}, {levels}, random, levels < 3 ? 3 : 1);
    check_far(family, {4, 1, 14}, {2, 3}, random, 2);
    if (target != simd::Target::kScalar && !kSanitized) check_far(family, {4, 1, 17}, {}, random, 1);
  });
}

}  // namespace
}  // namespace orl::test
