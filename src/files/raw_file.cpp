#include "files/raw_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <utility>

#include "core/exceptions.h"
#include "core/output.h"
#include "files/file_calls.h"
#include "files/raw_io_buffer.h"

namespace orl {
namespace {

constexpr u64 kMaxTransferBytes = RawFile::kMostBytes;

// Prints a warning the first time that `told` is asked.
void warn_once(std::atomic<bool>& told, const std::string& text, const std::string& path) {
  if (told.exchange(true)) return;
  notice("\n", ' ');
  notice(text, 'Y');
  notice_line("Path: " + path, 'Y');
  notice("Further messages for this warning will be suppressed.\n", 'Y');
  output().set_colour('w');
}

std::atomic<bool> g_direct_told{false};
std::atomic<bool> g_fallocate_told{false};
std::atomic<bool> g_ftruncate_told{false};

void print_close_error(const char* text, const std::string& path) {
  notice_line(std::string("RawFile::~RawFile(): ") + text, 'R');
  notice_line("Path: " + path, 'R');
}

}  // namespace

RawIoBuffer::RawIoBuffer(void* buffer, u64 length_bytes)
    : ptr(static_cast<u8*>(buffer)), length(length_bytes) {
  if (reinterpret_cast<std::uintptr_t>(buffer) % kIoAlignment != 0)
    throw InvalidParametersException("RawIoBuffer::RawIoBuffer()", "Buffer is misaligned.");
  if (length_bytes % kIoAlignment != 0)
    throw InvalidParametersException("RawIoBuffer::RawIoBuffer()", "Length is misaligned.");
}

RawFile::RawFile(const std::string& path, Mode mode, bool direct)
    : path_(path), mode_(mode), direct_(direct) {
  open_in_mode();
}

RawFile::RawFile(u64 size_bytes, const std::string& path, bool direct)
    : RawFile(path, Mode::kCreate, direct) {
  reserve_file(fd_, size_bytes, path_);
  if (file_calls().ftruncate(fd_, static_cast<s64>(size_bytes)) != 0)
    warn_once(g_ftruncate_told, "ftruncate() has failed. Expect performance degradation.\n", path_);
}

RawFile::RawFile(RawFile&& other) noexcept
    : fd_(std::exchange(other.fd_, -1)),
      path_(std::move(other.path_)),
      mode_(other.mode_),
      direct_(other.direct_) {}

RawFile& RawFile::operator=(RawFile&& other) noexcept {
  std::swap(fd_, other.fd_);
  std::swap(path_, other.path_);
  std::swap(mode_, other.mode_);
  std::swap(direct_, other.direct_);
  return *this;
}

RawFile::~RawFile() {
  if (fd_ < 0) return;
  if (mode_ != Mode::kRead && file_calls().fsync(fd_) != 0) print_close_error("Unable to flush file.", path_);
  if (file_calls().close(fd_) != 0) print_close_error("Unable to close file.", path_);
}

void RawFile::open_in_mode() {
  switch (mode_) {
    case Mode::kCreate:
      return open(O_RDWR | O_CREAT, "Unable to create file.");
    case Mode::kRead:
    case Mode::kReadWrite:
      break;
  }
  // The system opens a folder for reading, and only the first read fails; a pipe waits for a writer.
  FileIO::require_file("RawFile::RawFile()", "Unable to open file.", path_);
  open(mode_ == Mode::kRead ? O_RDONLY : O_RDWR, "Unable to open file.");
}

void RawFile::open(int flags, const char* failure) {
  constexpr mode_t kPermission = 0600;
  fd_ = file_calls().open(path_.c_str(), flags | O_CLOEXEC | (direct_ ? O_DIRECT : 0), kPermission);
  if (fd_ < 0 && direct_ && errno == EINVAL) {
    warn_once(g_direct_told,
              "O_DIRECT has failed. Expect performance degradation.\n"
              "If the file system has journaling enabled, try disabling it.\n",
              path_);
    direct_ = false;
    fd_ = file_calls().open(path_.c_str(), flags | O_CLOEXEC, kPermission);
  }
  if (fd_ < 0) fail("RawFile::RawFile()", failure);
}

void RawFile::fail(const char* function, const std::string& message) const {
  FileIO::throw_file_error(function, errno, message, path_);
}

u64 RawFile::size() const {
  const s64 end = file_calls().lseek64(fd_, 0, SEEK_END);
  if (end < 0) fail("RawFile::size()", "lseek64() failed.");
  return static_cast<u64>(end);
}

void RawFile::check_alignment(const void* buffer, u64 offset, u64 length) {
  constexpr const char* kFunction = "RawFile::check_alignment()";
  if (reinterpret_cast<std::uintptr_t>(buffer) % kIoAlignment != 0)
    throw InvalidParametersException(kFunction, "Buffer is misaligned.");
  if (offset % kIoAlignment != 0) throw InvalidParametersException(kFunction, "Offset is misaligned.");
  if (length % kIoAlignment != 0) throw InvalidParametersException(kFunction, "Length is misaligned.");
}

void RawFile::seek(u64 offset, const char* function) const {
  if (file_calls().lseek64(fd_, static_cast<s64>(offset), SEEK_SET) < 0) fail(function, "lseek64() failed.");
}

u64 RawFile::read_loop(void* buffer, u64 offset, u64 length) const {
  check_alignment(buffer, offset, length);
  if (fd_ < 0) throw FileIO::FileException("RawFile::read()", "File isn't open.", path_, 0);
  if (length == 0) return 0;
  seek(offset, "RawFile::load()");
  u64 done = 0;
  while (done < length) {
    const u64 piece = std::min(length - done, kMaxTransferBytes);
    const s64 got = file_calls().read(fd_, static_cast<u8*>(buffer) + done, piece);
    if (got < 0) fail("RawFile::load()", "read() failed.");
    done += static_cast<u64>(got);
    if (static_cast<u64>(got) < piece) break;
  }
  return done;
}

u64 RawFile::load(void* buffer, u64 offset, u64 length) const {
  const u64 done = read_loop(buffer, offset, length);
  if (done != length)
    throw FileIO::FileException("RawFile::load()",
                                "Incomplete Read: " + std::to_string(done) + " / " + std::to_string(length),
                                path_, 0);
  return done;
}

// Returns the bytes of all pieces.
u64 RawFile::seek_to_pieces(std::span<const iovec> pieces, u64 offset, const char* function) const {
  u64 length = 0;
  for (const iovec& piece : pieces) {
    check_alignment(piece.iov_base, offset, piece.iov_len);
    length += piece.iov_len;
  }
  if (fd_ < 0) throw FileIO::FileException(function, "File isn't open.", path_, 0);
  seek(offset, function);
  return length;
}

u64 RawFile::load(std::span<const iovec> pieces, u64 offset) const {
  constexpr const char* kFunction = "RawFile::load()";
  const u64 length = seek_to_pieces(pieces, offset, kFunction);
  const s64 got = file_calls().readv(fd_, pieces.data(), static_cast<int>(pieces.size()));
  if (got < 0) fail(kFunction, "read() failed.");
  if (static_cast<u64>(got) != length)
    throw FileIO::FileException(
        kFunction, "Incomplete Read: " + std::to_string(got) + " / " + std::to_string(length), path_, 0);
  return length;
}

u64 RawFile::store(std::span<const iovec> pieces, u64 offset) {
  constexpr const char* kFunction = "RawFile::store()";
  const u64 length = seek_to_pieces(pieces, offset, kFunction);
  const s64 put = file_calls().writev(fd_, pieces.data(), static_cast<int>(pieces.size()));
  if (put < 0) fail(kFunction, "write() failed.");
  u64 done = static_cast<u64>(put);
  if (done == length) return length;
  for (const iovec& piece : pieces) {
    if (done < piece.iov_len)
      fail_short_write(static_cast<const u8*>(piece.iov_base) + done, piece.iov_len - done,
                       static_cast<u64>(put), length);
    done -= piece.iov_len;
  }
  return length;
}

u64 RawFile::load_up_to(void* buffer, u64 offset, u64 length) const {
  return read_loop(buffer, offset, length);
}

u64 RawFile::store(const void* buffer, u64 offset, u64 length) {
  check_alignment(buffer, offset, length);
  if (fd_ < 0) throw FileIO::FileException("RawFile::write()", "File isn't open.", path_, 0);
  if (length == 0) return 0;
  seek(offset, "RawFile::store()");
  for (u64 done = 0; done < length;) {
    const u64 piece = std::min(length - done, kMaxTransferBytes);
    const s64 put = file_calls().write(fd_, static_cast<const u8*>(buffer) + done, piece);
    if (put < 0) fail("RawFile::store()", "write() failed.");
    done += static_cast<u64>(put);
    if (static_cast<u64>(put) == piece) continue;
    const u64 rest = std::min(length - done, kMaxTransferBytes);
    fail_short_write(static_cast<const u8*>(buffer) + done, rest, done, length);
  }
  return length;
}

// A disk that fills up answers with a short count first; a call for the rest says why.
void RawFile::fail_short_write(const u8* rest, u64 rest_bytes, u64 done, u64 length) const {
  const std::string text = "Incomplete Write: " + std::to_string(done) + " / " + std::to_string(length);
  if (done % kIoAlignment == 0 && file_calls().write(fd_, rest, rest_bytes) < 0)
    fail("RawFile::store()", text);
  throw FileIO::FileException("RawFile::store()", text, path_, 0);
}

void RawFile::set_size(u64 length) {
  if (fd_ < 0) throw FileIO::FileException("RawFile::set_size()", "File isn't open.", path_, 0);
  if (file_calls().ftruncate(fd_, static_cast<s64>(length)) != 0)
    fail("RawFile::set_size()", "ftruncate() failed.");
}

void RawFile::flush() {
  if (fd_ < 0) throw FileIO::FileException("RawFile::flush()", "File isn't open.", path_, 0);
  if (file_calls().fsync(fd_) != 0) fail("RawFile::flush()", "Unable to flush file.");
}

void RawFile::close() {
  if (fd_ < 0) return;
  const int fd = std::exchange(fd_, -1);
  if (mode_ != Mode::kRead && file_calls().fsync(fd) != 0) {
    const int code = errno;
    file_calls().close(fd);
    errno = code;
    fail("RawFile::close()", "Unable to flush file.");
  }
  if (file_calls().close(fd) != 0) fail("RawFile::close()", "Unable to close file.");
}

void RawFile::abandon() {
  if (fd_ >= 0) file_calls().close(std::exchange(fd_, -1));
}

void RawFile::close_and_set_size(u64 length) {
  constexpr const char* kFunction = "RawFile::close_and_set_size()";
  // One flush, behind the cut, covers what was written before it.
  if (fd_ >= 0 && file_calls().close(std::exchange(fd_, -1)) != 0) fail(kFunction, "Unable to close file.");
  const int fd = file_calls().open(path_.c_str(), O_RDWR | O_CLOEXEC, 0);
  if (fd < 0) fail(kFunction, "Unable to open file.");
  const char* failed = nullptr;
  if (file_calls().ftruncate(fd, static_cast<s64>(length)) != 0)
    failed = "ftruncate() failed.";
  else if (file_calls().fsync(fd) != 0)
    failed = "Unable to flush file.";
  const int code = errno;
  const bool closed = file_calls().close(fd) == 0;
  if (failed) {
    errno = code;
    fail(kFunction, failed);
  }
  if (!closed) fail(kFunction, "RawFile::close_and_set_size(): Unable to close file.");
}

void RawFile::rename(const std::string& new_path) {
  try {
    close();
    if (file_calls().rename(path_.c_str(), new_path.c_str()) != 0) {
      if (errno != EEXIST) fail("RawFile::rename()", "Unable to rename file.");
      if (!remove_file(new_path))
        fail("RawFile::rename()", "Unable to rename file because the existing one can't be deleted.");
      if (file_calls().rename(path_.c_str(), new_path.c_str()) != 0)
        fail("RawFile::rename()", "Unable to rename file.");
    }
    path_ = new_path;
    if (mode_ == Mode::kCreate) mode_ = Mode::kReadWrite;
    open_in_mode();
  } catch (const Exception& e) {
    e.print();
    fatal_error(
        "File renaming exceptions are unrecoverable because the swap file\n"
        "cannot be reliably returned to a consistent state.");
  }
}

void reserve_file(int fd, u64 size_bytes, const std::string& path) {
  if (size_bytes == 0 || file_calls().fallocate(fd, static_cast<s64>(size_bytes)) == 0) return;
  const int code = errno;
  if (code == EOPNOTSUPP)
    warn_once(g_fallocate_told,
              "fallocate() is not supported on this volume. Expect performance degradation.\n", path);
  else
    warn_once(
        g_fallocate_told,
        "fallocate() has failed. (errno = " + std::to_string(code) + ")  Expect performance degradation.\n",
        path);
  // What has no room now has none when all but its end is written.
  if (code == ENOSPC || code == EDQUOT || code == EFBIG)
    FileIO::throw_file_error("reserve_file()", code,
                             "Unable to reserve " + std::to_string(size_bytes) + " bytes.", path);
}

bool remove_file(const std::string& path) {
  return file_calls().unlink(path.c_str()) == 0 || errno == ENOENT;
}

}  // namespace orl
