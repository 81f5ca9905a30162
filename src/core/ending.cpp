#include "core/ending.h"

#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "core/output.h"
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
  output().reset_colours();
  if (ask) output().wait_for_user();
  std::cout.flush();
  std::wcout.flush();
  std::fflush(stdout);
  std::_Exit(status);
}

}  // namespace

void leave(int status) {
  take_the_end();
  output().reset_colours();
  notice("\n", ' ');
  if (settings().pause_level >= (status == 0 ? 1 : -1)) output().wait_for_user();
  std::exit(status);
}

void fatal_exit(int status) { end_process(status, settings().pause_on_fatal); }

void quiet_exit(int status) { end_process(status, false); }

void fatal_error(std::string_view text) {
  notice_line(text, 'R');
  fatal_exit(1);
}

void internal_error(std::string_view function, std::string_view message) {
  notice("\n", ' ');
  notice_line("Internal Error", 'R');
  notice_value("In Function: ", function, 'Y');
  notice("\n", ' ');
  notice_line(message, ' ');
  fatal_exit(1);
}

}  // namespace orl
