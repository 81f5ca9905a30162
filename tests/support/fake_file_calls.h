// The system's file calls with faults put between. Real files stay underneath.
#pragma once

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

#include "files/file_calls.h"

namespace orl::test {

enum class FileCall {
  kOpen,
  kClose,
  kRead,
  kWrite,
  kSeek,
  kTruncate,
  kAllocate,
  kSync,
  kRename,
  kUnlink,
  kMkdir,
  kRenameNew
};

/// In force as long as it lives. Without faults any number of threads may use it.
class FakeFileCalls final : public FileCalls {
 public:
  FakeFileCalls() { set_file_calls(this); }
  ~FakeFileCalls() override { set_file_calls(nullptr); }

  /// From the n-th use of `call` on (counted from 0, from now), `times` uses fail with `code`.
  void fail(FileCall call, int code, u64 n = 0, u64 times = ~u64{0}) {
    Rule& rule = rules_[static_cast<std::size_t>(call)];
    rule = {code, n, times};
  }
  void heal() { rules_ = {}; }
  u64 count(FileCall call) const { return counts_[static_cast<std::size_t>(call)]; }

  bool knows_no_replace = true;  ///< whether the file system knows the flag of rename_without_replacing()
  bool refuse_direct = false;    ///< open with O_DIRECT fails with EINVAL
  u64 free_bytes = ~u64{0};      ///< what all writes together find room for; then a short count, then ENOSPC
  u64 read_limit = ~u64{0};      ///< a read returns at most so many bytes
  std::atomic<int> last_open_flags{0};
  std::atomic<u64> written{0};  ///< bytes of all writes
  /// Asked of the system, in order; open() with what it asked for: "create 644", "open", "open folder".
  std::vector<std::string> trace() const {
    const std::lock_guard guard(trace_mutex_);
    return trace_;
  }

  int open(const char* path, int flags, mode_t mode) override {
    last_open_flags = flags;
    char made[16];
    std::snprintf(made, sizeof made, "create %o", static_cast<unsigned>(mode));
    note((flags & O_CREAT) != 0 ? made : (flags & O_DIRECTORY) != 0 ? "open folder" : "open");
    if (struck(FileCall::kOpen)) return -1;
    if (refuse_direct && (flags & O_DIRECT) != 0) {
      errno = EINVAL;
      return -1;
    }
    return FileCalls::open(path, flags, mode);
  }
  int close(int fd) override {
    note("close");
    const bool fault = struck(FileCall::kClose);  // the descriptor goes all the same, as on Linux
    const int code = errno;
    const int result = FileCalls::close(fd);
    if (fault) errno = code;
    return fault ? -1 : result;
  }
  s64 read(int fd, void* buffer, u64 bytes) override {
    return struck(FileCall::kRead) ? -1 : FileCalls::read(fd, buffer, std::min(bytes, read_limit));
  }
  s64 write(int fd, const void* buffer, u64 bytes) override {
    note("write");
    if (struck(FileCall::kWrite)) return -1;
    const u64 room = std::min(bytes, free_bytes & ~u64{4095});  // a file system gives whole blocks
    if (room == 0 && bytes != 0) {
      errno = ENOSPC;
      return -1;
    }
    const s64 put = FileCalls::write(fd, buffer, room);
    if (put > 0) written += static_cast<u64>(put);
    if (put > 0 && free_bytes != ~u64{0}) free_bytes -= static_cast<u64>(put);
    return put;
  }
  s64 lseek64(int fd, s64 offset, int whence) override {
    return struck(FileCall::kSeek) ? -1 : FileCalls::lseek64(fd, offset, whence);
  }
  int ftruncate(int fd, s64 length) override {
    return struck(FileCall::kTruncate) ? -1 : FileCalls::ftruncate(fd, length);
  }
  int fallocate(int fd, s64 length) override {
    return struck(FileCall::kAllocate) ? -1 : FileCalls::fallocate(fd, length);
  }
  /// Flushes nothing: no test pulls the plug, and flushing takes most of the time.
  int fsync(int) override {
    note("sync");
    return struck(FileCall::kSync) ? -1 : 0;
  }
  int rename(const char* from, const char* to) override {
    return struck(FileCall::kRename) ? -1 : FileCalls::rename(from, to);
  }
  int rename_without_replacing(const char* from, const char* to) override {
    if (knows_no_replace) return FileCalls::rename_without_replacing(from, to);
    errno = EINVAL;
    return -1;
  }
  int rename_new(const char* from, const char* to) override {
    note("rename");
    return struck(FileCall::kRenameNew) ? -1 : FileCalls::rename_new(from, to);
  }
  int unlink(const char* path) override { return struck(FileCall::kUnlink) ? -1 : FileCalls::unlink(path); }
  int mkdir(const char* path, mode_t mode) override {
    return struck(FileCall::kMkdir) ? -1 : FileCalls::mkdir(path, mode);
  }

 private:
  void note(const char* call) {
    const std::lock_guard guard(trace_mutex_);
    trace_.push_back(call);
  }

  struct Rule {
    int code = 0;
    u64 skip = 0, times = 0;
  };
  static constexpr std::size_t kCalls = 12;

  bool struck(FileCall call) {
    counts_[static_cast<std::size_t>(call)]++;
    Rule& rule = rules_[static_cast<std::size_t>(call)];
    if (rule.code == 0) return false;
    if (rule.skip != 0) {
      rule.skip--;
      return false;
    }
    if (rule.times == 0) return false;
    rule.times--;
    errno = rule.code;
    return true;
  }

  mutable std::mutex trace_mutex_;
  std::vector<std::string> trace_;
  std::array<Rule, kCalls> rules_{};
  std::array<std::atomic<u64>, kCalls> counts_{};
};

}  // namespace orl::test
