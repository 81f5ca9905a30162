#include <algorithm>
#include <cerrno>
#include <set>

#include "core/exceptions.h"
#include "memory/allocator_kinds.h"
#include "memory/mapped_memory.h"
#include "memory/memory_calls.h"
#include "memory/node_list.h"
#include "memory/node_placement.h"

namespace orl {

namespace {

class LargeMemory_NodeInterleavingLibNuma final : public LargeMemory {
 public:
  /// address() is null when the machine refuses.
  LargeMemory_NodeInterleavingLibNuma(u64 bytes, const std::vector<u32>& nodes) : LargeMemory(nullptr, 0) {
    if (memory_calls().numa_available() < 0) {
      throw InvalidParametersException("LargeMemory_NodeInterleavingLibNuma()",
                                       "NUMA is not available on this system.");
    }
    const u64 length = (bytes + kSmallPageBytes - 1) & ~(kSmallPageBytes - 1);
    errno = ENOMEM;
    if (length < bytes) return;
    address_ = memory_calls().numa_alloc_interleaved_subset(length, nodes);
    if (address_ != nullptr) length_ = report_.total_bytes = length;
  }
  ~LargeMemory_NodeInterleavingLibNuma() override {
    if (address_ != nullptr) memory_calls().numa_free(address_, length_);
  }

  void sample() { report_.node_bytes = sample_nodes(address_, length_); }
};

/// The library says on standard error that the kernel refused its policy, and gives ordinary pages.
void check_nodes(const AllocationReport& report, const std::vector<u32>& chosen,
                 std::vector<std::string>& errors) {
  std::set<int> missing(chosen.begin(), chosen.end());
  for (const auto& [node, bytes] : report.node_bytes) {
    if (missing.erase(node) == 0)
      errors.push_back("Pages lie on node " + std::to_string(node) + ", which was not chosen.");
  }
  const bool enough_pages = report.total_bytes / kSmallPageBytes >= 16 * chosen.size();
  if (report.node_bytes.empty() || !enough_pages) return;
  for (const int node : missing)
    errors.push_back("No pages lie on node " + std::to_string(node) + ", which was chosen.");
}

constexpr const char* kKey = "interleave-libnuma";
constexpr const char* kName = "Node Interleaving (libnuma)";

class LibNumaAllocator final : public MemoryAllocator {
 public:
  const char* key() const override { return kKey; }
  const char* name() const override { return kName; }

  std::unique_ptr<LargeMemory> allocate(u64 bytes, const ParallelContext& parallel,
                                        std::vector<std::string>& errors) const override {
    auto memory = std::make_unique<LargeMemory_NodeInterleavingLibNuma>(std::max<u64>(bytes, 1), nodes_);
    if (memory->address() == nullptr) {
      errors.push_back(with_reason("Unable to map memory.", errno));
      return nullptr;
    }
    if (!has_numa_nodes()) errors.push_back(kNothingToInterleave);
    touch_memory(memory->address(), memory->length(), parallel);
    memory->sample();
    check_nodes(memory->report(), nodes_, errors);
    return memory;
  }

  std::string to_string() const override {
    return std::string(kName) + "  (nodes: " + node_list_text(nodes_) + ")";
  }
  void print_menu_rows(SettingsMenu& menu) const override {
    menu.row("   3    NUMA nodes:", node_list_text(nodes_));
    menu.text("");
    menu.text(kInterleaveNote);
  }
  void handle_menu_choice(u64 choice, SettingsMenu& menu) override {
    if (choice == 3) nodes_ = ask_nodes(menu);
  }
  void write_settings(Object& object) const override { write_nodes(object, nodes_); }
  void read_object(const Object& object) override { nodes_ = read_nodes(object, nodes_); }

 private:
  std::vector<u32> nodes_ = usable_nodes();
};

}  // namespace

AllocatorType libnuma_allocator() {
  return {kKey, kName,
          []() -> std::unique_ptr<MemoryAllocator> { return std::make_unique<LibNumaAllocator>(); }};
}

}  // namespace orl
