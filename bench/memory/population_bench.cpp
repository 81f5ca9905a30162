// How fast the allocators make memory that is there, beside a plain parallel memset of a fresh mapping.
//
//   population_bench [GiB] [rounds] [allocator] [tds]     (default 1 GiB, 5 rounds, mmap, the usual tasks)
//
// "allocate" maps, populates and touches a block as a computation gets it; "memset" writes as many bytes, on
// as many tasks, into a mapping that holds no page yet. They take turns; the ratio is the median over the
// rounds of memset's time over the allocator's. 1.00 is as fast as memset although every page holds the touch
// pattern.
#include <sys/mman.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "core/settings.h"
#include "memory/allocators.h"
#include "support/measure.h"
#include "system/topology.h"
#include "threads/parallelism.h"

namespace {

using namespace orl;

[[noreturn]] void fail(const char* what) {
  std::fprintf(stderr, "population_bench: %s\n", what);
  std::exit(1);
}

double memset_ns(u64 bytes, const ParallelContext& parallel) {
  const double start = bench::now_ns();
  void* const block = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (block == MAP_FAILED) fail("no memory for memset");
  fork_range(parallel.parallelizer, 0, parallel.tds, [&](u64 k) {
    const u64 begin = bytes / parallel.tds * k;
    const u64 end = k + 1 < parallel.tds ? begin + bytes / parallel.tds : bytes;
    std::memset(static_cast<char*>(block) + begin, 1, end - begin);
  });
  const double ns = bench::now_ns() - start;
  munmap(block, bytes);
  return ns;
}

/// The pattern's words 0 to 999 stand at the front of the block, since its first piece begins there.
void check_pattern(const LargeMemory& memory) {
  const u32* const words = static_cast<const u32*>(memory.address());
  for (u32 i = 0; i < 1000; ++i)
    if (words[i] != i * i * 0xC82B9175u - 933796325u) fail("the touch pattern is wrong");
}

double allocate_ns(const MemoryAllocator& allocator, u64 bytes, const ParallelContext& parallel) {
  std::vector<std::string> errors;
  const double start = bench::now_ns();
  const auto memory = allocator.allocate(bytes, parallel, errors);
  const double ns = bench::now_ns() - start;
  if (memory == nullptr) fail(errors.empty() ? "no memory" : errors.back().c_str());
  check_pattern(*memory);
  return ns;
}

}  // namespace

int main(int argc, char** argv) {
  bench::heading("population_bench", "none (no vector code)");
  settings().colors_enabled = false;
  register_frameworks();
  register_allocators();
  const double gib = argc > 1 ? std::strtod(argv[1], nullptr) : 1;
  const u64 rounds = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 5;
  Parallelism parallelism;
  const char* const key = argc > 3 ? argv[3] : "mmap";
  if (argc > 4) parallelism.set_tds(std::strtoull(argv[4], nullptr, 10));
  if (gib <= 0 || rounds == 0) fail("a size in GiB and a number of rounds, please");
  const u64 bytes = static_cast<u64>(gib * (u64{1} << 30));
  const ParallelContext parallel = parallelism.context();
  parallel.parallelizer.reserve();
  topology();

  std::printf("bytes  %llu   framework  %s\n\n", static_cast<unsigned long long>(bytes),
              parallel.parallelizer.to_string(parallel.tds).c_str());
  const auto allocator = create_allocator(key);
  std::vector<double> mine;
  std::vector<double> peers;
  std::vector<double> ratios;
  // The host of a virtual machine backs memory when it is first written; whoever came first would pay for
  // both.
  memset_ns(bytes, parallel);
  for (u64 round = 0; round < rounds; ++round) {
    const bool first = round % 2 == 0;
    if (!first) peers.push_back(memset_ns(bytes, parallel));
    mine.push_back(allocate_ns(*allocator, bytes, parallel));
    if (first) peers.push_back(memset_ns(bytes, parallel));
    ratios.push_back(peers.back() / mine.back());
  }
  std::printf("allocator     allocate, GB/s   memset, GB/s   ratio\n");
  std::printf("%-12s  %14.2f   %12.2f   %5.2f\n", key, static_cast<double>(bytes) / bench::median(mine),
              static_cast<double>(bytes) / bench::median(peers), bench::median(ratios));
  return 0;
}
