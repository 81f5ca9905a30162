#include "memory/aligned_malloc.h"

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <new>

#include "core/exceptions.h"
#include "memory/raw_words.h"

namespace orl {

namespace {

constexpr u64 kHeadGuard = 0xEA097BE64BD0187D;
constexpr u64 kTailGuard = 0xC72BF73F0559CFE4;
constexpr u64 kHeaderBytes = 24;
constexpr u64 kOverheadBytes = 32;  // three words before the block, one behind it

struct ActiveAllocations {
  std::mutex mutex;
  std::map<std::uintptr_t, u64> sizes;
};

// Never destroyed: static objects of others may free blocks after any static object of ours would be gone.
ActiveAllocations& active_allocations() {
  static ActiveAllocations* const active = new ActiveAllocations;
  return *active;
}

void* malloc_or_throw(u64 size, u64 align) {
  u64 bytes = 0;
  if (__builtin_add_overflow(size, align + kOverheadBytes, &bytes)) throw std::bad_alloc();
  void* buffer = std::malloc(bytes);
  if (buffer == nullptr) throw std::bad_alloc();
  return buffer;
}

}  // namespace

void* aligned_malloc(u64 size, u64 align) {
  if (align < 8) align = 8;
  if ((align & (align - 1)) != 0) {
    throw InvalidParametersException("aligned_malloc()", "Alignment must be a power of two.");
  }
  void* buffer = malloc_or_throw(size, align);
  const std::uintptr_t raw = reinterpret_cast<std::uintptr_t>(buffer);
  const std::uintptr_t block = ((raw + kHeaderBytes) & ~(align - 1)) + align;
  store_word(block - 24, raw);
  store_word(block - 16, size);
  store_word(block - 8, kHeadGuard);
  store_word(block + size, kTailGuard);
  try {
    ActiveAllocations& active = active_allocations();
    std::lock_guard lock(active.mutex);
    active.sizes.emplace(block, size);
  } catch (...) {
    std::free(buffer);
    throw;
  }
  return reinterpret_cast<void*>(block);
}

void aligned_free(void* pointer) {
  if (pointer == nullptr) return;
  const std::uintptr_t block = reinterpret_cast<std::uintptr_t>(pointer);
  if (load_word(block - 8) != kHeadGuard) {
    throw InvalidParametersException("aligned_free()", "Memory buffer has been underrun.");
  }
  if (load_word(block + load_word(block - 16)) != kTailGuard) {
    throw InvalidParametersException("aligned_free()", "Memory buffer has been overrun.");
  }
  {
    ActiveAllocations& active = active_allocations();
    std::lock_guard lock(active.mutex);
    active.sizes.erase(block);
  }
  std::free(reinterpret_cast<void*>(load_word(block - 24)));
}

std::string list_active_allocations() {
  ActiveAllocations& active = active_allocations();
  std::lock_guard lock(active.mutex);
  std::string text = "List of Active Allocations:\n";
  for (const auto& [start, size] : active.sizes) {
    char line[64];
    std::snprintf(line, sizeof line, "    0x%016" PRIxPTR "  %20" PRIu64 "\n", start, size);
    text += line;
  }
  return text;
}

}  // namespace orl
