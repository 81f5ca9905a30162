#include "files/path_check.h"

#include "files/raw_file.h"

namespace orl {

std::string with_separator(const std::string& folder) {
  if (folder.empty() || folder.back() == '/' || folder.back() == '\\') return folder;
  return folder + "/";
}

bool path_is_writable(const std::string& folder) {
  const std::string path = with_separator(folder) + "pathcheck.sf";
  try {
    RawFile(path, RawFile::Mode::kCreate).close();
    return remove_file(path);
  } catch (...) {
    return false;
  }
}

}  // namespace orl
