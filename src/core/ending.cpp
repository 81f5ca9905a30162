#include "core/ending.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "core/console.h"
#include "core/settings.h"

namespace orl {

namespace {

/// Returns for the one thread that ends the process; every other stays here until the process is gone.
void take_the_end() {
  static std::atomic<bool> taken{false};
  thread_local bool mine = false;
  if (mine) return;
  if (taken.exchange(true)) {
    for (;;) ::pause();
  }
  mine = true;
}

[[noreturn]] void end_process(int status, bool ask) {
  take_the_end();
  console::reset_colours();
  if (ask) console::pause();
  std::cout.flush();
  std::wcout.flush();
  std::fflush(stdout);
  std::_Exit(status);
}

/// Only what a signal handler may do. The disposition is the default one again when it is called.
void end_by_signal(int signal) {
  constexpr std::string_view kReset = "\033[39;49m\n";
  if (settings().colors_enabled && ::write(STDOUT_FILENO, kReset.data(), kReset.size()) < 0) {
    // The terminal is gone.
  }
  raise(signal);
}

}  // namespace

void restore_colours_at_signals() {
  if (!isatty(STDOUT_FILENO)) return;
  for (const int signal : {SIGINT, SIGQUIT, SIGTERM}) {
    struct sigaction action {};
    if (sigaction(signal, nullptr, &action) != 0 || action.sa_handler == SIG_IGN) continue;
    action.sa_handler = end_by_signal;
    action.sa_flags = static_cast<int>(SA_RESETHAND) | SA_RESTART;
    sigaction(signal, &action, nullptr);
  }
}

void leave(int status) {
  take_the_end();
  console::reset_colours();
  console::print("\n", ' ');
  if (settings().pause_level >= (status == 0 ? 1 : -1)) console::pause();
  std::exit(status);
}

void fatal_exit(int status) { end_process(status, settings().pause_on_fatal); }

void quiet_exit(int status) { end_process(status, false); }

void fatal_error(std::string_view text) {
  console::println(text, 'R');
  fatal_exit(1);
}

void internal_error(std::string_view function, std::string_view message) {
  console::newline();
  console::println("Internal Error", 'R');
  console::label_value("In Function: ", function, 'Y');
  console::newline();
  console::println(message, ' ');
  fatal_exit(1);
}

}  // namespace orl
