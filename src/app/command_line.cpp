#include "app/command_line.h"

namespace orl::CommandLine {

Parameters::Parameters(int argc, const char* const* argv) : tokens(argv, argv + argc) {
  pairs.reserve(tokens.size());
  for (const std::string& token : tokens) {
    const auto colon = token.find(':');
    if (colon == std::string::npos)
      pairs.emplace_back(token, std::string());
    else
      pairs.emplace_back(token.substr(0, colon), token.substr(colon + 1));
  }
}

const std::string& Parameters::take() {
  if (at_end()) throw CommandLineException("Expected more parameters.");
  return tokens[cursor++];
}

}  // namespace orl::CommandLine
