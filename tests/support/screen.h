// What a person would see of an action in this process or in a child.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>

#include "core/settings.h"

namespace orl::test {

/// What `action` prints with `answers` typed.
template <class Action>
std::string screen_of(const std::string& answers, Action&& action) {
  const bool colours = settings().colors_enabled;
  settings().colors_enabled = false;
  std::istringstream typed(answers);
  std::streambuf* const before = std::cin.rdbuf(typed.rdbuf());
  ::testing::internal::CaptureStdout();
  action();
  std::cin.rdbuf(before);
  settings().colors_enabled = colours;
  return ::testing::internal::GetCapturedStdout();
}

/// Inside a death test: the console writes to standard output, the test reads standard error.
inline void console_to_stderr() {
  settings().colors_enabled = false;
  dup2(STDERR_FILENO, STDOUT_FILENO);
}

/// In a child process: ends it with status 0 if `action`, run without any privilege, prints exactly
/// `expected`.
template <class Action>
[[noreturn]] void expect_printed_unprivileged(const std::string& expected, Action&& action) {
  settings().colors_enabled = false;
  if (geteuid() == 0 && setuid(65534) != 0) std::exit(3);
  ::testing::internal::CaptureStdout();
  action();
  const std::string printed = ::testing::internal::GetCapturedStdout();
  std::cerr << printed;
  std::exit(printed == expected ? 0 : 4);
}

}  // namespace orl::test
