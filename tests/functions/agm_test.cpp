// Arithmetic-geometric means, logarithms and powers against MPFR, in the memory that they state.
#include <gtest/gtest.h>
#include <mpfr.h>

#include "core/exceptions.h"
#include "functions/function_runner.h"
#include "functions/log_agm.h"
#include "functions/power.h"
#include "support/random_words.h"

namespace orl::test {
namespace {

/// An mpfr_t of `bits` bits that frees itself.
class Real {
 public:
  explicit Real(u64 bits) { mpfr_init2(x_, static_cast<mpfr_prec_t>(bits)); }
  template <class W>
  Real(const BigFloat<W>& x, u64 bits) : Real(bits) {
    mpfr_set_z(x_, Mpz(x.T, x.L), MPFR_RNDN);
    mpfr_mul_2si(x_, x_, x.exp * static_cast<s64>(8 * sizeof(W)), MPFR_RNDN);
    if (x.sign == 0) mpfr_neg(x_, x_, MPFR_RNDN);
  }
  Real(const Real&) = delete;
  Real& operator=(const Real&) = delete;
  ~Real() { mpfr_clear(x_); }
  operator mpfr_ptr() { return x_; }

 private:
  mpfr_t x_;
};

template <class W>
class Agm : public ::testing::Test {
 protected:
  using Store = RamStore<W>;
  static constexpr u64 kBits = 8 * sizeof(W);
  Random random;
  ::testing::ScopedTrace trace{__FILE__, __LINE__, random.replay()};

  // For powers of exponents near 2^27.
  Agm() {
    mpfr_set_emax(mpfr_get_emax_max());
    mpfr_set_emin(mpfr_get_emin_min());
  }

  static u64 hash(const BigFloat<W>& x) { return canonical_hash(x); }

  /// Runs a plan of precision p in its own memory and compares result and hash with what want() sets.
  template <class Plan, class Want, class... Operands>
  void expect(const Plan& plan, u64 p, u64 tds, const Want& want, const Operands&... operands) {
    OwnedFloat<W> out(plan.need().out_words);
    run_proved<W>(plan, tds, out, operands...);
    const u64 bits = 2 * p * kBits + 1024;
    Real right(bits);
    want(right);
    if (mpfr_zero_p(right)) {
      EXPECT_EQ(out.x.L, 0u);
      return;
    }
    Real error(out.x, bits + out.x.L * kBits);
    mpfr_sub(error, error, right, MPFR_RNDN);
    if (mpfr_zero_p(error)) return;
    const s64 error_bits = mpfr_get_exp(error), bits_of_right = mpfr_get_exp(right);
    EXPECT_LE(error_bits - bits_of_right, -static_cast<s64>(p * kBits));
  }

  OwnedFloat<W> operand(u64 L, s64 exp) {
    std::vector<W> words = random.number<W>(L);
    return OwnedFloat<W>(words, exp - static_cast<s64>(L));
  }
  static OwnedFloat<W> small(W w, s64 exp = 0) { return OwnedFloat<W>(std::vector<W>{w}, exp); }
  /// 1 + 2^-bits, or 1 - 2^-bits.
  static OwnedFloat<W> near_one(u64 bits, bool above) {
    const u64 below = (bits + kBits - 1) / kBits;
    std::vector<W> words(below);
    words[0] = W{1} << (below * kBits - bits);
    if (!above) {
      for (W& word : words) word = static_cast<W>(~word);
      for (W& word : words)
        if (++word != 0) break;
    } else {
      words.push_back(1);
    }
    return OwnedFloat<W>(words, -static_cast<s64>(below));
  }

  void check_means(u64 p, u64 tds) {
    SCOPED_TRACE(p);
    const AGM2<Store> agm(p, tds);
    const AGM1<Store> agm_1(p, tds);
    const auto with = [&](const BigFloat<W>& a, const BigFloat<W>& b) {
      const u64 bits = 2 * p * kBits + 1024;
      SCOPED_TRACE(a.exp);
      const Hashed<BigFloat<W>> x{a, hash(a)}, y{b, hash(b)};
      Real x_real(a, bits), y_real(b, bits), one(64);
      mpfr_set_ui(one, 1, MPFR_RNDN);
      expect(
          agm, p, tds, [&](mpfr_ptr r) { mpfr_agm(r, x_real, y_real, MPFR_RNDN); }, x, y);
      expect(
          agm_1, p, tds, [&](mpfr_ptr r) { mpfr_agm(r, one, y_real, MPFR_RNDN); }, y);
    };
    const u64 L = random.between(1, p + 2);
    for (const s64 exp : {0, 1, -static_cast<int>(p), 40, -3000})
      with(operand(random.between(1, p + 2), exp).x, operand(L, 0).x);
    const OwnedFloat<W> one = small(1), root_of_two = operand(p + 2, 1);
    with(one.x, one.x);
    with(one.x, near_one(p * kBits / 2 + 1, true).x);
    with(near_one(3, false).x, near_one(p * kBits - 1, false).x);
    with(root_of_two.x, root_of_two.x);
  }

