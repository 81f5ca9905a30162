// The push pool with pauses between the stores of a hand-over: push_pool.cpp is compiled into this test anew.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <thread>
#include <vector>

#include "threads/push_pool.h"

namespace orl {

namespace {

std::atomic<u64> pauses_left{0};  // pauses that are over

struct Counting final : ParallelTask {
  void run(u64) override { ++runs; }
  std::atomic<u64> runs{0};
};

}  // namespace

void handover_pause() {
  std::this_thread::sleep_for(std::chrono::microseconds(300));
  ++pauses_left;
}

namespace {

// Who claims the mailbox while the worker leaves it must find his task run: a hang is the failure.
TEST(PausedHandOver, TwoPushersShareOneWorker) {
  PushPool pool(false);
  pool.add_worker();
  Counting task;
  const auto push = [&] {
    for (u64 i = 0; i < 300; ++i) {
      TaskLatch latch(task);
      while (!pool.try_push(latch, i)) std::this_thread::yield();
      if (latch.wait_for(20000)) continue;
      std::fputs("A task was never run.\n", stderr);
      std::_Exit(1);
    }
  };
  std::thread other(push);
  push();
  other.join();
  EXPECT_EQ(task.runs, 600u);
}

// A latch may not go while the worker that signalled it is still inside.
TEST(PausedHandOver, LatchOutlivesItsSignaller) {
  PushPool pool(false);
  pool.add_worker();
  Counting task;
  struct Room {
    alignas(TaskLatch) char bytes[sizeof(TaskLatch)];
  };
  const auto rooms = std::make_unique<Room[]>(50);  // stays behind a latch that goes too early
  for (u64 i = 0; i < 50; ++i) {
    const u64 before = pauses_left;
    auto* const latch = new (&rooms[i]) TaskLatch(task);
    while (!pool.try_push(*latch, i)) std::this_thread::yield();
    latch->wait();
    latch->~TaskLatch();
    EXPECT_GE(pauses_left, before + 2) << "the mailbox's pause and the latch's";
  }
}

}  // namespace
}  // namespace orl
