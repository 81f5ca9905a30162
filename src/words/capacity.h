// The check that everything makes which writes into a borrowed buffer, before it writes.
#pragma once

#include "core/exceptions.h"
#include "core/types.h"

namespace orl {

/// Throws BufferTooSmallException under `function` unless a buffer of `size` words, or bytes, holds `required`.
inline void require_capacity(const char* function, u64 size, u64 required) {
  if (size < required) throw BufferTooSmallException(function, size, required);
}

}  // namespace orl
