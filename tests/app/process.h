// Runs a program of the build and keeps what it prints.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "support/files.h"

namespace orvane::test {

struct Outcome {
  int status = -1;  ///< exit status; 128 + number after a signal
  std::string output;
  unsigned long peak_bytes = 0;  ///< largest resident size
  double user_seconds = 0, kernel_seconds = 0;
};

struct RunOptions {
  std::string input{};   ///< standard input; its end follows
  std::string folder{};  ///< working folder; empty: the caller's
  std::vector<std::pair<std::string, std::string>> environment{};
};

/// Runs program with the arguments; output and errors together.
Outcome run(const std::string& program, const std::vector<std::string>& arguments,
            const RunOptions& options = {});

/// The product with the options that every script passes: no waiting, no priority, no colours, no warnings.
/// Without a working folder of its own it runs in one that goes with this process.
Outcome run_orvane(std::vector<std::string> arguments, const RunOptions& options = {});

/// The product that flips a bit at `fault`, "SITE:VISIT:BIT", with these options and in the folder.
Outcome run_faulty(const std::string& fault, const std::string& folder, std::vector<std::string> arguments);

inline bool holds(const std::string& text, const std::string& part) { return text.find(part) != text.npos; }

using orl::test::read_file;
using orl::test::TemporaryFolder;

}  // namespace orvane::test
