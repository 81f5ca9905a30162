// The C library's malloc as a source of the large block.
#pragma once

#include "memory/allocators.h"

namespace orl {

/// Pages are not touched: they appear when the computation first writes them.
class MallocAllocator final : public MemoryAllocator {
 public:
  static constexpr const char* kName = "C malloc()";

  std::unique_ptr<LargeMemory> allocate(u64 bytes, const ParallelContext& parallel,
                                        std::vector<std::string>& errors) const override;
  const char* key() const override { return "malloc"; }
  const char* name() const override { return kName; }
};

}  // namespace orl
