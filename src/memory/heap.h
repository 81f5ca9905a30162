// A first-fit heap inside one given region, for the long-lived numbers of a computation.
//
// Layout    Blocks grow upward from `base`; the table of allocations grows downward from the end of the
//           region, one 16-byte entry (start, size) a block, sorted by address with the lowest block at the
//           top of memory. The heap needs no other memory.
// Threads   One at a time; there is no lock.
// Failures  are fatal: the memory is in an unknown state, so nothing is unwound.
#pragma once

#include <cstddef>
#include <string>

#include "core/types.h"

namespace orl {

/// See the head of this file.
class Heap {
 public:
  /// Manages `size` bytes (rounded down to a multiple of 8) at `base`, which stay the caller's. Fatal
  /// "Alignment Error" unless `base` is a multiple of 8.
  Heap(void* base, u64 size);
  /// Takes `size` bytes (rounded up to a multiple of 8) as one block from `parent`; fatal "Memory Allocation
  /// Failure." when it does not fit. Without a parent the memory comes from malloc.
  Heap(Heap* parent, u64 size);
  Heap(std::nullptr_t, u64 size) : Heap(static_cast<Heap*>(nullptr), size) {}
  Heap(const Heap&) = delete;
  Heap& operator=(const Heap&) = delete;
  /// Gives the region back. Blocks that are still allocated go up to the parent without being moved in
  /// memory; without a parent they are reported as "Memory leak detected".
  ~Heap();

  /// The heap to which blocks that are left over go; null when there is none.
  Heap* parent() const;
  u64 active_allocations() const { return count_; }
  u64 peak_allocations() const { return peak_count_; }
  u64 current_usage() const { return used_end_ - base_; }
  u64 peak_usage() const { return peak_used_end_ - base_; }
  u64 total_size() const { return table_end_ - base_; }
  /// Bytes between the highest block and the table.
  u64 free_at_top() const { return table_limit_ - used_end_; }

  /// The state and every entry as text, for a failure report.
  std::string dump() const;

 private:
  friend void* heap_malloc(Heap*, u64, u64);
  friend void heap_free(void*);
  friend void expand_block(void*, u64);

  struct Entry {
    u64 start;
    u64 size;
  };
  enum class Source { borrowed, from_malloc, from_parent };

  Heap(Source source, std::uintptr_t block, u64 block_bytes);

  Entry& entry(u64 index) const { return reinterpret_cast<Entry*>(table_end_)[-static_cast<s64>(index) - 1]; }
  u64 end_of(u64 index) const { return entry(index).start + entry(index).size; }
  std::uintptr_t allocate(u64 size);
  void release(std::uintptr_t start);
  u64 find_slot(std::uintptr_t address) const;
  u64 find_exact(std::uintptr_t start) const;
  void insert_entry(u64 index, std::uintptr_t start, u64 size);
  void adopt(std::uintptr_t start, u64 size);
  void expand(std::uintptr_t start, u64 size);

  Source source_;
  std::uintptr_t block_;  ///< what is given back in the end
  std::uintptr_t base_;
  std::uintptr_t table_end_;
  std::uintptr_t used_end_;
  std::uintptr_t table_limit_;
  u64 count_ = 0;
  u64 peak_count_ = 0;
  std::uintptr_t peak_used_end_;
};

/// `size` bytes at a multiple of `align` (a power of two; at least 8), with guards on both sides. From malloc
/// when `heap` is null. Fatal "Memory Allocation Failure." when there is no room.
void* heap_malloc(Heap* heap, u64 size, u64 align);
/// Null is ignored. Fatal when a guard has changed.
void heap_free(void* pointer);
/// Makes a block of a heap `new_size` bytes long where it stands; never makes it smaller. Fatal "Unable to
/// expand block." when the next block is in the way.
void expand_block(void* pointer, u64 new_size);

}  // namespace orl
