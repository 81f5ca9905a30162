// Products as a user's run meets them: planned without a hint, on all kinds of arrays, by disks that fail or lie.
//
// A few cases of each as a test; by hand ORVANE_SWEEP=40 makes forty times as many (ORVANE_TEST_SEED=new: others).
#include <cerrno>
#include <cstdlib>
#include <memory>

#include "core/exceptions.h"
#include "outofcore/swap_fixture.h"
#include "support/random_words.h"
#include "support/sanitized.h"
#include "transforms/registration.h"

namespace orl::test {
namespace {

// 0 in a test of every day.
u64 times() {
  const char* const text = std::getenv("ORVANE_SWEEP");
  return text ? std::strtoull(text, nullptr, 10) : 0;
}
u64 cases(u64 count) { return times() != 0 ? times() * count : kSanitized ? count / 8 + 1 : count; }

// What a random case is made of: lengths, window or ring, memory, smallest piece, tasks and words.
struct Case {
  SwapRequest request;
  SwapBudget budget;
  const FarFamily* family;
  std::vector<u32> A, B;
};

constexpr const char* kFamilies[] = {"C17", "N64", "VST"};

Case random_case(Random& random, u64 row_bytes) {
  Case one;
  const u64 memory = u64{1} << random.between(20, times() != 0 ? 24 : 20);
  const u64 most = memory << random.below(3) >> random.below(6);
  const auto length = [&] { return random.between(1, std::max<u64>(1, most / 8)); };
  one.request = whole_product(length(), random.below(4) == 0 ? 0 : length());
  one.request.ring = static_cast<ProductRing>(random.below(3));
  if (one.request.ring != ProductRing::kPlain) {
    one.request.len = std::max({one.request.a_words, one.request.b_words, length()});
  } else if (random.coin()) {
    one.request.skip = random.below(one.request.len);
    one.request.len = random.between(one.request.skip + 1, one.request.len);
  }
  one.budget = {memory - random.below(memory / 4), u64{4096} << random.below(6), row_bytes,
                random.between(1, 3)};
  do {
    one.family = find_far_family(kFamilies[random.below(3)]);
  } while (!one.family);
  one.A = random.words<u32>(one.request.a_words);
  one.B = random.words<u32>(one.request.b_words);
  return one;
}

std::string shown(const Case& one, const SwapPlan& plan) {
  std::string text = one.family->id();
  for (const u64 x :
       {u64(plan.scheme), u64(one.request.ring), one.request.a_words, one.request.b_words, one.request.skip,
        one.request.len, one.budget.memory_bytes, one.budget.bytes_per_seek, one.budget.row_bytes,
        one.budget.tds, u64{plan.shape.P}, u64{plan.shape.k}, u64{plan.shape.n}})
    text += " " + std::to_string(x);
  return text;
}

// Plain products by their words, products in rings by their residues too.
bool is_right(const Case& one, const SwapPlan& plan, const SwapOutcome& found) {
  const Mpz product = Mpz(one.A) * Mpz(one.B.empty() ? one.A : one.B);
  if (plan.ring_words == 0) return found.words == product.window<u32>(one.request.skip, one.request.len);
  const Mpz power = Mpz(1) << 32 * plan.ring_words;
  const Mpz modulus = power + Mpz(one.request.ring == ProductRing::kCyclic ? -1 : 1);
  return (product - (found.top ? power : Mpz(found.words))) % modulus == Mpz(0);
}

TEST(SwapSweep, PlansThatNobodyHelpsAreRight) {
  Random random;
  Parallelizer_None none;
  u64 taken[kSwapSchemes] = {};
  const std::vector<std::vector<std::string>> arrangements{{"1"}, {"3"}, {"1+1"}, {"2+1"}, {"1", "2+1"}};
  std::vector<std::unique_ptr<SwapPlace>> places;
  for (const auto& lanes : arrangements) places.push_back(std::make_unique<SwapPlace>(lanes));
  for (u64 i = 0, count = cases(50); i < count; i++) {
    SwapPlace& place = *places[i % places.size()];
    const Case one = random_case(random, place.budget(0).row_bytes);
    std::optional<SwapPlan> plan;
    try {
      plan = plan_swap_product(one.family, one.request, one.budget);
    } catch (const BufferTooSmallException&) {
      continue;
    }
    EXPECT_LE(plan->memory_bytes, one.budget.memory_bytes) << shown(one, *plan);
    const SwapOutcome found = make_product(place, none, *plan, one.family, one.A, one.B);
    ASSERT_TRUE(is_right(one, *plan, found)) << shown(one, *plan);
    taken[static_cast<u32>(plan->scheme)]++;
  }
  for (u32 scheme = 0; scheme < kSwapSchemes; scheme++)
    std::printf("scheme %u: %llu products\n", scheme, static_cast<unsigned long long>(taken[scheme]));
}

// Disks that give back a bit that was not written, at the read of that number among those of more than a sector.
class LyingDisks final : public FileCalls {
 public:
  LyingDisks(u64 read, u64 seed) : left_(read), seed_(seed) { set_file_calls(this); }
  ~LyingDisks() override { set_file_calls(nullptr); }
  s64 read(int fd, void* buffer, u64 bytes) override {
    const s64 got = FileCalls::read(fd, buffer, bytes);
    if (got <= 4096 || left_-- != 0) return got;
    const u64 at = seed_ % static_cast<u64>(got);
    static_cast<u8*>(buffer)[at] ^= static_cast<u8>(1 << seed_ % 7);
    return got;
  }
  /// Whether that read has come.
  bool struck() const { return left_ >> 63 != 0; }

