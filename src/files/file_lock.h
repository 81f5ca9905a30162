// A lock that goes with its process, whatever ends it.
#pragma once

#include <string>

#include "core/uncopied.h"

namespace orl {

/// Holds an advisory lock on a file of its own, which is made for it and removed with it.
class FileLock : Uncopied {
 public:
  /// What came of the attempt.
  enum class State {
    kHeld,
    kTaken,        ///< by another process, or by another lock of this one
    kUnavailable,  ///< the file system knows no locks, or the file could not be made
  };

  /// Does not wait.
  explicit FileLock(std::string path);
  ~FileLock();

  State state() const { return state_; }
  const std::string& path() const { return path_; }

 private:
  // False when the file at the path is no longer the one that was opened.
  bool take();

  std::string path_;
  int fd_ = -1;
  State state_ = State::kUnavailable;
};

}  // namespace orl
