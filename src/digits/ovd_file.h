// One compressed digit file: a text header, a zero byte, then words of 19 decimal or 16 hexadecimal digits.
//
// Offsets count digits from the file's first one. A stored word that is no run of digits counts as unwritten,
// its digits as zeros.
#pragma once

#include <mutex>
#include <string>

#include "digits/ovd_header.h"
#include "digits/page_writer.h"
#include "threads/parallelizer.h"

namespace orl {

/// Any number of threads may store different ranges at once.
class BasicOvdFileWriter {
 public:
  /// The finished file is `name`, which ends in ".ovd"; it is made under its unfinished name.
  BasicOvdFileWriter(const std::string& name, const std::string& first_digits, u32 radix, u64 digits_per_file,
                     u64 total_digits, u64 file_id);

  /// Stores raw digits at [offset, offset + count). Words that are covered in part are read and merged.
  /// Throws InvalidParametersException "Out of range.", or "Invalid Digit" before anything is stored.
  void store_digits_B(const u8* digits, u64 offset, u64 count, LinearHeapBuffer buffer,
                      ParallelContext parallel);

  /// Closes the file for now; stores open it again.
  void park() { file_.park(); }
  /// Flushes and closes.
  void seal();
  /// As PageFile's.
  void set_aside() { file_.set_aside(); }
  void publish() { file_.publish(); }
  void discard() { file_.discard(); }
  void put_back() noexcept { file_.put_back(); }
  void drop_replaced() noexcept { file_.drop_replaced(); }
  const std::string& path() const { return file_.final_path(); }
  const std::string& unfinished_path() const { return file_.unfinished_path(); }

  /// Window of store_digits_B.
  static u64 buffer_bytes(u32 radix, u64 count);

 private:
  void store_words(const u8* digits, u64 first_word, u64 count, LinearHeapBuffer buffer,
                   ParallelContext parallel);
  void merge_word(const u8* digits, u64 word, u64 begin, u64 count);

  OvdHeader header_;
  PageFile file_;
};

/// Any number of threads may read at once.
class BasicOvdFileReader {
 public:
  /// Opens the file and reads its header. Throws FileException, and as parse_header() does.
  explicit BasicOvdFileReader(const std::string& path);

  const OvdHeader& header() const { return header_; }
  const std::string& path() const { return file_.path(); }
  /// Words [offset, offset + count) of this file; the result points into the window. Throws FileException
  /// "Read error."
  const u64* read_words(u64 offset, u64 count, LinearHeapBuffer buffer) const;
  /// Raw digits [offset, offset + count) of this file. Throws InvalidParametersException "Invalid Digit".
  void load_digits(u8* digits, u64 offset, u64 count, LinearHeapBuffer buffer,
                   ParallelContext parallel) const;
  /// Throws InconsistentMetaData unless every byte that is not a digit is the one that a writer of `expected`
  /// puts there.
  void check_as_written(const OvdHeader& expected) const;

  /// Window of load_digits.
  static u64 buffer_bytes(u32 radix, u64 count);

 private:
  const u8* read_word_bytes(u64 offset, u64 count, LinearHeapBuffer buffer) const;

  RawFile file_;
  mutable std::mutex mutex_;  ///< over the file's position
  OvdHeader header_;
};

}  // namespace orl
