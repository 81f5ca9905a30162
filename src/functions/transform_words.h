// Parameters' entries by word type.
#pragma once

#include "numbers/algorithm.h"

namespace orl {

inline void forward_words(const Parameters& shape, void* F, const u32* A, u64 L, void* tmp,
                          ParallelContext parallel) {
  shape.forward(F, A, L, tmp, parallel);
}
inline void forward_words(const Parameters& shape, void* F, const u64* A, u64 L, void* tmp,
                          ParallelContext parallel) {
  shape.forward_w(F, A, L, tmp, parallel);
}
/// T[0, len - skip) = words [skip, len) of the product; F is destroyed, G kept.
inline void inverse_words(const Parameters& shape, void* F, const void* G, u32* T, u64 skip, u64 len,
                          void* tmp, ParallelContext parallel) {
  shape.inverse_fmul(F, G, T, skip, len, tmp, parallel);
}
inline void inverse_words(const Parameters& shape, void* F, const void* G, u64* T, u64 skip, u64 len,
                          void* tmp, ParallelContext parallel) {
  shape.inverse_fmul_w(F, G, T, skip, len, tmp, parallel);
}

}  // namespace orl
