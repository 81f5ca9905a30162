#include "functions/radix_conversion.h"

#include <gmp.h>
#include <gtest/gtest.h>
#include <mpfr.h>

#include "functions/function_runner.h"
#include "support/counting_algorithm.h"
#include "support/random_words.h"
#include "support/thrown.h"

namespace orl::test {
namespace {

template <class W>
Mpz radix_power(W radix, u64 n) {
  Mpz r;
  mpz_ui_pow_ui(r, radix, n);
  return r;
}

template <class W>
Mpz value_of(const std::vector<W>& digits, W radix) {
  // Halves at a time, so that 20000 words stay quick.
  std::vector<Mpz> level(digits.begin(), digits.end());
  for (Mpz power{u64{radix}}; level.size() > 1; power = power * power) {
    std::vector<Mpz> next;
    for (u64 i = 0; i < level.size(); i += 2)
      next.push_back(i + 1 < level.size() ? level[i] + level[i + 1] * power : level[i]);
    level = std::move(next);
  }
  return level[0];
}

// floor(log2(x) * 2^bits) by MPFR.
Mpz log2_scaled(u64 x, u64 bits) {
  mpfr_t log;
  mpfr_init2(log, static_cast<mpfr_prec_t>(bits) + 80);
  mpfr_set_ui(log, x, MPFR_RNDD);
  mpfr_log2(log, log, MPFR_RNDD);
  mpfr_mul_2ui(log, log, bits, MPFR_RNDD);
  Mpz scaled;
  mpfr_get_z(scaled, log, MPFR_RNDD);
  mpfr_clear(log);
  return scaled;
}

template <class W>
class Conversion : public ::testing::Test {
 protected:
  Random random;

  static constexpr W kRadix = kDecimalRadix<W>;

  std::vector<W> convert(W radix, u64 n, const BigFloat<W>& x, u64 tds) {
    const auto plan = ConvertPlanP<W>::make(radix, n, tds);
    Runner<W> runner(plan.need().table_bits, tds == 1 ? "none" : "pushpool");
    GuardedWords<W> digits(n);
    EXPECT_EQ(plan.need().out_words, n);
    runner.run(
        plan.need(), tds,
        [&](const RunContext& ctx, LinearHeapBuffer heap) { plan.run(ctx, frame, digits.data(), x, heap); },
        tight_from(plan, x));
    EXPECT_TRUE(digits.intact());
    return digits.words();
  }

  bool verify(W radix, const std::vector<W>& digits, const BigFloat<W>& x, u64 tds) {
    const VerifyConversion<W> proof(radix, digits.size(), tds);
    Runner<W> runner(proof.need().table_bits);
    bool ok = false;
    runner.run(
        proof.need(), tds,
        [&](const RunContext& ctx, LinearHeapBuffer heap) {
          ok = proof.run(ctx, frame, digits.data(), x, heap).ok;
        },
        tight_from(ConvertPlanP<W>::make(radix, digits.size(), 1), x));
    return ok;
  }

  // Plans are tight from 64 KiB on; a number shorter than they expect, or with zeros at the point, leaves
  // memory unused.
  static u64 tight_from(const ConvertPlanP<W>& plan, const BigFloat<W>& x) {
    const FractionView<W> f = fraction_of(x, plan.fraction_words());
    return f.L < plan.fraction_words() || f.T[f.L - 1] == 0 ? ~u64{0} : 1 << 16;
  }

  // The digits must be the floor, or one less if the fraction is a hair above it.
  void check(W radix, u64 n, const BigFloat<W>& x, u64 tds) {
    SCOPED_TRACE("radix " + std::to_string(radix) + ", n " + std::to_string(n) + ", tds " +
                 std::to_string(tds));
    const std::vector<W> digits = convert(radix, n, x, tds);
    for (const W digit : digits) ASSERT_LT(digit, radix);
    const u64 words = x.exp < 0 ? static_cast<u64>(-x.exp) : 0;
    const Mpz product = (scaled(x, words) % word_power<W>(words)) * radix_power(radix, n);
    const u64 bits = words * 8 * sizeof(W);
    const Mpz rest = product - ((product >> bits) << bits);
    Mpz lost = (product >> bits) - value_of(digits, radix);
    if (lost == Mpz(1)) {
      EXPECT_TRUE((rest >> (bits > 40 ? bits - 40 : 0)) == Mpz(0)) << "one less than the floor";
    } else {
      EXPECT_TRUE(lost == Mpz(0));
    }
    EXPECT_TRUE(verify(radix, digits, x, tds));
  }

