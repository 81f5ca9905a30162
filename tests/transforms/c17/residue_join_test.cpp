// The join of residues against sums of the same coefficients by GMP, on all targets of this machine: runs
// that go side by side, windows, carries and borrows between runs and around the end, and coefficients out of
// range.
#include "transforms/c17/residue_join.h"

#include <gtest/gtest.h>

#include "core/exceptions.h"
#include "support/gmp_oracle.h"
#include "support/random_words.h"
#include "support/targets.h"
#include "transforms/c17/residue_bounds.h"
#include "transforms/c17/residue_kernels.h"

namespace orl::test {
namespace {

Mpz power_of_two(u64 bits) { return Mpz(1) << bits; }
Mpz largest_coefficient(const ResidueRow& row, u64 terms) {
  const Mpz point = power_of_two(row.point_bits()) - Mpz(1);
  return point * point * Mpz(terms);
}
Mpz random_below(Random& random, const Mpz& bound) {
  return Mpz(random.plain_words<u64>(mpz_sizeinbase(bound, 2) / 64 + 2)) % bound;
}

/// A plan with what the join reads, and coefficients as its residues.
struct Joining {
  ResiduePlan plan;
  std::vector<Mpz> coefficients;
  std::vector<double> x;
  u64 stride;

  Joining(Random& random, const ResidueRow& row, std::vector<Mpz> values)
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
        const u64 c = prime.multiply(mpz_fdiv_ui(coefficients[i], prime.p), prime.inverse(rest));
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

