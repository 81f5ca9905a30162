// What a fork costs in each framework, and what is left of the processors when work comes in phases of small
// tasks.
//
//   fork_bench [most_tasks]          (default 64)
//
// First table: one fork of two empty tasks, back to back (workers awake) and after half a millisecond without
// one (workers asleep). Second table: phases that alternate a tree of tds tasks with as much serial work as
// one task has; "of ideal" is the ideal time (serial time of the tree, measured in the same run, over the
// processors, plus the serial work) over the time taken: 1.00 is perfect.
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string_view>
#include <thread>
#include <vector>

#include "support/measure.h"
#include "system/limits.h"
#include "threads/frameworks.h"

namespace {

using namespace orl;

constexpr u64 kUnits = 64;  // equal pieces of work in a phase

/// About `steps` dependent multiplications.
u64 work(u64 steps) {
  u64 x = steps;
  for (u64 i = 0; i < steps; ++i) x = x * 6364136223846793005u + 1442695040888963407u;
  return x;
}

u64 steps_per_us() {
  constexpr u64 kSteps = 4000000;
  std::vector<double> ns;
  for (int i = 0; i < 9; ++i) {
    const double start = bench::now_ns();
    volatile u64 result = work(kSteps);
    static_cast<void>(result);
    ns.push_back(bench::now_ns() - start);
  }
  return static_cast<u64>(kSteps * 1000 / bench::timing_of(ns).low);
}

/// Sum of work(steps) over the units [begin, end), cut into tds tasks. Units differ a little, so that none of
/// them can be taken for another one by the compiler.
u64 tree(const ParallelContext& context, u64 begin, u64 end, u64 steps) {
  if (context.tds < 2 || end - begin < 2) {
    u64 sum = 0;
    for (u64 unit = begin; unit < end; ++unit) sum += work(steps + unit);
    return sum;
  }
  const u64 middle = end - (end - begin) / 2;
  u64 low = 0;
  u64 high = 0;
  fork_pair(
      context.parallelizer, [&] { low = tree(context.left(), begin, middle, steps); },
      [&] { high = tree(context.right(), middle, end, steps); });
  return low + high;
}

double fork_ns(Parallelizer& framework, u64 forks, bool let_sleep) {
  double total = 0;
  for (u64 i = 0; i < forks; ++i) {
    if (let_sleep) std::this_thread::sleep_for(std::chrono::microseconds(500));
    const double start = bench::now_ns();
    fork_pair(
        framework, [] {}, [] {});
    total += bench::now_ns() - start;
  }
  return total / static_cast<double>(forks);
}

bench::Timing fork_timing(Parallelizer& framework, bool let_sleep) {
  fork_ns(framework, 200, false);
  std::vector<double> ns;
  for (int i = 0; i < 15; ++i) ns.push_back(fork_ns(framework, let_sleep ? 30 : 1000, let_sleep));
  return bench::timing_of(ns);
}

void fork_table() {
  std::printf("one fork              awake, us  spread    asleep, us  spread\n");
  for (const FrameworkType& type : frameworks()) {
    const auto framework = type.create();
    framework->reserve();
    const bench::Timing awake = fork_timing(*framework, false);
    const bench::Timing asleep = fork_timing(*framework, true);
    std::printf("%-20s %10.3f   %5.2f    %10.3f   %5.2f\n", type.key, awake.median / 1e3, awake.spread,
                asleep.median / 1e3, asleep.spread);
    framework->reset();
  }
}

double phases_ns(const ParallelContext& context, u64 phases, u64 steps, u64 expected) {
  const double start = bench::now_ns();
  for (u64 i = 0; i < phases; ++i) {
    volatile u64 between = work(steps);
    static_cast<void>(between);
    if (tree(context, 0, kUnits, steps) != expected) {
      std::fprintf(stderr, "a forked sum is wrong\n");
      std::exit(1);
    }
  }
  return bench::now_ns() - start;
}

double of_ideal(const ParallelContext& context, u64 leaf_us, u64 steps) {
  const auto none = create_framework("none");
  const ParallelContext serial{*none, 1};
  const u64 expected = tree(serial, 0, kUnits, steps);
  const u64 phases = std::max<u64>(1, 20000 / (kUnits * leaf_us));
  const double cores = static_cast<double>(std::min(processor_count(), context.tds));
  std::vector<double> ratios;
  for (int i = 0; i < 9; ++i) {
    const double alone = phases_ns(serial, phases, steps, expected);
    const double forked = phases_ns(context, phases, steps, expected);
    ratios.push_back(alone * (kUnits / cores + 1) / (kUnits + 1) / forked);
  }
  return bench::median(ratios);
}

void phase_table(u64 most_tasks) {
  const u64 steps = steps_per_us();
  std::printf("\nof ideal              tds   5 us tasks   50 us tasks   500 us tasks\n");
  for (const FrameworkType& type : frameworks()) {
    if (type.key == std::string_view("none")) continue;
    for (const u64 tds : std::set<u64>{2, std::min<u64>(8, most_tasks), most_tasks}) {
      const auto framework = type.create();
      framework->reserve();
      std::printf("%-20s %4llu", type.key, static_cast<unsigned long long>(tds));
      for (const u64 unit_us : {5, 50, 500}) {
        std::printf("     %8.3f", of_ideal({*framework, tds}, unit_us, unit_us * steps));
      }
      std::printf("\n");
      framework->reset();
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  bench::heading("fork_bench", "none (no vector code)");
  const u64 most_tasks = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 64;
  if (most_tasks < 2 || most_tasks > kUnits) {
    std::fprintf(stderr, "most_tasks lies in 2 to %llu\n", static_cast<unsigned long long>(kUnits));
    return 1;
  }
  register_frameworks();
  std::printf("logical processors  %llu\n\n", static_cast<unsigned long long>(processor_count()));
  fork_table();
  phase_table(most_tasks);
  return 0;
}
