// A flipped bit in any power of a conversion must end it.
#include <gtest/gtest.h>

#include <cstring>

#include "core/exceptions.h"
#include "core/fault_point.h"
#include "functions/function_runner.h"
#include "functions/radix_conversion.h"
#include "support/random_words.h"

namespace orl {
namespace {

struct Fault {
  u64 countdown = 0;  // calls of "conversion power" left before the flip; 0 off
  u64 where = 0;
  u64 calls = 0;
};
Fault fault;

}  // namespace

void fault_point(const char* site, void* data, u64 bytes) {
  if (std::strcmp(site, "conversion power") != 0) return;
  ++fault.calls;
  if (fault.countdown == 0 || --fault.countdown != 0) return;
  const u64 bit = fault.where % (8 * bytes);
  static_cast<u8*>(data)[bit / 8] ^= static_cast<u8>(1u << (bit % 8));
}

namespace test {
namespace {

TEST(ConversionFault, FlippedBitInAPowerIsCaught) {
  Random random;
  SCOPED_TRACE(random.replay());
  const u64 n = 3000;
  const auto plan = ConvertPlanP<u64>::make(kDecimalRadix<u64>, n, 1);
  Runner<u64> runner(plan.need().table_bits);
  AlignedBytes memory(plan.need().ram_bytes);
  std::vector<u64> digits(n);
  const OwnedFloat<u64> x(random.number<u64>(n), -static_cast<s64>(n));
  fault = {};
  plan.run(runner.context(1), frame, digits.data(), x.x, memory.buffer());
  const u64 powers = fault.calls;
  ASSERT_EQ(powers, plan.levels());
  for (u64 i = 1; i <= powers; ++i) {
    for (int repeat = 0; repeat < 5; ++repeat) {
      fault = {i, random.next(), 0};
      try {
        plan.run(runner.context(1), frame, digits.data(), x.x, memory.buffer());
        ADD_FAILURE() << "power " << i;
      } catch (const AlgorithmFailedException& failure) {
        EXPECT_EQ(failure.function(), "CBRv2::CheckP()");
        EXPECT_EQ(failure.message(), "Power Hash Mismatch");
      }
    }
  }
}

}  // namespace
}  // namespace test
}  // namespace orl
