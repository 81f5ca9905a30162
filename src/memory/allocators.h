// Where the large block of a computation comes from.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "memory/large_memory.h"
#include "threads/registry.h"

namespace orl {

/// A source of large blocks, with its settings.
class MemoryAllocator {
 public:
  virtual ~MemoryAllocator() = default;

  /// At least `bytes` bytes, touched by the threads of `parallel` where the allocator maps pages itself. Null
  /// when the machine refuses. Each failure of a step is added to `errors` as a text, fatal or not.
  virtual std::unique_ptr<LargeMemory> allocate(u64 bytes, const ParallelContext& parallel,
                                                std::vector<std::string>& errors) const = 0;

  /// The word of the command line and of configuration files; the name in menus and reports.
  virtual const char* key() const = 0;
  virtual const char* name() const = 0;
  /// One line for reports.
  virtual std::string to_string() const { return name(); }
  /// The allocator's own rows of the settings menu, and its answer to a choice among them.
  virtual void print_menu_rows(SettingsMenu&) const {}
  virtual void handle_menu_choice(u64, SettingsMenu&) {}
  /// The allocator's settings as an object of their own, with the key under "Allocator".
  virtual Object to_object() const;
  /// Adds the allocator's own keys to `object`; read_object takes them from there. A key that is absent
  /// leaves its setting alone; an unknown word throws InvalidParametersException.
  virtual void write_settings(Object&) const {}
  virtual void read_object(const Object&) {}
};

using AllocatorType = RegistryEntry<MemoryAllocator>;

/// Fills the registry. To be called once, from main; a key that is registered twice ends the program:
/// "Duplicate Allocator Type".
void register_allocators();
/// In order of registration.
const std::vector<AllocatorType>& allocators();
/// A fresh allocator with its default settings. Throws InvalidParametersException "Invalid Memory Allocator:
/// " and the key for an unknown one.
std::unique_ptr<MemoryAllocator> create_allocator(const std::string& key);
/// "mmap".
std::string default_allocator_key();

/// allocate(), or the end of the program: "Large heap allocation failed.", the errors and the size, status 1.
std::unique_ptr<LargeMemory> allocate_or_exit(const MemoryAllocator& allocator, u64 bytes,
                                              const ParallelContext& parallel,
                                              std::vector<std::string>& errors);

}  // namespace orl
