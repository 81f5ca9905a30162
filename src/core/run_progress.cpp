#include "core/run_progress.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <mutex>

#include "core/run_timer.h"

namespace orl {
namespace {

constexpr u64 kMaxParts = 64;  // of a stage; those behind it count to the last one

double processor_seconds() {
  timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

// Of what takes `expected` after `passed`: straight up to nine tenths, then ever slower.
double fraction_by_time(double passed, double expected) {
  constexpr double kStraight = 0.9;
  const double x = expected > 0 ? passed / expected : 1;
  return x <= kStraight ? x : 1 - (1 - kStraight) * std::exp((kStraight - x) / (1 - kStraight) / 4);
}

std::vector<double> sums_of(const std::vector<PlannedWork>& plan) {
  std::vector<double> before = {0};
  for (const PlannedWork& work : plan) before.push_back(before.back() + work.seconds);
  return before;
}

void format_duration(char (&text)[24], double seconds) {
  const u64 whole = static_cast<u64>(std::max(seconds, 0.0) + 0.5);
  std::snprintf(text, sizeof text, "%llu:%02u:%02u", static_cast<unsigned long long>(whole / 3600),
                static_cast<unsigned>(whole / 60 % 60), static_cast<unsigned>(whole % 60));
}

}  // namespace

RunProgress::RunProgress(std::vector<PlannedWork> plan)
    : plan_(std::move(plan)),
      before_(sums_of(plan_)),
      start_(monotonic_seconds()),
      entered_(start_),
      changed_(start_),
      recorded_wall_(start_),
      recorded_cpu_(processor_seconds()) {
  spent_.reserve(kMaxParts);
}

void RunProgress::go_to(u64 entry, double now) {
  if (entry_ == 0) prepared_ = now;
  entry_ = entry;
  entered_ = changed_ = now;
  base_ = fraction_ = goal_ = 0;
  tells_ = false;
}

void RunProgress::open_part(std::string_view text) {
  const std::lock_guard guard(lock_);
  open_ = true;
  part_[text.copy(part_, sizeof part_ - 1)] = '\0';
  for (u64 i = entry_; i < plan_.size() && plan_[i].stage == plan_[entry_].stage; i++) {
    if (plan_[i].part != text) continue;
    // A part's own entry may have begun with what went before it.
    if (i != entry_) go_to(i, monotonic_seconds());
    return;
  }
}

void RunProgress::set_fraction(double fraction, double goal) {
  constexpr double kLongestStart = 0.5;
  const std::lock_guard guard(lock_);
  if (!open_) return;
  const double now = monotonic_seconds();
  // A part may have done something else before, such as the powers of a conversion.
  if (!tells_) base_ = std::min(fraction_at(now), kLongestStart);
  const auto of_entry = [&](double stated) { return base_ + (1 - base_) * std::min(stated, 1.0); };
  if (tells_ && of_entry(fraction) < fraction_) return;
  goal_ = of_entry(goal);
  if (tells_ && of_entry(fraction) == fraction_) return;
  tells_ = true;
  fraction_ = of_entry(fraction);
  changed_ = now;
}

void RunProgress::record(std::string_view part, double now) {
  const double processor = processor_seconds();
  if (spent_.size() < kMaxParts) {
    spent_.push_back({});
    SpentWork& work = spent_.back();
    work.part[part.copy(work.part, sizeof work.part - 1)] = '\0';
  }
  spent_.back().wall_seconds += now - recorded_wall_;
  spent_.back().processor_seconds += processor - recorded_cpu_;
  recorded_wall_ = now;
  recorded_cpu_ = processor;
}

void RunProgress::close_part() {
  const std::lock_guard guard(lock_);
  if (!open_) return;
  open_ = false;
  const double now = monotonic_seconds();
  record(part_, now);
  if (entry_ < plan_.size() && plan_[entry_].part == part_) go_to(entry_ + 1, now);
}

std::vector<SpentWork> RunProgress::finish_stage(std::string_view stage) {
  std::vector<SpentWork> fresh;
  fresh.reserve(kMaxParts);
  const std::lock_guard guard(lock_);
  const double now = monotonic_seconds();
  record("", now);
  spent_.swap(fresh);
  for (u64 i = plan_.size(); i-- > entry_;) {
    if (plan_[i].stage != stage) continue;
    go_to(i + 1, now);
    break;
  }
  return fresh;
}

// Work done per second so far. While little is known, that of the plan's machine, with half of what the first entry says,
// in its logarithm.
double RunProgress::speed_at(double now, double fraction) const {
  constexpr double kEnough = 0.02;  // of the plan, before this machine's own speed is believed
  if (entry_ == 0) return 1;
  const double first = before_[1];
  const double work =
      before_[entry_] + (entry_ < plan_.size() ? plan_[entry_].seconds * fraction : 0) - first;
  if (work > kEnough * before_.back() && now > prepared_) return work / (now - prepared_);
  return first > 0 && prepared_ > start_ ? std::sqrt(first / (prepared_ - start_)) : 1;
}

double RunProgress::fraction_at(double now) const {
  // Until it first says more than nothing, a part that will is not believed to be far.
  constexpr double kUnknownStep = 0.25;
  if (entry_ >= plan_.size()) return 0;
  double step = goal_ - fraction_;
  if (step <= 0) step = tells_ && fraction_ == base_ ? kUnknownStep * (1 - base_) : 1 - fraction_;
  const double expected = step * plan_[entry_].seconds / speed_at(changed_, fraction_);
  return fraction_ + step * fraction_by_time(now - changed_, expected);
}

RunProgress::Reading RunProgress::read() {
  const std::lock_guard guard(lock_);
  const double now = monotonic_seconds();
  Reading reading;
  reading.elapsed = now - start_;
  if (before_.back() <= 0) return reading;
  const double fraction = fraction_at(now);
  const double work = before_[entry_] + (entry_ < plan_.size() ? plan_[entry_].seconds * fraction : 0);
  const double left = (before_.back() - work) / speed_at(now, fraction);
  best_ = std::max(best_, std::min(work / before_.back(), 1.0));
  reading.done = best_;
  reading.left = left;
  return reading;
}

std::string_view progress_text(const RunProgress::Reading& reading, char (&text)[64]) {
  char elapsed[24], left[24];
  format_duration(elapsed, reading.elapsed);
  format_duration(left, reading.left);
  const int length = reading.left < 0 ? std::snprintf(text, sizeof text, "%s", elapsed)
                                      : std::snprintf(text, sizeof text, "%.1f%%  %s  left %s",
                                                      100 * reading.done, elapsed, left);
  return {text, std::min<u64>(static_cast<u64>(length), sizeof text - 1)};
}

}  // namespace orl
