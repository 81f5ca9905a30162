// How a multiplication divides its scratch and calls a shape for either word type.
#pragma once

#include <functional>

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

/// Whether T[0, L) and A[0, AL) have a word in common.
template <class W>
bool words_overlap(const W* T, u64 L, const W* A, u64 AL) {
  const std::less<const W*> before;
  return before(T, A + AL) && before(A, T + L);
}

template <class W>
void shape_forward(const Parameters& shape, void* F, const W* A, u64 AL, void* tmp,
                   ParallelContext parallel) {
  if constexpr (sizeof(W) == 4)
    shape.forward(F, A, AL, tmp, parallel);
  else
    shape.forward_w(F, A, AL, tmp, parallel);
}

template <class W>
void shape_inverse_fsqr(const Parameters& shape, void* F, W* T, u64 skip, u64 len, void* tmp,
                        ParallelContext parallel) {
  if constexpr (sizeof(W) == 4)
    shape.inverse_fsqr(F, T, skip, len, tmp, parallel);
  else
    shape.inverse_fsqr_w(F, T, skip, len, tmp, parallel);
}

template <class W>
void shape_inverse_fmul(const Parameters& shape, void* F, const void* G, W* T, u64 skip, u64 len, void* tmp,
                        ParallelContext parallel) {
  if constexpr (sizeof(W) == 4)
    shape.inverse_fmul(F, G, T, skip, len, tmp, parallel);
  else
    shape.inverse_fmul_w(F, G, T, skip, len, tmp, parallel);
}

}  // namespace orl
