#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "memory/allocator_kinds.h"

namespace orl {

namespace {

constexpr u64 kAlignment = 64;

class MallocMemory final : public LargeMemory {
 public:
  MallocMemory(void* block, u64 length) : LargeMemory(align(block), length), block_(block) {
    report_.total_bytes = length;
  }
  ~MallocMemory() override { std::free(block_); }

 private:
  static void* align(void* block) {
    const std::uintptr_t address = reinterpret_cast<std::uintptr_t>(block);
    return reinterpret_cast<void*>((address + kAlignment - 1) & ~(kAlignment - 1));
  }

  void* block_;
};

constexpr const char* kKey = "malloc";
constexpr const char* kName = "C malloc()";

class MallocAllocator final : public MemoryAllocator {
 public:
  const char* key() const override { return kKey; }
  const char* name() const override { return kName; }

  std::unique_ptr<LargeMemory> allocate(u64 bytes, const ParallelContext&,
                                        std::vector<std::string>& errors) const override {
    const bool representable = bytes <= std::numeric_limits<u64>::max() - kAlignment;
    void* block = representable ? std::malloc(bytes + kAlignment) : nullptr;
    if (block == nullptr) {
      errors.push_back(std::string("malloc() failed: ") + std::strerror(ENOMEM));
      return nullptr;
    }
    return std::make_unique<MallocMemory>(block, bytes);
  }
};

}  // namespace

AllocatorType malloc_allocator() {
  return {kKey, kName,
          []() -> std::unique_ptr<MemoryAllocator> { return std::make_unique<MallocAllocator>(); }};
}

}  // namespace orl
