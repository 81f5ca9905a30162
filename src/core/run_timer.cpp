#include "core/run_timer.h"

#include <sys/resource.h>
#include <sys/time.h>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <tuple>

namespace orl {
namespace {

double seconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

// User and kernel seconds of the process so far.
std::pair<double, double> processor_seconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return {seconds(usage.ru_utime), seconds(usage.ru_stime)};
}

// The local time of now by strftime's form.
std::string date_of_now(const char* form) {
  timeval now{};
  gettimeofday(&now, nullptr);
  tm local{};
  localtime_r(&now.tv_sec, &local);
  char text[64];
  const std::size_t length = std::strftime(text, sizeof text, form, &local);
  return std::string(text, length);
}

constexpr const char* kDateForm = "%a %b %e %H:%M:%S %Y";

}  // namespace

// strftime has no colon between the hours and the minutes of a zone.
std::string iso_date_of_now() {
  std::string date = date_of_now("%Y-%m-%dT%H:%M:%S%z");
  return date.insert(date.size() - 2, ":");
}

double monotonic_seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

std::string seconds_text(double seconds) {
  char text[64];
  std::snprintf(text, sizeof text, "%.3f seconds", seconds);
  return text;
}

RunTimer::RunTimer()
    : start_wall_(monotonic_seconds()),
      last_stage_(start_wall_),
      start_date_(date_of_now(kDateForm)),
      iso_start_date_(iso_date_of_now()) {
  std::tie(start_user_, start_kernel_) = processor_seconds();
}

double RunTimer::add_stage(const std::string& name) {
  const double now = monotonic_seconds();
  const double spent = now - last_stage_;
  last_stage_ = now;
  stages_.emplace_back(name, spent);
  return spent;
}

void RunTimer::stop() {
  wall_ = monotonic_seconds() - start_wall_;
  const auto [user, kernel] = processor_seconds();
  user_ = user - start_user_;
  kernel_ = kernel - start_kernel_;
  end_date_ = date_of_now(kDateForm);
  iso_end_date_ = iso_date_of_now();
  end_stamp_ = date_of_now("%Y%m%d-%H%M%S");
}

double RunTimer::stage_seconds(const std::string& name) const {
  double sum = 0;
  for (const auto& [stage, spent] : stages_)
    if (stage == name) sum += spent;
  return sum;
}

std::string RunTimer::utilization(u64 cores) const {
  if (user_ <= 0 || wall_ <= 0) return "Too Fast to Measure";
  const double scale = 100 / wall_ / static_cast<double>(cores);
  char text[128];
  std::snprintf(text, sizeof text, "%.2f %%  +  %.2f %% kernel overhead", user_ * scale, kernel_ * scale);
  return text;
}

}  // namespace orl
