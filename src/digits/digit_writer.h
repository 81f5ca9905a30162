// A stream of digits that can be written: a text file, or a set of compressed files.
//
// While it is being written a file has a name that says so. A writer is sealed when all of the stream is on the
// disk; the files can be read under their unfinished names then, and are given their final ones when their owner
// has proved them. A writer that goes before it is sealed leaves nothing; one that is sealed leaves nothing that
// looks finished, and nothing at all when its files were found wrong (discard()) or the process ends before it.
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
  /// Flushes and closes everything. Throws InvalidParametersException "No files open." when a set has no file.
  virtual void seal() = 0;
  /// What becomes of the other numbered files of a set that stand where the new ones go.
  enum class Pieces { kKept, kRemoved };
  /// Gives the sealed files their final names, over what has them. When one cannot have its name all keep their
  /// unfinished ones, and those of an older set their own.
  virtual void publish(Pieces others) = 0;
  /// From now on the files that have no final name go with the writer, sealed or not.
  virtual void discard() = 0;
  /// seal(), publish() beside what is there, and the files open for reading.
  std::unique_ptr<DigitReader> close_and_get_basic_reader();
  /// The file (of a set: the first) under its final name.
  virtual std::string path() const = 0;
  /// The file, or the first that was stored to, under the name that it has until it is published.
  virtual std::string unfinished_path() const = 0;
};

/// " - Dec - " or " - Hex - " between the names; throws InvalidParametersException "Invalid Base".
std::string digit_file_name(const std::string& constant, const std::string& algorithm, u32 radix);

/// A BasicTextWriter for digits_per_file 0, else a BasicOvdSetWriter, in the folder `path`.
std::unique_ptr<DigitWriter> make_digit_writer(const std::string& path, const std::string& name,
                                               const std::string& first_digits, u32 radix,
                                               u64 digits_per_file, u64 total_digits);

}  // namespace orl
