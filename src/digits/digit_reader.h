// A stream of digits that can be read: a text file, or a set of compressed files.
#pragma once

#include <memory>
#include <string>

#include "core/exceptions.h"
#include "digits/digit_stats.h"
#include "memory/linear_buffer.h"

namespace orl {

/// The headers of a set's files do not agree, or a file is not as its writer left it.
class InconsistentMetaData final : public ExceptionType<InconsistentMetaData, StringException> {
 public:
  static constexpr const char* kTypeName = "InconsistentMetaData";
  /// The message: "Inconsistent Metadata: \"" path "\"", then what does not match.
  InconsistentMetaData(const char* function, const std::string& path, const std::string& what)
      : ExceptionType(function, "Inconsistent Metadata: \"" + path + "\"\n\n" + what) {}
};

/// A finished stream of digits, open for reading.
class DigitReader {
 public:
  virtual ~DigitReader() = default;

  /// 10 or 16.
  virtual u32 radix() const = 0;
  /// The digits before the point and the point, such as "3.".
  virtual const std::string& first_digits() const = 0;
  /// Digits after the point; 0 when the stream is unbounded.
  virtual u64 total_digits() const = 0;
  /// Window that load_digits needs for `count` digits.
  virtual u64 buffer_bytes(u64 count) const = 0;

  /// Raw digits of stream indices [offset, offset + count) after the point. Faults are FileException,
  /// InvalidParametersException "Out of range." or "Invalid Digit".
  virtual void load_digits(u8* digits, u64 offset, u64 count, LinearHeapBuffer buffer,
                           ParallelContext parallel) = 0;
  /// Throws what a read of [offset, offset + count) would for what is known without reading the digits: a
  /// range beyond the stream, files of a set that are not there. Names all such files at once.
  virtual void check_range(u64 offset, u64 count) = 0;
  /// Appends the digits of that range to `stats`, in blocks as large as the window allows: a multiple of 64
  /// digits and what load_digits needs for them. 4096 + 8320 bytes are always enough. On two tasks and a
  /// window for two blocks the next one is read meanwhile.
  void load_stats(DigitStats& stats, u64 offset, u64 count, LinearHeapBuffer buffer,
                  ParallelContext parallel);
  /// Throws InconsistentMetaData unless everything around the digits in the stream's files is what a writer
  /// that was made with these arguments leaves there: headers, the fill of the last word, sizes.
  virtual void check_as_written(const std::string& first_digits, u64 digits_per_file, u64 total_digits) = 0;
};

/// What readers say of a byte of a file that is no digit, and of one that ends too early.
[[noreturn]] void throw_invalid_digit(const char* function, const std::string& what, const std::string& path);
[[noreturn]] void throw_short_file(const char* function, u64 size, u64 needed, const std::string& path);

/// Opens a finished stream: a text file, or any file of a compressed set, told apart by ".ovd". radix 0 takes
/// what is found.
std::unique_ptr<DigitReader> open_digits(const std::string& path, u32 radix = 0);

/// The most digits, a multiple of 64, for which a window of `bytes` holds the raw digits of `blocks` blocks
/// and what `reader` needs to load one; 0 when there is no room for any.
u64 block_for_window(const DigitReader& reader, u64 bytes, u64 blocks = 1);

}  // namespace orl
