// Small aligned blocks with guard words on both sides.
#pragma once

#include <memory>
#include <string>

#include "core/types.h"

namespace orl {

/// `size` bytes at a multiple of `align`, which must be a power of two (8 is used for anything smaller).
/// Throws InvalidParametersException "Alignment must be a power of two." and std::bad_alloc.
void* aligned_malloc(u64 size, u64 align);
/// Null is ignored. Throws InvalidParametersException "Memory buffer has been underrun." or "... overrun."
/// when a guard has changed; the block is then kept.
void aligned_free(void* pointer);

/// Frees an aligned block.
struct AlignedFree {
  /// Null is ignored.
  void operator()(void* pointer) const { aligned_free(pointer); }
};
/// An aligned block that goes with its owner: AlignedBlock(aligned_malloc(size, align)).
using AlignedBlock = std::unique_ptr<void, AlignedFree>;

/// "List of Active Allocations:" with one line for each block that has not been freed.
std::string list_active_allocations();

}  // namespace orl
