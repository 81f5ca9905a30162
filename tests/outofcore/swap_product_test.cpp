#include "outofcore/swap_product.h"

#include <string_view>

#include "core/exceptions.h"
#include "core/fault_point.h"
#include "outofcore/swap_fixture.h"
#include "support/random_words.h"
#include "support/sanitized.h"
#include "transforms/registration.h"

namespace orl {
namespace {

// Which call of a site strikes, and what it did.
struct Strike {
  std::string_view site;
  u64 after = 0;  // calls
  u64 seed = 0;
  bool done = false;
};
Strike strike;

}  // namespace

void fault_point(const char* site, void* data, u64 bytes) {
  if (strike.done || strike.site != site || bytes == 0 || strike.after-- != 0) return;
  strike.done = true;
  static_cast<u8*>(data)[strike.seed % bytes] ^= static_cast<u8>(1 << strike.seed % 7);
}

namespace test {
namespace {

// Lengths that meet edges of blocks and of shapes, whole products and windows.
SwapRequest random_request(Random& random, u64 most) {
  const auto length = [&] { return random.coin() ? random.between(1, most) : random.between(1, 64); };
  SwapRequest request = whole_product(length(), random.below(4) == 0 ? 0 : length());
  if (random.coin()) return request;
  request.skip = random.below(request.len);
  request.len = random.between(request.skip + 1, request.len);
  return request;
}

std::vector<u32> expected(const SwapRequest& request, const std::vector<u32>& A, const std::vector<u32>& B) {
  return (Mpz(A) * Mpz(B.empty() ? A : B)).window<u32>(request.skip, request.len);
}

std::string shown(const SwapPlan& plan) {
  const SwapRequest& r = plan.request;
  std::string text = "scheme " + std::to_string(static_cast<u32>(plan.scheme)) + " shape";
  for (const u64 x : {u64{plan.shape.P}, u64{plan.shape.k}, u64{plan.shape.n},
                      u64{plan.groups.group_channels}, u64{plan.groups.overlapped}, plan.groups.split_points,
                      plan.groups.move_points, plan.groups.join_points})
    text += " " + std::to_string(x);
  text += " request";
  for (const u64 x : {r.a_words, r.b_words, r.skip, r.len}) text += " " + std::to_string(x);
  return text;
}

struct Way {
  SwapScheme scheme;
  const char* family;
};
constexpr Way kWays[] = {
    {SwapScheme::kRam, "C17"}, {SwapScheme::kRamHalves, "C17"}, {SwapScheme::kPrimeGroups, "C17"}};

TEST(SwapProduct, HasTheWordsOfTheProductInMemory) {
  Random random;
  SwapPlace place;
  Parallelizer_None none;
  for (const Way& way : kWays) {
    const u64 before = swap_products(way.scheme);
    const FarFamily* const family = find_far_family(way.family);
    for (u32 i = 0; i < (kSanitized ? 4 : 30); i++) {
      const SwapRequest request = random_request(random, 60000);
      const std::vector<u32> A = random.words<u32>(request.a_words), B = random.words<u32>(request.b_words);
      const u64 memory = random.between(u64{1} << 20, u64{1} << random.between(20, 24));
      const auto plan = plan_swap_product(way.scheme, family, request, place.budget(memory, 1 + i % 3));
      if (!plan) continue;
      ASSERT_EQ(make_product(place, none, *plan, family, A, B).words, expected(request, A, B))
          << shown(*plan);
    }
    EXPECT_GT(swap_products(way.scheme), before);
  }
}

}  // namespace
}  // namespace test
}  // namespace orl
