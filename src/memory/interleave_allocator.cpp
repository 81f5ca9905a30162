#include "memory/interleave_allocator.h"

#include <algorithm>
#include <cerrno>

#include "core/exceptions.h"
#include "memory/mapped_memory.h"
#include "memory/mode_keys.h"
#include "memory/node_list.h"
#include "memory/node_placement.h"
#include "threads/simple_frameworks.h"

namespace orl {

namespace {

constexpr u64 kMostBlocks = 16384;
constexpr u64 kLeastSamples = 1024;  ///< in a mapping; at least one per block

/// What one thread found out about the blocks of its node.
struct PlacedShare {
  bool thread_bound = true;
  int bind_error = 0;
  int lock_error = 0;
  u64 locked_bytes = 0;
};

class Placement {
 public:
  Placement(MappedMemory& memory, const InterleaveSettings& settings)
      : memory_(memory),
        settings_(settings),
        block_bytes_(interleave_block_bytes(memory.length())),
        blocks_((memory.length() + block_bytes_ - 1) / block_bytes_) {}

  /// Places, touches and locks all blocks: a thread of its own for each node, or several of them when there
  /// are more than four tasks per node.
  void run(const ParallelContext& parallel, std::vector<std::string>& errors) {
    const u64 nodes = settings_.nodes.size();
    const u64 shares = nodes * std::max<u64>(parallel.tds / 4 / nodes, 1);
    std::vector<PlacedShare> results(shares);
    fork_range(parallel.parallelizer, 0, shares, [&](u64 share) { results[share] = place(share, shares); });
    report(results, errors);
  }

  /// Samples the pages of every block. Returns the nodes that miss some of theirs, and fills the report.
  std::vector<u32> check() {
    const u64 samples = std::max<u64>(kLeastSamples / blocks_, 1);
    std::vector<u32> missing;
    std::map<int, u64>& found = memory_.report_to_fill().node_bytes;
    for (u64 block = 0; block < blocks_; ++block) {
      const u32 wanted = node_of(block);
      for (const auto& [node, bytes] : sample_nodes(address(block), length(block), samples)) {
        found[node] += bytes;
        if (node != static_cast<int>(wanted)) missing.push_back(wanted);
      }
    }
    std::sort(missing.begin(), missing.end());
    missing.erase(std::unique(missing.begin(), missing.end()), missing.end());
    return missing;
  }

 private:
  u64 entry_of(u64 block) const { return interleave_entry(block, settings_.nodes.size(), settings_.hashed); }
  u32 node_of(u64 block) const { return settings_.nodes[entry_of(block)]; }
  char* address(u64 block) const { return static_cast<char*>(memory_.address()) + block * block_bytes_; }
  u64 length(u64 block) const { return std::min(block_bytes_, memory_.length() - block * block_bytes_); }

  PlacedShare place(u64 share, u64 shares) const {
    const u64 n = settings_.nodes.size();
    const u64 ways = shares / n;
    const NodeThread on_node(settings_.nodes[share % n]);
    PlacedShare result;
    result.thread_bound = on_node.bound();
    // Groups of n blocks hold each entry once.
    for (u64 group = share / n; group * n < blocks_; group += ways) {
      for (u64 block = group * n; block < std::min(blocks_, (group + 1) * n); ++block)
        if (entry_of(block) == share % n) place_block(block, result);
    }
    return result;
  }

  void place_block(u64 block, PlacedShare& result) const {
    char* const begin = address(block);
    if (settings_.call_mbind) {
      if (const int error = bind_pages(begin, length(block), node_of(block)); error != 0)
        result.bind_error = error;
    }
    touch_memory(begin, length(block));
    if (settings_.lock_pages == Mode::disabled || result.lock_error != 0) return;
    result.lock_error = lock_pages(begin, length(block));
    if (result.lock_error == 0) result.locked_bytes += length(block);
  }

  void report(const std::vector<PlacedShare>& results, std::vector<std::string>& errors) {
    int lock_error = 0;
    std::map<u32, int> bind_errors;
    for (u64 share = 0; share < results.size(); ++share) {
      const PlacedShare& result = results[share];
      const u32 node = settings_.nodes[share % settings_.nodes.size()];
      if (!result.thread_bound) errors.push_back(failed_thread(share, node));
      if (result.bind_error != 0) bind_errors[node] = result.bind_error;
      if (result.lock_error != 0) lock_error = result.lock_error;
      memory_.report_to_fill().locked_bytes += result.locked_bytes;
    }
    for (const auto& [node, error] : bind_errors) errors.push_back(failed_mbind(node, error));
    if (lock_error != 0 && settings_.lock_pages == Mode::attempt)
      errors.push_back(with_reason("Unable to lock pages.", lock_error));
  }

