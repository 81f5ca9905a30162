// Anonymous mappings as a block, and what the allocators do with their pages.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "memory/large_memory.h"

namespace orl {

/// A mapping that is unmapped when the object goes.
class MappedMemory final : public LargeMemory {
 public:
  /// Takes over a mapping of `length` bytes in pages of `page_size`.
  MappedMemory(void* address, u64 length, u64 page_size);
  ~MappedMemory() override;

  AllocationReport& report_to_fill() { return report_; }
};

// Each returns null, with errno set, when the system refuses. The length is rounded up to whole pages.

/// Pages that the administrator has reserved, populated by the call and touched by tds tasks.
std::unique_ptr<MappedMemory> map_large_pages(u64 bytes, const ParallelContext& parallel);
/// Small pages, populated by the calls and touched: tds tasks map chunks of the block and write the pattern
/// there, so that the kernel clears pages on all of them and each thread's node gets a share; with a tds of 1
/// one call maps the block.
std::unique_ptr<MappedMemory> map_small_pages(u64 bytes, const ParallelContext& parallel);
/// Small pages that appear on the node of the thread that first writes them.
std::unique_ptr<MappedMemory> map_unpopulated(u64 bytes);

/// Asks whether this process may lock pages at all, once, and says so on the console if it may not. It looks
/// at everything the process holds, so it belongs before the block is mapped.
void test_page_locking();
/// mlock() over the range: 0 or the error number.
int lock_pages(const void* address, u64 length);

/// "text (what the error number means)".
std::string with_reason(const std::string& text, int error);

}  // namespace orl
