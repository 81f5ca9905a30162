// The one door to the system's calls about pages, NUMA nodes and the cores of a thread, so that tests can
// stand in it: nodes, large pages and refusals that a machine does not have come from a fake.
//
// Each call behaves as its namesake and sets errno.
#pragma once

#include <vector>

#include "core/types.h"
#include "system/topology.h"

namespace orl {

/// The system's calls; a test derives and stands in for another machine.
class MemoryCalls {
 public:
  virtual ~MemoryCalls() = default;
  /// Anonymous memory: no file behind it. MAP_FAILED on failure.
  virtual void* mmap(void* address, u64 length, int protection, int flags);
  virtual int munmap(void* address, u64 length);
  virtual int mlock(const void* address, u64 length);
  virtual int mlockall(int flags);
  virtual int munlockall();

  /// Each behaves as its namesake in libnuma or the system.
  virtual int numa_available();
  virtual int numa_max_node();
  virtual s64 mbind(void* address, u64 length, int mode, const unsigned long* mask, u64 maxnode, u32 flags);
  /// move_pages() for the calling process.
  virtual s64 move_pages(u64 count, void** pages, const int* nodes, int* status, int flags);
  /// numa_alloc_interleaved_subset() with a bit mask of these nodes.
  virtual void* numa_alloc_interleaved_subset(u64 length, const std::vector<u32>& nodes);
  virtual void numa_free(void* address, u64 length);

  /// Rising ids; at least one.
  virtual const std::vector<NumaNode>& nodes();
  /// The cores on which the calling thread may run, and their change.
  virtual std::vector<u32> bound_cores();
  virtual bool bind_thread(const std::vector<u32>& cores);
};

/// The calls in force.
MemoryCalls& memory_calls();
/// Puts other calls in force; null brings the system's back. Not while large memory is in use.
void set_memory_calls(MemoryCalls* calls);

}  // namespace orl