  /// p words of Log(x).
  void check_log(u64 p, u64 tds, const BigFloat<W>& x) {
    SCOPED_TRACE(p);
    const Log_AGM<Store> log(p, tds, Log_AGM<Store>::near_one_words(x));
    const u64 words = log.operand_words() + 2;
    const auto constant = [&](auto set) {
      Real value(words * kBits);
      set(value, MPFR_RNDN);
      mpfr_mul_2ui(value, value, words * kBits, MPFR_RNDN);
      Mpz z;
      mpfr_get_z(z, value, MPFR_RNDN);
      return OwnedFloat<W>(z.words<W>(words + 1), -static_cast<s64>(words));
    };
    const OwnedFloat<W> pi = constant(mpfr_const_pi), log2 = constant(mpfr_const_log2);
    const LogOperands<BigFloat<W>> operands{{pi.x, hash(pi.x)}, {log2.x, hash(log2.x)}};
    Real argument(x, 2 * p * kBits + 1024);
    expect(
        log, p, tds, [&](mpfr_ptr r) { mpfr_log(r, argument, MPFR_RNDN); }, Hashed<BigFloat<W>>{x, hash(x)},
        operands);
  }

  void check_power(u64 p, u64 tds, const BigFloat<W>& x, s64 e) {
    SCOPED_TRACE(e);
    Real argument(x, 2 * p * kBits + 1024);
    const auto want = [&](mpfr_ptr r) { mpfr_pow_si(r, argument, e, MPFR_RNDN); };
    const Hashed<BigFloat<W>> operand{x, hash(x)};
    expect(Power_nL<Store>(p, e, tds), p, tds, want, operand);
    if (e >= 0) expect(Power_uL<Store>(p, static_cast<u64>(e), tds), p, tds, want, operand);
  }
};

using AllWords = ::testing::Types<u32, u64>;
TYPED_TEST_SUITE(Agm, AllWords);

TYPED_TEST(Agm, MeansAreRight) {
  for (const u64 p : {1, 2, 3, 9, 10, 41, 130, 400}) this->check_means(p, 1);
  this->check_means(300, 2);
  this->check_means(300, 7);
}

TYPED_TEST(Agm, LogarithmsAreRight) {
  for (const u64 p : {1, 2, 3, 8, 41, 42, 250}) {
    this->check_log(p, p == 250 ? 7 : p == 42 ? 2 : 1, this->operand(p + 2, 1).x);
    for (const s64 exp : {0, 1, 2, 70000, -70000}) this->check_log(p, 1, this->operand(3, exp).x);
    for (const u64 bits : {1, 2, 15, 16, 17, 31, 32, 33, 200, 1000}) {
      SCOPED_TRACE(bits);
      this->check_log(p, 1, this->near_one(bits, true).x);
      this->check_log(p, 1, this->near_one(bits, false).x);
    }
    this->check_log(p, 1, this->small(1).x);
  }
}

TYPED_TEST(Agm, PowersAreRight) {
  for (const u64 p : {1, 2, 9, 40, 200}) {
    OwnedFloat<TypeParam> x = this->operand(p + 2, 1);
    for (const s64 e : {0, 1, 2, 3, 4, 7, 12, 1000, 1023, 123456789, -1, -2, -15, -4096})
      this->check_power(p, p == 200 ? 2 : 1, x.x, e);
    x.x.sign = 0;
    for (const s64 e : {2, 3, -3}) this->check_power(p, 1, x.x, e);
  }
  this->check_power(5, 1, BigFloat<TypeParam>(), 0);
  this->check_power(5, 1, BigFloat<TypeParam>(), 9);
}

template <class W, class Plan, class... Operands>
std::string refusal(const Plan& plan, const Operands&... operands) {
  OwnedFloat<W> out(plan.need().out_words);
  AlignedBytes memory(plan.need().ram_bytes);
  try {
    plan.run(Runner<W>(plan.need().table_bits).context(1), frame, out.x, operands..., memory.buffer());
  } catch (const InvalidParametersException& refused) {
    return refused.message();
  } catch (const ArithmeticException& refused) {
    return refused.message();
  }
  return "";
}

TYPED_TEST(Agm, RefusesWhatHasNoValue) {
  using W = TypeParam;
  using Plans = RamStore<W>;
  OwnedFloat<W> two = this->small(2), minus = this->small(2), near = this->near_one(200, true);
  minus.x.sign = 0;
  BigFloat<W> zero;
  const Hashed<BigFloat<W>> x{two.x, 2}, negative{minus.x, hash_neg(2)}, nothing{zero, 0},
      above_one{near.x, this->hash(near.x)};
  EXPECT_EQ(refusal<W>(AGM1<Plans>(5, 1), negative), "AGM of negative number.");
  EXPECT_EQ(refusal<W>(AGM2<Plans>(5, 1), negative, x), "One of the inputs is negative.");
  EXPECT_EQ(refusal<W>(AGM2<Plans>(5, 1), x, negative), "One of the inputs is negative.");
  const Log_AGM<Plans> log(5, 1);
  const LogOperands<BigFloat<W>> operands{x, x};
  EXPECT_EQ(refusal<W>(log, nothing, operands), "Log(0) is negative infinity.");
  EXPECT_EQ(refusal<W>(log, negative, operands), "Log of a negative number is complex.");
  EXPECT_EQ(refusal<W>(log, above_one, operands), "The argument is nearer to 1 than planned.");
  EXPECT_EQ(refusal<W>(Power_nL<Plans>(5, -2, 1), nothing), "Divide by zero.");
  this->expect(
      AGM2<Plans>(5, 1), 5, 1, [](mpfr_ptr r) { mpfr_set_zero(r, 1); }, x, nothing);
  this->expect(
      AGM1<Plans>(5, 1), 5, 1, [](mpfr_ptr r) { mpfr_set_zero(r, 1); }, nothing);
}

}  // namespace
}  // namespace orl::test
