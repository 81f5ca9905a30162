// Anonymous mappings as a source of the large block.
#pragma once

#include "memory/allocators.h"

namespace orl {

/// Every page is there, and was first touched by the threads of the framework, when allocate() returns.
/// Settings, in an object under "MemoryPolicy": LargePages (pages that the administrator has reserved) and
/// LockPages.
class MmapAllocator final : public MemoryAllocator {
 public:
  static constexpr const char* kName = "POSIX mmap()";

  std::unique_ptr<LargeMemory> allocate(u64 bytes, const ParallelContext& parallel,
                                        std::vector<std::string>& errors) const override;
  const char* key() const override { return "mmap"; }
  const char* name() const override { return kName; }
  std::string to_string() const override;
  void print_menu_rows(SettingsMenu& menu) const override;
  void handle_menu_choice(u64 choice, SettingsMenu& menu) override;
  void write_settings(Object& object) const override;
  void read_object(const Object& object) override;

  Mode large_pages() const { return large_pages_; }
  Mode lock_pages() const { return lock_pages_; }
  /// Off, attempted or forced.
  void set_large_pages(Mode mode) { large_pages_ = mode; }
  void set_lock_pages(Mode mode) { lock_pages_ = mode; }

 private:
  Mode large_pages_ = Mode::disabled;
  Mode lock_pages_ = Mode::disabled;
};

}  // namespace orl
