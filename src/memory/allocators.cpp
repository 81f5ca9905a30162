#include "memory/allocators.h"

#include "config/object.h"
#include "core/exceptions.h"
#include "core/format.h"
#include "core/output.h"
#include "memory/allocator_kinds.h"
#include "memory/interleave_allocator.h"
#include "memory/mmap_allocator.h"

namespace orl {

namespace {

Registry<MemoryAllocator>& registry() {
  static Registry<MemoryAllocator> table;
  return table;
}

void register_allocator(const AllocatorType& type) {
  if (!registry().add(type)) fatal_error("Duplicate Allocator Type");
}

template <class Allocator>
std::unique_ptr<MemoryAllocator> make() {
  return std::make_unique<Allocator>();
}

}  // namespace

void register_allocators() {
  register_allocator(malloc_allocator());
  register_allocator({"mmap", MmapAllocator::kName, make<MmapAllocator>});
  register_allocator({"interleave", InterleaveAllocator::kName, make<InterleaveAllocator>});
  register_allocator(libnuma_allocator());
}

const std::vector<AllocatorType>& allocators() { return registry().entries(); }

std::unique_ptr<MemoryAllocator> create_allocator(const std::string& key) {
  const AllocatorType* type = registry().find(key);
  if (type == nullptr) {
    throw InvalidParametersException("create_allocator()", "Invalid Memory Allocator: " + key);
  }
  return type->create();
}

std::string default_allocator_key() { return "mmap"; }

Object MemoryAllocator::to_object() const {
  Object object;
  object.add_string("Allocator", key());
  write_settings(object);
  return object;
}

std::unique_ptr<LargeMemory> allocate_or_exit(const MemoryAllocator& allocator, u64 bytes,
                                              const ParallelContext& parallel,
                                              std::vector<std::string>& errors) {
  std::unique_ptr<LargeMemory> memory = allocator.allocate(bytes, parallel, errors);
  if (memory != nullptr) return memory;
  notice("\n", ' ');
  notice_line("Large heap allocation failed.", 'R');
  for (const std::string& error : errors) notice_line("Allocation Error: " + error, 'R');
  notice_value("Failed Allocation", "  " + format_with_commas(bytes) + " bytes", 'R');
  notice("\n", ' ');
  fatal_exit(1);
}

}  // namespace orl
