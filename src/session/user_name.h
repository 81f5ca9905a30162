// Whom a validation file names as its user.
#pragma once

#include <string>

namespace orvane {

/// What stands behind the tag "Username:" in the file Username.txt of `folder`, which ends with a separator.
/// "None" when there is no such file or nothing behind the tag. Throws ParseException "Tag not found in
/// Username.txt" with a word on what the file needs.
std::string user_name(const std::string& folder);

}  // namespace orvane
