// One compressed digit file: a text header, a zero byte, then words of 19 decimal or 16 hexadecimal digits.
//
// Offsets count digits from the file's first one. A stored word that is no run of digits counts as unwritten,
// its digits as zeros.
#pragma once

#include <string>

#include "digits/ovd_header.h"
#include "digits/page_writer.h"
#include "parallel/parallelizer.h"

namespace orl {

class BasicOvdFileWriter {
 public:
  /// The finished file is `path`, which ends in ".ovd".
  BasicOvdFileWriter(const std::string& path, OvdHeader header);

  /// Stores raw digits at [offset, offset + count) of this file. Words that are covered in part are read and
  /// merged. Throws InvalidParametersException "Invalid Digit".
  void store_digits_B(const u8* digits, u64 offset, u64 count, LinearHeapBuffer buffer,
                      ParallelContext parallel);
  void finish();
  const std::string& path() const { return file_.final_path(); }

  /// Window of store_digits_B.
  static u64 buffer_bytes(u32 radix, u64 count);

 private:
  OvdHeader header_;
  PageFile file_;
};

class BasicOvdFileReader {
 public:
  explicit BasicOvdFileReader(const std::string& path);

  const OvdHeader& header() const { return header_; }
  const std::string& path() const { return file_.path(); }
  /// Words [offset, offset + count) of this file; the result points into the window. Throws FileException
  /// "Read error."
  const u64* read_words(u64 offset, u64 count, LinearHeapBuffer buffer) const;
  /// Raw digits [offset, offset + count) of this file. Throws InvalidParametersException "Invalid Digit".
  void load_digits(u8* digits, u64 offset, u64 count, LinearHeapBuffer buffer,
                   ParallelContext parallel) const;

 private:
  RawFile file_;
  OvdHeader header_;
};

/// "x - 3.ovd" becomes "x - 3 (incomplete).ovd".
std::string unfinished_ovd_name(const std::string& path);

}  // namespace orl
