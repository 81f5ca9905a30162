// What the kernel grants to this process of the machine: memory and processors.
//
// Memory      the machine's, or the smallest limit of the control groups from the process's own up to the highest one
//             that can be seen, of version 1 or 2. The page cache of a group counts as free, since the kernel drops it
//             before it refuses anything, as that of the machine does in MemAvailable.
// Processors  the cores that the process may run on (affinity, which a cpuset narrows too), and not more of them than
//             the processor time that its control groups are given.
#pragma once

#include <string>

#include "core/types.h"

namespace orl {

/// The limits of a process at one moment. Where no control group says anything, they are those of the machine.
struct Limits {
  u64 memory_bytes = 0;         ///< the most that it may have
  u64 available_bytes = 0;      ///< what can be had now without swapping
  u64 processors = 1;           ///< at least 1
  bool memory_is_less = false;  ///< a control group allows less than the machine has
};

/// Reads the tree below `root`, which ends with a separator: "/" on a running system, a made-up one in tests.
Limits read_limits(const std::string& root);

/// This process's, read anew: memory comes and goes.
Limits limits();
/// Bytes of limits(): the most that this process may have, and what it can have now.
inline u64 total_memory_bytes() { return limits().memory_bytes; }
inline u64 available_memory_bytes() { return limits().available_bytes; }
/// "This machine has 16.0 GiB", or "This process may use 2.00 GiB" where a control group allows less.
std::string memory_sentence(const Limits& limits);

/// The processors of this process as they were when it was first asked for: threads that are bound later change
/// nothing.
u64 processor_count();

}  // namespace orl
