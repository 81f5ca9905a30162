// Starting threads so that a refusal of the system is explained.
#pragma once

#include <system_error>

namespace orl {

/// Throws the SystemException for a thread that the system refused with `code`, an errno.
[[noreturn]] void throw_thread_refused(int code);

/// The result of `start`, which starts a thread.
template <class Start>
auto start_thread(Start&& start) {
  try {
    return start();
  } catch (const std::system_error& e) {
    throw_thread_refused(e.code().value());
  }
}

}  // namespace orl
