// Digits as plain text: the first digits with the point, then one character per digit.
#pragma once

#include "digits/digit_reader.h"
#include "digits/digit_writer.h"
#include "digits/page_writer.h"

namespace orl {

/// A stream of digits in one text file, under construction.
class BasicTextWriter final : public DigitWriter {
 public:
  /// Writes to `path`, which ends in ".txt". Throws InvalidParametersException "Invalid radix." or, when
  /// first_digits has no point, "No decimal place was found."
  BasicTextWriter(const std::string& path, const std::string& first_digits, u32 radix, u64 total_digits);

  u32 radix() const override { return radix_; }
  u64 buffer_bytes(u64 count) const override { return page_span_bytes(count); }
  void store_digits(const u8* digits, u64 offset, u64 count, LinearHeapBuffer buffer,
                    ParallelContext parallel) override;
  void seal() override;
  void publish(Pieces) override;
  void discard() override { file_.discard(); }
  std::string path() const override { return file_.final_path(); }
  std::string unfinished_path() const override { return file_.unfinished_path(); }

 private:
  u32 radix_;
  u64 header_bytes_;  ///< the first digits up to and including the point
  u64 total_digits_;
  PageFile file_;
};

/// A stream of digits in one text file.
class BasicTextReader final : public DigitReader {
 public:
  /// radix 0: found out from the file's first 4096 bytes. A line end behind the digits, as editors leave it,
  /// is none of them. Throws ParseException "A decimal place was not found within the first 63 bytes of the
  /// file." or "Invalid Digit".
  BasicTextReader(const std::string& path, u32 radix);

  u32 radix() const override { return radix_; }
  const std::string& first_digits() const override { return first_digits_; }
  u64 total_digits() const override { return total_digits_; }
  u64 buffer_bytes(u64 count) const override { return page_span_bytes(count); }
  void check_range(u64 offset, u64 count) override;
  void load_digits(u8* digits, u64 offset, u64 count, LinearHeapBuffer buffer,
                   ParallelContext parallel) override;
  void check_as_written(const std::string& first_digits, u64 digits_per_file, u64 total_digits) override;

 private:
  /// `text` begins with the digit of stream index `offset`.
  void process_txt(u8* digits, const char* text, u64 offset, u64 count, ParallelContext parallel);

  RawFile file_;
  std::mutex mutex_;  ///< over the file's position
  u32 radix_;
  std::string first_digits_;
  u64 total_digits_ = 0;
};

}  // namespace orl
