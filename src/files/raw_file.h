// A file of bulk data, unbuffered (O_DIRECT) whenever the file system allows it.
//
// Alignment  buffer, offset and length of every transfer are multiples of 4096, checked at each call.
// Faults     a failed system call throws FileException with path, function and the system's code. What
//            merely costs speed is reported once a process and survived.
// Threads    a file has one position: one thread at a time.
#pragma once

#include <sys/uio.h>

#include <span>
#include <string>

#include "core/types.h"

namespace orl {

/// An open file, read and written at any offset.
class RawFile {
 public:
  /// What to open a file for; kCreate keeps one that is there.
  enum class Mode : u8 { kCreate = 0, kRead = 1, kReadWrite = 2 };

  RawFile() = default;
  /// Opens, or creates with permission 0600 (an existing file is kept as it is). Throws "Unable to open
  /// file." or "Unable to create file.". With `direct` the file is opened unbuffered; a file system that
  /// refuses that is reported once and the file opened without.
  RawFile(const std::string& path, Mode mode, bool direct = true);
  /// Creates the file and reserves `size_bytes` at once; where that is not possible, says so once and goes
  /// on.
  RawFile(u64 size_bytes, const std::string& path, bool direct = true);
  RawFile(RawFile&& other) noexcept;
  RawFile& operator=(RawFile&& other) noexcept;
  RawFile(const RawFile&) = delete;
  RawFile& operator=(const RawFile&) = delete;
  /// Flushes and closes; errors are printed, since a destructor cannot throw. Call close() to be told.
  ~RawFile();

  bool is_open() const { return fd_ >= 0; }
  bool direct() const { return direct_; }
  const std::string& path() const { return path_; }
  /// Bytes in the file.
  u64 size() const;

  /// Transfers [offset, offset + length). A short transfer is a fault: "Incomplete Read: " or "Incomplete
  /// Write: " with what was done " / " what was asked. Returns length.
  u64 load(void* buffer, u64 offset, u64 length) const;
  u64 store(const void* buffer, u64 offset, u64 length);
  /// load() and store() of pieces of memory that lie one behind the other in the file, in one call of the system: at most
  /// kMostPieces, and kMostBytes in all.
  u64 load(std::span<const iovec> pieces, u64 offset) const;
  u64 store(std::span<const iovec> pieces, u64 offset);
  static constexpr u64 kMostPieces = 1024, kMostBytes = 0x40000000;
  /// Reads up to `length` bytes, fewer at the end of the file. Returns the bytes read.
  u64 load_up_to(void* buffer, u64 offset, u64 length) const;

  /// Cuts or extends the file. Throws FileException.
  void set_size(u64 length);
  /// Returns when what was written is on the disk. Throws "Unable to flush file.".
  void flush();
  /// Flushes and closes. Throws "Unable to flush file." or "Unable to close file.".
  void close();
  /// Closes without a flush and without a word: for a file that is about to be removed.
  void abandon();
  /// Closes, then cuts or extends the file to `length`, which need not be aligned, and flushes all of it.
  void close_and_set_size(u64 length);
  /// Flushes, closes, renames over whatever stands at `new_path`, reopens. Failure cannot be undone and ends
  /// the program.
  void rename(const std::string& new_path);

  /// Throws InvalidParametersException "Buffer is misaligned.", "Offset is misaligned." or "Length is
  /// misaligned.".
  static void check_alignment(const void* buffer, u64 offset, u64 length);

 private:
  void open(int flags, const char* failure);
  void open_in_mode();
  void seek(u64 offset, const char* function) const;
  u64 read_loop(void* buffer, u64 offset, u64 length) const;
  u64 seek_to_pieces(std::span<const iovec> pieces, u64 offset, const char* function) const;
  [[noreturn]] void fail_short_write(const u8* rest, u64 rest_bytes, u64 done, u64 length) const;
  [[noreturn]] void fail(const char* function, const std::string& message) const;

  int fd_ = -1;
  std::string path_;
  Mode mode_ = Mode::kRead;
  bool direct_ = false;
};

/// fallocate over the whole file, with its one-time warnings. Throws FileException when there is no room.
void reserve_file(int fd, u64 size_bytes, const std::string& path);

/// Removes a file; one that does not exist is no failure. Returns false when it is still there.
bool remove_file(const std::string& path);

}  // namespace orl
