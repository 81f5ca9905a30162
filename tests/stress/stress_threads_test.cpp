// The control block of the stress tester: commands, reports and stops, with tests made up for the purpose.
#include "stress/stress_threads.h"

#include <gtest/gtest.h>
#include <sched.h>

#include <algorithm>
#include <cstdlib>
#include <set>

#include "core/exceptions.h"
#include "core/settings.h"
#include "support/thread_limit.h"
#include "system/topology.h"

namespace orvane::test {
namespace {

constexpr u64 kShare = 4096;
constexpr double kForever = 1e6;

class HeapBlock final : public orl::LargeMemory {
 public:
  explicit HeapBlock(u64 bytes) : LargeMemory(std::aligned_alloc(64, bytes), bytes) {}
  ~HeapBlock() override { std::free(address_); }
};

// What the threads did, seen from inside.
struct Seen {
  std::mutex mutex;
  std::set<const void*> memories;
  std::set<u64> seeds;
  u64 prepared = 0, rounds = 0, checks = 0;
  bool wrong_core = false;
};

struct Behaviour {
  std::atomic<int> failures{0};  // rounds that are to fail yet
  bool fail_at_rest = false;
  bool fills_for_ever = false;
};

class ToyWork final : public StressWork {
 public:
  ToyWork(Seen& seen, Behaviour& behaviour) : seen_(seen), behaviour_(behaviour) {}
  u64 bytes() const override { return kShare; }
  u64 operand_bytes() const override { return kShare; }
  std::string size_text() const override { return "1 x 1"; }
  bool prepare(orl::LinearHeapBuffer memory, u64 seed, const std::atomic<bool>& stop) override {
    while (behaviour_.fills_for_ever && !stop) std::this_thread::yield();
    if (stop) return false;
    std::fill_n(static_cast<char*>(memory.ptr), kShare, 1);
    const std::lock_guard lock(seen_.mutex);
    seen_.memories.insert(memory.ptr);
    seen_.seeds.insert(seed);
    ++seen_.prepared;
    return true;
  }
  void round() override {
    cpu_set_t bound;
    sched_getaffinity(0, sizeof bound, &bound);
    {
      const std::lock_guard lock(seen_.mutex);
      ++seen_.rounds;
      if (CPU_COUNT(&bound) != 1) seen_.wrong_core = true;
    }
    if (behaviour_.failures > 0 && behaviour_.failures-- > 0) throw_toy();
  }
  void check_memory() override {
    {
      const std::lock_guard lock(seen_.mutex);
      ++seen_.checks;
    }
    if (behaviour_.fail_at_rest) throw_toy();
  }
  orl::LinearHeapBuffer tables() override { return {}; }

 private:
  [[noreturn]] static void throw_toy() { throw orl::AlgorithmFailedException("toy", "Checksum Mismatch"); }

  Seen& seen_;
  Behaviour& behaviour_;
};

class ToyTest final : public StressTest {
 public:
  ToyTest() : StressTest({"TOY", "Toy", "toys", Component::kMixed, 1, true}) {}
  std::unique_ptr<StressWork> plan(u64) const override { return std::make_unique<ToyWork>(seen, behaviour); }

