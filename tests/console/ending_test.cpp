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
#include "core/unfinished_files.h"
#include "support/child.h"
#include "support/files.h"

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
    console::end_in_order_at_signals();
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

TEST(Ending, SignalGivesTheTerminalItsColoursBackAndRemovesWhatIsNotFinished) {
  const TemporaryFolder folder;
  const std::string kept = folder.file("kept"), gone = folder.file("gone");
  for (const std::string& path : {kept, gone, kept, gone}) list_unfinished(path);
  for (int times = 0; times < 2; times++) unlist_unfinished(kept);
  const std::string reset = "\033[01;31min red\033[39;49m\033[0m\r\n";
  for (const auto& [signal, words] : {std::pair{SIGINT, "Interrupted."}, {SIGTERM, "Ended by a signal."}}) {
    for (const std::string& path : {kept, gone}) write_file(path, "x");
    EXPECT_EQ(output_at(signal), reset + words + " What was not finished has been removed.\r\n");
    EXPECT_EQ(folder.names(), std::vector<std::string>{"kept"});
  }
  remove_unfinished();
  EXPECT_EQ(output_at(SIGINT), reset + "Interrupted.\r\n");
}

TEST(Ending, SignalWaitsForNamesThatChangeTogether) {
  const ChildResult result = run_child("", [] {
    signal(SIGTERM, SIG_DFL);
    console::end_in_order_at_signals();
    const EndingHold outer;
    {
      const EndingHold inner;
      raise(SIGTERM);
    }
    console::println("still here");
    return 0;
  });
  EXPECT_EQ(result.status, -1);
  EXPECT_EQ(result.output, "still here\nEnded by a signal.\n");
}

TEST(Ending, WordsThatNobodyGetsAreAFailure) {
  const auto status_on = [](const char* device) {
    return run_child("",
                     [=]() -> int {
                       dup2(open(device, O_WRONLY), STDOUT_FILENO);
                       console::println("words");
                       leave(0);
                     })
        .status;
  };
  EXPECT_EQ(status_on("/dev/full"), 1);
  EXPECT_EQ(status_on("/dev/null"), 0);
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
