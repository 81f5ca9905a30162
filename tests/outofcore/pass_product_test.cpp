// Products in passes: the words are those of GMP, at budgets so small that short numbers take every scheme.
#include "outofcore/swap_fixture.h"
#include "support/random_words.h"
#include "support/sanitized.h"
#include "transforms/registration.h"

namespace orl::test {
namespace {

std::string text_of(const SwapPlan& plan) {
  const SwapRequest& request = plan.request;
  return "scheme " + std::to_string(static_cast<u32>(plan.scheme)) + ": " + std::to_string(request.a_words) +
         " x " + std::to_string(request.b_words) + " words, [" + std::to_string(request.skip) + ", " +
         std::to_string(request.len) + "), ring " + std::to_string(static_cast<u32>(request.ring)) + ", P " +
         std::to_string(plan.shape.P) + ", k " + std::to_string(plan.shape.k) + ", n " +
         std::to_string(plan.shape.n) + ", levels " + std::to_string(plan.passes.levels) + " and " +
         std::to_string(plan.passes.inner_levels) + ", batch " + std::to_string(plan.passes.batch) + " in " +
         std::to_string(plan.passes.row_parts) + " parts, stripes " +
         std::to_string(plan.passes.forward.count) + ", " + std::to_string(plan.passes.inner.count) + ", " +
         std::to_string(plan.passes.back.count);
}

// The product as the plan has it, and whether it is W^n in its ring.
std::vector<u32> expected_words(const SwapPlan& plan, const std::vector<u32>& A, const std::vector<u32>& B,
                                bool& top) {
  Mpz product = Mpz(A) * Mpz(B.empty() ? A : B);
  top = false;
  if (plan.request.ring == ProductRing::kPlain)
    return product.window<u32>(plan.request.skip, plan.request.len);
  const Mpz W = Mpz(1) << 32 * plan.ring_words;
  const bool cyclic = plan.request.ring == ProductRing::kCyclic;
  const Mpz residue = product % (cyclic ? W - Mpz(1) : W + Mpz(1));
  top = residue == W;
  return residue.words<u32>(plan.ring_words);
}

void check_product(const SwapPlan& plan, const std::vector<u32>& A, const std::vector<u32>& B,
                   const char* family = "C17", const std::vector<std::string>& lanes = {"1"}) {
  SCOPED_TRACE(family + (" " + text_of(plan)));
  SwapPlace place(lanes);
  Parallelizer_Spawn spawn;
  const SwapOutcome outcome = make_product(place, spawn, plan, find_far_family(family), A, B);
  bool top = false;
  const auto expected = expected_words(plan, A, B, top);
  EXPECT_EQ(outcome.top, top);
  ASSERT_EQ(outcome.words.size(), expected.size());
  const auto first = std::mismatch(expected.begin(), expected.end(), outcome.words.begin()).first;
  EXPECT_TRUE(first == expected.end()) << "word " << first - expected.begin();
}

// All words ones: every carry runs.
std::vector<u32> operand(Random& random, u64 words) {
  return random.below(4) == 0 ? std::vector<u32>(words, ~u32{0}) : random.words<u32>(words);
}

TEST(PassProduct, WordsAreThoseOfTheProduct) {
  Random random;
  constexpr SwapScheme kSchemes[] = {SwapScheme::kTwoPasses, SwapScheme::kThreePasses,
                                     SwapScheme::kCrtHalves};
  constexpr const char* kFamilies[] = {"C17", "N64", "VST"};
  u64 made[3][3] = {};
  for (u32 i = 0; i < (kSanitized ? 18 : 45); i++) {
    const u32 scheme = i % 3, family = i / 3 % 3;
    SwapRequest request =
        whole_product(random.between(10000, 200000), i % 5 == 0 ? 0 : random.between(1, 200000));
    if (i / 9 % 3 == 1) {
      request.skip = random.below(request.len);
      request.len = random.between(request.skip + 1, request.len);
    }
    if (i / 9 % 3 == 2) {
      request.len = std::max(request.a_words, request.b_words) + random.below(20000);
      request.ring = random.coin() ? ProductRing::kCyclic : ProductRing::kNegacyclic;
    }
    const SwapBudget budget{random.between(u64{1} << 20, u64{8} << 20),
                            random.coin() ? u64{4096} : u64{30000}, random.coin() ? 4096 : u64{262144},
                            1 + i % 3};
    const auto plan =
        plan_swap_product(kSchemes[scheme], find_far_family(kFamilies[family]), request, budget);
    if (!plan) continue;
    made[scheme][family]++;
    check_product(*plan, operand(random, request.a_words), operand(random, request.b_words),
                  kFamilies[family],
                  {i % 4 == 0   ? "3"
                   : i % 4 == 1 ? "2+1"
                                : "1"});
  }
  for (const auto& of_scheme : made)
    for (const u64 count : of_scheme) EXPECT_GT(count, 0u);
}

// Two passes move the least, but where there is no room for their files.
TEST(PassProduct, ShortDisksTakeHalves) {
  Random random;
  SwapBudget budget{u64{3} << 19, 4096, 4096, 1};
  const SwapRequest request = whole_product(600000, 600000);
  const auto plan = plan_swap_product(find_far_family("C17"), request, budget);
  EXPECT_EQ(plan.scheme, SwapScheme::kTwoPasses);
  budget.disk_bytes = plan.disk_bytes - 1;
  const auto less = plan_swap_product(find_far_family("C17"), request, budget);
  EXPECT_EQ(less.scheme, SwapScheme::kCrtHalves);
  EXPECT_LT(less.disk_bytes, plan.disk_bytes);
  check_product(less, random.words<u32>(request.a_words), random.words<u32>(request.b_words));
}

// A little longer than a shape: what is above comes from the lowest words.
TEST(PassProduct, StretchesShapes) {
  Random random;
  const u64 shape_words = u64{24} / sizeof(u32) << 15;
  for (const u64 above : {u64{1}, u64{40}, shape_words / 200, shape_words / 60})
    for (const u64 shorter : {u64{0}, shape_words / 2 + above, shape_words / 2 + above / 2}) {
      SwapRequest request = whole_product(shape_words + above - shorter, shorter);
      if (shorter == 0) request = whole_product((shape_words + above + 1) / 2, 0);
      // The short product by transforms for disks, or in floating point.
      const char* const family = above % 4 == 0 && shorter ? "HNT" : "C17";
      const auto plan = plan_swap_product(SwapScheme::kTwoPasses, find_far_family(family), request,
                                          {u64{3} << 20, 4096, 4096, 1});
      ASSERT_TRUE(plan);
      EXPECT_GT(plan->above_words, 0u);
      if (family == std::string_view("HNT")) {
        EXPECT_EQ(plan->half[1]->ram.algorithm->id(), std::string_view("FFT"));
      }
      for (const bool zero : {false, true}) {
        const std::vector<u32> A =
            zero ? std::vector<u32>(request.a_words) : operand(random, request.a_words);
        check_product(*plan, A, operand(random, request.b_words), family);
      }
    }
}

// The longer operand is W^n: -1 modulo W^n + 1, which no n words hold. Then it is W^n + 1, and the first residue is all ones.
TEST(PassProduct, FoldedOperandsMayBeMinusOneOrNothing) {
  Random random;
  SwapRequest request = whole_product(90000, 20000);
  const SwapBudget budget{u64{3} << 19, 4096, 4096, 1};
  const auto first = plan_swap_product(SwapScheme::kCrtHalves, find_far_family("C17"), request, budget);
  ASSERT_TRUE(first);
  const u64 n = first->half[0]->ring_words;
  for (const u32 low : {0, 1, 2}) {
    std::vector<u32> A(n + 1);
    A[0] = low;
    A[n] = 1;
    if (low == 2) std::fill(A.begin(), A.end(), ~u32{0});
    const std::vector<u32> B = random.words<u32>(2 * n - A.size());
    request = whole_product(A.size(), B.size());
    const auto plan = plan_swap_product(SwapScheme::kCrtHalves, find_far_family("C17"), request, budget);
    ASSERT_TRUE(plan);
    check_product(*plan, A, B);
  }
}

}  // namespace
}  // namespace orl::test
