#include "outofcore/swap_transform.h"

#include <algorithm>

#include "core/exceptions.h"
#include "core/run_timer.h"
#include "core/status.h"
#include "outofcore/swap_product.h"
#include "outofcore/swap_table.h"

namespace orl {
namespace {

constexpr const char* kFunction = "SwapTransform::bench_overlap()";

// Words of an operand, the largest first.
constexpr u64 kSizes[] = {u64{1} << 36, u64{1} << 34, u64{1} << 33, u64{1} << 32, u64{3} << 30, u64{1} << 31,
                          u64{3} << 29, u64{1} << 30, u64{3} << 28, u64{1} << 29, u64{3} << 27, u64{1} << 28,
                          u64{3} << 26, u64{1} << 27, u64{3} << 25, u64{1} << 26, u64{3} << 24, u64{1} << 25,
                          u64{3} << 23, u64{1} << 24, u64{3} << 22, u64{1} << 23, u64{3} << 21, u64{1} << 22,
                          u64{3} << 20, u64{1} << 21, u64{3} << 19, u64{1} << 20, u64{3} << 18, u64{1} << 19,
                          u64{1} << 18, u64{1} << 17, u64{1} << 16, u64{1} << 15, u64{1} << 14};
constexpr double kSeconds = 3;

struct OverlapPlan {
  const FarFamily* family;
  SwapPlan plan;
};

OverlapPlan largest_plan(const SwapBudget& budget, u64 disk_bytes) {
  for (const u64 words : kSizes) {
    const SwapRequest square = in_u32_words<u64>(whole_product(words, 0));
    const u64 numbers = sizeof(u32) * (square.a_words + square.len);
    if (numbers >= disk_bytes) continue;
    const FarFamily& family = swap_table<u64>().get_family(2 * words);
    const auto plan = plan_swap_product(SwapScheme::kPrimeGroups, &family, square, budget);
    if (plan && numbers + plan->disk_bytes <= disk_bytes) return {&family, *plan};
  }
  throw InvalidParametersException(kFunction, "Unable to find a test that fits within the memory limit.");
}

// A number of random words, made a block at a time in `memory`, of which the sink has the begin.
void fill(SwapNumber& number, const SwapPlan& plan, LinearHeapBuffer memory, ParallelContext parallel) {
  NumberSink sink(number, 0, plan.sink_bytes, memory);
  memory.cut_buffer(NumberSink::bytes(plan.sink_bytes));
  const u64 block = std::min(plan.sink_bytes, memory.size) / sizeof(u32) / 16 * 16;
  u32* const words = memory.cut<u32>(block);
  u64 x = 0;
  for (u64 at = 0, count; at < number.words(); at += count) {
    count = std::min(block, number.words() - at);
    for (u64 i = 0; i < count; i++) {
      x = x * 6364136223846793005 + 1442695040888963407;
      words[i] = static_cast<u32>(x >> 32);
    }
    sink.take({words, count}, parallel);
  }
  sink.finish();
}

}  // namespace

OverlapSpeeds SwapTransform::bench_overlap(SwapDescriptor& disk, const OverlapLimits& limits,
                                           LinearHeapBuffer memory, ParallelContext parallel) {
  const SwapBudget budget{memory.size, limits.bytes_per_seek, disk.geometry().row_bytes, parallel.tds};
  const auto [family, plan] = largest_plan(budget, limits.disk_bytes);
  SwapNumber operand(disk, plan.request.a_words);
  SwapNumber square(disk, plan.wanted_words());
  fill(operand, plan, memory, parallel);

  const R03::ArrayCounters& counters = disk.counters();
  const auto moved = [&] { return counters.bytes_read + counters.bytes_written; };
  const u64 moved_before = moved();
  const double waited = far_waited_seconds(), busy = disk.busy_seconds(), start = monotonic_seconds();
  do {
    swap_multiply(plan, family, {parallel, disk, memory, silent_status()}, {operand}, square);
  } while (monotonic_seconds() - start < kSeconds);
  const double bytes = static_cast<double>(moved() - moved_before);
  const double computing = monotonic_seconds() - start - (far_waited_seconds() - waited);
  return {plan.request.a_words / 2, bytes / computing, bytes / (disk.busy_seconds() - busy)};
}

}  // namespace orl
