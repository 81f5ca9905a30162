#include "files/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "core/unfinished_files.h"

namespace orl {

FileLock::FileLock(std::string path) : path_(std::move(path)) {
  while (!take()) close(std::exchange(fd_, -1));
}

bool FileLock::take() {
  constexpr mode_t kPermission = 0644;
  fd_ = open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kPermission);
  if (fd_ < 0) return true;
  int failed;
  while ((failed = flock(fd_, LOCK_EX | LOCK_NB)) != 0 && errno == EINTR) {
  }
  if (failed != 0) {
    state_ = errno == EWOULDBLOCK ? State::kTaken : State::kUnavailable;
    return true;
  }
  // The one who held it may have removed the file between the opening and the lock: this one locks nothing.
  struct stat opened {
  }, named{};
  if (fstat(fd_, &opened) != 0 || stat(path_.c_str(), &named) != 0 || opened.st_ino != named.st_ino ||
      opened.st_dev != named.st_dev)
    return false;
  state_ = State::kHeld;
  list_unfinished(path_);
  return true;
}

FileLock::~FileLock() {
  if (state_ == State::kHeld) {
    unlist_unfinished(path_);
    unlink(path_.c_str());
  }
  if (fd_ >= 0) close(fd_);
}

}  // namespace orl
