#include "core/ending.h"
#include "console/console.h"

#include <gtest/gtest.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include "core/settings.h"
#include "support/child.h"

namespace orl::test {
namespace {

constexpr const char* kPrompt = "Press ENTER to continue . . .";

bool asks(int status, s32 pause_level) {
  const ChildResult result = run_child("", [&]() -> int {
    settings().pause_level = pause_level;
    settings().pause_given = true;
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

// What a program on a terminal of its own has written when `signal` ended it.
std::string output_at(int signal) {
  int terminal = -1;
  const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
  if (child == 0) {
    ::signal(signal, SIG_DFL);  // a job in the background ignores it
    settings().colors_enabled = true;
    console::restore_colours_at_signals();
    console::print("in red", 'R');
    raise(signal);
    _exit(0);
  }
  std::string output;
  char block[256];
  for (ssize_t got; (got = read(terminal, block, sizeof block)) > 0;) output.append(block, got);
  close(terminal);
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal);
  return output;
}

TEST(Ending, SignalGivesTheTerminalItsColoursBack) {
  for (const int signal : {SIGINT, SIGTERM})
    EXPECT_EQ(output_at(signal), "\033[01;31min red\033[39;49m\033[0m\r\n");
}

TEST(Ending, FatalErrorSpeaksAsksAndFails) {
  const auto fail = [](bool ask) {
    return run_child("\n", [=]() -> int {
      settings().pause_on_fatal = ask;
      settings().pause_given = true;
      settings().colors_enabled = true;
      fatal_error("Base Conversion Failed");
    });
  };
  const std::string words = "\033[01;31mBase Conversion Failed\n\033[39;49m\033[0m";
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
    settings().pause_given = true;
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; i++) threads.emplace_back([] { fatal_exit(1); });
    for (std::thread& thread : threads) thread.join();
    return 0;
  });
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output, kPrompt);
}

}  // namespace
}  // namespace orl::test
