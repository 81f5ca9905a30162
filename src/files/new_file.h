// A text file that is either there, whole and on the disk, or not there at all.
#pragma once

#include <string>
#include <string_view>

namespace orl {

/// Writes `text` as `stem` + `extension`. A name that is taken is left alone: the file is then called
/// `stem` + " - 2" + `extension`, and so on. Returns the name. Throws FileException, and leaves nothing
/// behind.
std::string write_new_file(const std::string& stem, const std::string& extension, std::string_view text);

}  // namespace orl
