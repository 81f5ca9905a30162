#include "multiply/basic_int.h"

#include <gtest/gtest.h>

#include "support/gmp_oracle.h"
#include "support/random_words.h"
#include "support/thrown.h"
#include "words/hash.h"

namespace orl::test {
namespace {

template <class W>
class BasicInts : public testing::Test {
 protected:
  // A number on `store`, with the hash of its words.
  static BasicIntR<W> number(GuardedWords<W>& store, u64 L) {
    class Opened : public BasicIntR<W> {
     public:
      Opened(W* T, u64 size, u64 length) : BasicIntR<W>(T, size) {
        this->L_ = length;
        this->recompute_hash();
      }
    };
    return Opened(store.data(), store.size(), L);
  }
  static Mpz value(const BasicInt<W>& b) { return Mpz(b.words(), b.L()); }
  static void expect_value(const BasicInt<W>& b, const Mpz& expected) {
    EXPECT_TRUE(value(b) == expected);
    EXPECT_NE(b[b.L() - 1], 0);
    EXPECT_EQ(hash_canon(b.check_hash()), 0u);
    EXPECT_EQ(hash_canon(b.hash()), residue_m61(expected));
  }
};
TYPED_TEST_SUITE(BasicInts, BothWords);

// Results into buffers of exactly the stated capacity.
TYPED_TEST(BasicInts, OperationsAreExactAndKeepTheHash) {
  using W = TypeParam;
  using Number = BasicIntR<W>;
  Random random;
  for (int round = 0; round < 500; ++round) {
    GuardedWords<W> a_store(random.number<W>(1 + random.below(30)), 0);
    GuardedWords<W> b_store(random.number<W>(1 + random.below(30)), 0);
    Number a = this->number(a_store, a_store.size());
    Number b = this->number(b_store, b_store.size());
    const Mpz x = this->value(a), y = this->value(b);
    const auto expect_result = [&](u64 capacity, const Mpz& expected, auto&& operation) {
      GuardedWords<W> store(capacity);
      Number r(store.data(), capacity);
      operation(r);
      this->expect_value(r, expected);
      EXPECT_TRUE(store.intact());
    };
    const u64 longer = std::max(a.L(), b.L());
    expect_result(longer + 1, x + y, [&](Number& r) { r.set_add(a, b); });
    expect_result(a.L() + b.L(), x * y, [&](Number& r) { r.set_mulB(a, b); });
    expect_result(2 * a.L(), x * x, [&](Number& r) { r.set_sqrB(a); });
    expect_result(longer + 2, y + y + x, [&](Number& r) {
      r.set_BasicInt(b);
      r.set_add(r, b);
      r.set_add(a, r);
    });
    // (a + b) - b, and down to exactly b from a + b by -=.
    expect_result(longer + 2, x, [&](Number& r) {
      r.set_add(a, b);
      r.set_sub(r, b);
    });
    expect_result(longer + 2, y, [&](Number& r) {
      r.set_add(a, b);
      r -= a;
    });
  }
}

TYPED_TEST(BasicInts, ZeroAndNegativeDifferencesAreRefused) {
  using W = TypeParam;
  using Number = BasicIntR<W>;
  GuardedWords<W> one({1}, 0), big({0, 0, 1}, 0), out(8);
  const Number a = this->number(one, 1), b = this->number(big, 3);
  Number r(out.data(), 8);
  EXPECT_THROW(r.set_sub(a, a), UnsupportedZeroException);
  EXPECT_THROW(r.set_sub(a, b), UnsupportedNegativeException);
  r.set_BasicInt(a);
  EXPECT_THROW(r -= b, UnsupportedNegativeException);
  GuardedWords<W> close({5, 7, 1}, 0), above({6, 7, 1}, 0);
  r.set_BasicInt(this->number(close, 3));
  EXPECT_EQ(refusal<UnsupportedNegativeException>([&] { r -= this->number(above, 3); }),
            "BasicInt::operator-=() A negative value was encountered.");
}

// One word less than stated is refused before anything is written.
TYPED_TEST(BasicInts, ShortBuffersAreRefusedUntouched) {
  using W = TypeParam;
  using Number = BasicIntR<W>;
  GuardedWords<W> a_store({1, 2, 3}, 0), b_store({4, 5}, 0);
  const Number a = this->number(a_store, 3), b = this->number(b_store, 2);
  const auto expect_refused = [&](u64 required, auto&& operation) {
    GuardedWords<W> store(required - 1);
    const std::vector<W> before = store.words();
    Number r(store.data(), required - 1);
    EXPECT_EQ(caught<BufferTooSmallException>([&] { operation(r); }).required_size(), required);
    EXPECT_EQ(store.words(), before);
  };
  expect_refused(3, [&](Number& r) { r.set_BasicInt(a); });
  expect_refused(4, [&](Number& r) { r.set_add(b, a); });
  expect_refused(4, [&](Number& r) { r.set_sub(a, b); });
  expect_refused(5, [&](Number& r) { r.set_mulB(a, b); });
  expect_refused(6, [&](Number& r) { r.set_sqrB(a); });
}

TYPED_TEST(BasicInts, OwnersCopyMoveAndDivide) {
  using W = TypeParam;
  Random random;
  EXPECT_THROW(BasicIntO<W>(0), UnsupportedZeroException);
  const BasicIntO<W> small(7);
  EXPECT_EQ(small.L(), 1u);
  EXPECT_EQ(small.size(), 4u);
  const BasicIntO<W> wide(u64{1} << 40);
  EXPECT_EQ(wide.L(), sizeof(W) == 4 ? 2u : 1u);
  this->expect_value(wide, Mpz(u64{1} << 40));

  GuardedWords<W> store(random.number<W>(20), 0);
  BasicIntO<W> n(this->number(store, 20));
  EXPECT_EQ(n.size(), 22u);
  BasicIntO<W> moved(std::move(n));
  n = small;
  this->expect_value(n, Mpz(7));
  n = moved;
  Mpz value(store.words());
  this->expect_value(n, value);
  EXPECT_THROW(n.div(0), ArithmeticException);
  while (n.L()) {
    const W w = random.edge_word<W>() | 2;
    EXPECT_EQ(n.div(w), (value % Mpz(w)).low_u64());
    value = value / Mpz(w);
    if (n.L()) this->expect_value(n, value);
  }
  EXPECT_TRUE(value == Mpz(0));
}

}  // namespace
}  // namespace orl::test
