// The text header of a compressed digit file.
#pragma once

#include <string>

#include "core/types.h"
#include "files/raw_file.h"

namespace orl {

/// One compressed file's place in its stream. docs/file-formats.md has the grammar.
struct OvdHeader {
  std::string version = "1.1.0";
  u32 radix = 10;
  std::string first_digits;
  u64 total_digits = 0;  ///< 0: unbounded
  u64 block_size = 0;    ///< digits of one file; of a file that was read: at most total_digits
  u64 block_id = 0;
  u64 data_offset = 0;  ///< of the first word, in bytes

  /// Stream index of the file's first digit, and of the one after its last.
  u64 begin() const { return block_id * block_size; }
  u64 end() const;
  u64 digits() const { return end() - begin(); }
};

/// The header as it stands in a file, with its closing zero byte.
std::string format_header(const OvdHeader& header);

/// Reads and checks a header. Throws ParseException in the words of the format, EndOfStreamException when the
/// file ends within it.
OvdHeader parse_header(const RawFile& file);

/// Words that hold `digits` digits.
u64 words_for(u32 radix, u64 digits);

}  // namespace orl
