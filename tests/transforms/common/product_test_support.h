// What the tests of every family of transforms need: GMP's products, operands, and products in exactly the
// planned scratch.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

#include "support/gmp_oracle.h"
#include "support/multiplication.h"
#include "support/random_words.h"
#include "support/targets.h"
#include "threads/simple_frameworks.h"

namespace orl::test {

inline std::vector<u32> gmp_product(const std::vector<u32>& a, const std::vector<u32>& b) {
  return (Mpz(a) * Mpz(b)).words<u32>(a.size() + b.size());
}

/// A product modulo W^n - 1 or W^n + 1, in n + 1 words.
inline std::vector<u32> gmp_wrapped(const Mpz& product, u64 n, Wrap ring) {
  const Mpz whole = Mpz(1) << 32 * n, high = product >> 32 * n, low = product - (high << 32 * n);
  return (ring == Wrap::cyclic ? (low + high) % (whole - Mpz(1)) : (low - high) % (whole + Mpz(1)))
      .words<u32>(n + 1);
}

/// Ones, random words, or long runs of zeros and ones, by kind 0, 1, 2.
inline std::vector<u32> operand(Random& random, u64 words, u64 kind) {
  std::vector<u32> a(words);
  for (u32& w : a) w = kind == 0 ? ~u32{0} : kind == 1 ? random.word<u32>() : random.edge_word<u32>();
  return a;
}

/// The largest product of a row of a size table.
template <class Row>
u64 bits_of(const Row& row) {
  if constexpr (requires { row.bits(); })
    return row.bits();
  else
    return row.bits;
}

/// Words [skip, len) of a product or square against GMP's.
inline void check_window(const Algorithm& algorithm, const TransformTables& tables,
                         Parallelizer& parallelizer, u64 threads, const std::vector<u32>& a,
                         const std::vector<u32>& b, u64 skip, u64 len, bool square) {
  const MultiplySizes sizes = algorithm.sizes((a.size() + b.size()) * 32, threads);
  const GuardedBlock scratch(square ? sizes.square_bytes() : sizes.total_bytes());
  const MultiplyContext ctx{{parallelizer, threads}, tables, scratch.buffer()};
  GuardedWords<u32> T(len - skip, skip);
  if (square)
    algorithm.sqr_window(ctx, Window{T.data(), skip, len}, Words{a.data(), a.size()});
  else
    algorithm.mul_window(ctx, Window{T.data(), skip, len}, Words{a.data(), a.size()},
                         Words{b.data(), b.size()});
  const std::vector<u32> right = gmp_product(a, b);
  ASSERT_EQ(std::memcmp(T.data(), right.data() + skip, 4 * (len - skip)), 0)
      << a.size() << " by " << b.size() << ", words " << skip << " to " << len << ", " << threads << " tasks";
  ASSERT_TRUE(scratch.intact() && T.intact());
}

/// Every row up to `largest` bits, at its boundary and above the row before it, by tables that grew to them.
template <class Rows>
void check_rows(const Algorithm& algorithm, const Rows& rows, u64 largest) {
  Random random;
  const GuardedBlock memory(algorithm.table_bytes(largest / 8) + algorithm.table_bytes(largest));
  TransformTables tables(memory.buffer());
  for (const u64 bits : {largest / 8, largest}) algorithm.ensure_tables(tables, bits);
  Parallelizer_None none;
  Parallelizer_Spawn spawn;
  u64 below = 64, number = 0;
  for (const auto& row : rows) {
    const u64 bits = bits_of(row);
    if (bits > largest) break;
    SCOPED_TRACE(testing::Message() << "row of " << bits << " bits");
    const u64 words = bits / 32, kind = number++ % 3;
    // All points at their largest: the middle coefficients reach the bound that the plan was checked against.
    const std::vector<u32> ones = operand(random, words / 2, 0);
    check_window(algorithm, tables, none, 1, operand(random, words - words / 2, 0), ones, 0, words, false);
    check_window(algorithm, tables, none, 1, ones, ones, 0, 2 * ones.size(), true);
    const u64 al = number % 2 ? words / 2 : random.between(1, words - 1);
    const std::vector<u32> a = operand(random, al, kind), b = operand(random, words - al, 2);
    const u64 skip = random.below(words), len = random.between(skip + 1, words);
    check_window(algorithm, tables, spawn, random.between(2, 5), a, b, skip, len, false);
    const u64 low = below / 32 + 1;
    const std::vector<u32> s = operand(random, low / 2 + 1, 2);
    check_window(algorithm, tables, none, 1, s, s, 0, 2 * s.size(), true);
    below = bits;
    if (testing::Test::HasFatalFailure()) return;
  }
  EXPECT_TRUE(memory.intact());
}

/// Tables of one shape, in exactly its bytes.
template <class Tables, class Row>
struct ShapeTables {
  ShapeTables(const char* id, const Row& row) : memory(Tables::bytes({&row, 1})), tables(memory.buffer()) {
    auto own = std::make_unique<Tables>();
    own->grow(tables.memory(), {&row, 1});
    tables.put(id, std::move(own));
  }
  ~ShapeTables() { EXPECT_TRUE(memory.intact()); }
  GuardedBlock memory;
  TransformTables tables;
};

/// One shape's transform kept over two products and squared at last; windows of words of type W.
template <class W>
void check_kept_in(const Parameters& p, Random& random, ParallelContext parallel) {
  const ShapeAreas areas(p);
  void *const f = areas.f, *const g = areas.g, *const t = areas.t;
  const u64 words = p.max_bits() / (8 * sizeof(W)), kept_words = words / 2;
  const auto some = [&](u64 count) {
    const std::vector<u32> a = operand(random, count * sizeof(W) / 4, random.below(3));
    return Mpz(a).words<W>(count);
  };
  const std::vector<W> kept = some(kept_words);
  p.forward(g, Words{kept.data(), kept_words}, t, parallel);
  const std::vector<u8> before(static_cast<u8*>(g), static_cast<u8*>(g) + p.transform_size());
  for (const u64 count : {words - kept_words, random.between(1, kept_words)}) {
    const std::vector<W> other = some(count);
    const u64 all = kept_words + count, skip = random.below(all), len = random.between(skip + 1, all);
    GuardedWords<W> T(len - skip, skip);
    p.forward(f, Words{other.data(), count}, t, parallel);
    p.inverse_fmul(f, g, Window{T.data(), skip, len}, t, parallel);
    EXPECT_TRUE(T.words() == (Mpz(kept) * Mpz(other)).window<W>(skip, len)) << skip << " to " << len;
    EXPECT_EQ(std::memcmp(g, before.data(), before.size()), 0);
    EXPECT_TRUE(T.intact());
  }
  std::vector<W> square(2 * kept_words);
  p.inverse_fsqr(g, Window{square.data(), 0, square.size()}, t, parallel);
  EXPECT_TRUE(square == (Mpz(kept) * Mpz(kept)).words<W>(square.size()));
}
inline void check_kept(const Parameters& p, Random& random, ParallelContext parallel) {
  random.coin() ? check_kept_in<u32>(p, random, parallel) : check_kept_in<u64>(p, random, parallel);
}
inline void check_kept(const Parameters& p, Random& random, u64 threads) {
  Parallelizer_Spawn spawn;
  check_kept(p, random, ParallelContext{spawn, threads});
}

/// One shape's products modulo W^n - 1 and W^n + 1, n words of 32 bits all in use: squares, products that are 0 or
/// W^n, and others.
inline void check_wrapped(const Parameters& p, Random& random, u64 threads) {
  Parallelizer_Spawn spawn;
  const ParallelContext parallel{spawn, threads};
  const ShapeAreas areas(p);
  const u64 n = p.cyclic_words();
  ASSERT_EQ(32 * n, p.max_bits());
  const std::vector<u32> ones(n, ~u32{0}), one{1}, zero(3);
  std::vector<u32> half(n / 2 + 1);  // for an even n its square is W^n
  half.back() = 1;
  const std::pair<std::vector<u32>, std::vector<u32>> products[] = {
      {ones, ones},
      {ones, one},
      {half, half},
      {operand(random, n, 1), operand(random, random.between(1, n), 1)},
      {operand(random, random.between(1, n), 1), zero},
      {operand(random, n, 2), ones}};
  for (const auto& [a, b] : products) {
    const Mpz product = Mpz(a) * Mpz(b);
    for (const Wrap ring : {Wrap::cyclic, Wrap::negacyclic}) {
      void* const G = a == b ? areas.f : areas.g;
      GuardedWords<u32> T(n, 1);
      p.wrapped()->forward_wrapped(ring, areas.f, Words{a.data(), a.size()}, areas.t, parallel);
      if (a != b) p.wrapped()->forward_wrapped(ring, G, Words{b.data(), b.size()}, areas.t, parallel);
      const bool top = p.wrapped()->pointwise_wrapped(ring, areas.f, G, T.data(), areas.t, parallel);
      std::vector<u32> found = T.words();
      if (ring == Wrap::cyclic && found == ones) found.assign(n, 0);  // W^n - 1 stands for 0
      found.push_back(ring == Wrap::negacyclic && top);
      EXPECT_EQ(found, gmp_wrapped(product, n, ring))
          << a.size() << " by " << b.size() << (ring == Wrap::cyclic ? ", cyclic" : ", negacyclic");
      EXPECT_TRUE(T.intact());
    }
  }
}

}  // namespace orl::test
