// Every framework, and the pool under each of its settings, has to pass the same tests.
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <numeric>
#include <stdexcept>
#include <thread>
#include <vector>

#include "core/exceptions.h"
#include "support/screen.h"
#include "support/thread_limit.h"
#include "threads/push_pool_framework.h"
#include "threads/registered.h"
#include "threads/simple_frameworks.h"

namespace orl::test {
namespace {

struct Variant {
  const char* label;
  const char* key;
  u64 worker_limit = 0;
  bool randomization = true;
};

constexpr Variant kVariants[] = {{"none", "none"},
                                 {"spawn", "spawn"},
                                 {"cppasync", "cppasync"},
                                 {"cilk", "cilk"},
                                 {"tbb", "tbb"},
                                 {"pool", "pushpool"},
                                 {"pool_in_order", "pushpool", 0, false},
                                 {"pool_of_one", "pushpool", 1},
                                 {"pool_of_three", "pushpool", 3, false}};

std::string label_of(const ::testing::TestParamInfo<Variant>& variant) { return variant.param.label; }

class FrameworkBattery : public ::testing::TestWithParam<Variant> {
 protected:
  void SetUp() override {
    fill_registries();
    const Variant& variant = GetParam();
    if (!has_framework(variant.key)) GTEST_SKIP() << "this build has no " << variant.key;
    framework_ = create_framework(variant.key);
    if (auto* pool = dynamic_cast<Parallelizer_PushPool*>(framework_.get())) {
      pool->set_worker_limit(variant.worker_limit);
      pool->set_randomization(variant.randomization);
    }
  }