  Mpz sum() const {
    Mpz r;
    for (u64 i = coefficients.size(); i-- > 0;) r = (r << plan.row.point_bits()) + coefficients[i];
    return r;
  }
};

u32 excess(const std::vector<ResidueJoinRun>& runs) {
  u32 bits = 0;
  for (const ResidueJoinRun& run : runs) bits = std::max(bits, run.excess_bits());
  return bits;
}

/// Words [skip, len) of a sum of coefficients that fits into them.
void check_plain(Random& random, simd::Target target, const ResidueRow& row, std::vector<Mpz> values) {
  for (u64 i = values.size() - 2; i < values.size(); ++i) values[i] = Mpz(0);
  const Joining joining(random, row, std::move(values));
  const u64 words = joining.coefficients.size() * row.point_bits() / 32;
  const std::vector<u32> right = joining.sum().words<u32>(words);
  for (u32 round = 0; round < 3; ++round) {
    const u64 skip = round ? random.below(words) : 0, len = round ? random.between(skip + 1, words) : words;
    GuardedWords<u32> T(len - skip, skip);
    std::vector<ResidueJoinRun> runs =
        joining.join(random, target, ProductRing::kPlain, {T.data(), skip, len});
    EXPECT_EQ(excess(runs), 0u);
    EXPECT_FALSE(resolve_residue_runs(row, ProductRing::kPlain, runs.data(), runs.size()));
    EXPECT_TRUE(std::equal(T.data(), T.data() + T.size(), right.begin() + static_cast<s64>(skip)))
        << skip << " to " << len;
    EXPECT_TRUE(T.intact());
  }
}

/// All coefficients of a product modulo W^n - 1 or W^n + 1.
void check_wrapped(Random& random, simd::Target target, const ResidueRow& row, ProductRing ring,
                   std::vector<Mpz> values) {
  const Joining joining(random, row, std::move(values));
  const u64 words = row.bits() / 32;
  GuardedWords<u32> T(words);
  std::vector<ResidueJoinRun> runs = joining.join(random, target, ring, {T.data(), 0, words});
  EXPECT_EQ(excess(runs), 0u);
  const bool full = resolve_residue_runs(row, ring, runs.data(), runs.size());
  Mpz found(T.data(), words), modulus = power_of_two(row.bits());
  if (full) {
    EXPECT_EQ(found.sign(), 0);
    found = modulus;
  }
  modulus = modulus + Mpz(ring == ProductRing::kCyclic ? -1 : 1);
  if (ring == ProductRing::kCyclic) found = found % modulus;  // its own modulus stands for 0 too
  EXPECT_TRUE(found == joining.sum() % modulus);
  EXPECT_TRUE(T.intact());
}

class ResidueJoin : public OnTarget {
 protected:
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

INSTANTIATE_TEST_SUITE_P(Targets, ResidueJoin, every_target(), target_label);

TEST_P(ResidueJoin, SumsCoefficientsOfBothSigns) {
  Random random;
  each_shape([&](const ResidueRow& row) {
    const u64 N = row.points();
    const Mpz half = largest_coefficient(row, N / 2), all = largest_coefficient(row, N);
    std::vector<Mpz> plain(N), cyclic(N), negacyclic(N);
    for (u64 i = 0; i < N; ++i) {
      plain[i] = random_below(random, half);
      cyclic[i] = random.coin() ? random_below(random, all) : random.coin() ? all : Mpz(0);
      negacyclic[i] = random.coin() ? cyclic[i] : -random_below(random, all);
    }
    check_plain(random, GetParam(), row, plain);
    check_plain(random, GetParam(), row, std::vector<Mpz>(N, half));
    check_wrapped(random, GetParam(), row, ProductRing::kCyclic, cyclic);
    check_wrapped(random, GetParam(), row, ProductRing::kNegacyclic, negacyclic);
    for (const Mpz& same : {Mpz(0), all}) {
      check_wrapped(random, GetParam(), row, ProductRing::kCyclic, std::vector<Mpz>(N, same));
      check_wrapped(random, GetParam(), row, ProductRing::kNegacyclic, std::vector<Mpz>(N, same));
      check_wrapped(random, GetParam(), row, ProductRing::kNegacyclic, std::vector<Mpz>(N, -same));
    }
  });
}

TEST_P(ResidueJoin, CarriesAndBorrowsRunThroughRunsAndAroundTheEnd) {
  Random random;
  each_shape([&](const ResidueRow& row) {
    const u64 N = row.points();
    const Mpz ones = power_of_two(row.point_bits()) - Mpz(1);
    const auto changed = [&](const Mpz& same, u64 at, s64 by) {
      std::vector<Mpz> values(N, same);
      values[at] = values[at] + Mpz(by);
      return values;
    };
    // All ones and an overflow of one, which carries around the end once more.
    std::vector<Mpz> twice(N, ones);
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
        check_wrapped(random, GetParam(), row, ProductRing::kNegacyclic, changed(Mpz(0), at, by));
      }
  });
}

TEST_P(ResidueJoin, HoldsTheLargestCoefficientsOfTheLongestShapes) {
  Random random;
  u32 shapes = 0;
  for (const ResidueRow& row : residue_rows()) {
    if (row.n < 37) continue;
    SCOPED_TRACE(testing::Message() << "P " << int{row.P} << " k " << int{row.k} << " n " << int{row.n});
    ++shapes;
    const Mpz all = largest_coefficient(row, row.points());
    std::vector<Mpz> values(32);
    for (u64 i = 0; i < 30; ++i) values[i] = random.coin() ? all : -all;
    values[random.below(30)] = -random_below(random, all);
    const Joining joining(random, row, values);
    std::vector<u32> T(4 * row.point_bits() / 4);
    const WordWindow window{T.data(), 0, T.size()};
    std::vector<ResidueJoinRun> runs = joining.join(random, GetParam(), ProductRing::kNegacyclic, window);
    EXPECT_EQ(excess(runs), 0u);
    resolve_residue_runs(row, ProductRing::kPlain, runs.data(), runs.size());  // below its end
    EXPECT_EQ(T, (joining.sum() % power_of_two(32 * T.size())).words<u32>(T.size()));
    if (HasFailure()) return;
  }
  EXPECT_GT(shapes, 10u);
}

TEST_P(ResidueJoin, FindsCoefficientsOutOfRange) {
  Random random;
  each_shape([&](const ResidueRow& row) {
    std::vector<u32> T(row.bits() / 32);
    const auto excess_of = [&](const Mpz& one, ProductRing ring, double by) {
      std::vector<Mpz> values(16);
      values[random.below(16)] = one;
      Joining joining(random, row, values);
      joining.x[random.below(row.P) * joining.stride + random.below(16)] += by;
      return excess(joining.join(random, GetParam(), ring, {T.data(), 0, T.size()}));
    };
    for (const ProductRing ring : {ProductRing::kPlain, ProductRing::kCyclic, ProductRing::kNegacyclic}) {
      const u64 terms = ring == ProductRing::kPlain ? row.points() / 2 : row.points();
      const Mpz limit = power_of_two(mpz_sizeinbase(largest_coefficient(row, terms), 2));
      const bool is_signed = ring == ProductRing::kNegacyclic;
      EXPECT_EQ(excess_of(limit - Mpz(1), ring, 0), 0u);
      EXPECT_EQ(excess_of(limit, ring, 0), 1u);
      EXPECT_EQ(excess_of(is_signed ? -limit : Mpz(0), ring, 0), 0u);
      EXPECT_GT(excess_of((is_signed ? -limit : Mpz(0)) - Mpz(1), ring, 0), 0u);
      EXPECT_GT(excess_of(Mpz(12345), ring, 1), 0u);
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
        Mpz modulus(1);
        for (u32 i = 0; i < set.P; ++i) modulus = modulus * Mpz(residue_primes()[set.prime[i]].p);
        if (largest_coefficient(row, 2 * row.points()) < modulus) {
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

}  // namespace
}  // namespace orl::test
