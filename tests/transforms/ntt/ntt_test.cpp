// Products by the integer residue transforms against GMP: every row of the size tables up to a size, every
// set of primes, products modulo W^n - 1 and W^n + 1, on all targets of this machine.
#include "transforms/ntt/ntt.h"

#include <gmp.h>
#include <gtest/gtest.h>

#include <cstring>

#include "core/exceptions.h"
#include "simd/target.h"
#include "support/multiplication.h"
#include "support/random_words.h"
#include "threads/simple_frameworks.h"
#include "transforms/ntt/ntt_primes.h"
#include "transforms/ntt/ntt_tables.h"
#include "words/hash.h"

namespace orl {
namespace {

using simd::Target;
using test::GuardedBlock;
using test::Random;
using WordVector = std::vector<u32>;

/// An mpz_t that frees itself.
struct Integer {
  Integer() { mpz_init(z); }
  explicit Integer(const WordVector& words) : Integer() {
    mpz_import(z, words.size(), -1, 4, 0, 0, words.data());
  }
  Integer(const Integer&) = delete;
  Integer& operator=(const Integer&) = delete;
  ~Integer() { mpz_clear(z); }
  /// The low `count` words; the value may have one more.
  WordVector words(u64 count) const {
    WordVector w(std::max<u64>(count, mpz_sizeinbase(z, 2) / 32 + 1));
    mpz_export(w.data(), nullptr, -1, 4, 0, 0, z);
    w.resize(count);
    return w;
  }
  mpz_t z;
};

WordVector gmp_product(const WordVector& a, const WordVector& b) {
  Integer x(a), y(b);
  mpz_mul(x.z, x.z, y.z);
  return x.words(a.size() + b.size());
}

template <class R>
struct FamilyOf;
template <>
struct FamilyOf<u64> {
  static constexpr const char* kId = "N64";
  static const Algorithm& algorithm() { return n64_algorithm(); }
};
template <>
struct FamilyOf<u32> {
  static constexpr const char* kId = "N32";
  static const Algorithm& algorithm() { return n32_algorithm(); }
};

/// Runs under one target, and goes back.
struct OnTarget {
  explicit OnTarget(Target target) : before(simd::active_target()) { simd::set_active_target(target); }
  ~OnTarget() { simd::set_active_target(before); }
  Target before;
};

std::vector<Target> targets() {
  std::vector<Target> all;
  for (const Target t : {Target::kScalar, Target::kAvx2, Target::kAvx512})
    if (t <= simd::best_target()) all.push_back(t);
  return all;
}

/// Tables of one shape, in exactly its bytes, and areas of its transforms.
template <class R>
struct Shape {
  explicit Shape(const NttRow<R>& row) : memory(NttTables<R>::bytes({&row, 1})), tables(memory.buffer()) {
    auto roots = std::make_unique<NttTables<R>>();
    roots->grow(tables.memory(), {&row, 1});
    tables.put(FamilyOf<R>::kId, std::move(roots));
    p = &ntt_parameters(box, &tables, row);
    for (GuardedBlock* block : {&F, &G}) *block = GuardedBlock(p->transform_size());
    tmp = GuardedBlock(p->scratch_size());
  }
  void* f() const { return F.buffer().ptr; }
  void* g() const { return G.buffer().ptr; }
  void* t() const { return tmp.buffer().ptr; }
  bool intact() const { return memory.intact() && F.intact() && G.intact() && tmp.intact(); }

  GuardedBlock memory;
  TransformTables tables;
  ParametersBox box;
  const Parameters* p;
  GuardedBlock F{64}, G{64}, tmp{64};
};

WordVector ones(u64 words) { return WordVector(words, ~u32{0}); }

template <class R>
class NttTest : public testing::Test {
 protected:
  static const Algorithm& algorithm() { return FamilyOf<R>::algorithm(); }

