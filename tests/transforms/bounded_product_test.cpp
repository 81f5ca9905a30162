// Products in bounded memory through every registered algorithm that has products modulo W^n - 1 and W^n + 1.
#include <gtest/gtest.h>

#include "multiply/algorithm_table.h"
#include "multiply/crt_mulp.h"
#include "support/gmp_oracle.h"
#include "support/multiplication.h"
#include "support/random_words.h"
#include "threads/frameworks.h"
#include "threads/simple_frameworks.h"

namespace orl::test {
namespace {

// Tables of one algorithm, in exactly their bytes.
class OwnTables {
 public:
  OwnTables(const Algorithm& algorithm, u64 bits)
      : block_(algorithm.table_bytes(bits)), tables_(block_.buffer()) {
    algorithm.ensure_tables(tables_, bits);
  }
  operator const TransformTables&() const { return tables_; }

 private:
  GuardedBlock block_;
  TransformTables tables_;
};

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
std::vector<W> part(const Mpz& X, u64 skip, u64 len) {
  return (X >> (8 * sizeof(W) * skip)).words<W>(len - skip);
}

template <class W>
void expect_product(const Algorithm& algorithm, const OwnTables& tables, ParallelContext parallel,
                    const std::vector<W>& A, const std::vector<W>& B, u64 skip, u64 len) {
  constexpr u64 bits = 8 * sizeof(W);
  const auto bytes = [&](u64 words) {
    return algorithm.bounded_sizes(words * bits, (len - skip) * bits, parallel.tds);
  };
  const u64 c = A.size() + B.size();
  const GuardedBlock scratch(bytes(c).product_bytes);
  GuardedWords<W> T(len - skip, skip);
  algorithm.mul_bounded({parallel, tables, scratch.buffer()}, Window{T.data(), skip, len},
                        Words{A.data(), A.size()}, Words{B.data(), B.size()});
  ASSERT_TRUE(T.words() == part<W>(Mpz(A) * Mpz(B), skip, len))
      << A.size() << " by " << B.size() << ", words " << skip << " to " << len << ", " << bits << " bits";
  ASSERT_TRUE(T.intact() && scratch.intact());
}

template <class W>
void expect_square(const Algorithm& algorithm, const OwnTables& tables, ParallelContext parallel,
                   const std::vector<W>& A, u64 skip, u64 len) {
  constexpr u64 bits = 8 * sizeof(W);
  const GuardedBlock scratch(
      algorithm.bounded_sizes(2 * A.size() * bits, (len - skip) * bits, parallel.tds).square_bytes);
  GuardedWords<W> T(len - skip, skip);
  algorithm.sqr_bounded({parallel, tables, scratch.buffer()}, Window{T.data(), skip, len},
                        Words{A.data(), A.size()});
  ASSERT_TRUE(T.words() == part<W>(Mpz(A) * Mpz(A), skip, len))
      << A.size() << ", words " << skip << " to " << len;
  ASSERT_TRUE(T.intact() && scratch.intact());
}

template <class W>
class BoundedProducts : public testing::Test {};
using WordTypes = testing::Types<u32, u64>;
TYPED_TEST_SUITE(BoundedProducts, WordTypes);

TYPED_TEST(BoundedProducts, ManySizesShapesAndWindows) {
  using W = TypeParam;
  Random random;
  SCOPED_TRACE(random.replay());
  Parallelizer_None none;
  Parallelizer_Spawn spawn;
  constexpr u64 kBits = u64{1} << 22, kWords = kBits / (8 * sizeof(W));
  each_wrapping_algorithm(kBits, [&](const Algorithm& algorithm) {
    const OwnTables tables(algorithm, kBits);
    for (int round = 0; round < 60; ++round) {
      const u64 c = random.between(2, kWords >> random.below(8)), AL = random.between(1, c - 1);
      const u64 skip = random.coin() ? 0 : random.below(c),
                len = random.coin() ? c : random.between(skip + 1, c);
      const ParallelContext parallel = random.coin() ? ParallelContext{none, 1} : ParallelContext{spawn, 3};
      expect_product(algorithm, tables, parallel, random.words<W>(AL), random.words<W>(c - AL), skip, len);
      const u64 L = (c + 1) / 2, end = std::min(len, 2 * L);
      expect_square(algorithm, tables, parallel, random.words<W>(L), std::min(skip, end - 1), end);
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
    const OwnTables tables(algorithm, kBits);
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
        expect_product(algorithm, tables, {none, 1}, A, B, 0, 2 * n);
        expect_product(algorithm, tables, {none, 1}, A, one, 0, 2 * n);
      }
      // W^n is the second operand: modulo W^n + 1 the product is minus the first.
      std::vector<W> power(n + 1), zero(n);
      power[n] = 1;
      expect_product(algorithm, tables, {none, 1}, power, std::vector<W>(n - 1, ones), 0, 2 * n);
      expect_square(algorithm, tables, {none, 1}, std::vector<W>(n, ones), n - 1, 2 * n);
      expect_square(algorithm, tables, {none, 1}, zero, 0, 2 * n);
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
      const BoundedSizes bounded = algorithm.bounded_sizes(words * bits, words * bits, 1);
      EXPECT_LE(bounded.product_bytes, direct.total_bytes() * 3 / 4) << words;
      EXPECT_LT(bounded.square_bytes, direct.square_bytes()) << words;
    }
  });
}

}  // namespace
}  // namespace orl::test
