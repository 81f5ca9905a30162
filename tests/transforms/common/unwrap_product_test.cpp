#include "transforms/common/unwrap_product.h"

#include <gtest/gtest.h>

#include "threads/simple_frameworks.h"
#include "transforms/common/product_test_support.h"

namespace orl::test {
namespace {

/// What the lowest words and the residue of a product of n + m words are, and what they are put together to.
struct Wrapped {
  std::vector<u32> product, T, low;

  Wrapped(const std::vector<u32>& a, const std::vector<u32>& b, u64 n) : product(gmp_product(a, b)) {
    const u64 m = product.size() - n;
    T = gmp_wrapped(Mpz(product), n, Wrap::cyclic);
    T.resize(n);
    T.resize(n + m, 0xABCDEF01);
    low.assign(product.begin(), product.begin() + static_cast<s64>(m) + 1);
  }
  bool unwrap(u64 n, u64 threads) {
    Parallelizer_Spawn spawn;
    return unwrap_product(T.data(), n, low.data(), product.size() - n, {spawn, threads});
  }
};

TEST(UnwrapProduct, GivesTheProductFromResidueAndLowestWords) {
  Random random;
  for (u64 i = 0; i < 3000; ++i) {
    const u64 n = random.between(2, i % 100 == 0 ? 3000 : 12), m = random.between(1, n - 1);
    const u64 longer = random.between((n + m + 1) / 2, n);
    std::vector<u32> a = operand(random, longer, i % 3), b = operand(random, n + m - longer, i / 3 % 3);
    if (i % 50 == 7) std::fill(b.begin(), b.end(), u32{0});
    Wrapped wrapped(a, b, n);
    // A transform may give W^n - 1 for a residue of 0.
    if (i % 50 == 7 && i % 100 == 7) std::fill_n(wrapped.T.begin(), n, ~u32{0});
    ASSERT_TRUE(wrapped.unwrap(n, random.between(1, 4)));
    ASSERT_EQ(wrapped.T, wrapped.product) << "n " << n << ", m " << m;
  }
}

TEST(UnwrapProduct, RefusesWordsThatBelongToNoProduct) {
  Random random;
  for (u64 i = 0; i < 200; ++i) {
    const u64 n = random.between(3, 40), m = random.between(1, n - 1);
    const std::vector<u32> a = operand(random, n, 1), b = operand(random, m, 1);
    Wrapped wrapped(a, b, n);
    // What is above W^n has m words, so a difference in the next one cannot be.
    (i % 2 ? wrapped.low[m] : wrapped.T[m]) ^= u32{1} << random.between(2, 30);
    EXPECT_FALSE(wrapped.unwrap(n, 1)) << "n " << n << ", m " << m;
  }
}

}  // namespace
}  // namespace orl::test
