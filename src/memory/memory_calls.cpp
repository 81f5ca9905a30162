#include "memory/memory_calls.h"

#include <numa.h>
#include <numaif.h>
#include <sys/mman.h>

#include <algorithm>

namespace orl {

void* MemoryCalls::mmap(void* address, u64 length, int protection, int flags) {
  return ::mmap(address, length, protection, flags, -1, 0);
}

int MemoryCalls::munmap(void* address, u64 length) { return ::munmap(address, length); }

int MemoryCalls::mlock(const void* address, u64 length) { return ::mlock(address, length); }

int MemoryCalls::mlockall(int flags) { return ::mlockall(flags); }

int MemoryCalls::munlockall() { return ::munlockall(); }

int MemoryCalls::numa_available() { return ::numa_available(); }

int MemoryCalls::numa_max_node() { return ::numa_max_node(); }

s64 MemoryCalls::mbind(void* address, u64 length, int mode, const unsigned long* mask, u64 maxnode,
                       u32 flags) {
  return ::mbind(address, length, mode, mask, maxnode, flags);
}

s64 MemoryCalls::move_pages(u64 count, void** pages, const int* nodes, int* status, int flags) {
  return ::move_pages(0, count, pages, nodes, status, flags);
}

void* MemoryCalls::numa_alloc_interleaved_subset(u64 length, const std::vector<u32>& nodes) {
  bitmask* const mask = numa_bitmask_alloc(*std::max_element(nodes.begin(), nodes.end()) + 1);
  for (const u32 node : nodes) numa_bitmask_setbit(mask, node);
  void* const address = ::numa_alloc_interleaved_subset(length, mask);
  numa_bitmask_free(mask);
  return address;
}

void MemoryCalls::numa_free(void* address, u64 length) { ::numa_free(address, length); }

const std::vector<NumaNode>& MemoryCalls::nodes() { return topology().nodes; }

std::vector<u32> MemoryCalls::bound_cores() { return orl::bound_cores(); }

bool MemoryCalls::bind_thread(const std::vector<u32>& cores) { return orl::bind_thread(cores); }

namespace {

MemoryCalls system_calls;
MemoryCalls* calls_in_force = &system_calls;

}  // namespace

MemoryCalls& memory_calls() { return *calls_in_force; }

void set_memory_calls(MemoryCalls* calls) { calls_in_force = calls != nullptr ? calls : &system_calls; }

}  // namespace orl
