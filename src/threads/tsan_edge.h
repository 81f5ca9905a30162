// Tells the thread sanitizer of an order that a library guarantees but was not instrumented to show:
// everything before a depart() happens before everything after an arrive() that follows it. Nothing in other
// builds.
//
// A file that uses it is compiled without the sanitizer (see CMakeLists.txt): the library's own hand-over
// runs through templates in that file, which would be reported otherwise. Tasks are instrumented as
// everywhere.
#pragma once

#ifdef ORVANE_TSAN
#include <sanitizer/tsan_interface.h>
#endif

namespace orl {

/// An edge that the library guarantees and the sanitizer does not see; empty in other builds.
class TsanEdge {
 public:
#ifdef ORVANE_TSAN
  /// What happened before depart() is visible after arrive().
  void depart() { __tsan_release(this); }
  void arrive() { __tsan_acquire(this); }
#else
  void depart() {}
  void arrive() {}
#endif
};

}  // namespace orl
