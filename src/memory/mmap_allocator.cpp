#include "memory/mmap_allocator.h"

#include <algorithm>
#include <cerrno>

#include "memory/mapped_memory.h"
#include "memory/mode_keys.h"

namespace orl {

std::unique_ptr<LargeMemory> MmapAllocator::allocate(u64 bytes, const ParallelContext& parallel,
                                                     std::vector<std::string>& errors) const {
  if (lock_pages_ != Mode::disabled) test_page_locking();
  std::unique_ptr<MappedMemory> memory;
  bytes = std::max<u64>(bytes, 1);
  if (large_pages_ != Mode::disabled) {
    memory = map_large_pages(bytes, parallel);
    if (memory == nullptr && large_pages_ == Mode::forced) {
      errors.push_back("Unable to force large pages.");
      return nullptr;
    }
    if (memory == nullptr) errors.push_back(with_reason("Unable to obtain large pages.", errno));
  }
  if (memory == nullptr) memory = map_small_pages(bytes, parallel);
  if (memory == nullptr) {
    errors.push_back(with_reason("Unable to map memory.", errno));
    return nullptr;
  }
  AllocationReport& report = memory->report_to_fill();
  if (lock_pages_ != Mode::disabled) {
    const int error = orl::lock_pages(memory->address(), memory->length());
    if (error == 0) report.locked_bytes = memory->length();
    if (error != 0 && lock_pages_ == Mode::forced) {
      errors.push_back("Unable to force locked pages.");
      return nullptr;
    }
    if (error != 0) errors.push_back(with_reason("Unable to lock pages.", error));
  }
  report.node_bytes = sample_nodes(memory->address(), memory->length());
  return memory;
}

std::string MmapAllocator::to_string() const {
  std::string text = kName;
  if (large_pages_ != Mode::disabled) text += "  (large pages: " + mode_to_word(large_pages_) + ")";
  if (lock_pages_ != Mode::disabled) text += "  (lock pages: " + mode_to_word(lock_pages_) + ")";
  return text;
}

void MmapAllocator::print_menu_rows(SettingsMenu& menu) const {
  menu.row("   3    Large Pages:", mode_to_string(large_pages_));
  menu.row("   4    Lock Pages in Memory:", mode_to_string(lock_pages_));
}

void MmapAllocator::handle_menu_choice(u64 choice, SettingsMenu&) {
  if (choice == 3) large_pages_ = next_mode(large_pages_);
  if (choice == 4) lock_pages_ = next_mode(lock_pages_);
}

void MmapAllocator::write_settings(Object& object) const {
  Object policy;
  policy.add_string("LargePages", mode_to_word(large_pages_));
  policy.add_string("LockPages", mode_to_word(lock_pages_));
  object.add_object("MemoryPolicy", std::move(policy));
}

void MmapAllocator::read_object(const Object& object) {
  if (!object.contains("MemoryPolicy")) return;
  const Object& policy = object.get_object("MemoryPolicy");
  const Mode large_pages = mode_or(policy, "LargePages", large_pages_);
  lock_pages_ = lock_mode_or(policy, lock_pages_);
  large_pages_ = large_pages;
}

}  // namespace orl
