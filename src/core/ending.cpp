#include "core/ending.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>

#include "core/output.h"
#include "core/settings.h"
#include "core/unfinished_files.h"

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

/// Whatever signal comes now, the files go here.
void remove_files() {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, nullptr);
  remove_unfinished_at_end();
}

/// The status of a process whose words have all been written: those that nobody could read are a failure, which goes to
/// the standard error. A program that was started with its output closed has none to write.
int told(int status) {
  std::cout.flush();
  std::wcout.flush();
  errno = 0;
  const bool lost = std::fflush(stdout) != 0 || !std::cout || !std::wcout;
  if (!lost || (::write(STDOUT_FILENO, "", 0) != 0 && errno == EBADF)) return status;
  // The stream has forgotten why; a byte more asks again.
  const std::string reason = ::write(STDOUT_FILENO, "\n", 1) < 0 ? std::strerror(errno) : "Unknown reason";
  std::cerr << "Unable to write to the standard output: " << reason << std::endl;
  return status == 0 ? 1 : status;
}

[[noreturn]] void end_process(int status, bool ask) {
  take_the_end();
  output().reset_colours();
  if (ask) output().wait_for_user();
  remove_files();
  std::_Exit(told(status));
}

}  // namespace

void leave(int status) {
  take_the_end();
  output().reset_colours();
  notice("\n", ' ');
  if (settings().pause_level >= (status == 0 ? 1 : -1)) output().wait_for_user();
  std::exit(told(status));
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
