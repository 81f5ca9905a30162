// What touched memory holds, and allocations as tests make them.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "memory/allocators.h"
#include "threads/push_pool_framework.h"

namespace orl::test {

/// Checks the aligned words of a piece and the bytes that no aligned word covers.
inline void check_pattern(const void* piece, u64 length) {
  const u8* const begin = static_cast<const u8*>(piece);
  const u64 head = -reinterpret_cast<u64>(begin) % 4;
  if (length <= head) return;
  const u64 words = (length - head) / 4;
  for (u64 i = 0; i < words; ++i) {
    u32 word;
    std::memcpy(&word, begin + head + 4 * i, 4);
    const u32 expected = static_cast<u32>(i) * static_cast<u32>(i) * 0xC82B9175u - 933796325u;
    ASSERT_EQ(word, expected) << "word " << i << " of " << length << " bytes";
  }
  if (head != 0) {
    ASSERT_EQ(begin[0], '{');
  }
  if (head + 4 * words != length) {
    ASSERT_EQ(begin[length - 1], '@');
  }
}

/// Checks a block that was touched with a context of this tds.
inline void check_patterns(const void* block, u64 length, u64 tds) {
  const u64 pieces = std::max<u64>(tds / 4, 1);
  const u64 piece = (length + pieces - 1) / pieces;
  for (u64 begin = 0; begin < length; begin += piece) {
    ASSERT_NO_FATAL_FAILURE(
        check_pattern(static_cast<const u8*>(block) + begin, std::min(piece, length - begin)));
  }
}

struct Allocation {
  std::unique_ptr<LargeMemory> memory;
  std::vector<std::string> errors;
};

inline Allocation allocate(const MemoryAllocator& allocator, u64 bytes, u64 tds = 16) {
  Parallelizer_PushPool pool;
  Allocation result;
  result.memory = allocator.allocate(bytes, {pool, tds}, result.errors);
  return result;
}

}  // namespace orl::test
