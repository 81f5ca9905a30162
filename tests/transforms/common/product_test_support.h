// What the tests of every family of transforms need: GMP's products, operands, and products in exactly the
// planned scratch.
#pragma once

#include <gmp.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "simd/target.h"
#include "support/multiplication.h"
#include "support/random_words.h"
#include "threads/simple_frameworks.h"

namespace orl::test {

inline std::vector<u32> gmp_product(const std::vector<u32>& a, const std::vector<u32>& b) {
  mpz_t x, y;
  mpz_inits(x, y, nullptr);
  mpz_import(x, a.size(), -1, 4, 0, 0, a.data());
  mpz_import(y, b.size(), -1, 4, 0, 0, b.data());
  mpz_mul(x, x, y);
  std::vector<u32> product(a.size() + b.size() + 2);
  size_t count;
  mpz_export(product.data(), &count, -1, 4, 0, 0, x);
  mpz_clears(x, y, nullptr);
  product.resize(a.size() + b.size());
  return product;
}

/// a b modulo W^n - 1 or W^n + 1, in n + 1 words.
inline std::vector<u32> gmp_wrapped(const std::vector<u32>& a, const std::vector<u32>& b, u64 n,
                                    bool negacyclic) {
  const std::vector<u32> x = gmp_product(a, b);
  mpz_t value, modulus;
  mpz_inits(value, modulus, nullptr);
  mpz_import(value, x.size(), -1, 4, 0, 0, x.data());
  mpz_setbit(modulus, 32 * n);
  if (negacyclic)
    mpz_add_ui(modulus, modulus, 1);
  else
    mpz_sub_ui(modulus, modulus, 1);
  mpz_mod(value, value, modulus);
  std::vector<u32> residue(n + 1);
  size_t count;
  mpz_export(residue.data(), &count, -1, 4, 0, 0, value);
  mpz_clears(value, modulus, nullptr);
  return residue;
}

/// Ones, random words, or long runs of zeros and ones, by kind 0, 1, 2.
inline std::vector<u32> operand(Random& random, u64 words, u64 kind) {
  std::vector<u32> a(words);
  for (u32& w : a) w = kind == 0 ? ~u32{0} : kind == 1 ? random.word<u32>() : random.edge_word<u32>();
  return a;
}

/// Words [skip, len) of a product or square against GMP's.
inline void check_window(const Algorithm& algorithm, const TransformTables& tables,
                         Parallelizer& parallelizer, u64 threads, const std::vector<u32>& a,
                         const std::vector<u32>& b, u64 skip, u64 len, bool square) {
  const MultiplySizes sizes = algorithm.sizes((a.size() + b.size()) * 32, threads);
  const GuardedBlock scratch(square ? sizes.square_bytes() : sizes.total_bytes());
  const MultiplyContext ctx{{parallelizer, threads}, tables, scratch.buffer()};
  const GuardedBlock target((4 * (len - skip) + 63) / 64 * 64);
  u32* T = static_cast<u32*>(target.buffer().ptr);
  if (square)
    algorithm.sqr_window(ctx, Window{T, skip, len}, Words{a.data(), a.size()});
  else
    algorithm.mul_window(ctx, Window{T, skip, len}, Words{a.data(), a.size()}, Words{b.data(), b.size()});
  const std::vector<u32> right = gmp_product(a, b);
  ASSERT_TRUE(std::equal(right.begin() + static_cast<s64>(skip), right.begin() + static_cast<s64>(len), T));
  ASSERT_TRUE(scratch.intact() && target.intact());
}

/// Every row up to `largest` bits, at its boundary and above the row before it, by tables that grew to them.
template <class Rows>
void check_rows(const Algorithm& algorithm, const Rows& rows, u64 largest) {
  Random random;
  SCOPED_TRACE(random.replay());
  const GuardedBlock memory(algorithm.table_bytes(largest / 8) + algorithm.table_bytes(largest));
  TransformTables tables(memory.buffer());
  for (const u64 bits : {largest / 8, largest}) algorithm.ensure_tables(tables, bits);
  Parallelizer_None none;
  Parallelizer_Spawn spawn;
  u64 below = 64, number = 0;
  for (const auto& row : rows) {
    if (row.bits() > largest) break;
    SCOPED_TRACE(testing::Message() << "P " << int{row.P} << " k " << int{row.k} << " n " << int{row.n}
                                    << ", " << row.bits() << " bits");
    const u64 words = row.bits() / 32, kind = number++ % 3;
    const u64 al = number % 2 ? words / 2 : random.between(1, words - 1);
    const u64 bl = words - al;
    check_window(algorithm, tables, none, 1, operand(random, al, 0), operand(random, bl, 0), 0, words, false);
    const std::vector<u32> a = operand(random, al, kind), b = operand(random, bl, 2);
    const u64 skip = random.below(words), len = random.between(skip + 1, words);
    check_window(algorithm, tables, spawn, random.between(2, 5), a, b, skip, len, false);
    const u64 low = below / 32 + 1;
    const std::vector<u32> s = operand(random, low / 2 + 1, 2);
    check_window(algorithm, tables, none, 1, s, s, 0, 2 * s.size(), true);
    below = row.bits();
    if (testing::Test::HasFatalFailure()) return;
  }
  EXPECT_TRUE(memory.intact());
}

/// One shape's transform kept over two products and squared at last; windows of 64-bit words.
inline void check_kept(const Parameters& p, Random& random, u64 threads) {
  Parallelizer_Spawn spawn;
  const ParallelContext parallel{spawn, threads};
  const GuardedBlock F(p.transform_size()), G(p.transform_size()), tmp(p.scratch_size());
  void *const f = F.buffer().ptr, *const g = G.buffer().ptr, *const t = tmp.buffer().ptr;
  const u64 words = p.max_bits() / 64;
  const std::vector<u32> kept = operand(random, 2 * (words / 2), random.below(2));
  const auto as_u64 = [](const std::vector<u32>& v) { return reinterpret_cast<const u64*>(v.data()); };
  const auto expect_window = [&](const std::vector<u32>& other, u64 skip, u64 len, const u64* T) {
    const std::vector<u32> right = gmp_product(kept, other);
    EXPECT_EQ(std::memcmp(T, right.data() + 2 * skip, 8 * (len - skip)), 0) << skip << " to " << len;
  };
  p.forward(g, Words{as_u64(kept), kept.size() / 2}, t, parallel);
  const std::vector<u8> before(static_cast<u8*>(g), static_cast<u8*>(g) + p.transform_size());
  for (const u64 other_words : {words - words / 2, random.between(1, words / 2)}) {
    const std::vector<u32> other = operand(random, 2 * other_words, random.below(3));
    const u64 all = words / 2 + other_words, skip = random.below(all / 2) | 1,
              len = random.between(skip + 1, all);
    const GuardedBlock target((8 * (len - skip) + 63) / 64 * 64);
    p.forward(f, Words{as_u64(other), other_words}, t, parallel);
    p.inverse_fmul(f, g, Window{static_cast<u64*>(target.buffer().ptr), skip, len}, t, parallel);
    expect_window(other, skip, len, static_cast<u64*>(target.buffer().ptr));
    EXPECT_EQ(std::memcmp(g, before.data(), before.size()), 0);
    EXPECT_TRUE(target.intact());
  }
  std::vector<u64> square(kept.size());
  p.inverse_fsqr(g, Window{square.data(), 0, square.size()}, t, parallel);
  expect_window(kept, 0, square.size(), square.data());
  EXPECT_TRUE(F.intact() && G.intact() && tmp.intact());
}

/// One shape's products modulo W^n - 1 and W^n + 1, n words of 32 bits all in use; a product that is W^n.
inline void check_wrapped(const Parameters& p, Random& random, u64 threads) {
  Parallelizer_Spawn spawn;
  const ParallelContext parallel{spawn, threads};
  const GuardedBlock F(p.transform_size()), G(p.transform_size()), tmp(p.scratch_size());
  void *const f = F.buffer().ptr, *const g = G.buffer().ptr, *const t = tmp.buffer().ptr;
  const u64 n = p.cyclic_words();
  ASSERT_EQ(32 * n, p.max_bits());
  const GuardedBlock target((4 * n + 63) / 64 * 64);
  u32* const T = static_cast<u32*>(target.buffer().ptr);
  for (u64 kind = 0; kind < 3; ++kind) {
    const std::vector<u32> a = operand(random, n, kind);
    const std::vector<u32> b = operand(random, kind == 1 ? n / 3 : n, 2 - kind);
    p.wrapped()->forward_cyclic(f, Words{a.data(), a.size()}, t, parallel);
    p.wrapped()->forward_cyclic(g, Words{b.data(), b.size()}, t, parallel);
    p.wrapped()->pointwise_cyclic(f, g, T, t, parallel);
    std::vector<u32> found(T, T + n);
    // W^n - 1 stands for 0.
    if (std::all_of(found.begin(), found.end(), [](u32 w) { return w == ~u32{0}; })) found.assign(n, 0);
    found.push_back(0);
    EXPECT_EQ(found, gmp_wrapped(a, b, n, false)) << "cyclic " << kind;
    p.wrapped()->forward_negacyclic(f, Words{a.data(), a.size()}, t, parallel);
    p.wrapped()->forward_negacyclic(g, Words{b.data(), b.size()}, t, parallel);
    const bool top = p.wrapped()->pointwise_negacyclic(f, g, T, t, parallel);
    found.assign(T, T + n);
    found.push_back(top);
    EXPECT_EQ(found, gmp_wrapped(a, b, n, true)) << "negacyclic " << kind;
    EXPECT_TRUE(target.intact());
  }
  if (n % 2 == 0) {
    std::vector<u32> half(n);  // its square is W^n
    half[n / 2] = 1;
    p.wrapped()->forward_negacyclic(f, Words{half.data(), n}, t, parallel);
    EXPECT_TRUE(p.wrapped()->pointwise_negacyclic(f, f, T, t, parallel));
    EXPECT_TRUE(std::all_of(T, T + n, [](u32 w) { return w == 0; }));
  }
  EXPECT_TRUE(F.intact() && G.intact() && tmp.intact() && target.intact());
}

/// Runs with the kernels of its parameter, where this machine has them.
class TargetTest : public testing::TestWithParam<simd::Target> {
 protected:
  TargetTest() : before_(simd::active_target()) {
    if (GetParam() <= simd::best_target()) simd::set_active_target(GetParam());
  }
  ~TargetTest() override { simd::set_active_target(before_); }
  simd::Target before_;
};

}  // namespace orl::test
