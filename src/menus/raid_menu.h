// The settings menu of a disk array.
#pragma once

#include "arrays/raid_descriptor.h"

namespace orl::R03 {

/// Shows the settings, with the buffers that `memory_bytes` allow, then asks once for a new arrangement or buffer. Throws
/// InvalidParametersException for an arrangement that cannot be; nothing has changed then.
void run_raid_menu(Raid03Descriptor& raid, u64 memory_bytes);

}  // namespace orl::R03
