// The settings menu of a disk array.
#pragma once

#include "arrays/raid_descriptor.h"

namespace orl::R03 {

/// Shows every path with its group, then asks once for a new arrangement or buffer. Throws
/// InvalidParametersException for an arrangement that cannot be; nothing has changed then.
void run_raid_menu(Raid03Descriptor& raid);

}  // namespace orl::R03
