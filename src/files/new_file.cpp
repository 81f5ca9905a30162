#include "files/new_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "core/exceptions.h"
#include "core/uncopied.h"
#include "core/unfinished_files.h"
#include "files/file_calls.h"
#include "files/path_check.h"

namespace orl {
namespace {

constexpr const char* kFunction = "write_new_file()";

// Under its unfinished name until publish() gives it the final one.
class UnfinishedFile : Uncopied {
 public:
  // The process's number keeps two programs that write the same file apart.
  UnfinishedFile(const std::string& stem, const std::string& extension)
      : path_(stem + " (incomplete " + std::to_string(getpid()) + ")" + extension) {
    list_unfinished(path_);
    fd_ = file_calls().open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd_ >= 0) return;
    const int code = errno;
    unlist_unfinished(path_);
    errno = code;
    fail("Unable to create file.");
  }
  ~UnfinishedFile() {
    if (fd_ >= 0) file_calls().close(fd_);
    if (!published_) file_calls().unlink(path_.c_str());
    unlist_unfinished(path_);
  }

  void write(std::string_view text) {
    while (!text.empty()) {
      const s64 put = file_calls().write(fd_, text.data(), text.size());
      if (put < 0 && errno == EINTR) continue;
      if (put <= 0) fail("Unable to write file.");
      text.remove_prefix(static_cast<u64>(put));
    }
    if (file_calls().fsync(fd_) != 0) fail("Unable to flush file.");
    const int closed = file_calls().close(fd_);
    fd_ = -1;
    if (closed != 0) fail("Unable to close file.");
  }

  // False when the name is taken.
  bool publish(const std::string& path) {
    if (file_calls().rename_new(path_.c_str(), path.c_str()) != 0) {
      if (errno == EEXIST) return false;
      fail("Unable to rename file.");
    }
    published_ = true;
    return true;
  }

 private:
  [[noreturn]] void fail(const char* message) const {
    FileIO::throw_file_error(kFunction, errno, message, path_);
  }

  std::string path_;
  int fd_ = -1;
  bool published_ = false;
};

}  // namespace

std::string write_new_file(const std::string& stem, const std::string& extension, std::string_view text) {
  UnfinishedFile file(stem, extension);
  file.write(text);
  std::string path = stem + extension;
  for (u64 number = 2; !file.publish(path); number++)
    path = stem + " - " + std::to_string(number) + extension;
  sync_folder_of(path);
  return path;
}

}  // namespace orl
