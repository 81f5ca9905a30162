// What a run's times count, beside what the process did before it.
#include "core/run_timer.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <fstream>
#include <vector>

namespace orl {
namespace {

// User and kernel seconds of the process.
std::pair<double, double> spent() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
  };
  return {seconds(usage.ru_utime), seconds(usage.ru_stime)};
}

TEST(RunTimer, CountsFromItsOwnStart) {
  constexpr double kBefore = 0.05;
  std::ifstream zeros("/dev/zero", std::ios::binary);
  std::vector<char> bytes(1 << 20);
  volatile u64 sum = 0;
  while (spent().second < kBefore) zeros.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  while (spent().first < kBefore)
    for (const char byte : bytes) sum = sum + static_cast<u64>(byte);
  RunTimer timer;
  const double first = timer.add_stage("a"), second = timer.add_stage("a");
  timer.stop();
  EXPECT_LT(timer.user_seconds(), kBefore / 2);
  EXPECT_LT(timer.kernel_seconds(), kBefore / 2);
  EXPECT_GE(timer.wall_seconds(), first + second);
  EXPECT_EQ(timer.stage_seconds("a"), first + second);
}

}  // namespace
}  // namespace orl