  // Binary words of a level's fraction that a power can multiply.
  static u64 fraction_words(const ConvertPlanP<W>& plan, const ConvertLevel& level) {
    return plan.fraction_words(level.max_digits) - level.power_exp;
  }

  OwnedFloat<W> fraction(u64 words, W integer) {
    std::vector<W> value = random.words<W>(words);
    // Below 1/W nothing is converted.
    value.push_back(value.back() == 0 && integer == 0 ? W{1} : integer);
    return OwnedFloat<W>(value, -static_cast<s64>(words));
  }

  // A fraction close to D / r^n: `ulps` units of its lowest word above the floor of that.
  void check_near(const std::vector<W>& D, W radix, s64 ulps, u64 tds) {
    const u64 n = D.size();
    const u64 m = ConvertPlanP<W>::make(radix, n, 1).fraction_words() + random.below(3);
    Mpz F = (value_of(D, radix) << (m * 8 * sizeof(W))) / radix_power(radix, n);
    if (ulps >= 0 || F.sign() != 0) F = F + Mpz(ulps);
    std::vector<W> words = F.words<W>(m);
    words.push_back(3);
    const OwnedFloat<W> x(words, -static_cast<s64>(m));
    check(radix, n, x.x, tds);
  }
};

TYPED_TEST_SUITE(Conversion, BothWords);

TYPED_TEST(Conversion, DigitsAreTheFloor) {
  using W = TypeParam;
  for (u64 n = 1; n <= 80; ++n) {
    const auto x = this->fraction(n + this->random.below(5), static_cast<W>(this->random.below(5)));
    this->check(kDecimalRadix<W>, n, x.x, 1);
  }
  for (const u64 n : {127, 128, 129, 144, 145, 240, 255, 256, 257, 272, 1000, 1023, 1025, 4001}) {
    for (const u64 tds : {1, 2, 7, 64}) {
      const auto x = this->fraction(n + this->random.below(5), 2);
      this->check(kDecimalRadix<W>, n, x.x, tds);
    }
  }
}

TYPED_TEST(Conversion, LargeFractionsConvert) {
  for (const u64 tds : {1, 7}) this->check(kDecimalRadix<TypeParam>, 20000, this->fraction(20001, 1).x, tds);
  // The halves of the top node run in turn.
  const u64 n = ConvertPlanP<TypeParam>::kInTurnBits / (8 * sizeof(TypeParam));
  this->check(kDecimalRadix<TypeParam>, n, this->fraction(n, 2).x, 7);
}

// Words of products that wrap are at most two units less, for the largest and for drawn operands, at lengths
// on both sides of where shapes and families change.
TYPED_TEST(Conversion, MiddleProductsLoseTwoUnitsAtMost) {
  using W = TypeParam;
  constexpr u64 kBits = 8 * sizeof(W);
  u64 wrapped = 0;
  for (const u64 bits : {6000, 7000, 15000, 30000, 65536, 200000, 230000, 450000, 700000}) {
    for (int repeat = 0; repeat < 4; ++repeat) {
      const u64 power = bits * (2 + this->random.below(3)) / (8 * kBits), window = bits / kBits - power;
      const MiddleProduct<W> middle(power, window);
      if (middle.form() == ProductForm::whole) continue;
      ++wrapped;
      const u64 tds = 1 + this->random.below(3);
      Runner<W> runner(middle.words() * kBits, "pushpool");
      const RunContext ctx = runner.context(tds);
      ParametersBox box;
      const Parameters& shape =
          basic_table<W>().parameters_for(box, &ctx.tables, middle.words(), ctx.parallel.tds);
      const MiddleShape<W> way{middle.form(), shape};
      const W ones = static_cast<W>(~W{0});
      std::vector<W> A(power + window, ones), B(power, ones), out(window);
      if (repeat != 0)
        A = this->random.template words<W>(A.size()), B = this->random.template words<W>(power);
      AlignedBytes F(shape.transform_size()), G(shape.transform_size()), tmp(shape.scratch_size() + 64),
          result(way.result_bytes() + 64);
      way.forward(G.data(), {B.data(), power}, tmp.data(), ctx.parallel);
      way.run({F.data(), G.data(), tmp.data()}, power, {out.data(), power, A.size()}, {A.data(), A.size()},
              reinterpret_cast<W*>(result.data()), ctx.parallel);
      const Mpz modulus = word_power<W>(window);
      const Mpz exact = ((Mpz(A.data(), A.size()) * Mpz(B.data(), power)) >> (power * kBits)) % modulus;
      const Mpz lost = (exact + modulus - Mpz(out.data(), window)) % modulus;
      EXPECT_TRUE(lost == Mpz(0) || lost == Mpz(1) || lost == Mpz(2)) << bits << ", " << power;
    }
  }
  EXPECT_GT(wrapped, 8u);
}

// Nodes of every level.
template <class W>
void count_nodes(const ConvertPlanP<W>& plan, u64 n, u64 levels, std::vector<u64>& counts) {
  if (levels == 0 || n < ConvertPlanP<W>::kBaseDigits) return;
  u64 level = levels - 1;
  while (plan.level(level).digits >= n) --level;
  ++counts[level];
  count_nodes(plan, n - plan.level(level).digits, level, counts);
  count_nodes(plan, plan.level(level).digits + 1, level, counts);
}

// A power is transformed once, a node's fraction once, the top one's in two pieces; products modulo W^n - 1
// are taken where shapes have them, and their transforms are as long as the operand.
TYPED_TEST(Conversion, PowersAreTransformedOnceALevel) {
  using W = TypeParam;
  const W radix = kDecimalRadix<W>;
  for (const u64 step : {0, 1, 7}) {
    CountedProducts<W> counted(step);
    for (const u64 n : {400, 1025, 4001}) {
      SCOPED_TRACE(step);
      const auto plan = ConvertPlanP<W>::make(radix, n, 1);
      std::vector<u64> nodes(plan.levels());
      count_nodes(plan, n, plan.levels(), nodes);
      u64 expected = 0;
      for (u64 i = 0; i < plan.levels(); ++i) {
        const ConvertLevel& level = plan.level(i);
        EXPECT_EQ(level.form == ProductForm::cyclic, step != 0 && level.transform) << i;
        if (level.transform) expected += 1 + nodes[i] + (i + 1 == plan.levels());
        if (step != 0 && level.transform && i + 1 < plan.levels()) {
          EXPECT_LT(level.product_words, this->fraction_words(plan, level) + 6) << "longer than the operand";
        }
      }
      std::vector<W> words(n + 2, 1);
      for (W& word : words)
        word = static_cast<W>(this->random.next() | 1);  // no run of zeros saves a product
      const OwnedFloat<W> x(words, -static_cast<s64>(n + 1));
      counted->reset();
      this->convert(radix, n, x.x, 1);
      EXPECT_EQ(counted->forward_cyclic, step != 0 ? expected : 0);
      for (const u64 tds : {1, 3}) this->check(radix, n, x.x, tds);
    }
  }
}

TYPED_TEST(Conversion, OtherRadixesConvert) {
  using W = TypeParam;
  const W top = static_cast<W>(~W{0});
  const W half = static_cast<W>(W{1} << (8 * sizeof(W) - 1)), prime = static_cast<W>(1000000007u);
  const W radixes[] = {2, 3, 7, 10, 16, 1u << 31, prime, half, top - 1, top};
  for (const W radix : radixes)
    for (const u64 n : {1, 15, 16, 17, 40, 300, 2000})
      this->check(radix, n, this->fraction(n + 2, 1).x, this->random.coin() ? 1 : 3);
}

TYPED_TEST(Conversion, ShortZeroAndFullFractionsConvert) {
  using W = TypeParam;
  const W radix = kDecimalRadix<W>;
  for (const u64 n : {1, 15, 16, 33, 400, 3000}) {
    const std::vector<W> zeros(n, 0);
    EXPECT_EQ(this->convert(radix, n, BigFloat<W>(), 1), zeros);
    const OwnedFloat<W> three({3}, 0), large({0, 5}, 2),
        half({static_cast<W>(W{1} << (8 * sizeof(W) - 1)), 7}, -1);
    EXPECT_EQ(this->convert(radix, n, three.x, 1), zeros);
    EXPECT_EQ(this->convert(radix, n, large.x, 1), zeros);
    EXPECT_TRUE(this->verify(radix, zeros, three.x, 1));
    std::vector<W> half_digits = zeros;
    half_digits.back() = radix / 2;
    EXPECT_EQ(this->convert(radix, n, half.x, 2), half_digits);
    this->check(radix, n, half.x, 1);
    for (const u64 words : {u64{1}, u64{2}, n / 2 + 1, n + 9})
      this->check(radix, n, this->fraction(words, 1).x, 1);
    const OwnedFloat<W> ones(std::vector<W>(n + 5, static_cast<W>(~W{0})), -static_cast<s64>(n + 5));
    this->check(radix, n, ones.x, 1);
  }
  AlignedBytes memory(1 << 20);
  const auto plan = ConvertPlanP<W>::make(radix, 20, 1);
  Runner<W> runner(plan.need().table_bits);
  const OwnedFloat<W> tiny({1}, -2);
  std::vector<W> digits(20);
  EXPECT_THROW(plan.run(runner.context(1), frame, digits.data(), tiny.x, memory.buffer()),
               InvalidParametersException);
  EXPECT_THROW(ConvertPlanP<W>::make(1, 20, 1), InvalidParametersException);
  EXPECT_THROW(ConvertPlanP<W>::make(radix, 0, 1), InvalidParametersException);
}

// Fractions next to D / r^n for digit strings with runs of 0 and r - 1 that end before, at and after the
// seams, so that the halves disagree about the word they share.
TYPED_TEST(Conversion, RunsAcrossTheSeamsAreCarried) {
  using W = TypeParam;
  for (const W radix : {kDecimalRadix<W>, static_cast<W>(10), static_cast<W>(3)}) {
    for (const u64 n : {20, 33, 70, 150, 520}) {
      for (int repeat = 0; repeat < 12; ++repeat) {
        std::vector<W> D(n);
        u64 i = 0;
        while (i < n) {
          const u64 end = std::min(n, i + 1 + this->random.below(n));
          const u64 kind = this->random.below(3);
          for (; i < end; ++i)
            D[i] = kind == 0 ? W{0} : kind == 1 ? radix - 1 : static_cast<W>(this->random.below(radix));
        }
        for (const s64 ulps : {-1, 0, 1, 2}) this->check_near(D, radix, ulps, 1 + this->random.below(3));
      }
    }
  }
}

TYPED_TEST(Conversion, OverlapDecidesTheHighPart) {
  using W = TypeParam;
  const W r = kDecimalRadix<W>, last = r - 1;
  const auto matched = [&](std::vector<W> high, W low_word, W high_word) {
    CBRv2::match_overlap(r, high.data(), high.size(), low_word, high_word, 20);
    return high;
  };
  using V = std::vector<W>;
  EXPECT_EQ(matched({last, last, 4}, 9, 9), V({last, last, 4}));
  EXPECT_EQ(matched({last, last, 4}, 9, 8), V({last, last, 4}));
  EXPECT_EQ(matched({last, last, 4}, 0, last), V({0, 0, 5}));
  EXPECT_EQ(matched({last, last}, 0, last), V({0, 0}));
  EXPECT_EQ(matched({0, 0, 4}, last, 0), V({last, last, 3}));
  EXPECT_EQ(matched({0, 0}, last, 0), V({last, last}));
  EXPECT_EQ(refusal<AlgorithmFailedException>([&] {
              matched({1, 2, 3}, 7, 5);
            }),
            "CBRv2::convert_L() Overlap Mismatch:\n    RL = 20\n    Expected = 5\n    Actual   = 7");
}

TYPED_TEST(Conversion, ProofSeesEveryChangedBit) {
  using W = TypeParam;
  const W radix = kDecimalRadix<W>;
  for (const u64 n : {3, 50, 700}) {
    auto x = this->fraction(n + 1, 3);
    std::vector<W> digits = this->convert(radix, n, x.x, 1);
    ASSERT_TRUE(this->verify(radix, digits, x.x, 1));
    for (int repeat = 0; repeat < 30; ++repeat) {
      W& digit = digits[this->random.below(n)];
      const W bit = static_cast<W>(W{1} << this->random.below(8 * sizeof(W)));
      digit ^= bit;
      EXPECT_FALSE(this->verify(radix, digits, x.x, 1));
      digit ^= bit;
      // A changed bit that the digits do not show is none; one in the upper half of the words shows.
      W& word = x.x.T[x.x.L - 2 - this->random.below(n / 2)];
      word ^= bit;
      EXPECT_FALSE(this->verify(radix, digits, x.x, 1));
      word ^= bit;
    }
  }
}

// Fractions that end are not shown as the number just below them, neither alone nor a few units above.
TYPED_TEST(Conversion, FractionsThatEndAreExact) {
  using W = TypeParam;
  const W radix = kDecimalRadix<W>;
  for (const bool wrapped : {false, true}) {
    CountedProducts<W> products(wrapped ? 1 : 0);
    for (const u64 n : {5, 17, 40, 300, 1500}) {
      const auto plan = ConvertPlanP<W>::make(radix, n, 1);
      for (const u64 more : {0, 1, 9}) {
        std::vector<W> words(plan.fraction_words());
        words.front() = static_cast<W>(more);
        // Few enough bits for n digits to show all of them.
        for (u64 i = 0; i < 1 + n / 40; ++i)
          words[words.size() - 1 - i] = this->random.template word<W>() | 1;
        const OwnedFloat<W> x(words, -static_cast<s64>(words.size()));
        const Mpz floor = (Mpz(x.x.T, x.x.L) * radix_power(radix, n)) >> (words.size() * 8 * sizeof(W));
        const std::vector<W> digits = this->convert(radix, n, x.x, 1);
        EXPECT_TRUE(value_of(digits, radix) == floor) << n << ", " << more;
        EXPECT_TRUE(this->verify(radix, digits, x.x, 1));
      }
    }
  }
}

// Digits of a right value that are not in range, and digits that are a unit off where nothing is near.
TYPED_TEST(Conversion, ProofTakesNothingButTheDigits) {
  using W = TypeParam;
  const W radix = kDecimalRadix<W>;
  for (const u64 n : {40, 700, 40000}) {
    // Without runs, in which no digit word has room for a radix more below one that can lend it.
    const OwnedFloat<W> x(this->random.template plain_words<W>(n + 1), -static_cast<s64>(n + 1));
    const std::vector<W> digits = this->convert(radix, n, x.x, 1);
    const auto refuses = [&](u64 place, W more, W less_above) {
      std::vector<W> changed = digits;
      changed[place] += more;
      changed[place + 1] -= less_above;
      return !this->verify(radix, changed, x.x, 1) && !this->verify(radix, changed, x.x, 3);
    };
    u64 place = n / 2;
    while (digits[place] >= static_cast<W>(0) - radix || digits[place + 1] == 0) ++place;
    EXPECT_TRUE(refuses(place, radix, 1)) << "a digit word of the radix and more";
    EXPECT_TRUE(refuses(0, static_cast<W>(~W{0}), 0)) << "a unit less";
    EXPECT_TRUE(refuses(0, 1, 0)) << "a unit more";
  }
}

// Lengths of powers up to 10^15 digits of each radix, at the exponents that come nearest to whole words.
TYPED_TEST(Conversion, LengthsAreExact) {
  constexpr u32 bits = 8 * sizeof(TypeParam);
  for (const u64 radix :
       {u64{5}, u64{1953125}, u64{19073486328125}, u64{1000000000}, u64{3}, u64{8}, ~u64{0}}) {
    if (radix >> (bits - 1) > 1) continue;
    const PowerWords words(radix, bits);
    const Mpz scale = log2_scaled(radix, 300);
    std::vector<u64> exponents = {1000, 526315789474, 52631578947369};
    // Denominators of the continued fraction of log2(radix) / bits.
    Mpz x = scale, y = Mpz(u64{bits}) << 300, before(u64{1}), last(u64{0});
    while (!(y == Mpz(0)) && mpz_sizeinbase(last, 2) < 51) {
      const Mpz quotient = x / y, next = quotient * last + before, rest = x % y;
      before = std::exchange(last, next);
      x = std::exchange(y, rest);
      if (mpz_sizeinbase(last, 2) <= 50) exponents.push_back(last.low_u64());
    }
    for (const u64 e : exponents)
      for (u64 n = std::max<u64>(e, 2) - 1; n <= e + 1; ++n)
        EXPECT_TRUE(Mpz(words.of(n)) == ((Mpz(n) * scale) / Mpz(u64{bits})) >> 300) << radix << "^" << n;
  }
}

TYPED_TEST(Conversion, WindowsJoinWithinTheirBound) {
  using W = TypeParam;
  Runner<W> runner(64);
  const ParallelContext serial = runner.context(1).parallel;
  constexpr int kMost = 4;  // two of the wrapped product, one of the words left out, one of the carry
  for (int off = -kMost - 1; off <= kMost + 1; ++off) {
    std::vector<W> upper = {100, 7, 7};
    const auto join = [&] { CBRv2::join_windows(upper.data(), 3, static_cast<W>(100 + off), serial); };
    if (std::abs(off) > kMost) {
      EXPECT_THROW(join(), AlgorithmFailedException) << off;
    } else {
      join();
      EXPECT_EQ(upper, (std::vector<W>{static_cast<W>(100 + off), 7, 7})) << off;
    }
  }
}

TYPED_TEST(Conversion, PowersAreCheckedAgainstTheRadix) {
  using W = TypeParam;
  Runner<W> runner(1 << 12);
  W words[] = {kDecimalRadix<W>};
  CBRv2::Power<W> power{words, 1, 0};
  CBRv2::CheckP(kDecimalRadix<W>, 1, power, runner.context(1));
  EXPECT_THROW(CBRv2::CheckP(kDecimalRadix<W>, 2, power, runner.context(1)), AlgorithmFailedException);
  EXPECT_THROW(CBRv2::CheckP(W{1}, 1, power, runner.context(1)), InvalidParametersException);
}

}  // namespace
}  // namespace orl::test
