// The memory modules that the firmware lists: structures of type 17 of the SMBIOS table.
// Source  DMTF DSP0134, System Management BIOS, 6.1 and 7.18.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "core/types.h"

namespace orl {

/// One module, as the firmware describes it.
struct MemoryModule {
  u64 bytes = 0;
  u32 megatransfers = 0;  ///< per second, as it runs; 0: not told
  std::string type;       ///< such as "DDR5"; empty for what has no usual name
  std::string locator;    ///< such as "DIMM_A1"
  std::string manufacturer;
  std::string part;
};

/// The modules that are plugged in, in the table's order. A damaged table gives those that stand before the
/// damage. Texts hold printable ASCII only.
std::vector<MemoryModule> parse_memory_modules(std::string_view table);

}  // namespace orl