 private:
  std::atomic<u64> left_;
  u64 seed_;
};

// Large products, which stream: those that planners take for numbers beyond the memory.
Case large_case(Random& random, u64 row_bytes, u64 words) {
  Case one{whole_product(words, random.coin() ? 0 : words - random.below(1000)),
           {u64{3} << 19, 4096, row_bytes, 1},
           find_far_family("C17"),
           {},
           {}};
  one.A = random.plain_words<u32>(one.request.a_words);
  one.B = random.plain_words<u32>(one.request.b_words);
  return one;
}

TEST(SwapSweep, ADiskThatLiesIsFound) {
  Random random;
  Parallelizer_None none;
  SwapPlace place;
  u64 told = 0, struck = 0;
  const u64 count = cases(20);
  for (u64 i = 0; i < count; i++) {
    const Case one = large_case(random, place.budget(0).row_bytes, 80000);
    const SwapPlan plan = plan_swap_product(one.family, one.request, one.budget);
    EXPECT_GE(plan.scheme, SwapScheme::kPrimeGroups);
    const LyingDisks disks(random.below(12), random.next());
    try {
      // The bit was one that nobody looks at: of a row that was read so that a part of it could be written, say.
      EXPECT_TRUE(is_right(one, plan, make_product(place, none, plan, one.family, one.A, one.B)));
    } catch (const AlgorithmFailedException&) {
      told++;
    } catch (const ConvolutionFailedException&) {
      told++;
    }
    struck += disks.struck();
  }
  std::printf("%llu of %llu told\n", static_cast<unsigned long long>(told),
              static_cast<unsigned long long>(struck));
  EXPECT_GE(4 * struck, count);
  if (struck >= 5) {
    EXPECT_GE(3 * told, struck);
  }
}

TEST(SwapSweep, ADriveMayBeLostAtAnyTransfer) {
  Random random;
  Parallelizer_None none;
  for (u64 i = 0, count = cases(6); i < count; i++) {
    SwapPlace place({"2+1"});
    const Case one = large_case(random, place.budget(0).row_bytes, 80000);
    const SwapPlan plan = plan_swap_product(one.family, one.request, one.budget);
    FakeDisks disks(place.folders.names);
    R03::Recorder recorder;
    const int drive = static_cast<int>(random.below(3));
    const u64 lost_at = random.below(25);
    disks.set_rule([&](const DiskEvent& event) {
      const bool moves = event.call == DiskCall::read || event.call == DiskCall::write;
      return event.drive == drive && moves && event.transfers >= lost_at ? EIO : kGoesOn;
    });
    const SwapOutcome found = make_product(place, none, plan, one.family, one.A, one.B);
    EXPECT_TRUE(is_right(one, plan, found)) << shown(one, plan);
    EXPECT_EQ(recorder.count("Recovering from parity."), 1u) << lost_at << recorder.text();
    EXPECT_EQ(recorder.count("Marking drive as failed."), 1u);
  }
}

// Nobody answers: a product is right, or ends with path, function and number, and nothing is left.
TEST(SwapSweep, EveryCallMayFailInEveryWay) {
  Random random;
  Parallelizer_None none;
  u64 refused = 0;
  for (const char* lane : {"1", "1+1"}) {
    SwapPlace place({lane});
    const Case one = large_case(random, place.budget(0).row_bytes, 50000);
    const SwapPlan plan = plan_swap_product(one.family, one.request, one.budget);
    FakeDisks disks(place.folders.names);
    disks.set_rule(nullptr);
    make_product(place, none, plan, one.family, one.A, one.B);
    const u64 calls = disks.calls(), all = 3 * calls, step = all / std::min(all, cases(25));
    for (u64 at = random.below(step); at < all; at += step) {
      constexpr int kWays[] = {EIO, ENOSPC, kShort};
      const int way = kWays[at % 3];
      R03::Recorder recorder;
      disks.set_rule([&](const DiskEvent& event) { return event.number == at / 3 ? way : kGoesOn; });
      try {
        EXPECT_TRUE(is_right(one, plan, make_product(place, none, plan, one.family, one.A, one.B)));
      } catch (const R03::Raid03Exception& e) {
        refused++;
        EXPECT_TRUE(e.path().starts_with(place.folders.root.path()));
        EXPECT_EQ(e.code(), way == kShort ? 0 : way);
        EXPECT_NE(e.function(), "");
      }
      EXPECT_LE(place.folders.files_left(), 1u) << "one that could not be removed";
    }
  }
  EXPECT_GT(refused, 0u);
}

}  // namespace
}  // namespace orl::test
