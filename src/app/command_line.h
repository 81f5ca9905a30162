// The command line as every option handler sees it.
#pragma once

#include <exception>
#include <string>
#include <utility>
#include <vector>

#include "core/types.h"

namespace orl::CommandLine {

/// A fault of the line itself, such as a missing token. Not one of the library's own exceptions.
class CommandLineException : public std::exception {
 public:
  /// `text` is what the console shows.
  explicit CommandLineException(const char* text) : text_(text) {}
  const char* what() const noexcept override { return text_; }

 private:
  const char* text_;
};

/// argv, cut into keys and values at each token's first colon.
struct Parameters {
  /// Takes the tokens behind the program's name.
  Parameters(int argc, const char* const* argv);

  bool at_end() const { return cursor >= tokens.size(); }
  const std::string& key() const { return pairs[cursor].first; }
  const std::string& value() const { return pairs[cursor].second; }
  /// The current token, whole, stepping past it. Throws CommandLineException "Expected more parameters." at
  /// the end.
  const std::string& take();

  std::vector<std::string> tokens;
  std::vector<std::pair<std::string, std::string>> pairs;
  u64 cursor = 1;  ///< tokens[0] is the program and is never interpreted
};

}  // namespace orl::CommandLine
