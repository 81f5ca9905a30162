// One mapping whose blocks of pages are placed on the chosen NUMA nodes by the program itself.
//
// Block    2 MiB, doubled until a mapping has at most 16384 blocks: each block that is bound to another node
//          than its neighbour is a mapping of its own to the kernel, which allows 65530 in a process.
// Mapping  round-robin gives block b to entry b mod n of the list. Hashed turns each group of n blocks by a
//          hash of the group's number: as even, but strides of a power of two no longer meet a single node.
#pragma once

#include "memory/allocators.h"

namespace orl {

/// What a user may choose.
struct InterleaveSettings {
  std::vector<u32> nodes;  ///< not empty; a node that stands there twice gets two shares
  bool hashed = true;
  bool call_mbind = true;  ///< otherwise pages go where the thread runs that first writes them
  Mode lock_pages = Mode::disabled;
  Mode bind = Mode::attempt;  ///< never disabled
};

/// Bytes of a block in a mapping of `length_bytes`, and the entry of the list of n nodes to which it goes.
u64 interleave_block_bytes(u64 length_bytes);
u64 interleave_entry(u64 block, u64 n, bool hashed);

/// Blocks whose pages the program places itself.
class InterleaveAllocator final : public MemoryAllocator {
 public:
  static constexpr const char* kName = "Node Interleaving";

  /// On all usable nodes.
  InterleaveAllocator();

  std::unique_ptr<LargeMemory> allocate(u64 bytes, const ParallelContext& parallel,
                                        std::vector<std::string>& errors) const override;
  const char* key() const override { return "interleave"; }
  const char* name() const override { return kName; }
  std::string to_string() const override;
  void print_menu_rows(SettingsMenu& menu) const override;
  void handle_menu_choice(u64 choice, SettingsMenu& menu) override;
  void write_settings(Object& object) const override;
  void read_object(const Object& object) override;

  const InterleaveSettings& settings() const { return settings_; }
  /// Takes the settings as they are; allocate() says what the machine refuses.
  void set(InterleaveSettings settings) { settings_ = std::move(settings); }

 private:
  InterleaveSettings settings_;
};

/// A block for one thread's own work, interleaved over all usable nodes and touched by the calling thread.
/// Several threads may call it at once.
std::unique_ptr<LargeMemory> allocate_interleaved(u64 bytes, std::vector<std::string>& errors);

}  // namespace orl
