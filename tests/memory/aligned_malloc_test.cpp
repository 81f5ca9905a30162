#include "memory/aligned_malloc.h"

#include <gtest/gtest.h>

#include <cstring>
#include <new>

#include "support/thrown.h"

namespace orl::test {
namespace {

std::string refusal_to_free(void* block) {
  return refusal<InvalidParametersException>([=] { aligned_free(block); });
}

TEST(AlignedMalloc, AlignsAndGuardsEverySize) {
  for (const u64 align : {1, 8, 16, 64, 4096}) {
    for (const u64 size : {0, 1, 7, 8, 100, 5000}) {
      SCOPED_TRACE(std::to_string(size) + " at " + std::to_string(align));
      u8* block = static_cast<u8*>(aligned_malloc(size, align));
      EXPECT_EQ(reinterpret_cast<u64>(block) % std::max<u64>(align, 8), 0u);
      std::memset(block, 0xff, size);
      block[-1] ^= 1;
      EXPECT_EQ(refusal_to_free(block), "aligned_free() Memory buffer has been underrun.");
      block[-1] ^= 1;
      block[size] ^= 1;
      EXPECT_EQ(refusal_to_free(block), "aligned_free() Memory buffer has been overrun.");
      block[size] ^= 1;
      EXPECT_EQ(refusal_to_free(block), "accepted");
    }
  }
  aligned_free(nullptr);
}

TEST(AlignedMalloc, RefusesOddAlignmentsAndImpossibleSizes) {
  EXPECT_THROW(aligned_malloc(8, 24), InvalidParametersException);
  // The sanitizers' malloc would end the process at a size that is merely too large.
  EXPECT_THROW(aligned_malloc(~u64{0} - 8, 64), std::bad_alloc);
}

TEST(AlignedMalloc, ListsWhatHasNotBeenFreed) {
  void* block = aligned_malloc(123456, 64);
  EXPECT_NE(list_active_allocations().find(" 123456\n"), std::string::npos);
  aligned_free(block);
  EXPECT_EQ(list_active_allocations().find(" 123456\n"), std::string::npos);
}

}  // namespace
}  // namespace orl::test