  std::unique_ptr<Parallelizer> framework_;
};

/// Sum of [begin, end) by forks down to single numbers, without any atomic: a join that did not wait, or that
/// did not order memory, gives a wrong sum or a report of the thread sanitizer.
u64 forked_sum(Parallelizer& framework, u64 begin, u64 end) {
  if (end - begin == 1) return begin;
  const u64 middle = begin + (end - begin + 2) / 3;  // uneven on purpose
  u64 low = 0;
  u64 high = 0;
  fork_pair(
      framework, [&] { low = forked_sum(framework, begin, middle); },
      [&] { high = forked_sum(framework, middle, end); });
  return low + high;
}

TEST_P(FrameworkBattery, SumsThroughDeepUnevenForks) {
  framework_->reserve();
  for (const u64 count : {1, 2, 3, 400})
    EXPECT_EQ(forked_sum(*framework_, 0, count), count * (count - 1) / 2);
  framework_->reset();
  EXPECT_EQ(forked_sum(*framework_, 5, 55), 1475u) << "without reserve";
}

TEST_P(FrameworkBattery, HandsTheFirstFailureOfAPairToItsCaller) {
  for (const bool first_fails : {false, true}) {
    for (const bool second_fails : {false, true}) {
      bool finished[2] = {};
      const auto task = [&](int number, bool fails) {
        if (fails) throw InvalidParametersException("task", std::to_string(number));
        finished[number] = true;
      };
      std::string seen;
      try {
        fork_pair_or_throw(
            *framework_, [&] { task(0, first_fails); }, [&] { task(1, second_fails); });
      } catch (const InvalidParametersException& e) {
        seen = e.message();
      }
      EXPECT_EQ(seen, first_fails ? "0" : second_fails ? "1" : "");
      EXPECT_EQ(finished[0], !first_fails);
      EXPECT_EQ(finished[1], !second_fails) << "a failure stops nothing else";
    }
  }
}

TEST_P(FrameworkBattery, RangeRunsEveryIndexOnce) {
  for (const u64 count : {0, 1, 2, 15, 16, 17, 33, 1000}) {
    std::vector<u32> visits(count + 20, 0);
    fork_range(*framework_, 10, 10 + count, [&](u64 i) { ++visits[i]; });
    for (u64 i = 0; i < visits.size(); ++i) {
      ASSERT_EQ(visits[i], i >= 10 && i < 10 + count ? 1u : 0u) << "count " << count << " index " << i;
    }
  }
  fork_range(*framework_, 5, 3, [](u64) { FAIL() << "a reversed range is empty"; });
}

TEST_P(FrameworkBattery, SingleIndexAndSecondTaskRunOnTheCallingThread) {
  const auto caller = std::this_thread::get_id();
  fork_range(*framework_, 7, 8, [&](u64 i) {
    EXPECT_EQ(i, 7u);
    EXPECT_EQ(std::this_thread::get_id(), caller);
  });
  if (std::string(GetParam().key) == "tbb" || std::string(GetParam().key) == "cilk") return;
  fork_pair(
      *framework_, [] {}, [&] { EXPECT_EQ(std::this_thread::get_id(), caller); });
}

TEST_P(FrameworkBattery, JoinWaitsForTheSlowerSide) {
  for (const bool first_is_slow : {true, false}) {
    std::vector<int> done(2, 0);
    const auto side = [&](int which, bool slow) {
      if (slow) std::this_thread::sleep_for(std::chrono::milliseconds(30));
      done[which] = 1;
    };
    fork_pair(
        *framework_, [&] { side(0, first_is_slow); }, [&] { side(1, !first_is_slow); });
    EXPECT_EQ(done, std::vector<int>({1, 1}));
  }
}

TEST_P(FrameworkBattery, RangesNestInsideRangesFarBeyondTheProcessors) {
  constexpr u64 kOuter = 24;
  constexpr u64 kInner = 20;
  std::vector<u64> cells(kOuter * kInner, 0);
  fork_range(*framework_, 0, kOuter, [&](u64 i) {
    fork_range(*framework_, 0, kInner, [&](u64 j) { cells[i * kInner + j] = i * kInner + j; });
  });
  std::vector<u64> expected(cells.size());
  std::iota(expected.begin(), expected.end(), 0);
  EXPECT_EQ(cells, expected);
}

TEST_P(FrameworkBattery, ServesSeveralForeignThreadsAtOnce) {
  std::vector<u64> sums(4, 0);
  std::vector<std::thread> threads;
  for (u64 t = 0; t < sums.size(); ++t) {
    threads.emplace_back([&, t] {
      for (int round = 0; round < 10; ++round) sums[t] += forked_sum(*framework_, t, t + 40);
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (u64 t = 0; t < sums.size(); ++t) EXPECT_EQ(sums[t], 10 * (40 * t + 780));
}

// Short tasks and a caller that finishes at every possible moment of the other side's life.
TEST_P(FrameworkBattery, RecordsOnTheStackOutliveTheirUse) {
  const u64 rounds = std::string(GetParam().key) == "pushpool" ? 4000 : 200;
  framework_->reserve();
  u64 total = 0;
  for (u64 round = 0; round < rounds; ++round) {
    u64 values[2] = {0, 0};
    const auto busy = [](u64 steps) {
      for (u64 i = 0; i < steps; ++i) std::atomic_signal_fence(std::memory_order_seq_cst);
    };
    fork_pair(
        *framework_,
        [&] {
          busy(round * 7 % 1000);
          values[0] = 1;
        },
        [&] {
          busy(round * 13 % 1500);
          values[1] = 1;
        });
    total += values[0] + values[1];
  }
  EXPECT_EQ(total, 2 * rounds);
}

INSTANTIATE_TEST_SUITE_P(All, FrameworkBattery, ::testing::ValuesIn(kVariants), label_of);

enum class Thrown { ours, standard, other };

[[noreturn]] void throw_one(Thrown what) {
  switch (what) {
    case Thrown::ours:
      throw InvalidParametersException("some_task()", "our own failure");
    case Thrown::standard:
      throw std::runtime_error("standard failure");
    default:
      throw 7;
  }
}

void forever_running_partner(Parallelizer& framework, bool throw_in_first, Thrown what) {
  console_to_stderr();
  const auto fails = [&] { throw_one(what); };
  const auto waits = [] { std::this_thread::sleep_for(std::chrono::seconds(60)); };
  if (throw_in_first) {
    fork_pair(framework, fails, waits);
  } else {
    fork_pair(framework, waits, fails);
  }
}

class FrameworkDeathTest : public FrameworkBattery {
 protected:
  void SetUp() override {
    FrameworkBattery::SetUp();
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  }
};

// The other side is asleep when the failure happens: nothing waits for it.
TEST_P(FrameworkDeathTest, TaskThatThrowsEndsTheProcess) {
  const bool in_pool = std::string(GetParam().key) == "pushpool";
  const std::string child = "FATAL ERROR: Unhandled exception in child thread.";
  const std::string worker = "PushPoolWorker: An exception was thrown from a task.";
  const auto exits = ::testing::ExitedWithCode(1);
  EXPECT_EXIT(forever_running_partner(*framework_, true, Thrown::ours), exits,
              in_pool ? worker + "(.|\n)*our own failure" : "our own failure");
  EXPECT_EXIT(forever_running_partner(*framework_, true, Thrown::standard), exits,
              in_pool ? worker + "(.|\n)*standard failure" : "standard failure(.|\n)*" + child);
  EXPECT_EXIT(forever_running_partner(*framework_, true, Thrown::other), exits, in_pool ? worker : child);
}

TEST_P(FrameworkDeathTest, CallingThreadThatThrowsEndsTheProcess) {
  EXPECT_EXIT(forever_running_partner(*framework_, false, Thrown::standard), ::testing::ExitedWithCode(1),
              "standard failure(.|\n)*FATAL ERROR: Unhandled exception in child thread.");
}

// cilk and tbb choose which side runs where; `none` has no other side.
constexpr Variant kForkingVariants[] = {{"spawn", "spawn"}, {"cppasync", "cppasync"}, {"pool", "pushpool"}};
INSTANTIATE_TEST_SUITE_P(Forking, FrameworkDeathTest, ::testing::ValuesIn(kForkingVariants), label_of);

class StealingDeathTest : public FrameworkDeathTest {};

TEST_P(StealingDeathTest, IndexThatThrowsEndsTheProcess) {
  const auto fail = [&] {
    console_to_stderr();
    fork_range(*framework_, 0, 100, [](u64 i) {
      if (i == 63) throw std::runtime_error("standard failure");
    });
  };
  EXPECT_EXIT(fail(), ::testing::ExitedWithCode(1),
              "standard failure(.|\n)*FATAL ERROR: Unhandled exception in child thread.");
}

constexpr Variant kStealingVariants[] = {{"cilk", "cilk"}, {"tbb", "tbb"}};
INSTANTIATE_TEST_SUITE_P(Stealing, StealingDeathTest, ::testing::ValuesIn(kStealingVariants), label_of);

TEST(Frameworks, TellWhatToDoAboutAThreadThatTheSystemRefuses) {
  fill_registries();
  for (const char* key : {"spawn", "cppasync", "pushpool"}) {
    const auto framework = create_framework(key);
    const ThreadLimit limit(0);
    try {
      fork_pair(
          *framework, [] {}, [] {});
      ADD_FAILURE() << key;
    } catch (const SystemException& e) {
      EXPECT_EQ(e.code(), EAGAIN) << key;
      EXPECT_NE(e.message().find("-TD"), std::string::npos) << key;
    }
  }
}

TEST(NoFramework, LetsAnExceptionThrough) {
  Parallelizer_None none;
  EXPECT_THROW(fork_pair(
                   none, [] { throw std::runtime_error("x"); }, [] {}),
               std::runtime_error);
}

}  // namespace
}  // namespace orl::test
