// A stream of digits that can be written: a text file, or a set of compressed files.
//
// While it is being written a file has a name that says so; it takes its final name at close, when all of it
// is on the disk. A writer that goes without a close leaves nothing that looks finished.
#pragma once

#include <memory>
#include <string>

#include "digits/digit_reader.h"
#include "memory/linear_buffer.h"

namespace orl {

/// What the program makes: sets of smaller files are read only.
inline constexpr u64 kMinDigitsPerFile = 1000000;

/// A stream of digits under construction.
class DigitWriter {
 public:
  virtual ~DigitWriter() = default;

  /// 10 or 16.
  virtual u32 radix() const = 0;
  /// Window that store_digits needs for `count` digits.
  virtual u64 buffer_bytes(u64 count) const = 0;
  /// Stores raw digits at stream indices [offset, offset + count). Calls for different ranges may come from
  /// several threads.
  virtual void store_digits(const u8* digits, u64 offset, u64 count, LinearHeapBuffer buffer,
                            ParallelContext parallel) = 0;
  /// Flushes and closes everything, gives the files their final names, and opens them for reading.
  virtual std::unique_ptr<DigitReader> close_and_get_basic_reader() = 0;
  /// The file (of a set: the first) under its final name.
  virtual std::string path() const = 0;
};

/// " - Dec - " or " - Hex - " between the names; throws InvalidParametersException "Invalid Base".
std::string digit_file_name(const std::string& constant, const std::string& algorithm, u32 radix);

/// A BasicTextWriter for digits_per_file 0, else a BasicOvdSetWriter, in the folder `path`.
std::unique_ptr<DigitWriter> make_digit_writer(const std::string& path, const std::string& name,
                                               const std::string& first_digits, u32 radix,
                                               u64 digits_per_file, u64 total_digits);

}  // namespace orl
