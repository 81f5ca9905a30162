// The interleaving of libnuma as a source of the large block.
#pragma once

#include "memory/allocators.h"

namespace orl {

/// Blocks that the library spreads over nodes.
class LibNumaAllocator final : public MemoryAllocator {
 public:
  static constexpr const char* kName = "Node Interleaving (libnuma)";

  /// On all usable nodes.
  LibNumaAllocator();

  /// Throws InvalidParametersException "NUMA is not available on this system." from
  /// "LargeMemory_NodeInterleavingLibNuma()" where it is not.
  std::unique_ptr<LargeMemory> allocate(u64 bytes, const ParallelContext& parallel,
                                        std::vector<std::string>& errors) const override;
  const char* key() const override { return "interleave-libnuma"; }
  const char* name() const override { return kName; }
  std::string to_string() const override;
  void print_menu_rows(SettingsMenu& menu) const override;
  void handle_menu_choice(u64 choice, SettingsMenu& menu) override;
  void write_settings(Object& object) const override;
  void read_object(const Object& object) override;

  const std::vector<u32>& nodes() const { return nodes_; }

 private:
  std::vector<u32> nodes_;
};

}  // namespace orl
