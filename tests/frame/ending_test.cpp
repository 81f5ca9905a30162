#include "frame/ending.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "child.h"
#include "frame/console.h"
#include "frame/settings.h"

namespace orl {
namespace {

using test::ChildResult;
using test::run_child;

constexpr const char* kPrompt = "Press ENTER to continue . . .";

bool asks(int status, s32 pause_level) {
  const ChildResult result = run_child("", [&]() -> int {
    settings().pause_level = pause_level;
    leave(status);
  });
  EXPECT_EQ(result.status, status);
  EXPECT_EQ(result.output.substr(0, 1), "\n");
  return result.output.find(kPrompt) != std::string::npos;
}

TEST(Ending, PauseLevelDecidesWhetherTheEndWaits) {
  EXPECT_TRUE(asks(0, 1));
  EXPECT_FALSE(asks(0, 0));
  EXPECT_FALSE(asks(0, -1));
  EXPECT_TRUE(asks(1, 0));
  EXPECT_TRUE(asks(1, -1));
  EXPECT_FALSE(asks(1, -2));
}

TEST(Ending, FatalErrorSpeaksAsksAndFails) {
  const auto fail = [](bool ask) {
    return run_child("\n", [=]() -> int {
      settings().pause_on_fatal = ask;
      settings().colors_enabled = true;
      fatal_error("Base Conversion Failed");
    });
  };
  const std::string words = "\033[01;31mBase Conversion Failed\n\033[39;49m";
  EXPECT_EQ(fail(false).output, words);
  EXPECT_EQ(fail(false).status, 1);
  EXPECT_EQ(fail(true).output, words + kPrompt);
}

struct SpeaksWhenDestroyed {
  ~SpeaksWhenDestroyed() { console::println("static destructor"); }
};

TEST(Ending, FailingWorkerEndsTheProcessWhileTheMainThreadWaitsForIt) {
  const ChildResult result = run_child("", [] {
    static SpeaksWhenDestroyed object;
    settings().pause_on_fatal = false;
    std::atomic<bool> never{false};
    std::thread other([&] { never.wait(false); });
    std::thread worker([] {
      console::println("worker");
      fatal_exit(1);
    });
    worker.join();
    other.join();
    return 0;
  });
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output, "worker\n");
}

TEST(Ending, OfManyFailingThreadsOneEndsTheProcess) {
  const ChildResult result = run_child("", [] {
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; i++) threads.emplace_back([] { fatal_exit(1); });
    for (std::thread& thread : threads) thread.join();
    return 0;
  });
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output, kPrompt);
}

}  // namespace
}  // namespace orl
