// What Newton iterations give passes; a changed bit in a quotient, a divisor or a root does not.
#include "functions/residual.h"

#include <gtest/gtest.h>

#include "core/exceptions.h"
#include "functions/function_runner.h"
#include "functions/newton.h"
#include "support/random_words.h"

namespace orl::test {
namespace {

template <class W>
class ResidualTest : public ::testing::Test {
 protected:
  using Of = ResidualOf;
  Random random;

  /// Runs `plan` with exactly its memory and tables; true when it lets the numbers pass.
  template <class Check>
  bool passes(const RamResidual<W>& residual, u64 tds, const Check& check) {
    Runner<W> runner(residual.need().table_bits, tds > 1 ? "spawn" : "none");
    GuardedHeap heap(residual.need().ram_bytes);
    bool passed = true;
    try {
      check(runner.context(tds), heap.buffer());
    } catch (const AlgorithmFailedException& failure) {
      EXPECT_EQ(failure.message().rfind("Residual is too large. ", 0), 0u);
      passed = false;
    }
    EXPECT_TRUE(heap.intact());
    return passed;
  }

  // One bit of a number's words, but not of its lowest five.
  void flip(BigFloat<W>& x) { x.T[random.between(5, x.L - 1)] ^= W{1} << random.below(8 * sizeof(W)); }

  // Words without long runs of zeros or ones.
  std::vector<W> dense(u64 L) {
    std::vector<W> words = random.plain_words<W>(L);
    for (W& word : words) word |= 2;
    return words;
  }

  void check_quotient(u64 p, u64 tds) {
    SCOPED_TRACE(p);
    OwnedFloat<W> a(random.number<W>(random.between(1, p + 4)), random.coin() ? 3 : -7, random.coin());
    OwnedFloat<W> b(dense(random.between(p, p + 4)), random.coin() ? 0 : -12, random.coin());
    if (random.below(4) == 0) b.store.back() = 1;
    OwnedFloat<W> q = made_by<W>(Division_BigFloatR<W>(p, tds), tds, "none", ~u64{0}, a.x, b.x);
    const RamResidual<W> residual(Of::kProduct, p, tds);
    const auto right = [&] {
      return passes(residual, tds, [&](const RunContext& ctx, LinearHeapBuffer heap) {
        residual.check_quotient(ctx, q.x, a.x, b.x, heap);
      });
    };
    EXPECT_TRUE(right());
    if (p < 7) return;
    for (OwnedFloat<W>* x : {&q, &b}) {
      const std::vector<W> before = x->store;
      flip(x->x);
      EXPECT_FALSE(right());
      x->store = before;
    }
    q.x.sign ^= 1;
    EXPECT_FALSE(right());
    q.x.sign ^= 1;
    ++q.x.exp;
    EXPECT_FALSE(right());
  }

  void check_root(u64 p, W w, u64 tds) {
    SCOPED_TRACE(p);
    OwnedFloat<W> y = made_by<W>(InvsqrtWord_BigFloatR<W>(p, tds), tds, "none", ~u64{0}, w);
    const RamResidual<W> residual(Of::kSquare, p, tds);
    const auto right = [&](W word) {
      return passes(residual, tds, [&](const RunContext& ctx, LinearHeapBuffer heap) {
        residual.check_inverse_root(ctx, y.x, word, heap);
      });
    };
    EXPECT_TRUE(right(w));
    EXPECT_FALSE(right(w + 1));
    // The root of a word near a power of two has long runs of zeros or ones, that of a square is a period.
    if (p < 7 || w % 16 != 10) return;
    flip(y.x);
    EXPECT_FALSE(right(w));
  }

  W root_word() {
    return random.coin() ? (random.word<W>() >> 1) / 16 * 16 + 10
                         : static_cast<W>(random.edge_word<W>() >> 1 | 1);
  }

  void check_all(u64 longest) {
    for (u64 p = 1; p < 40; ++p) check_quotient(p, 1), check_root(p, root_word(), 1);
    for (int i = 0; i < 30; ++i) {
      const u64 tds = random.between(1, 3);
      check_quotient(random.between(40, longest), tds);
      check_root(random.between(40, longest), root_word(), tds);
    }
    check_root(longest, 1, 1);
    check_root(longest, 10010, 2);
  }
};

TYPED_TEST_SUITE(ResidualTest, BothWords);

// a / 1 and 1 / 1 with the quotient off by less than the bound, and by the bound.
TYPED_TEST(ResidualTest, BoundIsMetExactly) {
  using W = TypeParam;
  const W most = static_cast<W>(~W{0});
  for (const u64 p : {8, 30, 200}) {
    const RamResidual<W> product(ResidualOf::kProduct, p, 1);
    std::vector<W> top(p + 2);
    top.back() = 1;
    OwnedFloat<W> q(top, -static_cast<s64>(p + 1)), a(top, q.x.exp), unit({1}, 0);
    const auto passes_with = [&](u64 place, W word, auto&& check) {
      q.x.T[place] = word;
      const bool passed = this->passes(product, 1, check);
      q.x.T[place] = 0;
      return passed;
    };
    const auto quotient = [&](const RunContext& ctx, LinearHeapBuffer heap) {
      product.check_quotient(ctx, q.x, a.x, unit.x, heap);
    };
    const auto inverse = [&](const RunContext& ctx, LinearHeapBuffer heap) {
      product.check_inverse_root(ctx, q.x, unit.x, heap);
    };
    // The ideal product is 1: a residual of W^-p is too large.
    EXPECT_TRUE(passes_with(0, most, inverse));
    EXPECT_FALSE(passes_with(1, 1, inverse));
    // Not a power: W^(1 - p).
    a.x.T[p + 1] = q.x.T[p + 1] = 3;
    EXPECT_TRUE(passes_with(1, most, quotient));
    EXPECT_FALSE(passes_with(2, 1, quotient));
  }
}

TYPED_TEST(ResidualTest, PassesWhatIsRightAndNothingElse) { this->check_all(3000); }

TYPED_TEST(ResidualTest, TheSameModuloCyclicRings) {
  const ScopedBasicTable<TypeParam> table{{"BKT", 640}, {"C17", 0x12C0000000000}};
  this->check_all(6000);
}

}  // namespace
}  // namespace orl::test
