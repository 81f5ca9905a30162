#include "multiply/crt_mulp.h"
#include "multiply/crt_combine.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "core/exceptions.h"
#include "multiply/bounded_oracle.h"
#include "multiply/toy_algorithm.h"
#include "support/test_parallelizers.h"
#include "threads/simple_frameworks.h"

namespace orl::test {
namespace {

// crt_combine ---------------------------------------------------------------------------------------------

void expect_combined(const Mpz& X, u64 n, u64 skip, u64 len, bool ones_for_zero, ParallelContext parallel) {
  const Mpz whole = Mpz(1) << (32 * n);
  const Mpz low = X % whole, high = X >> (32 * n);
  Mpz c = low + high, d = low - high;
  if (c >= whole - Mpz(1)) c = c - (whole - Mpz(1));
  if (d.sign() < 0) d = d + (whole + Mpz(1));
  if (ones_for_zero && c == Mpz(0)) c = whole - Mpz(1);
  std::vector<u32> Cc = c.words<u32>(n);
  const std::vector<u32> Cn = d.words<u32>(n);
  GuardedWords<u32> T(len - skip, skip);
  CrtPieces pieces;
  pieces.add(0, Cc.data());
  crt_combine({{T.data(), skip, len}, n}, pieces, Cn.data(), d == whole, parallel);
  ASSERT_EQ(T.words(), X.window<u32>(skip, len)) << "n " << n << ", words " << skip << " to " << len;
  ASSERT_TRUE(T.intact());
}

TEST(CrtCombine, FindsTheOneNumberOfBothResidues) {
  Random random;
  Parallelizer_None none;
  for (u64 n = 1; n <= 6; ++n) {
    const Mpz whole = Mpz(1) << (32 * n), limit = whole * whole - Mpz(1);
    std::vector<Mpz> numbers = {Mpz(0), limit - Mpz(1), limit - Mpz(2), limit / Mpz(2)};
    for (const u64 q : {0, 1, 2, 3})  // around the multiples of either modulus, both residues small or large
      for (const Mpz& modulus : {whole - Mpz(1), whole + Mpz(1), whole})
        for (const Mpz& base : {modulus * Mpz(q), limit - modulus * Mpz(q)})
          for (u64 r = 0; r <= 4; ++r) numbers.push_back((base + limit + Mpz(r) - Mpz(2)) % limit);
    for (int i = 0; i < 200; ++i) numbers.push_back(Mpz(random.words<u32>(2 * n)) % limit);
    for (const Mpz& X : numbers)
      for (const bool ones : {false, true}) {
        expect_combined(X, n, 0, 2 * n, ones, {none, 1});
        const u64 skip = random.below(2 * n);
        expect_combined(X, n, skip, random.between(skip + 1, 2 * n), ones, {none, 1});
      }
  }
}

// Long runs of equal, zero and all-ones words carry everything across the blocks.
TEST(CrtCombine, CarriesCrossBlocks) {
  Random random;
  ReverseOrder reverse;
  const ParallelContext parallel{reverse, 5};
  const u64 n = 5 * 8192 + 3;
  const Mpz whole = Mpz(1) << (32 * n), limit = whole * whole - Mpz(1);
  std::vector<Mpz> numbers = {Mpz(0), limit - Mpz(1), whole, whole - Mpz(1), whole + Mpz(1), whole - Mpz(2)};
  for (const u64 bit : {u64{1}, u64{32 * 8192}, 32 * n - 1})
    for (const u64 r : {0, 1, 2, 3}) {
      numbers.push_back((whole * (Mpz(1) << bit) + Mpz(r) - Mpz(1)) % limit);
      numbers.push_back((limit - (Mpz(1) << bit) + Mpz(r)) % limit);
      numbers.push_back(((Mpz(1) << bit) * (whole + Mpz(1)) + Mpz(r) - Mpz(2)) % limit);
      numbers.push_back((((Mpz(1) << bit) - Mpz(1)) * (whole - Mpz(1)) + Mpz(r)) % limit);
    }
  for (int i = 0; i < 12; ++i) numbers.push_back(Mpz(random.words<u32>(2 * n)) % limit);
  for (const Mpz& X : numbers) {
    expect_combined(X, n, 0, 2 * n, random.coin(), parallel);
    const u64 skip = random.below(2 * n);
    expect_combined(X, n, skip, random.between(skip + 1, 2 * n), random.coin(), parallel);
  }
  EXPECT_GT(reverse.ranges, 0u);
}

// CRT_mulp ------------------------------------------------------------------------------------------------

// A square where A and B are one object.
void expect_product(const Parameters& shape, const std::vector<u32>& A, const std::vector<u32>& B, u64 skip,
                    u64 len, ParallelContext parallel) {
  const bool square = &A == &B;
  GuardedWords<u32> T(len - skip, skip);
  const Window window{T.data(), skip, len};
  const GuardedBlock tmp(square ? crt_sqrp_bytes(shape, len - skip) : crt_mulp_bytes(shape, len - skip));
  if (square)
    CRT_sqrp(shape, window, Words{A.data(), A.size()}, tmp.buffer(), parallel);
  else
    CRT_mulp(shape, window, Words{A.data(), A.size()}, Words{B.data(), B.size()}, tmp.buffer(), parallel);
  ASSERT_EQ(T.words(), (Mpz(A) * Mpz(B)).window<u32>(skip, len))
      << A.size() << " by " << B.size() << ", words " << skip << " to " << len << ", n "
      << shape.cyclic_words();
  ASSERT_TRUE(T.intact() && tmp.intact());
}
void expect_square(const Parameters& shape, const std::vector<u32>& A, u64 skip, u64 len,
                   ParallelContext parallel) {
  expect_product(shape, A, A, skip, len, parallel);
}

TEST(CrtMulp, EveryLengthAndWindowOfSmallShapes) {
  Random random;
  Parallelizer_None none;
  for (u64 n = 1; n <= 5; ++n) {
    const ToyParameters shape(n, n);
    for (u64 AL = 1; AL < 2 * n; ++AL)
      for (u64 BL = 1; AL + BL <= 2 * n; ++BL)
        for (u64 skip = 0; skip < AL + BL; ++skip)
          for (u64 len = skip + 1; len <= AL + BL; ++len)
            for (int round = 0; round < 3; ++round)
              expect_product(shape, random.words<u32>(AL), random.words<u32>(BL), skip, len, {none, 1});
    for (u64 L = 1; L <= n; ++L)
      for (u64 skip = 0; skip < 2 * L; ++skip)
        for (u64 len = skip + 1; len <= 2 * L; ++len)
          expect_square(shape, random.words<u32>(L), skip, len, {none, 1});
  }
}

// A = W^n modulo W^n + 1 has no transform: its product is -B, and B = 1 makes that W^n itself.
TEST(CrtMulp, TrivialFoldOfTheLongOperand) {
  Random random;
  Parallelizer_None none;
  for (u64 n = 2; n <= 7; ++n) {
    const ToyParameters shape(n, n);
    const Mpz modulus = (Mpz(1) << (32 * n)) + Mpz(1);
    for (u64 AL = n + 1; AL < 2 * n; ++AL) {
      const u64 BL = 2 * n - AL;
      // k (W^n + 1) - 1 in AL words.
      const Mpz k = Mpz(random.number<u32>(AL - n)) % ((Mpz(1) << (32 * (AL - n))) - Mpz(1)) + Mpz(1);
      const std::vector<u32> A = (k * modulus - Mpz(1)).words<u32>(AL);
      for (const Mpz& b :
           {Mpz(0), Mpz(1), Mpz(2), (Mpz(1) << (32 * BL)) - Mpz(1), Mpz(random.words<u32>(BL))}) {
        const std::vector<u32> B = b.words<u32>(BL);
        expect_product(shape, A, B, 0, 2 * n, {none, 1});
        expect_product(shape, B, A, n - 1, 2 * n - 1, {none, 1});
      }
    }
  }
}

// The result over the whole of an operand, or parts of both.
TEST(CrtMulp, ResultsMayLieOverOperands) {
  Random random;
  Parallelizer_None none;
  for (int round = 0; round < 300; ++round) {
    const u64 AL = random.between(1, 20), BL = random.between(1, 20), c = AL + BL, n = (c + 1) / 2;
    const u64 skip = random.coin() ? 0 : random.below(c);
    const ToyParameters shape(n, n);
    const std::vector<u32> A = random.words<u32>(AL), B = random.words<u32>(BL);
    const std::vector<u32> expected = (Mpz(A) * Mpz(B)).window<u32>(skip, c);
    std::vector<u32> words(3 * c);  // A, B, and the result anywhere over them
    std::copy(A.begin(), A.end(), words.begin());
    std::copy(B.begin(), B.end(), words.begin() + static_cast<s64>(AL));
    u32* const T = words.data() + random.below(c);
    const GuardedBlock tmp(crt_mulp_bytes(shape, 0));
    CRT_mulp(shape, Window{T, skip, c}, Words{words.data(), AL}, Words{words.data() + AL, BL}, tmp.buffer(),
             {none, 1});
    ASSERT_EQ(std::vector<u32>(T, T + (c - skip)), expected) << AL << " by " << BL << " from " << skip;
    ASSERT_TRUE(tmp.intact());
    std::copy(A.begin(), A.end(), words.begin());
    const ToyParameters square(AL, AL);
    const GuardedBlock square_tmp(crt_sqrp_bytes(square, 0));
    CRT_sqrp(square, Window{words.data(), 0, 2 * AL}, Words{words.data(), AL}, square_tmp.buffer(),
             {none, 1});
    words.resize(2 * AL);
    ASSERT_EQ(words, (Mpz(A) * Mpz(A)).window<u32>(0, 2 * AL)) << AL;
    ASSERT_TRUE(square_tmp.intact());
  }
}

TEST(CrtMulp, LongOperandsInParallel) {
  Random random;
  ReverseOrder reverse;
  const ParallelContext parallel{reverse, 6};
  const u64 n = 6 * 8192 + 1;
  const ToyParameters shape(n, n);
  for (const u64 AL : {n / 2, n, n + 1, n + n / 2, 2 * n - 1}) {
    const u64 BL = 2 * n - AL;
    const std::vector<u32> A = random.words<u32>(AL), B = random.words<u32>(BL);
    const std::vector<u32> ones_a(AL, ~u32{0}), ones_b(BL, ~u32{0});
    expect_product(shape, A, B, 0, AL + BL, parallel);
    expect_product(shape, ones_a, ones_b, 0, AL + BL, parallel);
    expect_product(shape, ones_a, B, n - 5, AL + BL, parallel);
    expect_product(shape, A, B, n / 3, n + n / 2, parallel);
  }
  expect_square(shape, random.words<u32>(n), 0, 2 * n, parallel);
  expect_square(shape, random.words<u32>(n - 3), n - 20, 2 * n - 6, parallel);
}

TEST(CrtMulp, RefusesWhatDoesNotFit) {
  Parallelizer_None none;
  const std::vector<u32> A(5, 1);
  std::vector<u32> T(9);
  const GuardedBlock tmp(4096);
  const auto run = [&](const ToyParameters& shape, LinearHeapBuffer buffer) {
    CRT_mulp(shape, Window{T.data(), 0, 9}, Words{A.data(), 5}, Words{A.data(), 4}, buffer, {none, 1});
  };
  const auto aloud = [&](const ToyParameters& shape) {
    dup2(STDERR_FILENO, STDOUT_FILENO);
    run(shape, tmp.buffer());
  };
  EXPECT_EXIT(aloud({4, 4}), testing::ExitedWithCode(1),
              "CRT_mulp\\(\\): Convolution length is not long enough\\.");
  EXPECT_EXIT(aloud({5, 5, 8}), testing::ExitedWithCode(1),
              "CRT_mulp\\(\\): Convolution length is not divisible by the word-size\\.");
  const ToyParameters fits(5, 5);
  EXPECT_THROW(run(fits, {tmp.buffer().ptr, crt_mulp_bytes(fits, 9) - 1}), BufferTooSmallException);
  run(fits, tmp.buffer());
}

// Bounded products ----------------------------------------------------------------------------------------

template <class W>
class BoundedProduct : public testing::Test {};
TYPED_TEST_SUITE(BoundedProduct, BothWords);

constexpr u64 kNoWrappedProducts = ~u64{0};

// Shapes that fit, shapes whose largest products do not (and are made again directly), and none that do.
TYPED_TEST(BoundedProduct, StaysWithinTheStatedMemory) {
  using W = TypeParam;
  Random random;
  Parallelizer_None none;
  TransformTables tables{LinearHeapBuffer()};
  for (const u64 missing : {u64{0}, u64{1}, u64{3}, kNoWrappedProducts}) {
    const ToyAlgorithm toy(missing);
    u64 saved = 0;
    for (int round = 0; round < 400; ++round) {
      const u64 AL = random.between(1, 60), BL = random.between(1, 60), c = AL + BL;
      const u64 skip = random.coin() ? 0 : random.below(c),
                len = random.coin() ? c : random.between(skip + 1, c);
      const std::vector<W> A = random.words<W>(AL), B = random.words<W>(BL);
      constexpr u64 bits = 8 * sizeof(W);
      const u64 direct = toy.sizes(c * bits, 1).total_bytes();
      const u64 bounded = toy.bounded_sizes(c * bits, (len - skip) * bits, 1).product_bytes;
      ASSERT_LE(bounded, direct);
      saved += bounded < direct;
      check_bounded(toy, tables, {none, 1}, A, B, skip, len);
      const u64 square_len = std::min(len, 2 * AL);
      check_bounded(toy, tables, {none, 1}, A, A, std::min(skip, square_len - 1), square_len);
    }
    EXPECT_EQ(saved > 0, missing != kNoWrappedProducts) << missing;
  }
}

TYPED_TEST(BoundedProduct, TablesStateTheMostDemandingProduct) {
  using W = TypeParam;
  constexpr u64 bits = 8 * sizeof(W);
  for (const u64 missing : {u64{0}, u64{1}, kNoWrappedProducts}) {
    const ToyAlgorithm few(missing), many(missing == 0 ? 1 : 0);
    AlgorithmTable<W> table("toys");
    table.add(40, &few);
    table.add(300, &many);
    for (const u64 window : {u64{1}, u64{17}, u64{90}, ~u64{0}}) {
      ProductSizes largest;
      for (u64 words = 1; words <= 300; ++words) {
        const ProductSizes one =
            table.get_algorithm(words).bounded_sizes(words * bits, std::min(words, window) * bits, 1);
        largest.product_bytes = std::max(largest.product_bytes, one.product_bytes);
        largest.square_bytes = std::max(largest.square_bytes, one.square_bytes);
        const ProductSizes most = table.max_bounded_sizes(words, 1, window);
        ASSERT_EQ(most.product_bytes, largest.product_bytes) << words << ' ' << window << ' ' << missing;
        ASSERT_EQ(most.square_bytes, largest.square_bytes) << words << ' ' << window << ' ' << missing;
      }
    }
  }
}

// The table takes the direct way as soon as the scratch holds it, and gives the same words.
TYPED_TEST(BoundedProduct, MemoryAtHandDecides) {
  using W = TypeParam;
  Random random;
  Parallelizer_None none;
  TransformTables tables{LinearHeapBuffer()};
  const ToyAlgorithm toy(0);
  AlgorithmTable<W> table("toy");
  table.add(400, &toy);
  for (int round = 0; round < 200; ++round) {
    const u64 AL = random.between(1, 150), BL = random.between(1, 150), c = AL + BL;
    const u64 skip = random.coin() ? 0 : random.below(c),
              len = random.coin() ? c : random.between(skip + 1, c);
    const std::vector<W> A = random.words<W>(AL), B = random.words<W>(BL);
    std::vector<W> results[2];
    for (const bool direct : {false, true}) {
      const GuardedBlock scratch(direct ? table.max_sizes(c, 1).product_bytes
                                        : table.max_bounded_sizes(c, 1, len - skip).product_bytes);
      GuardedWords<W> T(len - skip);
      table.mul_bounded({{none, 1}, tables, scratch.buffer()}, Window{T.data(), skip, len},
                        Words{A.data(), AL}, Words{B.data(), BL});
      ASSERT_TRUE(T.intact() && scratch.intact());
      results[direct] = T.words();
      const u64 end = 2 * AL, begin = std::min(skip, end - 1);
      const GuardedBlock square(direct ? table.max_sizes(end, 1).square_bytes
                                       : table.max_bounded_sizes(end, 1, end - begin).square_bytes);
      GuardedWords<W> S(end - begin);
      table.sqr_bounded({{none, 1}, tables, square.buffer()}, Window{S.data(), begin, end},
                        Words{A.data(), AL});
      ASSERT_TRUE(S.intact() && square.intact());
      const std::vector<W> words = S.words();
      results[direct].insert(results[direct].end(), words.begin(), words.end());
    }
    ASSERT_EQ(results[0], results[1]) << AL << ' ' << BL << ' ' << skip << ' ' << len;
    if (skip == 0) {
      results[0].resize(len);
      ASSERT_EQ(results[0], (Mpz(A) * Mpz(B)).template window<W>(0, len));
    }
  }
}

}  // namespace
}  // namespace orl::test
