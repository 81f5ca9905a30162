#include "numbers/transform.h"

#include <gtest/gtest.h>

#include "multiply/algorithm_table.h"
#include "multiply/toy_algorithm.h"
#include "numbers/number_samples.h"
#include "support/multiplication.h"
#include "support/thrown.h"
#include "threads/frameworks.h"

namespace orl::test {
namespace {

template <class W>
class TransformTest : public NumberTest<W> {
 protected:
  // The top p + 2 words of a product whose operands were cut to as many.
  testing::AssertionResult close(const BigFloat<W>& t, const BigFloat<W>& a, const BigFloat<W>& b) {
    if (t.signum() != a.signum() * b.signum()) return testing::AssertionFailure() << "wrong sign";
    const Mpz error = product_magnitude(a, b) - magnitude_value(t);
    if (error.sign() < 0 || mpz_cmp(error, word_power<W>(t.exp) * Mpz(4)) >= 0)
      return testing::AssertionFailure() << "wrong words";
    return testing::AssertionSuccess();
  }
  testing::AssertionResult exact(const ExactFloat<W>& t, const ExactFloat<W>& a, const ExactFloat<W>& b) {
    if (!t.is_consistent(this->serial)) return testing::AssertionFailure() << "wrong hash";
    Mpz expected = product_magnitude(a, b);
    if (a.sign != b.sign) mpz_neg(expected, expected);
    if (!(value(t) == expected)) return testing::AssertionFailure() << "wrong words";
    return testing::AssertionSuccess();
  }
  // Lengths of one operand on both sides of the thresholds, and within the FFT.
  std::vector<u64> lengths() const {
    const u64 bits = BigFloat<W>::word_bits;
    return {1, 3, 2560 / bits - 1, 2560 / bits, 2560 / bits + 1, 20000 / bits, 110592 / bits + 1};
  }
};
TYPED_TEST_SUITE(TransformTest, BothWords);

TYPED_TEST(TransformTest, TruncatingProductsReuseTransforms) {
  using W = TypeParam;
  using F = BigFloatTransformR<W>;
  const TestTables tables(0x80000);
  for (const u64 n : this->lengths()) {
    for (const u64 tds : {u64{1}, u64{7}}) {
      const u64 p = n > 2 ? n - 2 : 0;
      const GuardedBlock block(TransformHelper<W>::bytes(2 * n + 2, tds, 2));
      const MultiplyContext ctx{{this->reverse, tds}, tables, block.buffer()};
      const TransformHelper<W> helper(ctx, 2 * n + 2, 2);
      const Sample<W> a(this->random, n, this->exponent()), b(this->random, n + 5, this->exponent());
      const Sample<W> c(this->random, (n + 1) / 2, this->exponent());
      Sample<W> t(p + 2);
      const auto check = [&](const BigFloat<W>& x, const BigFloat<W>& y) {
        EXPECT_TRUE(this->close(t, x, y)) << n << " words, tds " << tds;
        EXPECT_TRUE(t.intact() && block.intact());
      };
      F B, A;
      F::mul_rr_xx(helper, t.number, p, a, b);
      check(a, b);
      F::mul_rr_xf(helper, t.number, p, a, b, B);
      check(a, b);
      F::mul_rf_xf(helper, t.number, p, c, B);
      check(c, b);
      F::sqr_rx_xf(helper, t.number, p, a, A, 1);
      check(a, a);
      F::inverse_fmul(helper, t.number, p, A, B);  // destroys A, keeps B
      check(a, b);
      EXPECT_THROW(F::mul_rf_xf(helper, t.number, p, c, A), InvalidTransformException);
      A.forward(helper, p, c, 1);
      EXPECT_EQ(A.L, std::min<u64>(c.number.L, p + 2));
      F::inverse_fmul(helper, t.number, p, A, B);
      check(c, b);
      F::inverse_fsqr(helper, t.number, p, B);
      check(b, b);
    }
  }
}

// All products by an algorithm that multiplies in half of the memory, but those of up to `basecase` words.
template <class W>
struct ToyRows {
  explicit ToyRows(u64 basecase) : scope(rows(toy, basecase)) {}
  static AlgorithmTable<W> rows(const ToyAlgorithm& toy, u64 basecase) {
    AlgorithmTable<W> table("toy");
    if (basecase > 0) table.add(basecase, algorithm_registry().find("BKT")->basic<W>());
    table.add(1000, &toy);
    return table;
  }
  const ToyAlgorithm toy{0};
  const ScopedBasicTable<W> scope;
};

// Products of numbers in the memory their plans state, over tables whose algorithm multiplies in half of it.
TYPED_TEST(TransformTest, NumbersMultiplyInBoundedMemory) {
  using W = TypeParam;
  const ToyRows<W> toy(8);
  TransformTables tables{LinearHeapBuffer()};
  u64 saved = 0;
  for (int round = 0; round < 150; ++round) {
    const u64 n = this->random.between(1, 90), m = this->random.between(1, 90), c = n + m;
    const u64 p = this->random.between(1, n + m);
    const auto context = [&](const GuardedBlock& block) {
      return MultiplyContext{this->serial, tables, block.buffer()};
    };
    const ExactSample<W> a = this->exact_sample(n, this->exponent()),
                         b = this->exact_sample(m, this->exponent());
    const GuardedBlock exact_block(ExactFloat<W>::mul_scratch(c, 1));
    saved += ExactFloat<W>::mul_scratch(c, 1) < TransformHelper<W>::max_bytes(c, 1);
    ExactSample<W> e(c), e2(2 * n);
    e->set_mul(a, b, context(exact_block));
    EXPECT_TRUE(this->exact(e, a, b));
    const GuardedBlock square_block(ExactFloat<W>::mul_scratch(2 * n, 1));
    e2->set_sqr(a, context(square_block));
    EXPECT_TRUE(this->exact(e2, a, a));
    ASSERT_TRUE(e.intact() && e2.intact() && exact_block.intact() && square_block.intact()) << n << ' ' << m;

    const Sample<W> x(this->random, n, this->exponent()), y(this->random, m, this->exponent());
    const GuardedBlock mul_block(BigFloat<W>::mul_scratch(p, 1)), sqr_block(BigFloat<W>::sqr_scratch(p, 1));
    Sample<W> t(p + 2), q(p + 2);
    t->set_mul(p, x, y, context(mul_block));
    q->set_sqr(p, x, context(sqr_block));
    EXPECT_TRUE(this->close(t, x, y) && this->close(q, x, x)) << n << ' ' << m << ' ' << p;
    ASSERT_TRUE(t.intact() && q.intact() && mul_block.intact() && sqr_block.intact()) << n << ' ' << m;
  }
  EXPECT_GT(saved, 0u);
}

// A product that keeps nothing, in all amounts of memory from the least to the direct way's, into a buffer of
// its own and over either operand.
TYPED_TEST(TransformTest, UnkeptProductsMayLieOverOperands) {
  using W = TypeParam;
  const ToyRows<W> toy(0);
  TransformTables tables{LinearHeapBuffer()};
  for (int round = 0; round < 200; ++round) {
    const u64 n = this->random.between(1, 90), m = this->random.between(1, 90), c = n + m, p = n + 3;
    const u64 least = TransformHelper<W>::max_bounded_bytes(c, 1), most = TransformHelper<W>::max_bytes(c, 1);
    ASSERT_LE(least, most);
    const GuardedBlock block(round % 3 == 0 ? most : least + round % 3 * 64);
    const MultiplyContext ctx{this->serial, tables, block.buffer()};
    const ExactSample<W> a = this->exact_sample(n, this->exponent()),
                         b = this->exact_sample(m, this->exponent());
    for (const int over : {0, 1, 2}) {
      ExactSample<W> e(c);
      const ExactFloat<W>& from = over == 2 ? b.number : a.number;
      if (over > 0) e->set_ExactFloat(from, this->serial);
      ExactFloatTransformR<W>::mul_rr_xx(ctx, e.number, over == 1 ? e.number : a.number,
                                         over == 2 ? e.number : b.number);
      EXPECT_TRUE(this->exact(e, a, b)) << n << ' ' << m << ' ' << over;
      ASSERT_TRUE(e.intact() && block.intact()) << n << ' ' << m << ' ' << over;
    }
    const Sample<W> x(this->random, n, this->exponent()), y(this->random, m, this->exponent());
    for (const bool over : {false, true}) {
      Sample<W> t(std::max(p + 2, n));
      if (over) t->set_BigFloat(n, x, this->serial);
      BigFloatTransformR<W>::mul_rr_xx(ctx, t.number, p, over ? t.number : x.number, y);
      EXPECT_TRUE(this->close(t, x, y)) << n << ' ' << m << ' ' << over;
      ASSERT_TRUE(t.intact() && block.intact()) << n << ' ' << m << ' ' << over;
    }
  }
}

TYPED_TEST(TransformTest, ExactProductsKeepTheirHashes) {
  using W = TypeParam;
  using F = ExactFloatTransformR<W>;
  const TestTables tables(0x80000);
  for (const u64 n : this->lengths()) {
    for (const u64 tds : {u64{1}, u64{7}}) {
      const u64 m = (n + 1) / 2;
      const GuardedBlock block(TransformHelper<W>::max_bytes(2 * n, tds, 2));
      const MultiplyContext ctx{{this->reverse, tds}, tables, block.buffer()};
      const TransformHelper<W> helper(ctx, 2 * n, 2);
      const ExactSample<W> a = this->exact_sample(n, this->exponent()),
                           b = this->exact_sample(m, this->exponent());
      ExactSample<W> t(2 * n + 3);
      F B, A;
      F::mul_rr_xx(helper, t.number, a, b);
      EXPECT_TRUE(this->exact(t, a, b)) << n;
      F::mul_rr_xf(helper, t.number, a, b, B, 0, a.number.exp + b.number.exp - 3);
      EXPECT_TRUE(this->exact(t, a, b)) << n;
      EXPECT_EQ(t->exp, a.number.exp + b.number.exp - 3);
      F::mul_rf_xf(helper, t.number, a, B);
      EXPECT_TRUE(this->exact(t, a, b)) << n;
      F::sqr_rx_xf(helper, t.number, a, A, 1);
      EXPECT_TRUE(this->exact(t, a, a)) << n;
      F::inverse_fmul(helper, t.number, A, B);
      EXPECT_TRUE(this->exact(t, a, b)) << n;
      F::inverse_fsqr(helper, t.number, B, 2 * b.number.exp - 2);
      EXPECT_TRUE(this->exact(t, b, b)) << n;
      EXPECT_TRUE(t.intact() && block.intact());
    }
  }
}

TYPED_TEST(TransformTest, ResultsMayTakeThePlaceOfAnOperand) {
  using W = TypeParam;
  using F = ExactFloatTransformR<W>;
  const TestTables tables(0x10000);
  for (const u64 bits : {2048, 20000}) {  // Basecase/Karatsuba and FFT
    const u64 n = bits / BigFloat<W>::word_bits;
    const GuardedBlock block(TransformHelper<W>::bytes(2 * n, 1));
    const TransformHelper<W> helper({this->serial, tables, block.buffer()}, 2 * n);
    const ExactSample<W> b = this->exact_sample(n, 2);
    ExactSample<W> x(2 * n);
    x->set_ExactFloat(this->exact_sample(n, -3), this->serial);
    const ExactSample<W> before = x;
    ExactFloat<W> original = before.number;
    original.T = const_cast<W*>(before.words.data());
    F B;
    F::mul_rr_xf(helper, x.number, x, b, B);
    EXPECT_TRUE(this->exact(x, original, b)) << bits;
    EXPECT_TRUE(x.intact());
  }
}

TYPED_TEST(TransformTest, ZeroOperandsTouchNoTransform) {
  using W = TypeParam;
  using F = BigFloatTransformR<W>;
  const TestTables tables(0x10000);
  const GuardedBlock block(TransformHelper<W>::bytes(400, 1));
  const TransformHelper<W> helper({this->serial, tables, block.buffer()}, 400);
  const Sample<W> a(this->random, 50, 0);
  BigFloat<W> zero;
  Sample<W> t(60);
  F A, Z;
  A.forward(helper, 58, a);
  const std::vector<u8> transform(static_cast<u8*>(A.F),
                                  static_cast<u8*>(A.F) + helper.parameters().transform_size());
  const auto cleared = [&](auto&& operation) {
    t->set_uW(7);
    operation();
    EXPECT_EQ(t->signum(), 0);
    EXPECT_TRUE(std::equal(transform.begin(), transform.end(), static_cast<u8*>(A.F)));
  };
  cleared([&] { F::mul_rf_xf(helper, t.number, 58, zero, A); });
  cleared([&] { F::mul_rr_xx(helper, t.number, 58, zero, a); });
  cleared([&] { F::mul_rr_xf(helper, t.number, 58, a, zero, Z); });
  cleared([&] { F::mul_rf_xf(helper, t.number, 58, a, Z); });
  cleared([&] { F::inverse_fmul(helper, t.number, 58, A, Z); });
  cleared([&] { F::sqr_rx_xf(helper, t.number, 58, zero, Z); });
  cleared([&] { F::inverse_fsqr(helper, t.number, 58, Z); });
}

TYPED_TEST(TransformTest, RefusesWhatDoesNotFit) {
  using W = TypeParam;
  using F = BigFloatTransformR<W>;
  const TestTables tables(0x40000);
  const u64 n = 20000 / BigFloat<W>::word_bits;
  const u64 bytes = TransformHelper<W>::bytes(2 * n, 1);
  const GuardedBlock block(bytes), small_block(TransformHelper<W>::bytes(n, 1)), short_block(bytes - 1);
  const MultiplyContext ctx{this->serial, tables, block.buffer()};
  EXPECT_THROW(TransformHelper<W>({this->serial, tables, short_block.buffer()}, 2 * n),
               BufferTooSmallException);
  const TransformHelper<W> helper(ctx, 2 * n);
  const TransformHelper<W> other({this->serial, tables, small_block.buffer()}, n);
  const u64 whole = helper.max_words();
  const Sample<W> a(this->random, n, 0), huge(this->random, whole + 1, 0),
      half(this->random, whole - n + 1, 0);
  Sample<W> t(2 * whole);
  F A, B;
  EXPECT_THROW(A.forward(helper, whole, huge), TransformTooSmallException);
  A.forward(helper, n, a);
  EXPECT_EQ(caught<ConvolutionTooSmallException>([&] {
              F::mul_rf_xf(helper, t.number, whole, half, A);
            }).function(),
            "BigFloatTransformR::mul_rf_xf()");
  BigFloat<W> small(t->base, n);
  EXPECT_THROW(F::mul_rf_xf(helper, small, n, a, A), BufferTooSmallException);
  B.forward(other, n / 2 - 2, a);
  EXPECT_THROW(F::inverse_fmul(helper, t.number, n, A, B), InvalidTransformException);
  EXPECT_TRUE(A.parameters == nullptr && B.parameters == nullptr) << "both are discarded";
}

TYPED_TEST(TransformTest, SharingPaysForNearlyEqualTransforms) {
  using W = TypeParam;
  const auto pays = [](u64 first_bits, u64 second_bits) {
    return shared_product_pays<W>(first_bits / BigFloat<W>::word_bits, second_bits / BigFloat<W>::word_bits,
                                  1);
  };
  EXPECT_TRUE(pays(200000, 200000));
  EXPECT_TRUE(pays(200000, 190000) && pays(190000, 200000));
  EXPECT_FALSE(pays(200000, 100000) || pays(100000, 200000));
  EXPECT_FALSE(pays(4000, 4000)) << "a transform of Basecase/Karatsuba is a copy";
}

// Real threads, so that a sanitizer can see what tasks share.
TYPED_TEST(TransformTest, EveryFrameworkGivesTheSameWords) {
  using W = TypeParam;
  const TestTables tables(0x100000);
  const u64 n = 0x80000 / BigFloat<W>::word_bits;
  const ExactSample<W> a = this->exact_sample(n, 1), b = this->exact_sample(n, -2),
                       e = this->exact_sample(n - 3, 3);
  const GuardedBlock block(TransformHelper<W>::bytes(2 * n, 7));
  for (const FrameworkType& type : frameworks()) {
    const std::unique_ptr<Parallelizer> framework = type.create();
    framework->reserve();
    const MultiplyContext ctx{{*framework, 7}, tables, block.buffer()};
    ExactSample<W> c(2 * n + 8), d(2 * n);
    {
      using F = ExactFloatTransformR<W>;
      const TransformHelper<W> helper(ctx, 2 * n);
      F B;
      F::mul_rr_xf(helper, c.number, a, b, B, 0, -4);
      F::mul_rf_xf(helper, d.number, e, B);
    }
    EXPECT_TRUE(this->exact(c, a, b)) << type.key;
    EXPECT_TRUE(this->exact(d, b, e)) << type.key;
    const Mpz sum = value(c.number) - value(d.number);
    c->sub_ip(d, ctx.parallel);
    EXPECT_EQ(value(c.number), sum) << type.key;
    EXPECT_TRUE(c->is_consistent(ctx.parallel)) << type.key;
    framework->reset();
  }
}

}  // namespace
}  // namespace orl::test
