// Products by the algorithm "VST" against GMP: every row of its size table up to a size, at its boundary and
// above the row before it, on all targets of this machine; shapes with several passes over memory.
#include "transforms/vst/vst.h"

#include <gtest/gtest.h>

#include <cstring>

#include "core/exceptions.h"
#include "transforms/common/product_test_support.h"
#include "transforms/vst/vst_tables.h"

namespace orl {
namespace {

using test::gmp_product;
using test::gmp_wrapped;
using test::GuardedBlock;
using test::operand;
using test::Random;

constexpr u64 kLargestBits = 8000000;

class VstTest : public test::TargetTest {};

TEST_P(VstTest, EveryRowMultipliesUpToItsEnds) {
  if (GetParam() > simd::best_target()) GTEST_SKIP() << "not on this machine";
  const u64 largest = GetParam() == simd::Target::kScalar ? kLargestBits / 20 : kLargestBits;
  test::check_rows(vst_algorithm(), vst_rows(), largest);
}

struct OwnTables {
  explicit OwnTables(const VstRow& row) : memory(VstTables::bytes({&row, 1})), tables(memory.buffer()) {
    auto roots = std::make_unique<VstTables>();
    roots->grow(tables.memory(), {&row, 1});
    tables.put("VST", std::move(roots));
  }
  GuardedBlock memory;
  TransformTables tables;
};

TEST_P(VstTest, EverySetOfPrimesKeepsTransformsAndWraps) {
  if (GetParam() > simd::best_target()) GTEST_SKIP() << "not on this machine";
  Random random;
  SCOPED_TRACE(random.replay());
  for (u8 P = 4; P <= 9; ++P)
    for (const u8 k : {1, 3, 5, 7}) {
      const u8 longest = GetParam() == simd::Target::kScalar ? 8 : 11;
      const VstRow row{P, k, static_cast<u8>(random.between(8, longest))};
      SCOPED_TRACE(testing::Message() << "P " << int{P} << " k " << int{k} << " n " << int{row.n});
      const OwnTables own(row);
      ParametersBox box;
      const Parameters& p = vst_parameters(box, &own.tables, VstShape(row));
      test::check_kept(p, random, random.between(1, 5));
      test::check_wrapped(p, random, 1);
      EXPECT_TRUE(own.memory.intact());
    }
}

TEST_P(VstTest, EveryWayToBlockGivesTheSame) {
  if (GetParam() > simd::best_target()) GTEST_SKIP() << "not on this machine";
  Random random;
  SCOPED_TRACE(random.replay());
  if (GetParam() == simd::Target::kScalar) GTEST_SKIP() << "blocks do not depend on lanes";
  for (const VstRow& row :
       {VstRow{6, 1, 12, 1, 5, 6}, VstRow{9, 3, 12, 2, 2, 6}, VstRow{4, 5, 13, 6, 0, 7},
        VstRow{7, 7, 11, 1, 1, 7}, VstRow{8, 1, 14, 8, 0, 6}, VstRow{5, 1, 15, 1, 8, 6}}) {
    SCOPED_TRACE(testing::Message() << int{row.n} << " = " << int{row.a} << " " << int{row.b} << " "
                                    << int{row.c});
    const OwnTables own(row);
    ParametersBox box;
    const Parameters& p = vst_parameters(box, &own.tables, VstShape(row));
    test::check_kept(p, random, 3);
    test::check_wrapped(p, random, 1);
  }
}

INSTANTIATE_TEST_SUITE_P(Targets, VstTest,
                         testing::Values(simd::Target::kScalar, simd::Target::kAvx2, simd::Target::kAvx512));

TEST(VstShapes, DefaultsCoverEveryRow) {
  u64 before = 0;
  for (const VstRow& row : vst_rows()) {
    EXPECT_GT(row.bits(), before);
    const VstShape shape(row);
    EXPECT_LE(vst_largest_residue(shape), 8) << int{row.n};
    before = row.bits();
  }
  EXPECT_NO_THROW(vst_algorithm().sizes(0x12C0000000000, 1));
  EXPECT_THROW(vst_algorithm().sizes(0x12C0000000001, 1), LimitExceededException);
}

TEST(VstShapes, RefusesBlocksThatAreNoShape) {
  for (const VstRow& row :
       {VstRow{4, 1, 7}, VstRow{4, 1, 44}, VstRow{6, 1, 10, 4, 0, 7}, VstRow{6, 1, 10, 5, 0, 5},
        VstRow{6, 1, 14, 4, 3, 6}, VstRow{6, 3, 14, 8, 0, 6}, VstRow{6, 1, 10, 6, 4, 8}})
    EXPECT_THROW(VstShape{row}, InvalidParametersException) << int{row.n};
}

TEST(VstChecks, RefusesWhatDoesNotFit) {
  const VstRow row{4, 3, 8}, longer{4, 3, 9};
  const OwnTables own(row);
  ParametersBox box, other_box, longer_box;
  const Parameters& p = vst_parameters(box, &own.tables, VstShape(row));
  EXPECT_EQ(p.max_bits(), row.bits());
  EXPECT_TRUE(p.compatible(vst_parameters(other_box, nullptr, VstShape(row))));
  const Parameters& without_tables = vst_parameters(longer_box, &own.tables, VstShape(longer));
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

TEST(VstChecks, RefusesCoefficientsThatAreTooLarge) {
  const VstRow row{6, 1, 10};
  const OwnTables own(row);
  ParametersBox box;
  const Parameters& p = vst_parameters(box, &own.tables, VstShape(row));
  const GuardedBlock F(p.transform_size()), tmp(p.scratch_size());
  Parallelizer_None none;
  std::vector<u32> a(row.bits() / 64, 77), t(row.bits() / 32);
  p.forward(F.buffer().ptr, Words{a.data(), a.size()}, tmp.buffer().ptr, {none, 1});
  static_cast<double*>(F.buffer().ptr)[17] += 1;
  EXPECT_THROW(p.inverse_fsqr(F.buffer().ptr, Window{t.data(), 0, t.size()}, tmp.buffer().ptr, {none, 1}),
               ConvolutionFailedException);
}

}  // namespace
}  // namespace orl
