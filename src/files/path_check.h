// Whether files can be made in a folder, found out by making one.
#pragma once

#include <string>

namespace orl {

/// Creates and removes "pathcheck.sf" in `folder`; the empty text is the current folder. False after a
/// failure of any kind.
bool path_is_writable(const std::string& folder);

/// The folder's text ready for a file name: "/" is added unless it is empty or ends in "/" or "\".
std::string with_separator(const std::string& folder);

}  // namespace orl
