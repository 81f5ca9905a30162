// Files that go with a process that ends before they are finished.
//
// A list of names that every early end works off: fatal errors (core/ending.h) and signals (console/console.h). A name
// is listed before its file is made, and taken off the list when the file has its final name or is to stay.
//
// Threads  any thread may change the list. The list is locked with signals blocked, so that a handler on the same
//          thread never waits for it.
#pragma once

#include <string>

#include "core/types.h"
#include "core/uncopied.h"

namespace orl {

/// Lists a file, which need not be there yet.
void list_unfinished(const std::string& path);
/// Takes it off the list; the file stays as it is. A name that is not listed is no failure.
void unlist_unfinished(const std::string& path);

/// Removes the listed files and empties the list.
void remove_unfinished();
/// Removes them for good: a thread that wants to list another one waits for the end of the process. Does only what a
/// signal handler may do. Returns how many files there were.
u64 remove_unfinished_at_end() noexcept;

/// Puts off the end by a signal while it lives: for names that change together.
class EndingHold : Uncopied {
 public:
  EndingHold();
  ~EndingHold();
};

/// For a signal handler: true when the signal comes again at the end of the last EndingHold.
bool put_off(int signal) noexcept;

}  // namespace orl
