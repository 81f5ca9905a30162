// Sizes rounded up to a multiple.
#pragma once

#include "core/types.h"

namespace orl {

/// The least multiple of `multiple` that is not below x; x + multiple must fit in 64 bits.
constexpr u64 round_up(u64 x, u64 multiple) { return (x + multiple - 1) / multiple * multiple; }
/// round_up() to the 8 bytes of a word, and to the 64 of a cache line.
constexpr u64 round_up_8(u64 x) { return (x + 7) & ~u64{7}; }
constexpr u64 round_up_64(u64 x) { return (x + 63) & ~u64{63}; }

}  // namespace orl
