#include "session/user_name.h"

#include <fstream>

#include "core/exceptions.h"

namespace orvane {
namespace {

constexpr const char* kTag = "Username:";
constexpr const char* kNone = "None";
constexpr std::size_t kMaxLength = 200;  // keeps the line of the report a line

// Without blanks and control characters at both ends; those in between become blanks.
std::string cleaned(std::string text) {
  for (char& c : text)
    if (static_cast<unsigned char>(c) < ' ' || c == 127) c = ' ';
  text.resize(std::min(text.size(), kMaxLength));
  const auto first = text.find_first_not_of(' ');
  if (first == std::string::npos) return {};
  return text.substr(first, text.find_last_not_of(' ') + 1 - first);
}

}  // namespace

std::string user_name(const std::string& path) {
  std::ifstream file(path);
  if (!file) return kNone;
  for (std::string line; std::getline(file, line);) {
    const auto tag = line.find(kTag);
    if (tag == std::string::npos) continue;
    const std::string name = cleaned(line.substr(tag + std::string_view(kTag).size()));
    return name.empty() ? kNone : name;
  }
  throw orl::ParseException("user_name()", std::string("Tag not found in ") + kUserFile +
                                               "\n\nGive the file \"" + path +
                                               "\" a line such as \"Username: Ada\", or remove it.");
}

}  // namespace orvane
