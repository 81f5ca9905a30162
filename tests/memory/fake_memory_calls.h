// A machine with the NUMA nodes, large pages and refusals that a test needs. Memory is real and small.
#pragma once

#include <gtest/gtest.h>
#include <numaif.h>
#include <sys/mman.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "memory/memory_calls.h"

namespace orl::test {

/// In force as long as it lives; any number of threads may use it. The test that made it fails if memory is
/// still mapped at its end.
class FakeMemoryCalls final : public MemoryCalls {
 public:
  struct Call {
    std::string name;
    u64 address;
    u64 length;
    u64 flags;  ///< mmap: flags; mbind: policy
    std::vector<unsigned long> mask;
    u64 maxnode;
  };

  /// Node number `ids[k]` has the cores 100 k and 100 k + 1.
  explicit FakeMemoryCalls(const std::vector<u32>& ids) {
    for (u32 k = 0; k < ids.size(); ++k) nodes_.push_back({ids[k], {100 * k, 100 * k + 1}, u64{1} << 30});
    set_memory_calls(this);
  }
  ~FakeMemoryCalls() override {
    EXPECT_EQ(mapped_bytes, 0u) << "a mapping was left";
    set_memory_calls(nullptr);
  }

  bool has_numa = true;
  bool has_large_pages = false;
  int mapping_error = 0;  ///< of every mmap() with MAP_FIXED
  bool may_lock = true;
  u64 lock_limit = ~u64{0};           ///< bytes that mlock() finds in all
  std::vector<int> refused_policies;  ///< of mbind(), with EPERM
  std::vector<u32> unreachable;       ///< nodes whose cores refuse threads
  bool pages_answer = true;           ///< otherwise move_pages() is refused
  bool pages_obey = true;             ///< otherwise everything lies on the lowest node
  s64 mapped_bytes = 0;

  std::vector<NumaNode>& machine() { return nodes_; }
  /// Calls of one name, in their order.
  std::vector<Call> calls(const std::string& name) const {
    std::vector<Call> found;
    for (const Call& call : log_)
      if (call.name == name) found.push_back(call);
    return found;
  }
  const std::vector<Call>& log() const { return log_; }
  /// The cores to which each bind_thread() moved its thread.
  const std::vector<std::vector<u32>>& bindings() const { return bindings_; }

  void* mmap(void* address, u64 length, int protection, int flags) override {
    note({"mmap", reinterpret_cast<u64>(address), length, static_cast<u64>(flags), {}, 0});
    if ((flags & MAP_HUGETLB) != 0 && !has_large_pages) return refuse(ENOMEM);
    if ((flags & MAP_FIXED) != 0 && mapping_error != 0) return refuse(mapping_error);
    void* const result = MemoryCalls::mmap(address, length, protection, flags & ~MAP_HUGETLB);
    if (result != MAP_FAILED && (flags & MAP_FIXED) == 0) count(static_cast<s64>(length));
    return result;
  }
  int munmap(void* address, u64 length) override {
    count(-static_cast<s64>(length));
    {
      const std::lock_guard guard(mutex_);
      const u64 begin = reinterpret_cast<u64>(address);
      bound_.erase(bound_.lower_bound(begin), bound_.lower_bound(begin + length));
    }
    return MemoryCalls::munmap(address, length);
  }
  int mlock(const void* address, u64 length) override {
    note({"mlock", reinterpret_cast<u64>(address), length, 0, {}, 0});
    const std::lock_guard guard(mutex_);
    locked_ += length;
    return locked_ <= lock_limit ? 0 : failure(ENOMEM);
  }
  int mlockall(int flags) override {
    note({"mlockall", 0, 0, static_cast<u64>(flags), {}, 0});
    return may_lock ? 0 : failure(EPERM);
  }
  int munlockall() override {
    note({"munlockall", 0, 0, 0, {}, 0});
    return 0;
  }

  int numa_available() override { return has_numa ? 0 : -1; }
  int numa_max_node() override { return static_cast<int>(nodes_.back().id); }
  s64 mbind(void* address, u64 length, int mode, const unsigned long* mask, u64 maxnode, u32 flags) override {
    EXPECT_EQ(flags, static_cast<u32>(MPOL_MF_MOVE));
    const u64 begin = reinterpret_cast<u64>(address);
    const std::vector<unsigned long> words(mask, mask + maxnode / 64);
    note({"mbind", begin, length, static_cast<u64>(mode), words, maxnode});
    if (std::count(refused_policies.begin(), refused_policies.end(), mode) != 0) return failure(EPERM);
    const std::lock_guard guard(mutex_);
    u32 node = 0;
    while ((words[node / 64] >> (node % 64) & 1) == 0) ++node;
    bound_[begin] = {begin + length, node};
    return 0;
  }
  s64 move_pages(u64 count, void** pages, const int* nodes, int* status, int flags) override {
    EXPECT_TRUE(count == 1 && nodes == nullptr && flags == 0);
    if (!pages_answer) return failure(EPERM);
    const u64 page = reinterpret_cast<u64>(*pages);
    const std::lock_guard guard(mutex_);
    *status = static_cast<int>(nodes_.front().id);
    const auto after = bound_.upper_bound(page);
    if (pages_obey && after != bound_.begin() && page < std::prev(after)->second.first)
      *status = static_cast<int>(std::prev(after)->second.second);
    return 0;
  }
  void* numa_alloc_interleaved_subset(u64 length, const std::vector<u32>& nodes) override {
    note({"numa_alloc_interleaved_subset", 0, length, 0, {nodes.begin(), nodes.end()}, 0});
    void* const result =
        MemoryCalls::mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS);
    if (result == MAP_FAILED) return nullptr;
    count(static_cast<s64>(length));
    const std::lock_guard guard(mutex_);
    const u64 begin = reinterpret_cast<u64>(result);
    for (u64 at = 0; at < length; at += 4096)
      bound_[begin + at] = {begin + at + 4096, nodes[at / 4096 % nodes.size()]};
    return result;
  }
  void numa_free(void* address, u64 length) override { munmap(address, length); }

  const std::vector<NumaNode>& nodes() override { return nodes_; }
  std::vector<u32> bound_cores() override { return thread_cores(); }
  bool bind_thread(const std::vector<u32>& cores) override {
    for (const NumaNode& node : nodes_) {
      if (node.cores == cores && std::count(unreachable.begin(), unreachable.end(), node.id) != 0)
        return false;
    }
    const std::lock_guard guard(mutex_);
    bindings_.push_back(cores);
    thread_cores() = cores;
    return true;
  }
  /// The cores of the calling thread.
  static std::vector<u32>& thread_cores() {
    static thread_local std::vector<u32> cores{7};
    return cores;
  }

 private:
  void note(Call call) {
    const std::lock_guard guard(mutex_);
    log_.push_back(std::move(call));
  }
  void count(s64 bytes) {
    const std::lock_guard guard(mutex_);
    mapped_bytes += bytes;
  }
  static int failure(int error) {
    errno = error;
    return -1;
  }
  static void* refuse(int error) {
    errno = error;
    return MAP_FAILED;
  }

  std::mutex mutex_;
  std::vector<NumaNode> nodes_;
  std::vector<Call> log_;
  std::vector<std::vector<u32>> bindings_;
  std::map<u64, std::pair<u64, u32>> bound_;  ///< begin -> end, node
  u64 locked_ = 0;
};

}  // namespace orl::test
