// The allocators that are reached through the registry alone.
#pragma once

#include "memory/allocators.h"

namespace orl {

/// "malloc", the C library's. Its pages are not touched: they appear when the computation first writes them.
AllocatorType malloc_allocator();
/// "interleave-libnuma": blocks that the library spreads over nodes, at first over all usable ones. Its allocate() throws
/// InvalidParametersException "NUMA is not available on this system." from "LargeMemory_NodeInterleavingLibNuma()"
/// where it is not.
AllocatorType libnuma_allocator();

}  // namespace orl