  static void check(const TransformTables& tables, Parallelizer& parallelizer, u64 threads,
                    const WordVector& a, const WordVector& b, u64 skip, u64 len) {
    const bool square = &a == &b;
    const MultiplySizes sizes = algorithm().sizes((a.size() + b.size()) * 32, threads);
    const GuardedBlock scratch(square ? sizes.square_bytes() : sizes.total_bytes());
    const MultiplyContext ctx{{parallelizer, threads}, tables, scratch.buffer()};
    test::GuardedWords<u32> T(len - skip, 1);
    if (square)
      algorithm().sqr_window(ctx, Window{T.data(), skip, len}, Words{a.data(), a.size()});
    else
      algorithm().mul_window(ctx, Window{T.data(), skip, len}, Words{a.data(), a.size()},
                             Words{b.data(), b.size()});
    const WordVector right = gmp_product(a, b);
    ASSERT_EQ(std::memcmp(T.data(), right.data() + skip, 4 * (len - skip)), 0)
        << a.size() << " by " << b.size() << ", " << skip << " to " << len;
    ASSERT_TRUE(scratch.intact() && T.intact());
  }

  static void check_rows(u64 largest) {
    Random random;
    SCOPED_TRACE(random.replay());
    const GuardedBlock memory(algorithm().table_bytes(largest));
    TransformTables tables(memory.buffer());
    algorithm().ensure_tables(tables, largest);
    Parallelizer_None none;
    Parallelizer_Spawn spawn;
    u64 below = 64;
    for (const NttRow<R>& row : ntt_rows<R>()) {
      if (row.bits() > largest) break;
      SCOPED_TRACE(testing::Message() << "P " << int{row.P} << " k " << int{row.k} << " n " << int{row.n});
      const u64 words = row.bits() / 32, al = random.coin() ? words / 2 : random.between(1, words - 1);
      check(tables, none, 1, ones(al), ones(words - al), 0, words);
      const u64 skip = random.below(words), len = random.between(skip + 1, words);
      check(tables, spawn, random.between(1, 5), random.words<u32>(al), random.words<u32>(words - al), skip,
            len);
      const WordVector s = random.words<u32>(below / 64 + 1);
      check(tables, none, 1, s, s, 0, 2 * s.size());
      below = row.bits();
      if (testing::Test::HasFatalFailure()) return;
    }
    EXPECT_TRUE(memory.intact());
  }

  // A transform is kept over two products and squared at last; windows of 64-bit words.
  static void check_kept(const NttRow<R>& row, Random& random, u64 threads) {
    SCOPED_TRACE(testing::Message() << "P " << int{row.P} << " k " << int{row.k} << " n " << int{row.n});
    Shape<R> shape(row);
    const Parameters& p = *shape.p;
    Parallelizer_Spawn spawn;
    const ParallelContext parallel{spawn, threads};
    const u64 words = row.bits() / 64, al = words / 2;
    const std::vector<u64> kept = random.words<u64>(al);
    const auto as_u32 = [](const std::vector<u64>& v) {
      const u32* w = reinterpret_cast<const u32*>(v.data());
      return WordVector(w, w + 2 * v.size());
    };
    p.forward(shape.g(), Words{kept.data(), al}, shape.t(), parallel);
    const u8* bytes = static_cast<const u8*>(shape.g());
    const std::vector<u8> before(bytes, bytes + p.transform_size());
    for (const u64 bl : {words - al, random.between(1, al)}) {
      const std::vector<u64> other = random.words<u64>(bl);
      const u64 skip = random.below(al + bl), len = random.between(skip + 1, al + bl);
      test::GuardedWords<u64> T(len - skip);
      p.forward(shape.f(), Words{other.data(), bl}, shape.t(), parallel);
      p.inverse_fmul(shape.f(), shape.g(), Window{T.data(), skip, len}, shape.t(), parallel);
      const WordVector right = gmp_product(as_u32(kept), as_u32(other));
      EXPECT_EQ(std::memcmp(T.data(), right.data() + 2 * skip, 8 * (len - skip)), 0) << skip << " to " << len;
      EXPECT_TRUE(T.intact());
      EXPECT_EQ(std::memcmp(shape.g(), before.data(), before.size()), 0);
    }
    std::vector<u64> square(2 * al);
    p.inverse_fsqr(shape.g(), Window{square.data(), 0, 2 * al}, shape.t(), parallel);
    EXPECT_EQ(as_u32(square), gmp_product(as_u32(kept), as_u32(kept)));
    EXPECT_TRUE(shape.intact());
  }

