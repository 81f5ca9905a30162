// What an array looks like to its user: sizes, groups, and the state of each drive.
#pragma once

#include "arrays/raid_descriptor.h"

namespace orl::R03 {

/// Prints the settings. `memory_bytes` bounds the buffers as in SwapDescriptor; `object_bytes` is a size of which the share
/// of each path is told, 0 for none.
void print_raid_report(const Raid03Descriptor& descriptor, u64 memory_bytes, u64 object_bytes);

}  // namespace orl::R03
