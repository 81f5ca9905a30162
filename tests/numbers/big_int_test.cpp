#include "numbers/big_int.h"

#include <gtest/gtest.h>

#include "core/exceptions.h"
#include "multiply/algorithm_table.h"
#include "multiply/basic_int.h"
#include "numbers/number_samples.h"
#include "support/multiplication.h"

namespace orl::test {
namespace {

template <class W>
struct IntSample {
  explicit IntSample(u64 capacity) : words(capacity), number(words.data(), capacity) {}
  IntSample(Random& random, u64 L, u64 above = 0) : IntSample(L + above) {
    const std::vector<W> digits = random.number<W>(L);
    number.set_words(digits.data(), L);
    number.sign = L == 0 || random.coin();
  }
  operator const BigInt<W>&() const { return number; }
  BigInt<W>* operator->() { return &number; }

  GuardedWords<W> words;
  BigInt<W> number;
};

template <class W>
Mpz magnitude(const IntSample<W>& a) {
  return Mpz(a.number.T, a.number.L);
}
template <class W>
Mpz value(const IntSample<W>& a) {
  return a.number.sign ? magnitude(a) : Mpz(0) - magnitude(a);
}

template <class W>
class BigIntTest : public NumberTest<W> {};
TYPED_TEST_SUITE(BigIntTest, BothWords);

TYPED_TEST(BigIntTest, ShiftsFactorsAndWordSums) {
  using W = TypeParam;
  for (int i = 0; i < 300; ++i) {
    const u64 bits = this->random.below(300);
    IntSample<W> a(this->random, this->random.below(6), bits / BigInt<W>::word_bits + 1);
    Mpz expected = value(a) << bits;
    *a.operator->() <<= bits;
    EXPECT_EQ(value(a), expected);
    EXPECT_TRUE(a.words.intact());

    IntSample<W> b(this->random, 1 + this->random.below(5), 1), t(b->L + 1);
    const W w = this->random.template edge_word<W>();
    t->set_mul_uW(b, w, this->serial);
    EXPECT_EQ(value(t), value(b) * Mpz(w));
    const u64 at = this->random.below(b->L + 1);
    expected = magnitude(b) + (Mpz(w) << (at * BigInt<W>::word_bits));
    IntSample<W> c(this->random, 0, 7);
    c->set_BigInt(b, this->serial);
    c->add_ip(w, at);
    EXPECT_EQ(magnitude(c), expected);
    b->mul_uW(w, this->serial);
    EXPECT_EQ(value(b), value(t));
    EXPECT_TRUE(b.words.intact() && t.words.intact());
  }
  IntSample<W> full(this->random, 3);
  EXPECT_THROW(*full.operator->() <<= 1, BufferTooSmallException);
  EXPECT_THROW(full->mul_uW(2, this->serial), BufferTooSmallException);
}

TYPED_TEST(BigIntTest, SumsAndComparisons) {
  using W = TypeParam;
  for (int i = 0; i < 300; ++i) {
    const u64 longest = i % 50 == 49 ? 20000 : 5;
    const ParallelContext parallel{this->reverse, i % 2 ? u64{7} : u64{1}};
    const IntSample<W> a(this->random, this->random.below(longest)),
        b(this->random, this->random.below(longest));
    IntSample<W> t(longest);
    t->set_add(a, b, parallel);
    EXPECT_EQ(magnitude(t), magnitude(a) + magnitude(b));
    const int order = mpz_cmp(magnitude(a), magnitude(b));
    t->set_sub(order >= 0 ? a : b, order >= 0 ? b : a, parallel);
    EXPECT_EQ(magnitude(t), order >= 0 ? magnitude(a) - magnitude(b) : magnitude(b) - magnitude(a));
    EXPECT_TRUE(t->L == 0 || t->T[t->L - 1] != 0);
    if (order != 0) {
      EXPECT_THROW(t->set_sub(order >= 0 ? b : a, order >= 0 ? a : b, parallel),
                   UnsupportedNegativeException);
    }
    const int signed_order = mpz_cmp(value(a), value(b));
    EXPECT_EQ(BigInt<W>::cmp(a, b), signed_order > 0 ? 1 : signed_order < 0 ? -1 : 0);
  }
}

TYPED_TEST(BigIntTest, ProductsAtTheCutoffs) {
  using W = TypeParam;
  const TestTables tables(0x10000);
  const u64 row = 5120 / BigInt<W>::word_bits;
  for (const u64 c : {u64{2}, u64{19}, u64{20}, row, row + 1, 5 * row}) {
    const GuardedBlock block(BigInt<W>::mul_scratch(c, 1));
    const MultiplyContext ctx{this->serial, tables, block.buffer()};
    const u64 AL = 1 + this->random.below(c - 1);
    const IntSample<W> a(this->random, AL), b(this->random, c - AL), x(this->random, c / 2);
    IntSample<W> t(c);
    t->set_mul(a, b, ctx);
    EXPECT_EQ(value(t), value(a) * value(b));
    t->set_sqr(x, ctx);
    EXPECT_EQ(value(t), value(x) * value(x));
    EXPECT_TRUE(t.words.intact() && block.intact());
  }
}

TYPED_TEST(BigIntTest, TakesTheIntegerPartOfFloats) {
  using W = TypeParam;
  for (s64 exp = -8; exp <= 4; ++exp) {
    Sample<W> f(this->random, 6, exp);
    IntSample<W> t(10);
    t->set_BigFloat(f, this->serial);
    const Mpz words(f->T, f->L);
    EXPECT_EQ(magnitude(t), exp >= 0 ? words << (static_cast<u64>(exp) * BigInt<W>::word_bits)
                                     : words >> (static_cast<u64>(-exp) * BigInt<W>::word_bits));
    EXPECT_EQ(t->signum(), exp <= -6 ? 0 : f->signum());
    Sample<W> back(10);
    back->set_BigInt(t, this->serial);
    EXPECT_EQ(back->signum(), t->signum());
  }
  IntSample<W> t(3);
  const BasicIntO<W> b(u64{77});
  t->set_BasicInt(b);
  EXPECT_EQ(value(t), Mpz(77));
  const W padded[] = {5, 0, 0, 0};
  t->set_words(padded, 4);
  EXPECT_EQ(t->L, 1u);
}

}  // namespace
}  // namespace orl::test
