// Tells the thread sanitizer of an order that a library guarantees but was not instrumented to show:
// everything before a depart() happens before everything after an arrive() that follows it. Nothing in other
// builds.
#pragma once

#if defined(__SANITIZE_THREAD__)
#include <sanitizer/tsan_interface.h>
#endif

namespace orl {

class TsanEdge {
 public:
#if defined(__SANITIZE_THREAD__)
  void depart() { __tsan_release(this); }
  void arrive() { __tsan_acquire(this); }
#else
  void depart() {}
  void arrive() {}
#endif
};

}  // namespace orl
