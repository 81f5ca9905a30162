#include "system/reference_clocks.h"

#include <time.h>
#include <x86intrin.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

#include "core/name_table.h"
#include "system/kernel_files.h"
#include "system/machine.h"

namespace orl {
namespace {

constexpr double kShortestRun = 0.1;           // seconds
constexpr double kCalibrationSeconds = 0.004;  // a pair of readings is good to about 100 ns of it
constexpr double kAbsoluteTolerance = 1e-3, kRelativeTolerance = 1e-3;

std::optional<s64> read_clock(clockid_t clock) {
  timespec time{};
  if (clock_gettime(clock, &time) != 0) return {};
  return s64{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

bool counter_is_constant() {
  static const bool constant = [] {
    const std::string text = read_kernel_file("/proc/cpuinfo").value_or("");
    return text.find(" constant_tsc") != text.npos && text.find(" nonstop_tsc") != text.npos;
  }();
  return constant;
}

template <class T>
std::optional<double> elapsed(const std::optional<T>& start, const std::optional<T>& end, double per_second) {
  if (!start || !end || per_second <= 0) return {};
  return (static_cast<double>(*end) - static_cast<double>(*start)) / per_second;
}

bool agree(double a, double b) {
  return std::abs(a - b) <= kAbsoluteTolerance + kRelativeTolerance * std::max(a, b);
}

ClockCheck compare_times(const std::array<std::optional<double>, 3>& seconds) {
  double least = std::numeric_limits<double>::infinity(), most = -least;
  int usable = 0;
  for (const auto& time : seconds) {
    if (!time) continue;
    usable++;
    least = std::min(least, *time);
    most = std::max(most, *time);
  }
  if (usable < 2 || most < kShortestRun) return ClockCheck::kUnableToValidate;
  return agree(least, most) ? ClockCheck::kPassed : ClockCheck::kFailed;
}

// The counter's rate at the start, at the end and over the whole run.
ClockCheck compare_frequencies(std::optional<double> ticks, std::optional<double> seconds, double start_hz,
                               double end_hz) {
  if (!ticks || !seconds || *seconds < kShortestRun || start_hz <= 0 || end_hz <= 0)
    return ClockCheck::kUnableToValidate;
  const bool same_rate = std::abs(start_hz - end_hz) <= kRelativeTolerance * start_hz;
  return same_rate && agree(*ticks / start_hz, *seconds) ? ClockCheck::kPassed : ClockCheck::kFailed;
}

template <class... Values>
std::string format(const char* form, Values... values) {
  char text[96];
  std::snprintf(text, sizeof text, form, values...);
  return text;
}

}  // namespace

const char* clock_check_text(ClockCheck check) {
  static constexpr Named<ClockCheck> kTexts[] = {{ClockCheck::kPassed, "Passed"},
                                                 {ClockCheck::kFailed, "Failed"},
                                                 {ClockCheck::kUnableToValidate, "Unable to Validate"}};
  return name_of(kTexts, check);
}

// A reading that was interrupted half-way is taken again; the tightest of five counts.
ClockSample read_clocks() {
  ClockSample best;
  s64 best_span = std::numeric_limits<s64>::max();
  for (int i = 0; i < 5; i++) {
    ClockSample sample;
    sample.raw_ns = read_clock(CLOCK_MONOTONIC_RAW);
    if (counter_is_constant()) sample.ticks = __rdtsc();
    sample.real_ns = read_clock(CLOCK_REALTIME);
    const s64 span = read_clock(CLOCK_MONOTONIC_RAW).value_or(0) - sample.raw_ns.value_or(0);
    if (span >= best_span) continue;
    best_span = span;
    best = sample;
  }
  return best;
}

ClockReport compare_clocks(const ClockSample& start, const ClockSample& end, double start_hz, double end_hz) {
  const std::array<std::optional<double>, 3> seconds = {elapsed(start.raw_ns, end.raw_ns, 1e9),
                                                        elapsed(start.real_ns, end.real_ns, 1e9),
                                                        elapsed(start.ticks, end.ticks, start_hz)};
  ClockReport report;
  report.timer = compare_times(seconds);
  report.frequency = compare_frequencies(elapsed(start.ticks, end.ticks, 1), seconds[0], start_hz, end_hz);
  report.reference = seconds[2] ? format("rdtsc at %.3f GHz", start_hz / 1e9) : "CLOCK_MONOTONIC_RAW";
  static constexpr const char* kNames[] = {"CLOCK_MONOTONIC_RAW", "CLOCK_REALTIME", "rdtsc"};
  for (std::size_t i = 0; i < seconds.size(); i++)
    report.clocks[i] = seconds[i] ? format("%.6f seconds  ( %s )", *seconds[i], kNames[i])
                                  : format("Not Available  ( %s )", kNames[i]);
  return report;
}

double ReferenceClocks::measured_frequency() { return measure_tsc_frequency(kCalibrationSeconds); }

ReferenceClocks::ReferenceClocks(double (*measure_hz)())
    : measure_hz_(measure_hz), hz_(measure_hz()), start_(read_clocks()) {}

ClockReport ReferenceClocks::finish() const {
  const ClockSample end = read_clocks();
  return compare_clocks(start_, end, hz_, measure_hz_());
}

double measure_tsc_frequency(double seconds) {
  const ClockSample start = read_clocks();
  const timespec wait{static_cast<time_t>(seconds), static_cast<long>(std::fmod(seconds, 1) * 1e9)};
  clock_nanosleep(CLOCK_MONOTONIC, 0, &wait, nullptr);
  const ClockSample end = read_clocks();
  const auto ticks = elapsed(start.ticks, end.ticks, 1);
  const auto passed = elapsed(start.raw_ns, end.raw_ns, 1e9);
  return ticks && passed && *passed > 0 ? *ticks / *passed : 0;
}

}  // namespace orl
