// Memory that an unbuffered file may be read into.
#pragma once

#include "core/types.h"

namespace orl {

inline constexpr u64 kIoAlignment = 4096;

/// `length` bytes at `ptr`, both multiples of 4096; a view that owns nothing.
struct RawIoBuffer {
  /// Throws InvalidParametersException "Buffer is misaligned." or "Length is misaligned.".
  RawIoBuffer(void* buffer, u64 length_bytes);

  u8* ptr;
  u64 length;
};

}  // namespace orl
