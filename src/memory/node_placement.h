// Pages and threads on NUMA nodes.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "memory/large_memory.h"

namespace orl {

/// Whether there are nodes to choose from: more than one.
bool has_numa_nodes();

/// Asks for the pages of the block, present and future, on `node`: MPOL_BIND, and where that is refused
/// MPOL_PREFERRED. Returns 0, or the error number when both are refused. Asks nothing on a machine with a
/// single node or of a node above the highest one.
int bind_pages(void* address, u64 length, u32 node);

/// The node on which a page lies; negative where the system has no answer or the page is not there yet.
int node_of_page(const void* page);

/// Keeps the calling thread on a node's cores until the end of the scope.
class NodeThread {
 public:
  /// Binds; bound() tells whether the system let it.
  explicit NodeThread(u32 node);
  ~NodeThread();
  NodeThread(const NodeThread&) = delete;
  NodeThread& operator=(const NodeThread&) = delete;

  bool bound() const { return bound_; }

 private:
  std::vector<u32> cores_before_;
  bool bound_ = false;
};

/// "Thread 3 failed to bind to node 1", "Unable to place all pages onto node 1".
std::string failed_thread(u64 thread, u32 node);
std::string failed_placement(u32 node);
/// Whether there are nodes and the system told of no sampled page where it lies; what to say of it then.
bool placement_is_unknown(const AllocationReport& sampled);
inline constexpr const char* kUnknownPlacement =
    "The system does not tell on which nodes the pages lie. (move_pages() was refused)";
/// "mbind() failed for node 1. (what the error number means)".
std::string failed_mbind(u32 node, int error);

/// A block for the calling thread's own work, with every page touched by it. `bind` disabled: where the
/// system puts it. Otherwise on `node`: the thread moves to the node's cores for the time of the call, and
/// the pages are bound to it. What failed is added to `errors`; `thread` is the number they give to the
/// thread. Null when the machine refuses the memory, and with `bind` forced when a sampled page lies on
/// another node or none can be sampled. Several threads may call it at once.
std::unique_ptr<LargeMemory> allocate_local(u64 bytes, u32 node, Mode bind, u64 thread,
                                            std::vector<std::string>& errors);

}  // namespace orl
