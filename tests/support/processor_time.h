// Limits of processor time, which hold whatever else the machine does.
#pragma once

#include <ctime>

namespace orl::test {

/// A second of this process, in units of std::clock(); the sanitizers slow code down several times.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr std::clock_t kProcessorSecond = 10 * CLOCKS_PER_SEC;
#else
inline constexpr std::clock_t kProcessorSecond = CLOCKS_PER_SEC;
#endif

}  // namespace orl::test