  MappedMemory& memory_;
  const InterleaveSettings& settings_;
  u64 block_bytes_;
  u64 blocks_;
};

/// Null when the machine refuses the memory or what is forced.
std::unique_ptr<LargeMemory> interleave(u64 bytes, const InterleaveSettings& settings,
                                        const ParallelContext& parallel, std::vector<std::string>& errors) {
  if (settings.lock_pages != Mode::disabled) test_page_locking();
  std::unique_ptr<MappedMemory> memory = map_unpopulated(std::max<u64>(bytes, 1));
  if (memory == nullptr) {
    errors.push_back(with_reason("Unable to map memory.", errno));
    return nullptr;
  }
  Placement placement(*memory, settings);
  placement.run(parallel, errors);
  bool failed = false;
  if (settings.lock_pages == Mode::forced && memory->report().locked_bytes < memory->length()) {
    errors.push_back("Unable to force locked pages.");
    failed = true;
  }
  for (const u32 node : placement.check()) {
    errors.push_back(failed_placement(node));
    failed = failed || settings.bind == Mode::forced;
  }
  if (placement_is_unknown(memory->report())) {
    errors.push_back(kUnknownPlacement);
    failed = failed || settings.bind == Mode::forced;
  }
  if (failed) return nullptr;
  return memory;
}

}  // namespace

u64 interleave_block_bytes(u64 length_bytes) {
  u64 block = kLargePageBytes;
  while (length_bytes / block >= kMostBlocks) block *= 2;
  return block;
}

u64 interleave_entry(u64 block, u64 n, bool hashed) {
  const u64 turn = hashed ? scatter(block / n) % n : 0;
  return (block % n + turn) % n;
}

InterleaveAllocator::InterleaveAllocator() { settings_.nodes = usable_nodes(); }

std::unique_ptr<LargeMemory> InterleaveAllocator::allocate(u64 bytes, const ParallelContext& parallel,
                                                           std::vector<std::string>& errors) const {
  if (!has_numa_nodes()) errors.push_back(kNothingToInterleave);
  return interleave(bytes, settings_, parallel, errors);
}

std::string InterleaveAllocator::to_string() const {
  std::string text = std::string(kName) + "  (nodes: " + node_list_text(settings_.nodes) +
                     (settings_.hashed ? "; hashed" : "; round-robin");
  if (settings_.lock_pages != Mode::disabled) text += "; lock pages: " + mode_to_word(settings_.lock_pages);
  return text + ")";
}

void InterleaveAllocator::print_menu_rows(SettingsMenu& menu) const {
  menu.row("   3    NUMA nodes:", node_list_text(settings_.nodes));
  menu.row("   4    Page Mapping:", settings_.hashed ? "Hashed" : "Round-Robin");
  menu.row("   5    Lock Pages in Memory:", mode_to_string(settings_.lock_pages));
  menu.row("   6    Attempt mbind():", settings_.call_mbind ? "Yes" : "No");
  menu.text("       mbind() may increase the quality of the interleaving. But it may");
  menu.text("       also cause spurious memory allocation failures.");
  menu.text("");
  menu.text(kInterleaveNote);
}

void InterleaveAllocator::handle_menu_choice(u64 choice, SettingsMenu& menu) {
  if (choice == 3) settings_.nodes = ask_nodes(menu);
  if (choice == 4) settings_.hashed = !settings_.hashed;
  if (choice == 5) settings_.lock_pages = next_mode(settings_.lock_pages);
  if (choice == 6) settings_.call_mbind = !settings_.call_mbind;
}

void InterleaveAllocator::write_settings(Object& object) const {
  write_nodes(object, settings_.nodes);
  object.add_string("LockPages", mode_to_word(settings_.lock_pages));
  object.add_bool("mbind", settings_.call_mbind);
  object.add_bool("Hashed", settings_.hashed);
  Object policy;
  policy.add_string("NumaBind", mode_to_word(settings_.bind));
  object.add_object("MemoryPolicy", std::move(policy));
}

void InterleaveAllocator::read_object(const Object& object) {
  InterleaveSettings read = settings_;
  read.nodes = read_nodes(object, read.nodes);
  read.lock_pages = lock_mode_or(object, read.lock_pages);
  read.call_mbind = optional_bool(object, "mbind").value_or(read.call_mbind);
  read.hashed = optional_bool(object, "Hashed").value_or(read.hashed);
  if (object.contains("MemoryPolicy")) {
    if (const auto bind = optional_string(object.get_object("MemoryPolicy"), "NumaBind"))
      read.bind = word_to_bind_mode(*bind);
  }
  settings_ = std::move(read);
}

std::unique_ptr<LargeMemory> allocate_interleaved(u64 bytes, std::vector<std::string>& errors) {
  InterleaveSettings settings;
  settings.nodes = usable_nodes();
  Parallelizer_None none;
  return interleave(bytes, settings, {none, 1}, errors);
}

}  // namespace orl
