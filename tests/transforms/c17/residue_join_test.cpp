// The join of residues against sums of the same coefficients by GMP, on all targets of this machine: runs
// that go side by side, windows, carries and borrows between runs and around the end, and coefficients out of
// range.
#include "transforms/c17/residue_join.h"

#include <gmp.h>
#include <gtest/gtest.h>

#include <memory>

#include "core/exceptions.h"
#include "simd/target.h"
#include "support/multiplication.h"
#include "support/random_words.h"
#include "transforms/c17/residue_bounds.h"
#include "transforms/c17/residue_kernels.h"

namespace orl {
namespace {

using test::GuardedBlock;
using test::Random;

struct Integer {
  mpz_t z;
  Integer() { mpz_init(z); }
  explicit Integer(s64 value) { mpz_init_set_si(z, value); }
  Integer(const Integer& other) { mpz_init_set(z, other.z); }
  Integer& operator=(const Integer& other) {
    mpz_set(z, other.z);
    return *this;
  }
  ~Integer() { mpz_clear(z); }
};
Integer operator+(const Integer& a, const Integer& b) {
  Integer r;
  mpz_add(r.z, a.z, b.z);
  return r;
}
Integer operator-(const Integer& a) {
  Integer r;
  mpz_neg(r.z, a.z);
  return r;
}
Integer power_of_two(u64 bits) {
  Integer r(1);
  mpz_mul_2exp(r.z, r.z, bits);
  return r;
}
Integer largest_coefficient(const ResidueRow& row, u64 terms) {
  Integer r = power_of_two(row.point_bits()) + Integer(-1);
  mpz_mul(r.z, r.z, r.z);
  mpz_mul_ui(r.z, r.z, terms);
  return r;
}
Integer random_below(Random& random, const Integer& bound) {
  Integer r;
  for (size_t i = 0; i <= mpz_sizeinbase(bound.z, 2); i += 64) {
    mpz_mul_2exp(r.z, r.z, 64);
    mpz_add_ui(r.z, r.z, random.next());
  }
  mpz_mod(r.z, r.z, bound.z);
  return r;
}

/// A plan with what the join reads, and coefficients as its residues.
struct Joining {
  ResiduePlan plan;
  std::vector<Integer> coefficients;
  std::vector<double> x;
  u64 stride;

  Joining(Random& random, const ResidueRow& row, std::vector<Integer> values)
      : plan{row, ProductRing::kPlain, &residue_set(row), {}},
        coefficients(std::move(values)),
        stride(coefficients.size() + 3) {
    x.resize(stride * row.P);
    for (u32 r = 0; r < row.P; ++r) {
      const ResiduePrime& prime = residue_primes()[plan.set->prime[r]];
      ResidueModulus& m = plan.modulus[r];
      const u64 rest = random.between(1, prime.p - 1);
      m.p = static_cast<double>(prime.p);
      m.inverse = 1 / m.p;
      m.scale = prime.factor(prime.multiply(prime.multiply(plan.set->scale[r], row.k), rest));
      for (u64 i = 0; i < coefficients.size(); ++i) {
        const u64 c = prime.multiply(mpz_fdiv_ui(coefficients[i].z, prime.p), prime.inverse(rest));
        x[r * stride + i] = static_cast<double>(c) + m.p * (static_cast<double>(random.below(30)) - 15);
      }
    }
  }

  /// Runs of the points split at multiples of 8, joined side by side a few points per call.
  std::vector<ResidueJoinRun> join(Random& random, simd::Target target, ProductRing ring,
                                   WordWindow window) const {
    const u64 count = coefficients.size();
    const ResidueKernels& kernels = residue_kernels(target);
    std::vector<ResidueJoinRun> runs;
    for (u64 begin = 0, end; begin < count; begin = end) {
      end = std::min(count, begin + 8 * random.between(1, count / 16));
      runs.push_back(start_residue_run(plan.row, ring, begin, end, window));
    }
    std::vector<u64> at;
    for (const ResidueJoinRun& run : runs) at.push_back(run.begin * 64 / plan.row.point_bits());
    for (bool more = true; more;) {
      more = false;
      for (u64 b = 0; b < runs.size(); ++b) {
        const u64 left = (runs[b].end - runs[b].word) * 64 / plan.row.point_bits();
        const u64 now = std::min(left, 8 * random.between(1, 3));
        if (now == 0) continue;
        kernels.join(plan, x.data() + at[b], stride, now, runs[b]);
        at[b] += now;
        more = true;
      }
    }
    return runs;
  }

