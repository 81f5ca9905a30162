#include "threads/push_pool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <set>
#include <thread>

#include "system/limits.h"
#include "threads/frameworks.h"
#include "threads/push_pool_framework.h"

namespace orl {
namespace {

using std::chrono::milliseconds;

/// Holds everybody who comes until `expected` have come; false after ten seconds.
class Meeting {
 public:
  explicit Meeting(int expected) : expected_(expected) {}
  bool attend() {
    ++present_;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (present_ < expected_) {
      if (std::chrono::steady_clock::now() > end) return false;
      std::this_thread::sleep_for(milliseconds(1));
    }
    return true;
  }

 private:
  const int expected_;
  std::atomic<int> present_{0};
};

// All tasks of a fork run at once, however many there are: none waits for another one to finish.
TEST(UnlimitedPool, GrowsUntilEveryTaskHasAThread) {
  Parallelizer_PushPool pool;
  Meeting flat(16);
  std::atomic<int> met{0};
  fork_range(pool, 0, 16, [&](u64) { met += flat.attend(); });
  EXPECT_EQ(met, 16);
  EXPECT_GE(pool.worker_count(), 15u);

  Meeting split(40);
  met = 0;
  fork_range(pool, 0, 40, [&](u64) { met += split.attend(); });
  EXPECT_EQ(met, 40);
}

TEST(LimitedPool, RunsInlineWhenNobodyIsIdle) {
  Parallelizer_PushPool pool;
  pool.set_worker_limit(1);
  const auto caller = std::this_thread::get_id();
  Meeting meeting(2);
  bool met = false;
  // The only worker is held by the outer task, so the inner fork stays on this thread.
  fork_pair(
      pool, [&] { met = meeting.attend(); },
      [&] {
        fork_pair(
            pool, [&] { EXPECT_EQ(std::this_thread::get_id(), caller); }, [] {});
        EXPECT_TRUE(meeting.attend());
      });
  EXPECT_TRUE(met);
  EXPECT_EQ(pool.worker_count(), 1u);
}

TEST(Pool, ReservesAndGivesBack) {
  Parallelizer_PushPool pool;
  pool.reserve();
  EXPECT_EQ(pool.worker_count(), 2 * processor_count() - 1);
  pool.reset();
  EXPECT_EQ(pool.worker_count(), 0u);
  pool.set_worker_limit(5);
  pool.reserve();
  EXPECT_EQ(pool.worker_count(), 4u);
}

TEST(Pool, CallsTheThreadStartFunctionOnEachWorkerOnce) {
  std::mutex mutex;
  std::multiset<u64> seen;
  std::multiset<u64> expected;
  {
    PushPool pool(true, [&](u64 index) {
      std::lock_guard lock(mutex);
      seen.insert(index);
    });
    pool.grow_to(33);
    EXPECT_EQ(pool.worker_count(), 33u);
    pool.grow_to(5);
    EXPECT_EQ(pool.worker_count(), 33u);
  }
  for (u64 i = 0; i < 33; ++i) expected.insert(i);
  EXPECT_EQ(seen, expected);
}

TEST(Pool, GrowsWhileOthersDispatch) {
  Parallelizer_PushPool pool;
  std::atomic<u64> runs{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int round = 0; round < 30; ++round) fork_range(pool, 0, 9, [&](u64) { ++runs; });
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(runs, 4u * 30 * 9);
}

// A worker that has gone to sleep must be woken by the next push, whenever it comes.
TEST(Pool, WakesSleepingWorkers) {
  PushPool pool(false);
  pool.add_worker();
  struct Quick final : ParallelTask {
    void run(u64 index) override { last = index; }
    u64 last = 0;
  } task;
  for (const int pause_us : {0, 5, 20, 40, 100, 1000, 5000, 20, 0}) {
    std::this_thread::sleep_for(std::chrono::microseconds(pause_us));
    TaskLatch latch(task);
    while (!pool.try_push(latch, 100 + pause_us)) std::this_thread::yield();
    latch.wait();
    EXPECT_EQ(task.last, 100u + pause_us);
  }
}

TEST(TaskLatch, TimedWaitTellsWhetherTheTaskIsDone) {
  PushPool pool(true);
  pool.add_worker();
  std::atomic<bool> go{false};
  struct Waiting final : ParallelTask {
    explicit Waiting(std::atomic<bool>& f) : flag(f) {}
    void run(u64) override {
      while (!flag) std::this_thread::sleep_for(milliseconds(1));
    }
    std::atomic<bool>& flag;
  } task(go);
  TaskLatch latch(task);
  ASSERT_TRUE(pool.try_push(latch, 0));
  EXPECT_FALSE(latch.wait_for(20));
  TaskLatch second(task);
  // Give the worker every chance: a busy one must refuse.
  EXPECT_FALSE(pool.try_push(second, 0));
  second.abandon();
  go = true;
  EXPECT_TRUE(latch.wait_for(10000));
}

}  // namespace
}  // namespace orl
