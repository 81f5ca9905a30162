// The reading of a run's progress: forward only, and right about the time left when the plan's shares are right.
#include "core/run_progress.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace orl {
namespace {

void work(double seconds) { std::this_thread::sleep_for(std::chrono::duration<double>(seconds)); }

TEST(RunProgress, GoesForwardAndLearnsTheSpeedOfTheMachine) {
  // Planned as ten times what it takes here; the second part is left out, and another one is not planned.
  RunProgress progress({{"Memory", "", 0.01}, {"A", "one", 2}, {"A", "two", 1}, {"A", "", 1}, {"B", "", 4}});
  double last = 0;
  const auto read = [&] {
    const RunProgress::Reading reading = progress.read();
    EXPECT_GE(reading.done, last);
    EXPECT_LE(reading.done, 1);
    last = reading.done;
    return reading;
  };
  progress.finish_stage("Memory");
  progress.open_part("one");
  for (const double fraction : {0.0, 0.25, 0.5, 0.75}) {
    progress.set_fraction(fraction);
    read();
    work(0.05);
    EXPECT_GT(read().done, 0);
  }
  progress.close_part();
  EXPECT_NEAR(read().done, 0.25, 0.02);
  progress.open_part("three");
  work(0.1);
  progress.close_part();
  const auto parts = progress.finish_stage("A");
  ASSERT_EQ(parts.size(), 3u);
  EXPECT_STREQ(parts[0].part, "one");
  EXPECT_STREQ(parts[1].part, "three");
  EXPECT_STREQ(parts[2].part, "");
  EXPECT_GE(parts[0].wall_seconds, 0.2);
  const RunProgress::Reading half = read();
  EXPECT_NEAR(half.done, 0.5, 0.02);
  EXPECT_NEAR(half.left, half.elapsed, 0.1 * half.elapsed);
  const double before = last;
  work(0.1);
  EXPECT_GT(read().done, before) << "time alone moves it";
  progress.finish_stage("B");
  EXPECT_DOUBLE_EQ(read().done, 1);
  char text[64];
  EXPECT_EQ(progress_text({0.5, 3725, 65}, text), "50.0%  1:02:05  left 0:01:05");
  EXPECT_EQ(progress_text({0, 5, -1}, text), "0:00:05");
}

TEST(RunProgress, TimeCarriesAPartToWhatItWillSayNextAndNoFurther) {
  RunProgress progress({{"Memory", "", 1e-6}, {"A", "one", 0.05}, {"A", "two", 0.05}});
  progress.finish_stage("Memory");
  progress.open_part("one");
  progress.set_fraction(0, 0.5);
  work(0.2);  // more than all of the part was to take
  const double carried = progress.read().done;
  EXPECT_GT(carried, 0.2);
  EXPECT_LE(carried, 0.2501);
  progress.set_fraction(0.25, 0.5);
  EXPECT_EQ(progress.read().done, carried) << "it never goes back";
  progress.set_fraction(0.75, 1);
  EXPECT_GE(progress.read().done, 0.3749);
  progress.close_part();
  // What a part did before it says that nothing of the rest is done counts as done.
  progress.open_part("two");
  work(0.2);
  progress.set_fraction(0, 1);
  EXPECT_GT(progress.read().done, 0.6);
  EXPECT_LT(progress.read().done, 0.8);
  progress.set_fraction(0.5, 1);
  EXPECT_GT(progress.read().done, 0.8);
  progress.finish_stage("A");
  EXPECT_DOUBLE_EQ(progress.read().done, 1);
}

}  // namespace
}  // namespace orl
