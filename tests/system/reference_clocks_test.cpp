#include "system/reference_clocks.h"

#include <gtest/gtest.h>
#include <time.h>

#include <cmath>

#include "system/machine.h"

namespace orl {
namespace {

constexpr double kHz = 2.5e9;

// The three clocks after a run of `raw`, `real` and `counter` seconds.
ClockReport after(double raw, double real, double counter, double end_hz = kHz) {
  const ClockSample start{5'000'000'000, 1'700'000'000'000'000'000, u64{1} << 40};
  const ClockSample end{*start.raw_ns + std::llround(raw * 1e9), *start.real_ns + std::llround(real * 1e9),
                        *start.ticks + static_cast<u64>(std::llround(counter * kHz))};
  return compare_clocks(start, end, kHz, end_hz);
}

TEST(ReferenceClocks, AgreeWithinTheTolerance) {
  const ClockReport report = after(1000, 1000.5, 999.9);
  EXPECT_EQ(report.timer, ClockCheck::kPassed);
  EXPECT_EQ(report.frequency, ClockCheck::kPassed);
  EXPECT_EQ(report.reference, "rdtsc at 2.500 GHz");
  EXPECT_EQ(report.clocks[0], "1000.000000 seconds  ( CLOCK_MONOTONIC_RAW )");
  EXPECT_EQ(report.clocks[1], "1000.500000 seconds  ( CLOCK_REALTIME )");
  EXPECT_EQ(report.clocks[2], "999.900000 seconds  ( rdtsc )");
}

TEST(ReferenceClocks, OneThatGoesItsOwnWayFailsTheTimer) {
  EXPECT_EQ(after(100, 80, 100).timer, ClockCheck::kFailed);
  EXPECT_EQ(after(100, 80, 100).frequency, ClockCheck::kPassed);
  EXPECT_EQ(after(100, 100, 101).timer, ClockCheck::kFailed);
  EXPECT_EQ(after(100, 100, 101).frequency, ClockCheck::kFailed);
  EXPECT_EQ(after(90, 100, 100).timer, ClockCheck::kFailed);
  EXPECT_EQ(after(100, -3600, 100).timer, ClockCheck::kFailed);  // set back
  EXPECT_EQ(after(0.5, 0.5, 0.502).timer, ClockCheck::kFailed);
}

TEST(ReferenceClocks, ChangedFrequencyFailsEvenWhenTheTimesAgree) {
  EXPECT_EQ(after(100, 100, 100, 1.01 * kHz).timer, ClockCheck::kPassed);
  EXPECT_EQ(after(100, 100, 100, 1.01 * kHz).frequency, ClockCheck::kFailed);
}

TEST(ReferenceClocks, SayWhenTheyCannotTell) {
  EXPECT_EQ(after(0.05, 0.05, 0.05).timer, ClockCheck::kUnableToValidate);
  EXPECT_EQ(after(0.05, 0.05, 0.05).frequency, ClockCheck::kUnableToValidate);
  const ClockSample start{0, 0, {}}, end{1'000'000'000, 1'000'000'000, {}};
  const ClockReport without_counter = compare_clocks(start, end, 0, 0);
  EXPECT_EQ(without_counter.timer, ClockCheck::kPassed);
  EXPECT_EQ(without_counter.frequency, ClockCheck::kUnableToValidate);
  EXPECT_EQ(without_counter.reference, "CLOCK_MONOTONIC_RAW");
  EXPECT_EQ(without_counter.clocks[2], "Not Available  ( rdtsc )");
  EXPECT_EQ(compare_clocks({0, {}, {}}, {1'000'000'000, {}, {}}, 0, 0).timer, ClockCheck::kUnableToValidate);
}

TEST(ReferenceClocks, MeasureTheFrequencyAgainAtTheEnd) {
  if (!read_clocks().ticks) GTEST_SKIP() << "the time-stamp counter has no constant rate";
  static double hz;
  hz = measure_tsc_frequency(0.02);
  const ReferenceClocks clocks([] { return hz; });
  const timespec wait{0, 120'000'000};
  clock_nanosleep(CLOCK_MONOTONIC, 0, &wait, nullptr);
  EXPECT_EQ(clocks.finish().frequency, ClockCheck::kPassed);
  hz *= 1.01;
  EXPECT_EQ(clocks.finish().frequency, ClockCheck::kFailed);
}

// Real clocks: nothing here steps them, so a run long enough must not fail.
TEST(ReferenceClocks, PassOnThisMachine) {
  const ReferenceClocks clocks;
  const timespec wait{0, 120'000'000};
  clock_nanosleep(CLOCK_MONOTONIC, 0, &wait, nullptr);
  const ClockReport report = clocks.finish();
  EXPECT_EQ(report.timer, ClockCheck::kPassed) << report.clocks[0] << report.clocks[1] << report.clocks[2];
  const double hz = measure_tsc_frequency(0.02);
  if (hz == 0) GTEST_SKIP() << "the time-stamp counter has no constant rate";
  EXPECT_EQ(report.frequency, ClockCheck::kPassed);
  EXPECT_NEAR(measure_tsc_frequency(0.02), hz, 1e-3 * hz);
}

}  // namespace
}  // namespace orl
