// One dialogue at a time, about faults that several threads may meet at once.
#pragma once

#include <mutex>

namespace orl {

/// Held by whoever tells or asks the user about a fault while other threads run. Never destroyed.
std::mutex& fault_mutex();

}  // namespace orl
