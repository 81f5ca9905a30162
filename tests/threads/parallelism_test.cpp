#include "threads/parallelism.h"

#include <gtest/gtest.h>

#include "config/object.h"
#include "support/screen.h"
#include "support/thrown.h"
#include "system/limits.h"
#include "threads/push_pool_framework.h"
#include "threads/registered.h"
#include "threads/simple_frameworks.h"
#include "threads/thread_priority.h"

namespace orl::test {
namespace {

class ParallelismTest : public ::testing::Test {
 protected:
  void SetUp() override { fill_registries(); }
};

TEST_F(ParallelismTest, DefaultsFollowTheProcessorCount) {
  const std::pair<u64, u64> decompositions[] = {{1, 1},         {2, 2},         {3, 6},    {12, 24},
                                                {16, 16},       {17, 34},       {96, 192}, {40000, 65536},
                                                {65536, 65536}, {131072, 65536}};
  for (const auto& [cores, tds] : decompositions) EXPECT_EQ(default_task_decomposition(cores), tds) << cores;
  EXPECT_EQ(default_framework_key(16), "pushpool");
  EXPECT_EQ(default_framework_key(17), has_framework("cilk") ? "cilk" : "tbb");
  Parallelism settings;
  settings.restore_defaults(12);
  EXPECT_EQ(settings.framework().to_string(settings.tds()), "Push Pool  ->  24 / ?  (randomization on)");
}

TEST_F(ParallelismTest, DecompositionLiesInItsBounds) {
  Parallelism settings;
  for (const u64 tds : {1, 65536}) EXPECT_NO_THROW(settings.set_tds(tds));
  for (const u64 tds : {u64{0}, u64{65537}, ~u64{0}}) {
    EXPECT_EQ(message_of<InvalidParametersException>([&] { settings.set_tds(tds); }),
              "Task decomposition must be between 1 and 65536.");
  }
  EXPECT_EQ(settings.tds(), 65536u);
}

TEST_F(ParallelismTest, EachFrameworkDescribesItself) {
  const std::pair<const char*, std::string> lines[] = {
      {"none", "None (No Multi-threading)  ->  8 / 1"},
      {"spawn", "Thread Spawn (1 Thread/Task)  ->  8 / ?"},
      {"cppasync", "C++ std::async()  ->  8 / ?  (async only)"},
      {"pushpool", "Push Pool  ->  8 / ?  (randomization on)"},
      {"cilk", "Cilk Plus Work-Stealing  ->  8 / " + std::to_string(processor_count())},
      {"tbb", "oneTBB Work-Stealing  ->  8 / " + std::to_string(processor_count())}};
  for (const auto& [key, line] : lines) {
    if (!has_framework(key)) {
      EXPECT_THROW(create_framework(key), InvalidParametersException) << key;
    } else {
      EXPECT_EQ(create_framework(key)->to_string(8), line);
    }
  }
  EXPECT_EQ(message_of<InvalidParametersException>([] { create_framework("threads"); }),
            "Invalid Parallel Framework: threads");
}

/// Writes `from`, reads it into a fresh object and returns that one's report line.
std::string line_after_trip(const Parallelism& from, bool as_dump) {
  Object object;
  if (as_dump) {
    object = from.to_object();
  } else {
    from.write_settings(object);
  }
  Parallelism to;
  to.read_object(object);
  return to.framework().to_string(to.tds());
}

TEST_F(ParallelismTest, SettingsSurviveTheTripInBothForms) {
  for (const FrameworkType& type : frameworks()) {
    Parallelism settings;
    settings.set_tds(37);
    settings.set_framework(type.key);
    Object own;
    // The opposite of every default; a framework reads its own keys only.
    own.add_integer("WorkerThreads", 5);
    own.add_string("Randomization", "false");
    own.add_string("AsyncOnly", "false");
    settings.framework().read_object(own);
    const std::string line = settings.framework().to_string(37);
    EXPECT_EQ(line_after_trip(settings, false), line);
    EXPECT_EQ(line_after_trip(settings, true), line);
    EXPECT_EQ(settings.framework().to_object().get_string("Framework"), type.key);
  }
}

TEST_F(ParallelismTest, RefusedSettingsChangeNothing) {
  Parallelism settings;
  settings.set_framework("spawn");
  settings.set_tds(9);
  const auto refuse = [&](s64 tds, const char* framework, s64 threads) {
    Object object;
    object.add_integer("TaskDecomposition", tds);
    object.add_string("Framework", framework);
    object.add_integer("WorkerThreads", threads);
    EXPECT_THROW(settings.read_object(object), InvalidParametersException);
    EXPECT_EQ(settings.framework().to_string(settings.tds()), "Thread Spawn (1 Thread/Task)  ->  9 / ?");
  };
  refuse(0, "pushpool", 1);
  refuse(-1, "pushpool", 1);
  refuse(4, "other", 1);
  refuse(4, "pushpool", -1);
  refuse(4, "tbb", 65537);
}

TEST(FrameworksDeathTest, DoubleRegistrationEndsTheProcess) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  const auto register_twice = [] {
    console_to_stderr();
    const FrameworkType type{"cilk", "x", nullptr};
    if (!has_framework("cilk")) register_framework(type);
    register_framework(type);
  };
  EXPECT_EXIT(register_twice(), ::testing::ExitedWithCode(1), "Duplicate Framework Type");
}

TEST(ThreadPriority, IsLowestBelowZeroAndHighestAbove) {
  EXPECT_LT(round_robin_priority(-1), round_robin_priority(1));
}

TEST(ThreadPriorityDeathTest, MissingPermissionIsSaidOnce) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(
      expect_printed_unprivileged("Insufficient permissions to set thread priority. Please retry as root.\n"
                                  "Further messages for this warning will be suppressed.\n",
                                  [] {
                                    for (const int level : {0, -1, 1, 5}) set_thread_priority(level);
                                  }),
      ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace orl::test
