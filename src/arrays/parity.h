// Parity of a row: the XOR of all files of a lane is all ones in every 64-bit word.
//
// It starts from ones so that bytes that were never written, zero in every file, do not pass for data.
#pragma once

#include <span>

#include "core/types.h"

namespace orl::R03 {

/// out = the complement of the XOR of the others, byte by byte: the parity of data pieces, or a lost piece from the
/// rest. All pieces are 64-byte aligned, `bytes` is a multiple of 64, `out` is none of `others`.
void complete_parity(u8* out, std::span<const u8* const> others, u64 bytes);

/// Whether the XOR of the pieces is all ones.
bool parity_holds(std::span<const u8* const> pieces, u64 bytes);

}  // namespace orl::R03