  Integer sum() const {
    Integer r;
    for (u64 i = coefficients.size(); i-- > 0;) {
      mpz_mul_2exp(r.z, r.z, plan.row.point_bits());
      mpz_add(r.z, r.z, coefficients[i].z);
    }
    return r;
  }
};

u32 excess(const std::vector<ResidueJoinRun>& runs) {
  u32 bits = 0;
  for (const ResidueJoinRun& run : runs) bits = std::max(bits, run.excess_bits());
  return bits;
}

/// Words [skip, len) of a sum of coefficients that fits into them.
void check_plain(Random& random, simd::Target target, const ResidueRow& row, std::vector<Integer> values) {
  for (u64 i = values.size() - 2; i < values.size(); ++i) values[i] = Integer(0);
  const Joining joining(random, row, std::move(values));
  const u64 words = joining.coefficients.size() * row.point_bits() / 32;
  std::vector<u32> right(words);
  mpz_export(right.data(), nullptr, -1, 4, 0, 0, joining.sum().z);
  for (u32 round = 0; round < 3; ++round) {
    const u64 skip = round ? random.below(words) : 0, len = round ? random.between(skip + 1, words) : words;
    std::vector<u32> T(len - skip + 32, 0xa5a5a5a5);
    std::vector<ResidueJoinRun> runs =
        joining.join(random, target, ProductRing::kPlain, {T.data() + 16, skip, len});
    EXPECT_EQ(excess(runs), 0u);
    EXPECT_FALSE(resolve_residue_runs(row, ProductRing::kPlain, runs.data(), runs.size()));
    EXPECT_TRUE(std::equal(T.begin() + 16, T.end() - 16, right.begin() + static_cast<s64>(skip)))
        << skip << " to " << len;
    for (u32 i = 0; i < 16; ++i) EXPECT_TRUE(T[i] == 0xa5a5a5a5 && T[T.size() - 1 - i] == 0xa5a5a5a5);
  }
}

/// All coefficients of a product modulo W^n - 1 or W^n + 1.
void check_wrapped(Random& random, simd::Target target, const ResidueRow& row, ProductRing ring,
                   std::vector<Integer> values) {
  const Joining joining(random, row, std::move(values));
  const u64 words = row.bits() / 32;
  std::vector<u32> T(words + 32, 0xa5a5a5a5);
  std::vector<ResidueJoinRun> runs = joining.join(random, target, ring, {T.data() + 16, 0, words});
  EXPECT_EQ(excess(runs), 0u);
  const bool full = resolve_residue_runs(row, ring, runs.data(), runs.size());
  Integer found, right = joining.sum(), modulus = power_of_two(row.bits());
  mpz_import(found.z, words, -1, 4, 0, 0, T.data() + 16);
  if (full) {
    EXPECT_EQ(mpz_sgn(found.z), 0);
    found = modulus;
  }
  modulus = modulus + Integer(ring == ProductRing::kCyclic ? -1 : 1);
  mpz_mod(right.z, right.z, modulus.z);
  if (ring == ProductRing::kCyclic) mpz_mod(found.z, found.z, modulus.z);  // its own modulus stands for 0 too
  EXPECT_EQ(mpz_cmp(found.z, right.z), 0);
  for (u32 i = 0; i < 16; ++i) EXPECT_TRUE(T[i] == 0xa5a5a5a5 && T[T.size() - 1 - i] == 0xa5a5a5a5);
}

class ResidueJoin : public testing::TestWithParam<simd::Target> {
 protected:
  void SetUp() override {
    if (GetParam() > simd::best_target()) GTEST_SKIP() << "not on this machine";
  }
  /// Shapes of few points, for each set of primes.
  template <class Body>
  void each_shape(Body&& body) {
    for (u8 P = 4; P <= 9; ++P)
      for (const u8 k : {1, 3, 5, 7}) {
        SCOPED_TRACE(testing::Message() << "P " << int{P} << " k " << int{k});
        body(ResidueRow{P, k, 5});
        if (HasFailure()) return;
      }
  }
};

TEST_P(ResidueJoin, SumsCoefficientsOfBothSigns) {
  Random random;
  SCOPED_TRACE(random.replay());
  each_shape([&](const ResidueRow& row) {
    const u64 N = row.points();
    const Integer half = largest_coefficient(row, N / 2), all = largest_coefficient(row, N);
    std::vector<Integer> plain(N), cyclic(N), negacyclic(N);
    for (u64 i = 0; i < N; ++i) {
      plain[i] = random_below(random, half);
      cyclic[i] = random.coin() ? random_below(random, all) : random.coin() ? all : Integer(0);
      negacyclic[i] = random.coin() ? cyclic[i] : -random_below(random, all);
    }
    check_plain(random, GetParam(), row, plain);
    check_plain(random, GetParam(), row, std::vector<Integer>(N, half));
    check_wrapped(random, GetParam(), row, ProductRing::kCyclic, cyclic);
    check_wrapped(random, GetParam(), row, ProductRing::kNegacyclic, negacyclic);
    for (const Integer& same : {Integer(0), all}) {
      check_wrapped(random, GetParam(), row, ProductRing::kCyclic, std::vector<Integer>(N, same));
      check_wrapped(random, GetParam(), row, ProductRing::kNegacyclic, std::vector<Integer>(N, same));
      check_wrapped(random, GetParam(), row, ProductRing::kNegacyclic, std::vector<Integer>(N, -same));
    }
  });
}

TEST_P(ResidueJoin, CarriesAndBorrowsRunThroughRunsAndAroundTheEnd) {
  Random random;
  SCOPED_TRACE(random.replay());
  each_shape([&](const ResidueRow& row) {
    const u64 N = row.points();
    const Integer ones = power_of_two(row.point_bits()) + Integer(-1);
    const auto changed = [&](const Integer& same, u64 at, s64 by) {
      std::vector<Integer> values(N, same);
      values[at] = values[at] + Integer(by);
      return values;
    };
    // All ones and an overflow of one, which carries around the end once more.
    std::vector<Integer> twice(N, ones);
    twice[N - 1] = ones + power_of_two(row.point_bits());
    check_wrapped(random, GetParam(), row, ProductRing::kCyclic, twice);
    check_wrapped(random, GetParam(), row, ProductRing::kNegacyclic, twice);
    for (const u64 at : {u64{0}, random.below(N)})
      for (const s64 by : {-1, 0, 1, 2}) {
        SCOPED_TRACE(testing::Message() << by << " at " << at);
        check_plain(random, GetParam(), row, changed(ones, at, by));
        check_wrapped(random, GetParam(), row, ProductRing::kCyclic, changed(ones, at, by));
        check_wrapped(random, GetParam(), row, ProductRing::kNegacyclic, changed(ones, at, by));
        check_wrapped(random, GetParam(), row, ProductRing::kNegacyclic, changed(-ones, at, by));
        check_wrapped(random, GetParam(), row, ProductRing::kNegacyclic, changed(Integer(0), at, by));
      }
  });
}

TEST_P(ResidueJoin, HoldsTheLargestCoefficientsOfTheLongestShapes) {
  Random random;
  SCOPED_TRACE(random.replay());
  u32 shapes = 0;
  for (const ResidueRow& row : residue_rows()) {
    if (row.n < 37) continue;
    SCOPED_TRACE(testing::Message() << "P " << int{row.P} << " k " << int{row.k} << " n " << int{row.n});
    ++shapes;
    const Integer all = largest_coefficient(row, row.points());
    std::vector<Integer> values(32);
    for (u64 i = 0; i < 30; ++i) values[i] = random.coin() ? all : -all;
    values[random.below(30)] = -random_below(random, all);
    const Joining joining(random, row, values);
    std::vector<u32> T(4 * row.point_bits() / 4), right(T.size());
    const WordWindow window{T.data(), 0, T.size()};
    std::vector<ResidueJoinRun> runs = joining.join(random, GetParam(), ProductRing::kNegacyclic, window);
    EXPECT_EQ(excess(runs), 0u);
    resolve_residue_runs(row, ProductRing::kPlain, runs.data(), runs.size());  // below its end
    Integer sum = joining.sum();
    mpz_fdiv_r_2exp(sum.z, sum.z, 32 * T.size());
    mpz_export(right.data(), nullptr, -1, 4, 0, 0, sum.z);
    EXPECT_EQ(T, right);
    if (HasFailure()) return;
  }
  EXPECT_GT(shapes, 10u);
}

TEST_P(ResidueJoin, FindsCoefficientsOutOfRange) {
  Random random;
  SCOPED_TRACE(random.replay());
  each_shape([&](const ResidueRow& row) {
    std::vector<u32> T(row.bits() / 32);
    const auto excess_of = [&](const Integer& one, ProductRing ring, double by) {
      std::vector<Integer> values(16);
      values[random.below(16)] = one;
      Joining joining(random, row, values);
      joining.x[random.below(row.P) * joining.stride + random.below(16)] += by;
      return excess(joining.join(random, GetParam(), ring, {T.data(), 0, T.size()}));
    };
    for (const ProductRing ring : {ProductRing::kPlain, ProductRing::kCyclic, ProductRing::kNegacyclic}) {
      const u64 terms = ring == ProductRing::kPlain ? row.points() / 2 : row.points();
      const Integer limit = power_of_two(mpz_sizeinbase(largest_coefficient(row, terms).z, 2));
      const bool is_signed = ring == ProductRing::kNegacyclic;
      EXPECT_EQ(excess_of(limit + Integer(-1), ring, 0), 0u);
      EXPECT_EQ(excess_of(limit, ring, 0), 1u);
      EXPECT_EQ(excess_of(is_signed ? -limit : Integer(0), ring, 0), 0u);
      EXPECT_GT(excess_of((is_signed ? -limit : Integer(0)) + Integer(-1), ring, 0), 0u);
      EXPECT_GT(excess_of(Integer(12345), ring, 1), 0u);
    }
  });
}

// A row is taken exactly when its coefficients of both signs are told apart modulo its primes.
TEST(ResidueBounds, TakeWhatFitsTheModulus) {
  u32 refused = 0;
  for (u8 P = 4; P <= 9; ++P)
    for (const u8 k : {1, 3, 5, 7}) {
      const u32 largest = residue_set({P, k, 255}).e;
      for (u8 n = 8; n <= largest; ++n) {
        const ResidueRow row{P, k, n};
        const ResidueSet& set = residue_set(row);
        ASSERT_LE(n, set.e);
        Integer modulus(1);
        for (u32 i = 0; i < set.P; ++i)
          mpz_mul_ui(modulus.z, modulus.z, residue_primes()[set.prime[i]].p);
        if (mpz_cmp(largest_coefficient(row, 2 * row.points()).z, modulus.z) < 0) {
          EXPECT_NO_THROW(check_residue_bounds(row)) << int{P} << " " << int{k} << " " << int{n};
        } else {
          EXPECT_THROW(check_residue_bounds(row), InvalidParametersException)
              << int{P} << " " << int{k} << " " << int{n};
          ++refused;
        }
      }
    }
  EXPECT_GT(refused, 0u);
}

INSTANTIATE_TEST_SUITE_P(Targets, ResidueJoin,
                         testing::Values(simd::Target::kScalar, simd::Target::kAvx2, simd::Target::kAvx512));

}  // namespace
}  // namespace orl
