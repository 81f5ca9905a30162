// Runs a function in a child process whose input is a given text and whose output is collected, from a pipe
// or from a pseudo terminal. For what ends the process, reads standard input or depends on what standard
// output is.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <string>

#include "core/settings.h"

namespace orl::test {

struct ChildResult {
  int status;  ///< exit status; -1 when it was killed or did not end within ten seconds
  std::string output;
};

enum class ChildOutput { kPipe, kTerminal };

inline int open_terminal(int& other_end) {
  const int master = posix_openpt(O_RDWR | O_NOCTTY);
  if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) return -1;
  other_end = open(ptsname(master), O_RDWR | O_NOCTTY);
  termios mode{};
  tcgetattr(other_end, &mode);
  cfmakeraw(&mode);  // no CR before LF
  tcsetattr(other_end, TCSANOW, &mode);
  return master;
}

/// `input` has at most 64 KiB. Colours are off in the child unless `body` turns them on; its result is the status unless it ends the
/// process.
inline ChildResult run_child(const std::string& input, const std::function<int()>& body,
                             ChildOutput kind = ChildOutput::kPipe) {
  int in[2], out[2];
  if (pipe(in) != 0) return {-1, "pipe"};
  if (kind == ChildOutput::kTerminal) {
    out[0] = open_terminal(out[1]);
    if (out[0] < 0) return {-1, "no pseudo terminal"};
  } else if (pipe(out) != 0) {
    return {-1, "pipe"};
  }
  // Before there is a child that could be gone: what fits into a pipe waits there.
  if (write(in[1], input.data(), input.size()) != static_cast<ssize_t>(input.size())) return {-1, "write"};
  fflush(stdout);
  const pid_t child = fork();
  if (child == 0) {
    dup2(in[0], 0);
    dup2(out[1], 1);
    for (const int fd : {in[0], in[1], out[0], out[1]}) close(fd);
    settings().colors_enabled = false;
    _exit(body());
  }
  close(in[0]);
  if (kind == ChildOutput::kPipe) close(out[1]);
  ChildResult result{-1, {}};
  close(in[1]);
  int status = 0;
  bool ended = false;
  for (int waits = 0; waits < 1000;) {
    pollfd ready{out[0], POLLIN, 0};
    char block[4096];
    if (poll(&ready, 1, ended ? 0 : 10) > 0 && (ready.revents & POLLIN) != 0) {
      const ssize_t count = read(out[0], block, sizeof block);
      if (count > 0) result.output.append(block, static_cast<std::size_t>(count));
      if (count > 0) continue;
    }
    if (ended) break;
    waits++;
    ended = waitpid(child, &status, WNOHANG) == child;
    if (!ended && (ready.revents & POLLHUP) != 0) usleep(10000);
  }
  if (!ended) {
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
  } else if (WIFEXITED(status)) {
    result.status = WEXITSTATUS(status);
  }
  if (kind == ChildOutput::kTerminal) close(out[1]);
  close(out[0]);
  return result;
}

}  // namespace orl::test
