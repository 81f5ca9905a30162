// What holds for every algorithm: extreme numbers of tasks, long carries, refusals, and shapes that no memory holds.
#include <gtest/gtest.h>

#include "support/thrown.h"
#include "transforms/common/product_test_support.h"

namespace orl::test {
namespace {

template <class Body>
void each_transform(Body&& body) {
  for (const auto& [id, instances] : algorithm_registry().all()) {
    if (id == "BKT") continue;
    SCOPED_TRACE(id);
    body(*instances.basic_u64);
  }
}

// More tasks than there is work for, in exactly the scratch that is stated.
TEST(Tasks, AnyNumberOfThemMakesTheProduct) {
  const std::vector<u32> a(16000, ~u32{0}), b(15000, ~u32{0});
  Parallelizer_None none;
  each_transform([&](const Algorithm& algorithm) {
    const AlgorithmTables tables(algorithm, 32 * 31000);
    for (const u64 tds : {7, 128, 65536}) check_window(algorithm, tables, none, tds, a, b, 0, 31000, false);
  });
}

TEST(Carries, RunThroughBlocksBelowTheWindow) {
  // 0xAA...AAB times 3: each block of points ends in ones that the carry of the one before turns to zeros.
  Parallelizer_Spawn spawn;
  Random random;
  each_transform([&](const Algorithm& algorithm) {
    for (const u64 words : {190, 750, 12000, 33000}) {
      const AlgorithmTables tables(algorithm, 32 * words);
      for (u32 i = 0; i < 20; ++i) {
        const u64 skip = random.below(words - 1), len = random.between(skip + 1, words);
        std::vector<u32> a(words - 1, 0xaaaaaaaa);
        a[0] = 0xaaaaaaab;
        if (i % 2) --a[skip - std::min(skip, random.between(1, 1500))];  // the carry ends here
        check_window(algorithm, tables, spawn, 3, a, {3}, skip, len, false);
        if (testing::Test::HasFatalFailure()) return;
      }
    }
  });
}

TEST(Parameters, RefuseWhatDoesNotFitAndKnowTheirLikes) {
  Parallelizer_None none;
  const ParallelContext one{none, 1};
  each_transform([&](const Algorithm& algorithm) {
    ParametersBox box, same_box, longer_box;
    const AlgorithmTables tables(algorithm, 100000);
    const Parameters& p =
        algorithm.parameters_for(box, &static_cast<const TransformTables&>(tables), 100000, 1);
    EXPECT_TRUE(p.compatible(algorithm.parameters_for(same_box, nullptr, p.max_bits(), 1)));
    const Parameters& longer =
        algorithm.parameters_for(longer_box, nullptr, std::min<u64>(algorithm.max_bits(), 1 << 27), 1);
    EXPECT_FALSE(p.compatible(longer));
    const ShapeAreas areas(longer);
    std::vector<u32> a(p.max_bits() / 32 + 1, 5);
    const Words<u32> words{a.data(), a.size()};
    EXPECT_THROW(p.forward(areas.f, words, areas.t, one), ConvolutionTooSmallException);
    EXPECT_THROW(p.inverse_fmul(areas.f, areas.f, Window{a.data(), 0, a.size()}, areas.t, one),
                 ConvolutionTooSmallException);
    if (p.wrapped()) {
      EXPECT_THROW(p.wrapped()->forward_cyclic(areas.f, words, areas.t, one), ConvolutionTooSmallException);
    }
    // The roots of the longer shape are not there.
    const auto without_roots = [&] {
      ParametersBox other;
      algorithm.parameters_for(other, &static_cast<const TransformTables&>(tables), longer.max_bits(), 1)
          .forward(areas.f, words, areas.t, one);
    };
    EXPECT_THROW(without_roots(), InvalidParametersException);
  });
}

TEST(Parameters, RefuseCoefficientsThatAreTooLarge) {
  Parallelizer_None none;
  for (const char* id : {"C17", "HNT", "VST"}) {
    SCOPED_TRACE(id);
    const Algorithm& algorithm = *algorithm_registry().find(id)->basic_u64;
    const AlgorithmTables tables(algorithm, 400000);
    ParametersBox box;
    const Parameters& p =
        algorithm.parameters_for(box, &static_cast<const TransformTables&>(tables), 400000, 1);
    const ShapeAreas areas(p);
    const std::vector<u32> a(p.max_bits() / 64, 77);
    std::vector<u32> square(2 * a.size());
    p.forward(areas.f, Words{a.data(), a.size()}, areas.t, {none, 1});
    static_cast<double*>(areas.f)[17] += 1;
    EXPECT_EQ(message_of([&] {
                p.inverse_fsqr(areas.f, Window{square.data(), 0, square.size()}, areas.t, {none, 1});
              }),
              "Coefficient is too large.");
  }
}

// Plans are made of sizes alone, so those of a petabit product are as good as any.
TEST(Plans, HoldWhatTheyAreAskedForUpToTheLargestProduct) {
  Random random;
  each_transform([&](const Algorithm& algorithm) {
    const u64 most = algorithm.max_bits();
    u64 before = 0;
    for (u64 bits = 4096; bits != 0;
         bits = bits == most ? 0 : std::min(most, bits + bits / 8 + random.below(64))) {
      const u64 alone = algorithm.sizes(bits, 1).scratch_bytes;
      for (const u64 tds : {u64{1}, u64{7}, u64{128}, u64{65536}}) {
        ParametersBox box;
        const Parameters& shape = algorithm.parameters_for(box, nullptr, bits, tds);
        EXPECT_LE(shape.scratch_size(), alone + shape.transform_size() / 2) << bits << " bits, " << tds;
        EXPECT_GE(shape.max_bits(), bits);
        EXPECT_LE(shape.max_bits(), bits + bits / 2 + 65536) << bits;
        EXPECT_EQ(shape.sizes().total_bytes(), algorithm.sizes(bits, tds).total_bytes());
        EXPECT_GT(shape.transform_size(), bits / 8) << bits;
        EXPECT_LT(shape.transform_size() / 16, bits / 8 + 65536) << bits;
        // The shape again at its own end, and another one beyond it.
        ParametersBox end_box;
        const u64 end = std::min(shape.max_bits(), most);
        EXPECT_TRUE(shape.compatible(algorithm.parameters_for(end_box, nullptr, end, tds))) << bits;
      }
      EXPECT_GE(algorithm.table_bytes(bits), before) << bits;
      before = algorithm.table_bytes(bits);
      EXPECT_LT(before, bits / 4 + (u64{1} << 24)) << bits;
      if (algorithm.id() == std::string("C17")) {
        EXPECT_LT(before, u64{1} << 28) << bits;
      }
    }
    ParametersBox box;
    EXPECT_THROW(algorithm.parameters_for(box, nullptr, most + 1, 1), LimitExceededException);
    EXPECT_THROW(algorithm.sizes(most + 1, 1), LimitExceededException);
    EXPECT_THROW(algorithm.parameters_for(box, nullptr, ~u64{0}, 1), LimitExceededException);
  });
}

}  // namespace
}  // namespace orl::test
