#include "memory/heap.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/exceptions.h"
#include "core/output.h"
#include "memory/raw_words.h"

namespace orl {

namespace {

constexpr u64 kGuard = 0x5451234810025523;
constexpr u64 kEntryBytes = 16;
// Owner, raw address, size and guard before the block, guard behind it.
constexpr u64 kOverheadBytes = 40;
constexpr u64 kTailBytes = 8;

u64 round_up_8(u64 size) {
  if (size > ~u64{7}) fatal_error("Memory Allocation Failure.");
  return (size + 7) & ~u64{7};
}

std::uintptr_t malloc_region(u64 size) {
  void* region = std::malloc(size);
  if (region == nullptr) {
    notice_line("Insufficient Memory or address space.", 'R');
    notice_value("Failed Allocation", "  " + std::to_string(size), 'R');
    fatal_exit(1);
  }
  return reinterpret_cast<std::uintptr_t>(region);
}

Heap* owner_of(std::uintptr_t raw) { return reinterpret_cast<Heap*>(load_word(raw)); }

void set_owner(std::uintptr_t raw, const Heap* owner) {
  store_word(raw, reinterpret_cast<std::uintptr_t>(owner));
}

}  // namespace

Heap::Heap(Source source, std::uintptr_t block, u64 block_bytes)
    : source_(source),
      block_(block),
      // A block of the parent opens with its owner word, which is how parent() stays right when the parent's
      // blocks move up in their turn.
      base_(source == Source::from_parent ? block + 8 : block),
      table_end_(block + block_bytes),
      used_end_(base_),
      table_limit_(table_end_),
      peak_used_end_(base_) {}

namespace {

std::uintptr_t checked_base(void* base) {
  const std::uintptr_t address = reinterpret_cast<std::uintptr_t>(base);
  if (address % 8 != 0) fatal_error("Alignment Error");
  return address;
}

}  // namespace

Heap::Heap(void* base, u64 size) : Heap(Source::borrowed, checked_base(base), size & ~u64{7}) {}

Heap::Heap(Heap* parent, u64 size)
    : Heap(parent != nullptr ? Source::from_parent : Source::from_malloc,
           parent != nullptr ? parent->allocate(std::max<u64>(round_up_8(size), 8))
                             : malloc_region(round_up_8(size)),
           parent != nullptr ? std::max<u64>(round_up_8(size), 8) : round_up_8(size)) {}

Heap::~Heap() {
  if (source_ != Source::from_parent) {
    if (count_ != 0) notice("Memory leak detected\n", 'R');
    if (source_ == Source::from_malloc) std::free(reinterpret_cast<void*>(block_));
    return;
  }
  Heap* const up = parent();
  up->release(block_);
  for (u64 i = 0; i < count_; ++i) {
    const Entry moved = entry(i);
    up->adopt(moved.start, moved.size);
  }
}

Heap* Heap::parent() const { return source_ == Source::from_parent ? owner_of(block_) : nullptr; }

std::uintptr_t Heap::allocate(u64 size) {
  const u64 room = table_limit_ - used_end_;
  if (room < kEntryBytes) fatal_error("Memory Allocation Failure.");
  std::uintptr_t gap = base_;
  for (u64 i = 0; i < count_; ++i) {
    if (entry(i).start - gap >= size) {
      insert_entry(i, gap, size);
      set_owner(gap, this);
      return gap;
    }
    gap = end_of(i);
  }
  if (room - kEntryBytes < size) fatal_error("Memory Allocation Failure.");
  insert_entry(count_, gap, size);
  set_owner(gap, this);
  return gap;
}

void Heap::insert_entry(u64 index, std::uintptr_t start, u64 size) {
  table_limit_ -= kEntryBytes;
  std::memmove(reinterpret_cast<void*>(table_limit_), reinterpret_cast<void*>(table_limit_ + kEntryBytes),
               (count_ - index) * kEntryBytes);
  entry(index) = {start, size};
  ++count_;
  used_end_ = end_of(count_ - 1);
  peak_count_ = std::max(peak_count_, count_);
  peak_used_end_ = std::max(peak_used_end_, used_end_);
}

/// The last entry that starts at or below `address`, or 0. The table is not empty.
u64 Heap::find_slot(std::uintptr_t address) const {
  u64 low = 0;
  u64 high = count_;
  while (high - low > 1) {
    const u64 middle = low + (high - low) / 2;
    (entry(middle).start <= address ? low : high) = middle;
  }
  return low;
}

u64 Heap::find_exact(std::uintptr_t start) const {
  if (count_ == 0) fatal_error("Heap is empty.");
  const u64 index = find_slot(start);
  if (entry(index).start != start) fatal_error("Heap Inconsistency");
  return index;
}

void Heap::release(std::uintptr_t start) {
  const u64 index = find_exact(start);
  std::memmove(reinterpret_cast<void*>(table_limit_ + kEntryBytes), reinterpret_cast<void*>(table_limit_),
               (count_ - index - 1) * kEntryBytes);
  table_limit_ += kEntryBytes;
  --count_;
  used_end_ = count_ == 0 ? base_ : end_of(count_ - 1);
}

/// Enters a block that a finished sub-heap leaves behind.
void Heap::adopt(std::uintptr_t start, u64 size) {
  // The block lies inside the region that the sub-heap has just given back, so only the table can lack room.
  const u64 index = count_ == 0 || entry(0).start > start ? 0 : find_slot(start) + 1;
  const std::uintptr_t blocks_end = std::max<std::uintptr_t>(used_end_, start + size);
  if (table_limit_ < blocks_end + kEntryBytes) {
    fatal_error("Critical Internal Assertion Failure: APIs-448");
  }
  insert_entry(index, start, size);
  set_owner(start, this);
}

void Heap::expand(std::uintptr_t start, u64 size) {
  const u64 index = find_exact(start);
  if (entry(index).size >= size) return;
  const std::uintptr_t limit = index + 1 < count_ ? entry(index + 1).start : table_limit_;
  if (limit - start < size) fatal_error("Unable to expand block.");
  entry(index).size = size;
  used_end_ = end_of(count_ - 1);
  peak_used_end_ = std::max(peak_used_end_, used_end_);
}

std::string Heap::dump() const {
  std::string text = "Heap Table Dump:\n";
  const auto line = [&text](const char* format, auto... values) {
    char buffer[128];
    std::snprintf(buffer, sizeof buffer, format, values...);
    text += buffer;
  };
  line("Parent              : 0x%016" PRIxPTR "\n", reinterpret_cast<std::uintptr_t>(parent()));
  line("Total Size          : %" PRIu64 "\n", total_size());
  line("Active Allocations  : %" PRIu64 "\n", active_allocations());
  line("Peak Allocations    : %" PRIu64 "\n", peak_allocations());
  line("Current Usage       : %" PRIu64 "\n", current_usage());
  line("Peak Heap Usage     : %" PRIu64 "\n", peak_usage());
  line("\n%18s  %18s  %18s  %18s\n", "Start", "End", "   Size", "Free Space");
  line("Base: 0x%016" PRIxPTR "\n", base_);
  u64 gaps = 0;
  std::uintptr_t previous = base_;
  for (u64 i = 0; i < count_; ++i) {
    const Entry& e = entry(i);
    line("0x%016" PRIx64 "  0x%016" PRIx64 "  %18" PRIu64 "  %18" PRIu64 "\n", e.start, e.start + e.size,
         e.size, e.start - previous);
    gaps += e.start - previous;
    previous = e.start + e.size;
  }
  if (count_ == 0) text += "No Active Allocations\n";
  line("Table Limit         : 0x%016" PRIxPTR "\n", table_limit_);
  line("Fragmentation       : %" PRIu64 "\n", gaps);
  return text;
}

void* heap_malloc(Heap* heap, u64 size, u64 align) {
  const u64 rounded = round_up_8(size);
  align = std::max<u64>(align, 8);
  u64 region = 0;
  if (__builtin_add_overflow(rounded, align + kOverheadBytes, &region)) {
    fatal_error("Memory Allocation Failure.");
  }
  const std::uintptr_t raw = heap != nullptr ? heap->allocate(region) : malloc_region(region);
  set_owner(raw, heap);
  const std::uintptr_t block = ((raw + 32) & ~(align - 1)) + align;
  store_word(block - 24, raw);
  store_word(block - 16, rounded);
  store_word(block - 8, kGuard);
  store_word(block + rounded, kGuard);
  return reinterpret_cast<void*>(block);
}

void heap_free(void* pointer) {
  if (pointer == nullptr) return;
  const std::uintptr_t block = reinterpret_cast<std::uintptr_t>(pointer);
  if (load_word(block - 8) != kGuard) fatal_error("Memory buffer has been underrun.");
  if (load_word(block + load_word(block - 16)) != kGuard) fatal_error("Memory buffer has been overrun.");
  const std::uintptr_t raw = load_word(block - 24);
  Heap* const heap = owner_of(raw);
  if (heap == nullptr) {
    std::free(reinterpret_cast<void*>(raw));
  } else {
    heap->release(raw);
  }
}

void expand_block(void* pointer, u64 new_size) {
  if (new_size == 0) return;
  const std::uintptr_t block = reinterpret_cast<std::uintptr_t>(pointer);
  const std::uintptr_t raw = load_word(block - 24);
  Heap* const heap = owner_of(raw);
  if (heap == nullptr) fatal_error("Pointer not associated with a heap.");
  const u64 rounded = round_up_8(new_size);
  if (rounded <= load_word(block - 16)) return;
  // The distance of the block from its raw address depends on its alignment, so the extent is taken from
  // where the block really stands; the guard behind it belongs to the entry whatever the alignment was.
  heap->expand(raw, block - raw + rounded + kTailBytes);
  store_word(block - 16, rounded);
  store_word(block + rounded, kGuard);
}

}  // namespace orl
