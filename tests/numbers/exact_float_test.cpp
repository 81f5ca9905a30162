#include "numbers/exact_float.h"

#include <gtest/gtest.h>

#include "multiply/algorithm_table.h"
#include "multiply/basic_int.h"
#include "numbers/number_samples.h"
#include "support/multiplication.h"
#include "support/thrown.h"

namespace orl::test {
namespace {

template <class W>
class ExactFloatTest : public NumberTest<W> {};
TYPED_TEST_SUITE(ExactFloatTest, BothWords);

template <class W>
testing::AssertionResult is(const ExactFloat<W>& a, const Mpz& expected, ParallelContext parallel) {
  if (a.L > 0 && a.T[a.L - 1] == 0) return testing::AssertionFailure() << "the top word is zero";
  if (!(value(a) == expected)) return testing::AssertionFailure() << "the value is wrong";
  if (!a.is_consistent(parallel))
    return testing::AssertionFailure() << "the hash does not belong to the words";
  return testing::AssertionSuccess();
}

TYPED_TEST(ExactFloatTest, InPlaceSumsInEveryPosition) {
  using W = TypeParam;
  const u64 tds_values[] = {1, 2, 64};
  for (int i = 0; i < 1500; ++i) {
    const u64 longest = i % 100 == 99 ? 30000 : i % 10 == 9 ? 100 : 5;
    const ParallelContext parallel{this->reverse, tds_values[this->random.below(3)]};
    const s64 a_exp = static_cast<s64>(longest) + 1;
    const s64 b_exp = static_cast<s64>(this->random.below(2 * longest + 3));
    const u64 AL = this->random.below(longest + 1), BL = this->random.below(longest + 1);
    ExactSample<W> a = this->exact_sample(AL, a_exp, 2 * longest + 2, 2 * longest + 4);
    ExactSample<W> b = this->exact_sample(BL, b_exp);
    if (this->random.below(8) == 0) {  // equal magnitudes cancel
      if (AL > 0)
        b = this->exact_sample(AL, a_exp), std::copy_n(a->T, AL, b->T), b->recompute_hash(this->serial);
    }
    const Mpz x = value(a.number), y = value(b.number);
    if (this->random.coin()) {
      a->add_ip(b, parallel);
      ASSERT_TRUE(is(a.number, x + y, parallel)) << i;
    } else {
      a->sub_ip(b, parallel);
      ASSERT_TRUE(is(a.number, x - y, parallel)) << i;
    }
    ASSERT_TRUE(a.intact());
  }
  // A long borrow and a long carry.
  for (const bool add : {true, false}) {
    ExactSample<W> a(20005), one(1);
    std::fill_n(a->T, 20000, add ? static_cast<W>(~W{0}) : W{0});
    a->T[20000] = 1;
    a->L = 20001;
    a->sign = 1;
    a->recompute_hash(this->serial);
    one->set_uW(1);
    const Mpz expected = add ? value(a.number) + value(one.number) : value(a.number) - value(one.number);
    if (add)
      a->add_ip(one, {this->reverse, 7});
    else
      a->sub_ip(one, {this->reverse, 7});
    EXPECT_TRUE(is(a.number, expected, this->serial));
  }
}

TYPED_TEST(ExactFloatTest, InPlaceSumsStayInTheirBuffer) {
  using W = TypeParam;
  const auto outcome = [&](ExactFloat<W>& a, const ExactFloat<W>& b, bool subtract) -> std::string {
    const ExactFloat<W> before = a;
    const std::string text = refusal([&] { subtract ? a -= b : a += b; });
    if (text != "accepted") {
      EXPECT_TRUE(a.T == before.T && a.L == before.L && a.exp == before.exp && a.hash == before.hash);
    }
    return text;
  };
  const auto positive = [&](u64 L, s64 exp, u64 below, u64 above) {
    ExactSample<W> s = this->exact_sample(L, exp, below, above);
    if (!s->sign) s->negate();
    return s;
  };
  struct Case {
    u64 above, b_length;
    s64 b_exp;
    bool subtract;
    const char* message;
  };
  const Case cases[] = {
      {1, 2, -2, false, "accepted"},
      {1, 2, -3, false, "ExactFloat::uaddAB_ip() Bexp < Tmin"},
      {1, 2, -2, true, "accepted"},
      {1, 2, -3, true, "ExactFloat::usubAB_ip() Bexp < Tmin"},
      {0, 1, 0, false, "ExactFloat::uaddAB_ip() Amag >= Tmax"},
      {0, 1, 0, true, "accepted"},
      {2, 1, 4, false, "accepted"},
      {1, 1, 4, false, "ExactFloat::uaddBA_ip() Bmag >= Tmax"},
      {1, 1, 4, true, "accepted"},
      {1, 1, 5, true, "ExactFloat::usubBA_ip() Bmag > Tmax"},
  };
  for (const Case& c : cases) {
    ExactSample<W> a = positive(4, 0, 2, c.above);
    const ExactSample<W> b = positive(c.b_length, c.b_exp, 0, 0);
    EXPECT_EQ(outcome(a.number, b, c.subtract), c.message)
        << c.above << ' ' << c.b_length << ' ' << c.b_exp << ' ' << c.subtract;
    EXPECT_TRUE(a.intact());
    EXPECT_TRUE(a->is_consistent(this->serial));
  }
}

TYPED_TEST(ExactFloatTest, ThreeAddressSums) {
  using W = TypeParam;
  for (int i = 0; i < 800; ++i) {
    const u64 longest = i % 100 == 99 ? 20000 : 6;
    const ParallelContext parallel{this->reverse, i % 2 ? u64{7} : u64{1}};
    ExactSample<W> a =
        this->exact_sample(this->random.below(longest), static_cast<s64>(this->random.below(longest)));
    ExactSample<W> b =
        this->exact_sample(this->random.below(longest), static_cast<s64>(this->random.below(longest)));
    ExactSample<W> t(2 * longest + 1);
    const bool refused = a->L > 0 && b->L > 0 && a->sign != b->sign;
    if (refused) {
      EXPECT_EQ(refusal<UnsupportedValueException>([&] { t->set_add(a, b, parallel); }),
                "ExactFloat::set_add() Not implemented yet.");
      EXPECT_THROW(t->set_sub(a, b, parallel), UnsupportedValueException);
      b->negate();
    }
    t->set_add(a, b, parallel);
    ASSERT_TRUE(is(t.number, value(a.number) + value(b.number), parallel)) << i;
    t->set_sub(a, b, parallel);
    ASSERT_TRUE(is(t.number, value(a.number) - value(b.number), parallel)) << i;
    ASSERT_TRUE(t.intact());
  }
}

TYPED_TEST(ExactFloatTest, ProductsOnBothSidesOfTheCutoffs) {
  using W = TypeParam;
  const TestTables tables(0x40000);
  const u64 row = 5120 / ExactFloat<W>::word_bits;
  for (const u64 c :
       {u64{2}, u64{3}, u64{18}, u64{19}, u64{20}, u64{21}, row - 1, row, row + 1, 4 * row, 20 * row}) {
    for (const u64 tds : {u64{1}, u64{7}}) {
      const GuardedBlock block(ExactFloat<W>::mul_scratch(c, tds));
      const MultiplyContext ctx{{this->reverse, tds}, tables, block.buffer()};
      for (int i = 0; i < 6; ++i) {
        const u64 AL = i == 0 ? c / 2 : 1 + this->random.below(c - 1);
        const ExactSample<W> a = this->exact_sample(AL, this->exponent());
        const ExactSample<W> b = this->exact_sample(c - AL, this->exponent());
        Mpz exact = product_magnitude(a.number, b.number);
        if (a.number.sign != b.number.sign) mpz_neg(exact, exact);
        ExactSample<W> t(c, this->random.below(16));
        t->set_mul(a, b, ctx);
        ASSERT_TRUE(is(t.number, exact, this->serial)) << AL << " of " << c;
        ASSERT_TRUE(t.intact() && block.intact());

        const s64 exp = a.number.exp + b.number.exp;
        const u64 zeros = this->random.below(5);
        ExactSample<W> extended(c + zeros);
        extended->set_mul(a, b, ctx, exp - static_cast<s64>(zeros));
        ASSERT_TRUE(is(extended.number, exact, this->serial));
        EXPECT_EQ(extended->exp, exp - static_cast<s64>(zeros));
        EXPECT_TRUE(extended.intact());
        if (zeros > 0) {
          ExactFloat<W> small(extended->base, c + zeros - 1);
          EXPECT_THROW(small.set_mul(a, b, ctx, exp - static_cast<s64>(zeros)), BufferTooSmallException);
        }

        const ExactSample<W> x = this->exact_sample(c / 2, this->exponent());
        ExactSample<W> square(c / 2 * 2);
        square->set_sqr(x, ctx);
        ASSERT_TRUE(is(square.number, product_magnitude(x.number, x.number), this->serial)) << c / 2;
        ASSERT_TRUE(square.intact() && block.intact());
      }
    }
  }
  ExactFloat<W> zero;
  ExactSample<W> t(4);
  const MultiplyContext ctx{this->serial, tables, {}};
  const ExactSample<W> a = this->exact_sample(30, 5);
  t->set_mul(a, zero, ctx);
  EXPECT_EQ(t->signum(), 0);
  EXPECT_TRUE(t->is_consistent(this->serial));
}

TYPED_TEST(ExactFloatTest, HashesFollowShiftsSignsAndCopies) {
  using W = TypeParam;
  for (int i = 0; i < 200; ++i) {
    ExactSample<W> a = this->exact_sample(this->random.below(6), this->exponent(), 0, 3);
    const s64 bits = static_cast<s64>(this->random.below(400)) - 200;
    const Mpz before = value(a.number);
    a->mp2(bits, this->serial);
    EXPECT_EQ(bits < 0 ? value(a.number) << static_cast<u64>(-bits) : value(a.number),
              bits < 0 ? before : before << static_cast<u64>(bits));
    EXPECT_TRUE(a->is_consistent(this->serial));
    a->negate();
    const W w = this->random.template edge_word<W>();
    const Mpz factor_before = value(a.number);
    a->mul_uW(w, this->serial);
    EXPECT_TRUE(is(a.number, factor_before * Mpz(w), this->serial));
    a->strip_tzs();
    EXPECT_TRUE(is(a.number, factor_before * Mpz(w), this->serial));
    EXPECT_TRUE(a.intact());
  }
  ExactSample<W> t(3);
  const BasicIntO<W> b(u64{0xfedcba9876543210});
  t->set_BasicInt(b, 0);
  EXPECT_TRUE(is(t.number, (Mpz(0) - Mpz(0xfedcba9876543210)) * word_power<W>(0), this->serial));
  t->set_uW(static_cast<W>(~W{0}));
  EXPECT_TRUE(t->is_consistent(this->serial));
}

// What the hash is for: one flipped bit anywhere shows.
TYPED_TEST(ExactFloatTest, HashesProveTheWords) {
  ExactSample<TypeParam> a = this->exact_sample(50, -7);
  for (u64 i = 0; i < 50; ++i) {
    TypeParam& word = a->T[i];
    const TypeParam bit =
        static_cast<TypeParam>(TypeParam{1} << this->random.below(ExactFloat<TypeParam>::word_bits));
    word ^= bit;
    EXPECT_FALSE(a->is_consistent(this->serial)) << i;
    word ^= bit;
  }
  EXPECT_TRUE(a->is_consistent(this->serial));
}

}  // namespace
}  // namespace orl::test
