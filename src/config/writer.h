// Writing a configuration tree as text: CR LF line ends, four blanks per level.
#pragma once

#include <string>

#include "config/object.h"

namespace orl {

/// The primary form with comments. `indent` is the level of the line on which the value stands; that line's
/// own indentation is the caller's. Throws InvalidParametersException for what the form cannot hold: a byte
/// of zero, an empty key.
std::string to_string(const Value& value, u32 indent = 0);
/// Strict JSON, without comments.
std::string to_json(const Value& value, u32 indent = 0);

/// Writes `text` as the whole of a file. Throws FileException.
void save_file(const std::string& path, const std::string& text);

}  // namespace orl
