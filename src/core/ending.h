// The ways out of the process.
//
// leave()        after the guarded body, from the main thread.
// fatal_exit()   from any thread, at a failure that nothing can handle. The first caller speaks and ends the
//                process; a second one waits for that end. No static destructor runs, so a worker cannot
//                deadlock in a join.
//
// Both give the terminal its colours back and ask for ENTER through the output in force (core/output.h). fatal_exit()
// removes the files that are not finished (core/unfinished_files.h). A status of 0 becomes 1 when the standard output
// did not take all that was printed.
#pragma once

#include <string_view>

namespace orl {

/// Ends the program after an action: resets the colours, prints a newline and asks for ENTER where the pause
/// level says so (status 0: pause_level >= 1; any other: pause_level >= -1).
[[noreturn]] void leave(int status);

/// Resets the colours, flushes, asks for ENTER if settings().pause_on_fatal, and ends the process.
[[noreturn]] void fatal_exit(int status);

/// fatal_exit() without asking for ENTER.
[[noreturn]] void quiet_exit(int status);

/// Prints `text` in the error colour and takes fatal_exit(1). It is not an exception and cannot be caught.
[[noreturn]] void fatal_error(std::string_view text);

/// A broken invariant of the program itself: prints the function and the message and takes fatal_exit(1).
[[noreturn]] void internal_error(std::string_view function, std::string_view message);

}  // namespace orl
