#include "files/file_calls.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace orl {
namespace {

class SystemCalls final : public FileCalls {
  s64 readv(int fd, const iovec* pieces, int count) override { return ::readv(fd, pieces, count); }
  s64 writev(int fd, const iovec* pieces, int count) override { return ::writev(fd, pieces, count); }
};

FileCalls& system_calls() {
  static SystemCalls calls;
  return calls;
}

// move(piece) for each, as far as the first that is short; fails where one fails.
template <class Move>
s64 move_each(const iovec* pieces, int count, Move&& move) {
  s64 sum = 0;
  for (int i = 0; i < count; i++) {
    const s64 moved = move(pieces[i]);
    if (moved < 0) return moved;
    sum += moved;
    if (static_cast<u64>(moved) != pieces[i].iov_len) break;
  }
  return sum;
}

FileCalls* g_calls = nullptr;

}  // namespace

int FileCalls::open(const char* path, int flags, mode_t mode) { return ::open(path, flags, mode); }
int FileCalls::close(int fd) { return ::close(fd); }
s64 FileCalls::read(int fd, void* buffer, u64 bytes) { return ::read(fd, buffer, bytes); }
s64 FileCalls::write(int fd, const void* buffer, u64 bytes) { return ::write(fd, buffer, bytes); }
s64 FileCalls::readv(int fd, const iovec* pieces, int count) {
  return move_each(pieces, count,
                   [&](const iovec& piece) { return read(fd, piece.iov_base, piece.iov_len); });
}
s64 FileCalls::writev(int fd, const iovec* pieces, int count) {
  return move_each(pieces, count,
                   [&](const iovec& piece) { return write(fd, piece.iov_base, piece.iov_len); });
}
s64 FileCalls::lseek64(int fd, s64 offset, int whence) { return ::lseek64(fd, offset, whence); }
int FileCalls::ftruncate(int fd, s64 length) { return ::ftruncate(fd, length); }
int FileCalls::fallocate(int fd, s64 length) { return ::fallocate(fd, 0, 0, length); }
int FileCalls::fsync(int fd) { return ::fsync(fd); }
int FileCalls::rename(const char* from, const char* to) { return ::rename(from, to); }
int FileCalls::rename_without_replacing(const char* from, const char* to) {
  return ::renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE);
}
int FileCalls::rename_new(const char* from, const char* to) {
  if (rename_without_replacing(from, to) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return -1;
  // The file system does not know the flag; a second name is as exclusive.
  return ::link(from, to) == 0 ? ::unlink(from) : -1;
}
int FileCalls::unlink(const char* path) { return ::unlink(path); }
int FileCalls::mkdir(const char* path, mode_t mode) { return ::mkdir(path, mode); }

FileCalls& file_calls() { return g_calls ? *g_calls : system_calls(); }
void set_file_calls(FileCalls* calls) { g_calls = calls; }

}  // namespace orl
