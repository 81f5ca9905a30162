// The one door to the system's file calls, so that tests can stand in it.
//
// Each call behaves as its namesake and sets errno. A fake injects short transfers, an error at byte N, a
// full disk, a flipped bit, or the loss of what was not synced.
#pragma once

#include <sys/types.h>
#include <sys/uio.h>

#include "core/types.h"

namespace orl {

/// The system's calls; a test derives and fails them.
class FileCalls {
 public:
  virtual ~FileCalls() = default;
  /// Each behaves as its namesake and sets errno; read and write may be short.
  virtual int open(const char* path, int flags, mode_t mode);
  virtual int close(int fd);
  virtual s64 read(int fd, void* buffer, u64 bytes);
  virtual s64 write(int fd, const void* buffer, u64 bytes);
  /// Pieces of memory one behind the other in the file, as far as the first that is short. Here by read() and write() of each
  /// piece, so that a test need not know of them; the system's calls move all of them at once.
  virtual s64 readv(int fd, const iovec* pieces, int count);
  virtual s64 writev(int fd, const iovec* pieces, int count);
  virtual s64 lseek64(int fd, s64 offset, int whence);
  virtual int ftruncate(int fd, s64 length);
  virtual int fallocate(int fd, s64 length);
  virtual int fsync(int fd);
  virtual int rename(const char* from, const char* to);
  /// rename() that fails with EEXIST where something has the name `to`.
  virtual int rename_new(const char* from, const char* to);
  /// renameat2() with RENAME_NOREPLACE, which not every file system knows: rename_new() does without it then.
  virtual int rename_without_replacing(const char* from, const char* to);
  virtual int unlink(const char* path);
  virtual int mkdir(const char* path, mode_t mode);
};

/// The calls in force.
FileCalls& file_calls();
/// Puts other calls in force; null brings the system's back. Not while files are in use.
void set_file_calls(FileCalls* calls);

}  // namespace orl