  mutable Seen seen;
  mutable Behaviour behaviour;
};

std::unique_ptr<orl::LargeMemory> allocate(u64 bytes, u32, std::vector<std::string>&) {
  return std::make_unique<HeapBlock>(bytes);
}

// Four threads even on a machine of one core: they may share one.
StressSetup setup(bool stop_on_error = true) {
  const std::vector<u32>& all = orl::topology().cores;
  std::vector<u32> cores;
  for (u32 i = 0; i < 4; ++i) cores.push_back(all[i % all.size()]);
  return {cores, kShare, stop_on_error, allocate};
}

bool always(double) { return true; }

u64 failed(const std::vector<StressReport>& reports) {
  return static_cast<u64>(std::count_if(reports.begin(), reports.end(), [](const StressReport& report) {
    return report.outcome == StressReport::Outcome::kFailed;
  }));
}

u64 count(const std::string& text, const std::string& part) {
  u64 found = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++found;
  return found;
}

// Keeps the console's text while it lives.
class Capture {
 public:
  Capture() {
    orl::settings().colors_enabled = false;
    testing::internal::CaptureStdout();
  }
  std::string text() { return testing::internal::GetCapturedStdout(); }
};

TEST(StressThreads, StayAliveOverAllTestsEachInMemoryOfItsOwn) {
  const StressSetup what = setup();
  StressThreads threads(what);
  ASSERT_TRUE(threads.ready());
  ToyTest test;
  for (u64 run = 1; run <= 40; ++run) {
    const auto reports = threads.run(test, 0, always);
    ASSERT_EQ(reports.size(), what.cores.size());
    for (std::size_t i = 0; i < reports.size(); ++i) {
      EXPECT_EQ(reports[i].core, what.cores[i]);
      EXPECT_GE(reports[i].rounds, 1u);
      EXPECT_GE(reports[i].wall_seconds, 0);
    }
    ASSERT_EQ(failed(reports), 0u);
    ASSERT_EQ(test.seen.checks, run * what.cores.size());
  }
  EXPECT_EQ(test.seen.memories.size(), what.cores.size());
  EXPECT_FALSE(test.seen.wrong_core);
}

TEST(StressThreads, RunForTheSecondsUnlessTheCallerStops) {
  StressThreads threads(setup());
  ToyTest test;
  ASSERT_TRUE(threads.ready());
  double last = 0;
  const auto whole = threads.run(test, 0.3, [&](double passed) {
    last = std::max(last, passed);
    return true;
  });
  for (const StressReport& report : whole) EXPECT_GE(report.wall_seconds, 0.3);
  EXPECT_GT(last, 0);
  EXPECT_LT(last, 0.3);
  int calls = 0;
  const auto stopped = threads.run(test, kForever, [&](double) { return ++calls < 3; });
  EXPECT_EQ(failed(stopped), 0u);
  EXPECT_EQ(calls, 3);
}

TEST(StressThreads, StopWhileTheyFillTheirMemory) {
  StressThreads threads(setup());
  ToyTest test;
  test.behaviour.fills_for_ever = true;
  ASSERT_TRUE(threads.ready());
  int calls = 0;
  for (const StressReport& report : threads.run(test, kForever, [&](double) { return ++calls < 3; }))
    EXPECT_EQ(report.rounds, 0u);
  EXPECT_EQ(test.seen.checks, 0u);
}

TEST(StressThreads, TellTheCoreOfAnErrorAndStop) {
  for (const bool at_rest : {false, true}) {
    ToyTest test;
    test.behaviour.failures = at_rest ? 0 : 1;
    test.behaviour.fail_at_rest = at_rest;
    Capture capture;
    std::vector<StressReport> reports;
    {
      StressThreads threads(setup());
      ASSERT_TRUE(threads.ready());
      reports = threads.run(test, at_rest ? 0 : kForever, always);
    }
    const std::string text = capture.text();
    EXPECT_EQ(failed(reports), at_rest ? reports.size() : 1) << text;
    EXPECT_EQ(count(text, "Checksum Mismatch"), failed(reports)) << text;
    for (const StressReport& report : reports)
      if (report.outcome == StressReport::Outcome::kFailed) {
        const std::string told = "Error(s) encountered on logical core " + std::to_string(report.core);
        EXPECT_GE(count(text, told + "\n"), 1u) << text;
      }
  }
}

TEST(StressThreads, GoOnWithFreshOperandsAfterAnErrorWhenTheyAreNotToStop) {
  ToyTest test;
  test.behaviour.failures = 20;
  Capture capture;
  std::vector<StressReport> reports, next;
  {
    StressThreads threads(setup(false));
    ASSERT_TRUE(threads.ready());
    reports = threads.run(test, 0.2, always);
    next = threads.run(test, 0, always);
  }
  const std::string text = capture.text();
  EXPECT_GE(failed(reports), 1u);
  EXPECT_EQ(count(text, "Error(s) encountered"), failed(reports)) << "an error a core and test is enough";
  EXPECT_EQ(failed(next), 0u);
  const u64 threads_count = reports.size();
  EXPECT_EQ(test.seen.prepared, 2 * threads_count + 20);
  EXPECT_EQ(test.seen.seeds.size(), test.seen.prepared) << "every filling has operands of its own";
}

TEST(StressThreads, EndThoseStartedWhenTheSystemRefusesOne) {
  StressSetup what = setup();
  what.allocate = [](u64, u32, std::vector<std::string>&) { return nullptr; };
  const orl::test::ThreadLimit limit(1);
  EXPECT_THROW(StressThreads{what}, orl::SystemException);
}

TEST(StressThreads, RefuseACoreThatDoesNotExist) {
  Capture capture;
  {
    StressSetup what = setup();
    what.cores[2] = 100000;
    StressThreads threads(what);
    EXPECT_FALSE(threads.ready());
  }
  EXPECT_EQ(capture.text(), "Failed to set core affinity to core: 100000\n");
}

TEST(StressThreads, AskAgainForMemoryThatThereWasNot) {
  Capture capture;
  std::atomic<int> refusals{6};
  StressSetup what = setup();
  what.allocate = [&](u64 bytes, u32 core,
                      std::vector<std::string>& errors) -> std::unique_ptr<orl::LargeMemory> {
    if (refusals > 0 && refusals-- > 0) {
      errors.push_back("none left");
      return nullptr;
    }
    return allocate(bytes, core, errors);
  };
  ToyTest test;
  std::vector<StressReport> without, with;
  {
    StressThreads threads(what);
    EXPECT_TRUE(threads.ready());
    EXPECT_EQ(refusals, 2);
    without = threads.run(test, 0, always);
    with = threads.run(test, 0, always);
  }
  const auto starved = [](const std::vector<StressReport>& reports) {
    return std::count_if(reports.begin(), reports.end(), [](const StressReport& report) {
      return report.outcome == StressReport::Outcome::kOutOfMemory;
    });
  };
  EXPECT_EQ(starved(without), 2);
  EXPECT_EQ(starved(with), 0);
  EXPECT_EQ(count(capture.text(), "Memory Allocation Failed: "), 6u);
}

}  // namespace
}  // namespace orvane::test
