// Drives that fail: the system's file calls on real files, each of which a rule may strike, by drive and by number.
//
// A drive is a folder; calls about other paths and descriptors belong to none. Any number of threads may use it.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "files/file_calls.h"

namespace orl::test {

enum class DiskCall { open, close, read, write, seek, truncate, allocate, sync, unlink };

/// A call, as a rule sees it.
struct DiskEvent {
  DiskCall call;
  int drive;      ///< -1: none of the folders
  u64 number;     ///< among all calls
  u64 on_drive;   ///< among those of the drive
  u64 transfers;  ///< reads and writes of the drive before it
};

/// What becomes of a call; any other value is the errno that it fails with.
inline constexpr int kGoesOn = 0;
inline constexpr int kShort = -1;  ///< moves half of what it was asked for
inline constexpr int kLost = -2;   ///< a write that says it was done, and was not

/// In force as long as it lives.
class FakeDisks final : public FileCalls {
 public:
  using Rule = std::function<int(const DiskEvent&)>;

  explicit FakeDisks(std::vector<std::string> folders) : folders_(std::move(folders)) {
    set_file_calls(this);
  }
  ~FakeDisks() override { set_file_calls(nullptr); }

  /// What every call is asked about from now on; its numbers begin at 0 again.
  void set_rule(Rule rule) {
    const std::lock_guard guard(mutex_);
    rule_ = std::move(rule);
    number_ = 0;
    counts_.clear();
    transfers_.clear();
  }
  u64 calls() const {
    const std::lock_guard guard(mutex_);
    return number_;
  }
  /// Calls of a drive since set_rule(), without those that only close a descriptor.
  u64 calls_of(int drive) const {
    const std::lock_guard guard(mutex_);
    const auto at = counts_.find(drive);
    return at == counts_.end() ? 0 : at->second;
  }
  /// Takes back what was written on a drive since the last sync of each file.
  void cut_power(int drive) {
    const std::lock_guard guard(mutex_);
    for (auto at = unsynced_.rbegin(); at != unsynced_.rend(); ++at)
      if (drive_of_fd(at->fd) == drive)
        for (u64 done = 0; done < at->old.size();)
          done += static_cast<u64>(
              std::max<s64>(1, ::pwrite(at->plain_fd, at->old.data() + done, at->old.size() - done,
                                        at->offset + static_cast<s64>(done))));
  }

  int open(const char* path, int flags, mode_t mode) override {
    const int drive = drive_of(path);
    if (fails(strike(DiskCall::open, drive))) return -1;
    const int fd = FileCalls::open(path, flags, mode);
    if (fd < 0) return fd;
    const std::lock_guard guard(mutex_);
    fds_[fd] = {drive, remembers && drive >= 0 ? ::open(path, O_RDWR | O_CLOEXEC) : -1};
    return fd;
  }
  int close(int fd) override {
    const int result = strike(DiskCall::close, drive_of_locked(fd));
    const int code = errno;
    forget(fd);
    const int closed = FileCalls::close(fd);  // the descriptor goes all the same, as on Linux
    if (!fails(result)) return closed;
    errno = code;
    return -1;
  }
  s64 read(int fd, void* buffer, u64 bytes) override {
    const int result = strike(DiskCall::read, drive_of_locked(fd));
    if (fails(result)) return -1;
    return FileCalls::read(fd, buffer, result == kShort ? bytes / 2 & ~u64{4095} : bytes);
  }
  s64 write(int fd, const void* buffer, u64 bytes) override {
    const int result = strike(DiskCall::write, drive_of_locked(fd));
    if (fails(result)) return -1;
    if (result == kLost) return static_cast<s64>(bytes);
    remember(fd, bytes);
    return FileCalls::write(fd, buffer, result == kShort ? bytes / 2 & ~u64{4095} : bytes);
  }
  s64 lseek64(int fd, s64 offset, int whence) override {
    return fails(strike(DiskCall::seek, drive_of_locked(fd))) ? -1 : FileCalls::lseek64(fd, offset, whence);
  }
  int ftruncate(int fd, s64 length) override {
    return fails(strike(DiskCall::truncate, drive_of_locked(fd))) ? -1 : FileCalls::ftruncate(fd, length);
  }
  int fallocate(int fd, s64 length) override {
    return fails(strike(DiskCall::allocate, drive_of_locked(fd))) ? -1 : FileCalls::fallocate(fd, length);
  }
  /// Flushes nothing; what was written before it is safe from cut_power().
  int fsync(int fd) override {
    if (fails(strike(DiskCall::sync, drive_of_locked(fd)))) return -1;
    const std::lock_guard guard(mutex_);
    std::erase_if(unsynced_, [fd](const Unsynced& one) { return one.fd == fd; });
    return 0;
  }
  int unlink(const char* path) override {
    return fails(strike(DiskCall::unlink, drive_of(path))) ? -1 : FileCalls::unlink(path);
  }

  bool remembers =
      false;  ///< keeps what writes replace, for cut_power(); to be set before the files are opened

 private:
  struct OpenFile {
    int drive;
    int plain_fd;
  };
  struct Unsynced {
    int fd, plain_fd;
    s64 offset;
    std::vector<char> old;
  };

  static bool fails(int result) { return result > 0; }

  int drive_of(const std::string& path) const {
    for (std::size_t i = 0; i < folders_.size(); i++)
      if (path.starts_with(folders_[i] + "/")) return static_cast<int>(i);
    return -1;
  }
  int drive_of_fd(int fd) const {
    const auto at = fds_.find(fd);
    return at == fds_.end() ? -1 : at->second.drive;
  }
  int drive_of_locked(int fd) const {
    const std::lock_guard guard(mutex_);
    return drive_of_fd(fd);
  }
  void forget(int fd) {
    const std::lock_guard guard(mutex_);
    const auto at = fds_.find(fd);
    if (at == fds_.end()) return;
    if (at->second.plain_fd >= 0) ::close(at->second.plain_fd);
    std::erase_if(unsynced_, [fd](const Unsynced& one) { return one.fd == fd; });
    fds_.erase(at);
  }
  void remember(int fd, u64 bytes) {
    const std::lock_guard guard(mutex_);
    const auto at = fds_.find(fd);
    if (at == fds_.end() || at->second.plain_fd < 0) return;
    Unsynced entry{fd, at->second.plain_fd, ::lseek(fd, 0, SEEK_CUR), std::vector<char>(bytes)};
    const ssize_t got = ::pread(entry.plain_fd, entry.old.data(), bytes, entry.offset);
    entry.old.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
    unsynced_.push_back(std::move(entry));
  }
  int strike(DiskCall call, int drive) {
    const std::lock_guard guard(mutex_);
    const bool moves = call == DiskCall::read || call == DiskCall::write;
    const DiskEvent event{call, drive, number_++, counts_[drive], transfers_[drive]};
    if (call != DiskCall::close) counts_[drive]++;
    if (moves) transfers_[drive]++;
    const int result = rule_ ? rule_(event) : kGoesOn;
    if (result > 0) errno = result;
    return result;
  }

  std::vector<std::string> folders_;
  mutable std::mutex mutex_;
  Rule rule_;
  u64 number_ = 0;
  std::map<int, u64> counts_, transfers_;
  std::map<int, OpenFile> fds_;
  std::vector<Unsynced> unsynced_;
};

}  // namespace orl::test
