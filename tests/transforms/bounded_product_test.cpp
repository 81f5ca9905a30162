// Products in bounded memory through every registered algorithm that has products modulo W^n - 1 and W^n + 1.
#include <gtest/gtest.h>

#include "multiply/bounded_oracle.h"
#include "threads/simple_frameworks.h"

namespace orl::test {
namespace {

template <class Body>
void each_wrapping_algorithm(u64 bits, Body&& body) {
  u64 count = 0;
  for (const auto& [id, instances] : algorithm_registry().all()) {
    const Algorithm& algorithm = *instances.basic_u64;
    ParametersBox box;
    if (algorithm.max_bits() < bits || algorithm.parameters_for(box, nullptr, bits, 1).cyclic_words() == 0)
      continue;
    ++count;
    SCOPED_TRACE(id);
    body(algorithm);
  }
  EXPECT_GT(count, 0u);
}

template <class W>
class BoundedProducts : public testing::Test {};
TYPED_TEST_SUITE(BoundedProducts, BothWords);

TYPED_TEST(BoundedProducts, ManySizesShapesAndWindows) {
  using W = TypeParam;
  Random random;
  Parallelizer_None none;
  Parallelizer_Spawn spawn;
  constexpr u64 kBits = u64{1} << 22, kWords = kBits / (8 * sizeof(W));
  each_wrapping_algorithm(kBits, [&](const Algorithm& algorithm) {
    const AlgorithmTables tables(algorithm, kBits);
    for (int round = 0; round < 60; ++round) {
      const u64 c = random.between(2, kWords >> random.below(8)), AL = random.between(1, c - 1);
      const u64 skip = random.coin() ? 0 : random.below(c),
                len = random.coin() ? c : random.between(skip + 1, c);
      const ParallelContext parallel = random.coin() ? ParallelContext{none, 1} : ParallelContext{spawn, 3};
      check_bounded(algorithm, tables, parallel, random.words<W>(AL), random.words<W>(c - AL), skip, len);
      const std::vector<W> half = random.words<W>((c + 1) / 2);
      const u64 end = std::min<u64>(len, 2 * half.size());
      check_bounded(algorithm, tables, parallel, half, half, std::min(skip, end - 1), end);
      if (testing::Test::HasFatalFailure()) return;
    }
  });
}

// Shapes filled to the last word, where everything wraps that can.
TYPED_TEST(BoundedProducts, FullShapesOfAllOnes) {
  using W = TypeParam;
  Parallelizer_None none;
  constexpr u64 kBits = u64{1} << 19;
  each_wrapping_algorithm(kBits, [&](const Algorithm& algorithm) {
    const AlgorithmTables tables(algorithm, kBits);
    u64 full = 0;
    for (u64 bits = 4096; bits <= kBits / 2;) {
      ParametersBox box;
      const Parameters& shape = algorithm.parameters_for(box, nullptr, bits, 1);
      bits = shape.max_bits() + 1;
      const u64 n = 32 * shape.cyclic_words() / (8 * sizeof(W));
      if (n < 4 || shape.max_bits() > kBits / 2) continue;
      ++full;
      const W ones = static_cast<W>(~W{0});
      for (const u64 AL : {n, n + 1, 2 * n - 2}) {
        const u64 BL = 2 * n - AL;
        const std::vector<W> A(AL, ones), B(BL, ones);
        std::vector<W> one(BL);
        one[0] = 1;
        check_bounded(algorithm, tables, {none, 1}, A, B, 0, 2 * n);
        check_bounded(algorithm, tables, {none, 1}, A, one, 0, 2 * n);
      }
      // W^n is the second operand: modulo W^n + 1 the product is minus the first.
      std::vector<W> power(n + 1), zero(n), full_length(n, ones);
      power[n] = 1;
      check_bounded(algorithm, tables, {none, 1}, power, std::vector<W>(n - 1, ones), 0, 2 * n);
      check_bounded(algorithm, tables, {none, 1}, full_length, full_length, n - 1, 2 * n);
      check_bounded(algorithm, tables, {none, 1}, zero, zero, 0, 2 * n);
      if (testing::Test::HasFatalFailure()) return;
    }
    EXPECT_GT(full, 0u);
  });
}

// Far above the smallest shapes a product takes little more than half of the direct way's memory, wherever
// the shape for half of it has wrapped products.
TYPED_TEST(BoundedProducts, SaveMemory) {
  using W = TypeParam;
  constexpr u64 bits = 8 * sizeof(W);
  each_wrapping_algorithm(u64{1} << 24, [&](const Algorithm& algorithm) {
    for (u64 words = (u64{1} << 24) / bits; words >= (u64{1} << 20) / bits; words -= words / 50 + 1) {
      ParametersBox box;
      if (64 * algorithm.parameters_for(box, nullptr, words * bits / 2, 1).cyclic_words() < words * bits)
        continue;
      const MultiplySizes direct = algorithm.sizes(words * bits, 1);
      const ProductSizes bounded = algorithm.bounded_sizes(words * bits, words * bits, 1);
      EXPECT_LE(bounded.product_bytes, direct.total_bytes() * 3 / 4) << words;
      EXPECT_LT(bounded.square_bytes, direct.square_bytes()) << words;
    }
  });
}

}  // namespace
}  // namespace orl::test
