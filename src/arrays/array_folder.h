// A folder of a disk array while the array is at work: it belongs to one process, and what earlier ones left is gone.
#pragma once

#include <string>

#include "core/uncopied.h"
#include "files/file_lock.h"

namespace orl::R03 {

/// Holds the lock "orv_array.lock" of the folder. Where the file system knows no locks it holds none, and removes nothing.
class ArrayFolder : Uncopied {
 public:
  /// Removes what a run that was killed left there, which are the files "orv_*.sf" but those of checkpoints, and tells how
  /// much that was. Throws InvalidParametersException where another array uses the folder.
  explicit ArrayFolder(const std::string& folder);
  ~ArrayFolder();

 private:
  FileLock lock_;
};

}  // namespace orl::R03
