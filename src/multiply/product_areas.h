// How a multiplication divides its scratch.
#pragma once

#include "core/exceptions.h"
#include "core/types.h"
#include "multiply/algorithm.h"

namespace orl {

/// Lays `count` transforms of `sizes` at areas[0, count) and the working scratch behind them, which is
/// returned. Throws BufferTooSmallException under `function` when `scratch` holds less than count *
/// transform_bytes + scratch_bytes.
inline void* cut_product_areas(LinearHeapBuffer scratch, const MultiplySizes& sizes, void** areas, u64 count,
                               const char* function) {
  const u64 required = count * sizes.transform_bytes + sizes.scratch_bytes;
  if (scratch.size < required) throw BufferTooSmallException(function, scratch.size, required);
  for (u64 i = 0; i < count; ++i) areas[i] = scratch.spawn_words<u8>(sizes.transform_bytes);
  // The last piece may end inside a line of 64 bytes: the required size is not rounded up.
  return scratch.spawn_words<u8>(sizes.scratch_bytes & ~u64{63});
}

}  // namespace orl
