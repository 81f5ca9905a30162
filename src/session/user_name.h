// Whom a validation file names as its user.
#pragma once

#include <string>

namespace orvane {

/// The file's name, wherever it stands.
inline constexpr const char* kUserFile = "Username.txt";

/// What stands behind the tag "Username:" in the file at `path`. "None" when there is no such file or nothing behind the
/// tag. Throws ParseException "Tag not found in Username.txt" with a word on what the file needs.
std::string user_name(const std::string& path);

}  // namespace orvane
