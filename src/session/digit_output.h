// From a finished number to digit files, and the three proofs that what stands on the disk is that number.
//
// Every digit passes through a statistics record: counts by digit, and the stream read as an integer modulo
// 2^61 - 1. The hash has the same value whether it is taken from words, from digits or from the binary
// number.
//
// Memory   a pass takes its digit buffers from the window that it is given, in whole pages of 4096 bytes;
//          output_buffer_bytes() is the least it needs. More memory makes larger blocks.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "core/event_log.h"
#include "core/status.h"
#include "digits/digit_reader.h"
#include "digits/digit_stats.h"
#include "digits/digit_writer.h"
#include "digits/hashed_digits.h"
#include "memory/linear_buffer.h"
#include "threads/parallelizer.h"

namespace orvane {

using orl::u32;
using orl::u64;

/// The digits of one number in one radix, as words of 19 decimal or 16 hexadecimal digits.
/// words[word_count - 1] holds the first digits after the point; its highest digit comes first.
struct DigitWords {
  u32 radix;
  u64 integer_part;  ///< the number before the point
  const u64* words;
  u64 word_count;
};

/// What a stage may use.
struct OutputContext {
  orl::ParallelContext parallel;
  orl::StatusNode& status;
  orl::EventLog& events;
  orl::LinearHeapBuffer buffer;
};

/// Where digits go.
struct OutputTarget {
  std::string constant;   ///< short name
  std::string algorithm;  ///< short name
  std::string path;       ///< folder; empty is the working folder
  u64 digits_per_file;    ///< 0: text; all ones: one compressed file
};

/// The record of one radix.
struct OutputResult {
  u32 radix = 10;
  u64 digit_count = 0;
  std::string first_digits;  ///< with the point, such as "3."
  u64 hash = 0;              ///< of the words, before digits were made; canonical; integer part included
  u64 digit_hash = 0;        ///< the same of the digits that went out
  orl::DigitCounts counts{10};
  orl::LastDigits last_digits;
  std::optional<orl::HashedDigits> sha256;  ///< of the digits after the point as text
  std::string path;                         ///< of the (first) file once it is published; empty without files
  u64 digits_per_file = 0;                  ///< of those files, as in OutputTarget
  std::shared_ptr<orl::DigitWriter>
      files;  ///< sealed; they have their unfinished names until they are proved
};

/// The digits before the point and the point, such as "3.".
std::string first_digits_text(const DigitWords& number);

/// The text of `count` digits behind the first `offset` ones after the point; `number` holds them all.
std::string digits_text(const DigitWords& number, u64 offset, u64 count);

/// The counts from digit 0 on, a blank between two.
std::string counts_text(const orl::DigitCounts& counts);

/// Least window for any of the stages below.
u64 output_buffer_bytes();

/// Writes `digit_count` digits to a file (or a set of files) under their unfinished names. Throws FileException,
/// and leaves nothing then.
OutputResult write_digits(const OutputContext& context, const DigitWords& number, u64 digit_count,
                          const OutputTarget& target);
/// The digit pass of write_digits() without a file.
OutputResult process_digits(const OutputContext& context, const DigitWords& number, u64 digit_count);

/// "Verifying Binary Output:": compares the hash of the hexadecimal digits that went out with one taken
/// directly from the binary words, now and before. Ends the program on a mismatch.
void verify_binary_output(const OutputContext& context, const DigitWords& number, const OutputResult& result);

/// verify_binary_output() without a line of its own: for digits whose words another check proves.
void verify_digits(const OutputContext& context, const DigitWords& number, const OutputResult& result);

/// "Verifying Decimal Output" or "Verifying Hexadecimal Output": reads the files back and compares hash and
/// counts. Ends the program on a mismatch with "Digit output failed. Metadata cross-check doesn't match."
void read_check(const OutputContext& context, const OutputResult& result);

/// Gives the files their final names, when all is proved. Of an older set of that name nothing stays. Throws
/// FileException; the new files keep their unfinished names then.
void publish_digits(const OutputResult& result);

}  // namespace orvane
