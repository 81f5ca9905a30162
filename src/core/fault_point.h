// A seam for fault tests: proofs are only proofs if a changed bit is caught.
//
// Libraries call it where data could be damaged. The definition in this library is empty; a fault test has one
// of its own in its sources, which comes first and may change what it is shown.
#pragma once

#include "core/types.h"

namespace orl {

/// `site` names the place, as in "merge operand", "conversion power", "digit words" or "stress operands TAG
/// CORE"; `data` holds `bytes` bytes that are about to be used, or, for "digit file", the NUL-terminated path
/// of the file just written.
void fault_point(const char* site, void* data, u64 bytes);

}  // namespace orl
