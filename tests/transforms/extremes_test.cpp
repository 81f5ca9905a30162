// The largest coefficients that a shape may meet, and shapes that no memory holds.
#include <gtest/gtest.h>

#include "core/exceptions.h"
#include "multiply/algorithm_table.h"
#include "support/multiplication.h"
#include "support/random_words.h"
#include "threads/simple_frameworks.h"
#include "transforms/c17/residue.h"
#include "transforms/c17/residue_bounds.h"
#include "transforms/c17/residue_primes.h"

namespace orl::test {
namespace {

// (W^a - 1)(W^b - 1) = W^(a+b) - W^a - W^b + 1, a >= b >= 1.
std::vector<u32> product_of_ones(u64 a, u64 b) {
  std::vector<u32> T(a + b, 0);
  T[0] = 1;
  for (u64 i = b; i < a; ++i) T[i] = ~u32{0};
  for (u64 i = a; i < a + b; ++i) T[i] = ~u32{0};
  T[a] -= 1;
  return T;
}

// Every point of both operands at its largest, at exactly the capacity of the shape: the middle coefficients
// reach the bound that the plan was checked against.
TEST(LargestCoefficients, AreExactForEveryTableShape) {
  const Algorithm& c17 = c17_algorithm();
  const u64 largest = 6000000;
  const GuardedBlock memory(c17.table_bytes(largest));
  TransformTables tables(memory.buffer());
  c17.ensure_tables(tables, largest);
  Parallelizer_None none;
  u64 seen = 0;
  for (const ResidueRow& row : residue_rows()) {
    if (row.bits() > largest) break;
    SCOPED_TRACE(testing::Message() << "P " << int{row.P} << " k " << int{row.k} << " n " << int{row.n});
    const u64 words = row.bits() / 32, a = words - words / 2, b = words / 2;
    const std::vector<u32> ones(a, ~u32{0});
    const GuardedBlock scratch(c17.sizes(row.bits(), 1).total_bytes());
    std::vector<u32> T(words);
    c17.mul_window({{none, 1}, tables, scratch.buffer()}, Window{T.data(), 0, words}, Words{ones.data(), a},
                   Words{ones.data(), b});
    EXPECT_EQ(T, product_of_ones(a, b));
    if (a == b) {
      c17.sqr_window({{none, 1}, tables, scratch.buffer()}, Window{T.data(), 0, words},
                     Words{ones.data(), a});
      EXPECT_EQ(T, product_of_ones(a, a));
    }
    EXPECT_TRUE(scratch.intact());
    ++seen;
  }
  EXPECT_GT(seen, 30u);
}

// More tasks than there is work for, in exactly the scratch that is stated.
TEST(Tasks, AnyNumberOfThemMakesTheProduct) {
  const u64 a = 16000, b = 15000;
  const std::vector<u32> ones(a, ~u32{0}), right = product_of_ones(a, b);
  Parallelizer_None none;
  for (const auto& [id, instances] : algorithm_registry().all()) {
    const Algorithm& algorithm = *instances.basic_u64;
    if (id == "BKT") continue;
    const GuardedBlock memory(algorithm.table_bytes(32 * (a + b)));
    TransformTables tables(memory.buffer());
    algorithm.ensure_tables(tables, 32 * (a + b));
    for (const u64 tds : {7, 128, 65536}) {
      SCOPED_TRACE(testing::Message() << id << ", " << tds << " tasks");
      const GuardedBlock scratch(algorithm.sizes(32 * (a + b), tds).total_bytes());
      std::vector<u32> T(a + b);
      algorithm.mul_window({{none, tds}, tables, scratch.buffer()}, {T.data(), 0, a + b}, {ones.data(), a},
                           {ones.data(), b});
      EXPECT_EQ(T, right);
      EXPECT_TRUE(scratch.intact());
    }
  }
}

// Plans are made of sizes alone, so those of a petabit product are as good as any.
TEST(Plans, HoldWhatTheyAreAskedForUpToTheLargestProduct) {
  Random random;
  SCOPED_TRACE(random.replay());
  for (const auto& [id, instances] : algorithm_registry().all()) {
    const Algorithm* algorithm = instances.basic_u64;
    if (algorithm == nullptr || id == "BKT") continue;
    SCOPED_TRACE(id);
    const u64 most = algorithm->max_bits();
    u64 before = 0;
    for (u64 bits = 4096; bits != 0;
         bits = bits == most ? 0 : std::min(most, bits + bits / 8 + random.below(64))) {
      const u64 alone = algorithm->sizes(bits, 1).scratch_bytes;
      for (const u64 tds : {u64{1}, u64{7}, u64{128}, u64{65536}}) {
        ParametersBox box;
        const Parameters& shape = algorithm->parameters_for(box, nullptr, bits, tds);
        EXPECT_LE(shape.scratch_size(), alone + shape.transform_size() / 2) << bits << " bits, " << tds;
        EXPECT_GE(shape.max_bits(), bits);
        EXPECT_LE(shape.max_bits(), bits + bits / 2 + 65536) << bits;
        EXPECT_EQ(shape.sizes().total_bytes(), algorithm->sizes(bits, tds).total_bytes());
        EXPECT_GT(shape.transform_size(), bits / 8) << bits;
        EXPECT_LT(shape.transform_size() / 16, bits / 8 + 65536) << bits;
        // The shape again at its own end, and another one beyond it.
        ParametersBox end_box;
        const u64 end = std::min(shape.max_bits(), most);
        EXPECT_TRUE(shape.compatible(algorithm->parameters_for(end_box, nullptr, end, tds))) << bits;
      }
      EXPECT_GE(algorithm->table_bytes(bits), before) << bits;
      before = algorithm->table_bytes(bits);
      EXPECT_LT(before, bits / 4 + (u64{1} << 24)) << bits;
      if (id == "C17") {
        EXPECT_LT(before, u64{1} << 28) << bits;
      }
    }
    ParametersBox box;
    EXPECT_THROW(algorithm->parameters_for(box, nullptr, most + 1, 1), LimitExceededException);
    EXPECT_THROW(algorithm->sizes(most + 1, 1), LimitExceededException);
    EXPECT_THROW(algorithm->parameters_for(box, nullptr, ~u64{0}, 1), LimitExceededException);
  }
}

}  // namespace
}  // namespace orl::test
