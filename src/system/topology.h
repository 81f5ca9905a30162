// Logical cores and NUMA nodes of the machine, as the kernel lists them.
#pragma once

#include <string>
#include <vector>

#include "core/types.h"

namespace orl {

/// A node and its logical cores.
struct NumaNode {
  u32 id = 0;
  std::vector<u32> cores;  ///< logical core ids, rising
  u64 memory_bytes = 0;    ///< 0: a node without memory of its own
};

/// Which logical cores there are, and on which nodes.
struct Topology {
  std::vector<u32> cores;         ///< ids of the online logical cores, rising
  std::vector<NumaNode> nodes;    ///< rising ids; at least one, which then holds every core
  std::vector<u32> thread_ranks;  ///< beside `cores`: 0 for the first thread of a physical core, then 1
  u32 physical_cores = 1;
  u32 sockets = 1;

  /// Node of a logical core; 0 for a core that is not there.
  u32 node_of(u32 core) const;
};

/// Reads the tree below `root`, which ends with a separator: "/" on a running system, a made-up one in tests.
Topology read_topology(const std::string& root);

/// This machine's, read once. The first call prints "Parsing Core -> Handle Mappings..." and "Parsing NUMA ->
/// Core Mappings...".
const Topology& topology();

/// Binds the calling thread to those of the cores that exist; false when the system refuses: none of them
/// does.
bool bind_thread(const std::vector<u32>& cores);

/// The cores on which the calling thread may run, rising.
std::vector<u32> bound_cores();

}  // namespace orl
