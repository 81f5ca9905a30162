#include "core/fault_mutex.h"

namespace orl {

std::mutex& fault_mutex() {
  // Never destroyed: a worker may hold it while the process ends.
  static std::mutex* const mutex = new std::mutex;
  return *mutex;
}

}  // namespace orl