  // Both wrapped products of a and b; a square when they are one.
  static void check_wrapped(const Shape<R>& shape, const WordVector& a, const WordVector& b,
                            ParallelContext parallel) {
    const Parameters& p = *shape.p;
    const u64 n = p.cyclic_words();
    for (const bool negacyclic : {false, true}) {
      Integer modulus, x(a), y(b);
      mpz_setbit(modulus.z, 32 * n);
      negacyclic ? mpz_add_ui(modulus.z, modulus.z, 1) : mpz_sub_ui(modulus.z, modulus.z, 1);
      mpz_mul(x.z, x.z, y.z);
      mpz_mod(x.z, x.z, modulus.z);
      test::GuardedWords<u32> T(n, 1);
      const auto forward = [&](void* F, const WordVector& v) {
        negacyclic ? p.wrapped()->forward_negacyclic(F, Words{v.data(), v.size()}, shape.t(), parallel)
                   : p.wrapped()->forward_cyclic(F, Words{v.data(), v.size()}, shape.t(), parallel);
      };
      forward(shape.f(), a);
      if (&a != &b) forward(shape.g(), b);
      void* const g = &a == &b ? shape.f() : shape.g();
      bool whole = false;
      if (negacyclic)
        whole = p.wrapped()->pointwise_negacyclic(shape.f(), g, T.data(), shape.t(), parallel);
      else
        p.wrapped()->pointwise_cyclic(shape.f(), g, T.data(), shape.t(), parallel);
      Integer found(T.words());
      if (whole) {
        EXPECT_EQ(mpz_sgn(found.z), 0);
        mpz_setbit(found.z, 32 * n);
      } else if (!negacyclic && mpz_cmp(found.z, modulus.z) == 0) {
        mpz_set_ui(found.z, 0);
      }
      EXPECT_EQ(mpz_cmp(found.z, x.z), 0) << (negacyclic ? "negacyclic" : "cyclic");
      EXPECT_TRUE(T.intact());
    }
  }

