// A stream of digits that can be read: a text file, or a set of compressed files.
#pragma once

#include <memory>
#include <string>

#include "digits/digit_stats.h"
#include "parallel/linear_buffer.h"

namespace orl {

class DigitReader {
 public:
  virtual ~DigitReader() = default;

  virtual u32 radix() const = 0;
  /// The digits before the point and the point, such as "3.".
  virtual const std::string& first_digits() const = 0;
  /// Digits after the point; 0 when the stream is unbounded.
  virtual u64 total_digits() const = 0;
  /// Least window that load_digits and load_stats need.
  virtual u64 min_buffer_bytes() const = 0;

  /// Raw digits of stream indices [offset, offset + count) after the point. Faults are FileException,
  /// InvalidParametersException "Out of range." or "Invalid Digit".
  virtual void load_digits(u8* digits, u64 offset, u64 count, LinearHeapBuffer buffer,
                           ParallelContext parallel) = 0;
  /// Appends the same digits to `stats`, in blocks as large as the window allows.
  void load_stats(DigitStats& stats, u64 offset, u64 count, LinearHeapBuffer buffer,
                  ParallelContext parallel);
};

/// Opens a finished stream: a text file, or any file of a compressed set, told apart by ".ovd". radix 0 takes
/// what is found.
std::unique_ptr<DigitReader> open_digits(const std::string& path, u32 radix = 0);

/// Gives the file, or every file of the set, the name of an unfinished one: what a caller does when it proves
/// wrong.
void mark_unfinished(const std::string& path);

}  // namespace orl
