// Limits of processor time, which hold whatever else the machine does.
#pragma once

#include <ctime>

#include "support/sanitized.h"

namespace orl::test {

/// A second of this process, in units of std::clock(); the sanitizers slow code down several times.
inline constexpr std::clock_t kProcessorSecond = (kSanitized ? 10 : 1) * CLOCKS_PER_SEC;

}  // namespace orl::test
