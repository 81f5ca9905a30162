// Products by the algorithm "VST" against GMP: every row of its size table up to a size, at its boundary and
// above the row before it, on all targets of this machine; shapes with several passes over memory.
#include "transforms/vst/vst.h"

#include <gtest/gtest.h>

#include "core/exceptions.h"
#include "support/sanitized.h"
#include "transforms/common/far_test_support.h"
#include "transforms/vst/vst_far.h"
#include "transforms/vst/vst_tables.h"

namespace orl::test {
namespace {

constexpr u64 kLargestBits = 8000000;

class VstTest : public OnTarget {};
INSTANTIATE_TEST_SUITE_P(Targets, VstTest, every_target(), target_label);

TEST_P(VstTest, EveryRowMultipliesUpToItsEnds) {
  const u64 largest = GetParam() == simd::Target::kScalar ? kLargestBits / 20 : kLargestBits;
  check_rows(vst_algorithm(), vst_rows(), largest);
}

void check_shape(const VstRow& row, Random& random, u64 threads) {
  SCOPED_TRACE(testing::Message() << "P " << int{row.P} << " k " << int{row.k} << " n " << int{row.n} << " = "
                                  << int{row.a} << " " << int{row.b} << " " << int{row.c});
  const ShapeTables<VstTables, VstRow> own("VST", row);
  ParametersBox box;
  const Parameters& p = vst_parameters(box, &own.tables, VstShape(row));
  check_kept(p, random, threads);
  check_wrapped(p, random, 1);
}

TEST_P(VstTest, EverySetOfPrimesKeepsTransformsAndWraps) {
  Random random;
  for (u8 P = 4; P <= 9; ++P)
    for (const u8 k : {1, 3, 5, 7}) {
      const u8 longest = GetParam() == simd::Target::kScalar ? 8 : 11;
      check_shape({P, k, static_cast<u8>(random.between(8, longest))}, random, random.between(1, 5));
    }
}

TEST_P(VstTest, EveryWayToBlockGivesTheSame) {
  Random random;
  if (GetParam() == simd::Target::kScalar) GTEST_SKIP() << "blocks do not depend on lanes";
  for (const VstRow& row : {VstRow{6, 1, 12, 1, 5, 6}, VstRow{9, 3, 12, 2, 2, 6}, VstRow{4, 5, 13, 6, 0, 7},
                            VstRow{7, 7, 11, 1, 1, 7}, VstRow{8, 1, 14, 8, 0, 6}, VstRow{5, 1, 15, 1, 8, 6}})
    check_shape(row, random, 3);
}

TEST_P(VstTest, NumbersOnDisksMultiplyWholeAndByRows) {
  Random random;
  const FarFamily& family = vst_far_family();
  for (u32 P = 4; P <= 9; ++P) check_far(family, {P, 2 * (P % 4) + 1, 9}, {}, random);
  if (GetParam() == simd::Target::kScalar) return;
  check_far_tells(family, {6, 3, 9});
  check_far(family, {5, 3, 13}, {}, random);
  for (u32 levels = 1; levels <= 4; ++levels)
    check_far(family, {4 + levels, 2 * (levels % 4) + 1, 9 + levels}, {levels}, random, levels < 3 ? 3 : 1);
  check_far(family, {4, 3, 14}, {2, 3}, random);
  if (GetParam() == simd::Target::kAvx512 && !kSanitized) check_far(family, {4, 1, 18}, {9}, random, 1);
}

TEST(VstShapes, DefaultsCoverEveryRow) {
  u64 before = 0;
  for (const VstRow& row : vst_rows()) {
    EXPECT_GT(row.bits(), before);
    const VstShape shape(row);
    EXPECT_LE(vst_largest_residue(shape), 8) << int{row.n};
    before = row.bits();
  }
  EXPECT_EQ(vst_algorithm().max_bits(), 0x12C0000000000u);
}

TEST(VstShapes, RefusesBlocksThatAreNoShape) {
  for (const VstRow& row :
       {VstRow{4, 1, 7}, VstRow{4, 1, 44}, VstRow{6, 1, 10, 4, 0, 7}, VstRow{6, 1, 10, 5, 0, 5},
        VstRow{6, 1, 14, 4, 3, 6}, VstRow{6, 3, 14, 8, 0, 6}, VstRow{6, 1, 10, 6, 4, 8}})
    EXPECT_THROW(VstShape{row}, InvalidParametersException) << int{row.n};
}

}  // namespace
}  // namespace orl::test
