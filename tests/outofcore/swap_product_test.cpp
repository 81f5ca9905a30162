#include "outofcore/swap_product.h"

#include <string_view>

#include "core/exceptions.h"
#include "core/fault_point.h"
#include "outofcore/swap_fixture.h"
#include "outofcore/swap_table.h"
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

// The words of the product, and whether it is W^n in the ring modulo W^n + 1.
SwapOutcome expected(const SwapPlan& plan, const std::vector<u32>& A, const std::vector<u32>& B) {
  const Mpz product = Mpz(A) * Mpz(B.empty() ? A : B);
  const SwapRequest& request = plan.request;
  if (plan.ring_words == 0) return {product.window<u32>(request.skip, request.len)};
  const Mpz power = Mpz(1) << 32 * plan.ring_words;
  const Mpz residue = product % (power + Mpz(request.ring == ProductRing::kCyclic ? -1 : 1));
  return {residue.words<u32>(plan.ring_words), residue == power};
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
constexpr Way kWays[] = {{SwapScheme::kRam, "C17"},
                         {SwapScheme::kRamHalves, "C17"},
                         {SwapScheme::kPrimeGroups, "C17"},
                         {SwapScheme::kPrimeGroups, "N64"}};
constexpr Way kStruckWays[] = {{SwapScheme::kRam, "C17"},         {SwapScheme::kRamHalves, "C17"},
                               {SwapScheme::kPrimeGroups, "C17"}, {SwapScheme::kPrimeGroups, "N64"},
                               {SwapScheme::kTwoPasses, "C17"},   {SwapScheme::kThreePasses, "C17"},
                               {SwapScheme::kCrtHalves, "C17"}};

// A product by a plan has the right words; false where the scheme does not plan it.
bool check_product(SwapPlace& place, Parallelizer& framework, const Way& way, const SwapRequest& request,
                   const SwapBudget& budget, const std::vector<u32>& A, const std::vector<u32>& B) {
  const FarFamily* const family = find_far_family(way.family);
  const auto plan = plan_swap_product(way.scheme, family, request, budget);
  if (!plan) return false;
  const u64 before = swap_products(way.scheme);
  SwapOutcome found = make_product(place, framework, *plan, family, A, B);
  SwapOutcome right = expected(*plan, A, B);
  // Modulo W^n - 1 that number itself stands for 0 too.
  if (request.ring == ProductRing::kCyclic && found.words == std::vector<u32>(plan->ring_words, ~u32{0}))
    found.words.assign(plan->ring_words, 0);
  EXPECT_EQ(swap_products(way.scheme), before + 1);
  EXPECT_EQ(found.top, right.top) << shown(*plan);
  EXPECT_TRUE(found.words == right.words) << shown(*plan);
  return true;
}

// From what hardly holds one prime's transforms to what holds all of them.
u64 random_memory(Random& random, const SwapRequest& request) {
  const u64 bytes =
      sizeof(u32) * (request.ring == ProductRing::kPlain ? request.product_words() : request.len);
  return (u64{1} << 18) + bytes * random.between(2, u64{1} << random.between(2, 5)) / 4;
}

TEST(SwapProduct, HasTheWordsOfTheProductInMemory) {
  Random random;
  SwapPlace place;
  Parallelizer_None none;
  for (const Way& way : kWays) {
    u64 made = 0;
    for (u32 i = 0; i < 30 && !(kSanitized && made == 2); i++) {
      const SwapRequest request = random_request(random, 60000);
      const std::vector<u32> A = random.words<u32>(request.a_words), B = random.words<u32>(request.b_words);
      made += check_product(place, none, way, request,
                            place.budget(random_memory(random, request), 1 + i % 3), A, B);
    }
    EXPECT_GT(made, 0);
  }
}

TEST(SwapProduct, WrapsInRings) {
  Random random;
  SwapPlace place;
  Parallelizer_None none;
  for (const Way& way : kWays) {
    for (u32 i = 0; i < (kSanitized ? 4 : 30); i++) {
      SwapRequest request = random_request(random, 30000);
      request.ring = i % 2 ? ProductRing::kCyclic : ProductRing::kNegacyclic;
      request.skip = 0;
      request.len = std::max({request.a_words, request.b_words, random.below(30000)});
      const SwapBudget budget = place.budget(random_memory(random, request), 1 + i % 3);
      if (i % 3 == 0) {
        // Operands that fill the ring: a carry of 1 runs through all words.
        const auto plan = plan_swap_product(way.scheme, find_far_family(way.family), request, budget);
        if (plan) request.a_words = request.b_words = request.len = plan->ring_words;
      }
      std::vector<u32> A = random.words<u32>(request.a_words), B = random.words<u32>(request.b_words);
      if (i % 9 == 0) {
        // (W^n - 1) W^j, or (W^n / 2) 2.
        std::fill(A.begin(), A.end(), i % 18 ? ~u32{0} : u32{0});
        std::fill(B.begin(), B.end(), u32{0});
        if (i % 18 == 0) A.back() = u32{1} << 31;
        if (!B.empty()) B[i % 18 ? B.size() / 2 : 0] = i % 18 ? 1 : 2;
      }
      const bool made = check_product(place, none, way, request, budget, A, B);
      EXPECT_FALSE(made && way.scheme == SwapScheme::kRamHalves);
    }
  }
}

TEST(SwapProduct, RunsOnEveryArrangementAndFramework) {
  Random random;
  Parallelizer_Spawn spawn;
  for (const std::vector<std::string>& lanes : {std::vector<std::string>{"3"}, {"1", "2+1"}}) {
    SwapPlace place(lanes);
    for (const Way& way : kWays) {
      for (const u64 b_words : {140000, 0}) {
        const SwapRequest request = whole_product(150001, b_words);
        const std::vector<u32> A = random.words<u32>(request.a_words), B = random.words<u32>(b_words);
        // A prime at a time without overlap and with it, several at a time, all in memory.
        u64 made = 0;
        for (const u64 memory : {13, 18, 30, 256})
          made += check_product(place, spawn, way, request, place.budget(memory << 16, 3), A, B);
        EXPECT_GE(made, way.scheme == SwapScheme::kPrimeGroups ? 3 : b_words == 0 ? 0 : 1);
      }
    }
  }
}

TEST(SwapProduct, ABitThatChangesIsTold) {
  Random random;
  SwapPlace place;
  Parallelizer_None none;
  for (const Way& way : kStruckWays) {
    const FarFamily* const family = find_far_family(way.family);
    for (const char* const site : {"swap operand", "swap residues", "swap transform", "swap product"}) {
      u64 told = 0, struck = 0;
      for (u32 i = 0; i < 8; i++) {
        SwapRequest request = whole_product(random.between(10000, 30000), random.coin() ? 0 : 20000);
        if (i % 4 == 3) {
          request.ring = ProductRing::kCyclic;
          request.len = 40000;
        }
        const std::vector<u32> A = random.plain_words<u32>(request.a_words),
                               B = random.plain_words<u32>(request.b_words);
        const auto plan = plan_swap_product(way.scheme, family, request, place.budget(u64{8} << 20));
        if (!plan) continue;
        strike = {site, random.below(2), random.next(), false};
        try {
          const SwapOutcome found = make_product(place, none, *plan, family, A, B);
          // The bit was one that no product needs: of a word between the parts of a transform, say.
          EXPECT_TRUE(found.words == expected(*plan, A, B).words) << site << " " << shown(*plan);
        } catch (const AlgorithmFailedException&) {
          told++;
        } catch (const ConvolutionFailedException&) {
          told++;
        }
        struck += strike.done;
      }
      strike = {};
      EXPECT_GE(2 * told + 2, struck) << site;
      if (site == std::string_view("swap operand")) {
        EXPECT_EQ(told, struck);
        EXPECT_GT(struck, 0);
      }
    }
  }
}

TEST(SwapProduct, ByAKeptOperandMovesLess) {
  Random random;
  SwapPlace place;
  Parallelizer_None none;
  for (const Way& way : {Way{SwapScheme::kRam, "C17"}, Way{SwapScheme::kTwoPasses, "C17"},
                         Way{SwapScheme::kThreePasses, "C17"}, Way{SwapScheme::kCrtHalves, "C17"}}) {
    for (const ProductRing ring : {ProductRing::kPlain, ProductRing::kCyclic}) {
      const FarFamily* const family = find_far_family(way.family);
      SwapRequest request = whole_product(90000, 70000);
      request.ring = ring;
      request.kept = true;
      const auto plan = plan_swap_product(way.scheme, family, request, place.budget(u64{4} << 20));
      if (!plan) continue;
      SwapPlan whole = *plan;
      whole.request.kept = false;
      SwapDescriptor disk(place.folders.descriptor);
      const std::vector<u32> B = random.words<u32>(request.b_words);
      const SwapNumber b = swap_number(disk, none, B);
      const GuardedBlock memory(plan->memory_bytes);
      const SwapRun run{{none, 1}, disk, memory.buffer(), silent_status()};
      const SwapKept kept(*plan, family, run, b);
      // The first of the products reads b.
      u64 moved[2];
      for (u32 i = 0; i < 2; i++) {
        const SwapPlan& by = i == 0 ? whole : *plan;
        const std::vector<u32> A = random.words<u32>(request.a_words);
        const SwapNumber a = swap_number(disk, none, A);
        SwapNumber product(disk, by.wanted_words());
        const auto& counters = disk.counters();
        const u64 before = counters.bytes_read + counters.bytes_written;
        swap_multiply(by, family, run, {a, &b, i == 0 ? nullptr : &kept}, product);
        moved[i] = counters.bytes_read + counters.bytes_written - before;
        EXPECT_TRUE(words_of(product, none) == expected(by, A, B).words) << shown(by);
      }
      EXPECT_TRUE(kept.residues() == nullptr || moved[1] < moved[0]);
    }
  }
}

TEST(SwapTable, PlansInWordsOfBothTypes) {
  Random random;
  SwapPlace place;
  Parallelizer_None none;
  EXPECT_EQ(swap_table<u32>().name(), "Swap: 32-bit Word");
  EXPECT_EQ(swap_table<u64>().name(), "Swap: 64-bit Word");
  const SwapPlan narrow = swap_table<u32>().plan(whole_product(4000, 2000), place.budget(u64{1} << 20));
  SwapRequest half = whole_product(2000, 1000);
  half.skip = 1;
  const SwapPlan wide = swap_table<u64>().plan(half, place.budget(u64{1} << 20));
  EXPECT_EQ(narrow.made_words(), wide.made_words());
  EXPECT_EQ(wide.wanted_words(), 2 * 2999);
  const std::vector<u32> A = random.words<u32>(4000), B = random.words<u32>(2000);
  EXPECT_TRUE(make_product(place, none, wide, nullptr, A, B).words == expected(wide, A, B).words);
  EXPECT_EQ(std::string(swap_table<u64>().get_family(u64{1} << 40).id()), "C17");
  EXPECT_THROW(swap_table<u64>().get_family(u64{1} << 62), LimitExceededException);
  SwapTable<u64> table("Swap: 64-bit Word");
  const AlgorithmRow rows[] = {{"FFT", 1000}, {"Code", 2000}};
  const std::vector<std::string> warnings = {"Warning: FFT does not support: \"Swap: 64-bit Word\"",
                                             "Skipping unknown algorithm: Code"};
  EXPECT_EQ(table.add_list(algorithm_registry(), rows), warnings);
}

TEST(SwapProduct, RefusesWhatIsNotPlanned) {
  SwapPlace place;
  Parallelizer_None none;
  const SwapRequest request = whole_product(1000, 1000);
  EXPECT_THROW(plan_swap_product(nullptr, request, place.budget(4096)), BufferTooSmallException);
  SwapPlan plan = plan_swap_product(nullptr, request, place.budget(u64{1} << 20));
  const std::vector<u32> A(1000, 7);
  EXPECT_THROW(make_product(place, none, plan, nullptr, A, std::vector<u32>(999, 7)),
               InvalidParametersException);
  plan.request.len = 2001;
  try {
    make_product(place, none, plan, nullptr, A, A);
    FAIL();
  } catch (const InvalidParametersException& e) {
    EXPECT_EQ(std::string(e.message()),
              "Truncated Range:\n    AL   = 1000\n    clen = 2000\n    ie   = 0\n    te   = 2001");
  }
}

}  // namespace
}  // namespace test
}  // namespace orl