  static void check_wrapped_shape(const NttRow<R>& row, Random& random, u64 threads) {
    SCOPED_TRACE(testing::Message() << "P " << int{row.P} << " k " << int{row.k} << " n " << int{row.n});
    const Shape<R> shape(row);
    Parallelizer_Spawn spawn;
    const ParallelContext parallel{spawn, threads};
    const u64 n = shape.p->cyclic_words();
    ASSERT_EQ(n, row.bits() / 32);
    const WordVector all = ones(n), one{1};
    WordVector half(n / 2 + 1);  // W^(n/2): its square is W^n, which is -1 or 1
    half.back() = 1;
    check_wrapped(shape, all, all, parallel);  // 0 and 4
    check_wrapped(shape, all, one, parallel);
    check_wrapped(shape, half, half, parallel);
    check_wrapped(shape, random.words<u32>(n), random.words<u32>(random.between(1, n)), parallel);
    check_wrapped(shape, random.words<u32>(random.between(1, n)), WordVector(3, 0), parallel);
    EXPECT_TRUE(shape.intact());
  }
};

using Residues = testing::Types<u64, u32>;
TYPED_TEST_SUITE(NttTest, Residues);

TYPED_TEST(NttTest, EveryRowMultipliesUpToItsEnds) {
  for (const Target target : targets()) {
    const OnTarget on(target);
    SCOPED_TRACE(simd::target_name(target));
    this->check_rows(target == simd::best_target() ? 2000000 : 150000);
  }
}

TYPED_TEST(NttTest, EverySetOfPrimesKeepsTransformsAndWraps) {
  Random random;
  SCOPED_TRACE(random.replay());
  u32 sets = 0;
  for (const Target target : targets())
    for (u8 P = 4; P <= 8; ++P)
      for (const u8 k : {1, 3, 5, 7}) {
        if (!find_ntt_set<TypeParam>(P, k)) continue;
        const OnTarget on(target);
        SCOPED_TRACE(simd::target_name(target));
        this->check_kept({P, k, static_cast<u8>(random.between(6, 9))}, random, random.between(1, 5));
        this->check_wrapped_shape({P, k, static_cast<u8>(random.between(6, 9))}, random,
                                  random.between(1, 5));
        ++sets;
      }
  EXPECT_EQ(sets, (sizeof(TypeParam) == 8 ? 20 : 17) * targets().size());
}

TYPED_TEST(NttTest, SubtreesBeyondACacheHaveSubtreesOfTheirOwn) {
  Random random;
  SCOPED_TRACE(random.replay());
  this->check_kept({4, 1, 13}, random, 2);
  this->check_kept({5, 3, 14}, random, 3);
  this->check_kept({4, 1, 17}, random, 2);
  this->check_wrapped_shape({4, 1, 17}, random, 2);
}

TYPED_TEST(NttTest, ThreadsDoNotChangeAProduct) {
  Random random;
  SCOPED_TRACE(random.replay());
  const NttRow<TypeParam> row{6, 3, 13};
  const Shape<TypeParam> one(row), four(row);
  Parallelizer_Spawn spawn;
  const u64 n = row.bits() / 32;
  const WordVector a = random.words<u32>(n), b = random.words<u32>(n);
  WordVector T(n), U(n);
  const auto run = [&](const Shape<TypeParam>& s, u64 threads, WordVector& out) {
    s.p->wrapped()->forward_negacyclic(s.f(), Words{a.data(), n}, s.t(), {spawn, threads});
    s.p->wrapped()->forward_negacyclic(s.g(), Words{b.data(), n}, s.t(), {spawn, threads});
    return s.p->wrapped()->pointwise_negacyclic(s.f(), s.g(), out.data(), s.t(), {spawn, threads});
  };
  EXPECT_EQ(run(one, 1, T), run(four, 4, U));
  EXPECT_EQ(T, U);
  EXPECT_EQ(std::memcmp(one.g(), four.g(), one.p->transform_size()), 0);
}

TYPED_TEST(NttTest, CarriesRunThroughBlocksBelowTheWindow) {
  // 0xAA...AAB times 3: each block of points ends in ones that the carry of the one before turns to zeros.
  const u64 words = 12000;
  const Algorithm& algorithm = FamilyOf<TypeParam>::algorithm();
  const GuardedBlock memory(algorithm.table_bytes(32 * words));
  TransformTables tables(memory.buffer());
  algorithm.ensure_tables(tables, 32 * words);
  WordVector a(words - 1, 0xaaaaaaaa);
  a[0] = 0xaaaaaaab;
  Parallelizer_Spawn spawn;
  Random random;
  SCOPED_TRACE(random.replay());
  for (u32 i = 0; i < 20; ++i) {
    const u64 skip = random.below(words - 1), len = random.between(skip + 1, words);
    WordVector x = a;
    if (i % 2) --x[skip - std::min(skip, random.between(1, 1500))];  // the carry ends here
    this->check(tables, spawn, 3, x, {3}, skip, len);
    if (this->HasFatalFailure()) return;
  }
}

TYPED_TEST(NttTest, RowsRiseToTheLargestProduct) {
  const Algorithm& algorithm = FamilyOf<TypeParam>::algorithm();
  u64 before = 0;
  for (const NttRow<TypeParam>& row : ntt_rows<TypeParam>()) {
    EXPECT_GT(row.bits(), before);
    EXPECT_TRUE(ntt_row_is_sound(row));
    ParametersBox box;
    const Parameters& p = algorithm.parameters_for(box, nullptr, before + 1, 1);
    EXPECT_EQ(p.max_bits(), row.bits());
    EXPECT_EQ(p.cyclic_words() * 32, ntt_row_wraps(row) ? row.bits() : 0);
    EXPECT_GE(p.transform_size(), sizeof(TypeParam) * row.P * row.points());
    before = row.bits();
  }
  EXPECT_EQ(before, algorithm.max_bits());
  EXPECT_THROW(algorithm.sizes(before + 1, 1), LimitExceededException);
  EXPECT_THROW(algorithm.table_bytes(before + 1), LimitExceededException);
  EXPECT_GT(algorithm.table_bytes(before), algorithm.table_bytes(before / 4));
  ParametersBox box;
  EXPECT_THROW(ntt_parameters<TypeParam>(box, nullptr, {4, 1, 5}), InvalidParametersException);
  EXPECT_THROW(ntt_parameters<TypeParam>(box, nullptr, {4, 1, 58}), InvalidParametersException);
  EXPECT_THROW(ntt_parameters<TypeParam>(box, nullptr, {4, 9, 8}), InvalidParametersException);
}

TYPED_TEST(NttTest, RefusesWhatDoesNotFit) {
  const NttRow<TypeParam> row{4, 3, 8}, longer{4, 3, 10};
  const Shape<TypeParam> shape(row);
  ParametersBox other_box, longer_box;
  EXPECT_TRUE(shape.p->compatible(ntt_parameters(other_box, nullptr, row)));
  const Parameters& without_roots = ntt_parameters(longer_box, &shape.tables, longer);
  EXPECT_FALSE(shape.p->compatible(without_roots));

  Parallelizer_None none;
  WordVector a(row.bits() / 32 + 1, 5);
  const ParallelContext one{none, 1};
  EXPECT_THROW(shape.p->forward(shape.f(), Words{a.data(), a.size()}, shape.t(), one),
               ConvolutionTooSmallException);
  EXPECT_THROW(shape.p->wrapped()->forward_cyclic(shape.f(), Words{a.data(), a.size()}, shape.t(), one),
               ConvolutionTooSmallException);
  EXPECT_THROW(shape.p->inverse_fmul(shape.f(), shape.f(), Window{a.data(), 0, a.size()}, shape.t(), one),
               ConvolutionTooSmallException);
  EXPECT_THROW(without_roots.forward(shape.f(), Words{a.data(), 1}, shape.t(), one),
               InvalidParametersException);
}

TEST(NttWrapping, LargestShapesDoNotWrap) {
  const auto expect_refused = [](const Algorithm& algorithm) {
    ParametersBox box;
    const Parameters& p = algorithm.parameters_for(box, nullptr, algorithm.max_bits(), 1);
    EXPECT_EQ(p.wrapped(), nullptr);
    EXPECT_EQ(p.cyclic_words(), 0u);
  };
  expect_refused(n64_algorithm());
  expect_refused(n32_algorithm());
}

// A residue that is wrong makes a coefficient too large in all but a share of 2^-spare of the cases; then the
// words do not match the hash.
TYPED_TEST(NttTest, AWrongResidueIsSeen) {
  Random random;
  SCOPED_TRACE(random.replay());
  const Shape<TypeParam> shape({5, 1, 9});
  const Parameters& p = *shape.p;
  Parallelizer_None none;
  const ParallelContext one{none, 1};
  const u64 words = p.max_bits() / 64;
  u32 thrown = 0;
  for (u32 i = 0; i < 30; ++i) {
    WordVector a(words);
    for (u32& w : a) w = random.word<u32>();
    p.forward(shape.f(), Words{a.data(), words}, shape.t(), one);
    p.forward(shape.g(), Words{a.data(), words}, shape.t(), one);
    static_cast<TypeParam*>(shape.g())[random.below(5 << 9)] ^= TypeParam{1}
                                                                << random.below(8 * sizeof(TypeParam) - 1);
    WordVector T(2 * words);
    try {
      p.inverse_fmul(shape.f(), shape.g(), Window{T.data(), 0, T.size()}, shape.t(), one);
      EXPECT_NE(T, gmp_product(a, a));
    } catch (const ConvolutionFailedException&) {
      ++thrown;
    }
  }
  EXPECT_GE(thrown, 25u);
}

}  // namespace
}  // namespace orl
