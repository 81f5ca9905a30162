// SHA-256 of a stretch of digits as text, for reports.
#pragma once

#include <string>

#include "digits/digit_reader.h"
#include "digits/sha256.h"
#include "memory/linear_buffer.h"

namespace orl {

/// First index, count and SHA-256 (lower-case hexadecimal) of the ASCII text of a stretch of digits.
class HashedDigits {
 public:
  /// Reads [first_index, first_index + count) from `reader` in pieces through `buffer`. Throws
  /// InvalidParametersException "Invalid Radix." from "HashedDigits()".
  HashedDigits(DigitReader& reader, u64 first_index, u64 count, LinearHeapBuffer buffer,
               ParallelContext parallel);
  HashedDigits(u64 first_index, u64 count, std::string sha256)
      : first_index_(first_index), count_(count), sha256_(std::move(sha256)) {}

  u64 first_index() const { return first_index_; }
  u64 count() const { return count_; }
  const std::string& sha256() const { return sha256_; }

 private:
  u64 first_index_, count_;
  std::string sha256_;
};

/// Makes a HashedDigits of digits that pass by in order.
class DigitHasher {
 public:
  /// `first_index` counts from 1, the first digit after the point.
  explicit DigitHasher(u64 first_index) : first_index_(first_index) {}

  /// Appends raw digits.
  void append(const u8* digits, u64 length);
  HashedDigits finish();

 private:
  Sha256 hash_;
  u64 first_index_;
  u64 count_ = 0;
};

}  // namespace orl
