#include "digits/hashed_digits.h"

#include <algorithm>

#include "core/exceptions.h"
#include "digits/digit_text.h"

namespace orl {

void DigitHasher::append(const u8* digits, u64 length) {
  constexpr u64 kPiece = 16384;  // stays in the first-level cache between the two passes
  char text[kPiece];
  for (u64 done = 0; done < length;) {
    const u64 piece = std::min(kPiece, length - done);
    digits_to_text(text, digits + done, piece);
    hash_.append(text, piece);
    done += piece;
  }
  count_ += length;
}

HashedDigits DigitHasher::finish() { return HashedDigits(first_index_, count_, hash_.finish()); }

HashedDigits::HashedDigits(DigitReader& reader, u64 first_index, u64 count, LinearHeapBuffer buffer,
                           ParallelContext parallel)
    : first_index_(first_index), count_(count) {
  if (reader.radix() != 10 && reader.radix() != 16)
    throw InvalidParametersException("HashedDigits()", "Invalid Radix.");
  constexpr u64 kMaxPiece = 0x40000000;
  const u64 piece = std::min(kMaxPiece, block_for_window(reader, buffer.size));
  if (piece == 0) throw BufferTooSmallException("HashedDigits()", buffer.size, 64 + reader.buffer_bytes(64));
  u8* const digits = buffer.spawn_words<u8>(piece);
  DigitHasher hasher(first_index);
  for (u64 done = 0; done < count;) {
    const u64 length = std::min(piece, count - done);
    reader.load_digits(digits, first_index + done, length, buffer, parallel);
    hasher.append(digits, length);
    done += length;
  }
  sha256_ = hasher.finish().sha256();
}

}  // namespace orl
