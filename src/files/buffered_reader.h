// Small items from a raw file, through one aligned buffer.
#pragma once

#include "files/raw_file.h"
#include "files/raw_io_buffer.h"

namespace orl {

/// Bytes of a raw file in order, through a buffer of whole pages.
class BufferedReader {
 public:
  /// Reads from `offset` on, a multiple of 4096. File and buffer are borrowed.
  BufferedReader(const RawFile& file, RawIoBuffer buffer, u64 offset = 0)
      : file_(file), buffer_(buffer), next_offset_(offset) {}

  /// The next byte. Throws EndOfStreamException "Unexpected end of file." from "BufferedReader()".
  u8 read_byte() {
    if (at_ == filled_) refill();
    position_++;
    return buffer_.ptr[at_++];
  }
  /// True when no byte is left.
  bool at_end();
  /// Bytes read so far.
  u64 position() const { return position_; }

 private:
  void refill();

  const RawFile& file_;
  RawIoBuffer buffer_;
  u64 next_offset_;
  u64 filled_ = 0, at_ = 0;
  u64 position_ = 0;
};

}  // namespace orl
