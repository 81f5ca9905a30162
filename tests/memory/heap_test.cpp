#include "memory/heap.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <vector>

#include "memory/registered.h"
#include "support/screen.h"

namespace orl::test {
namespace {

u64 round_8(u64 size) { return (size + 7) & ~u64{7}; }

/// What the heap should do, told by a sorted list of regions and nothing else.
class Model {
 public:
  struct Block {
    u64 region_bytes;
    u64 size;
    u8 fill;
  };

  Model(u64 base, u64 end) : base_(base), end_(end) {}

  /// Address where first fit puts a region of `bytes`, or 0.
  u64 place(u64 bytes) const {
    u64 gap = base_;
    if (limit() - top() < 16) return 0;
    for (const auto& [start, block] : blocks_) {
      if (start - gap >= bytes) return gap;
      gap = start + block.region_bytes;
    }
    return limit() - gap >= bytes + 16 ? gap : 0;
  }
  /// Bytes from `raw` to whatever comes next.
  u64 room(u64 raw) const {
    const auto next = std::next(blocks_.find(raw));
    return (next == blocks_.end() ? limit() : next->first) - raw;
  }
  u64 top() const {
    return blocks_.empty() ? base_ : blocks_.rbegin()->first + blocks_.rbegin()->second.region_bytes;
  }

  std::map<u64, Block> blocks_;

 private:
  u64 limit() const { return end_ - 16 * blocks_.size(); }

  u64 base_;
  u64 end_;
};

u64 user_address(u64 raw, u64 align) { return ((raw + 32) & ~(align - 1)) + align; }

bool holds_only(const u8* block, u64 size, u8 fill) {
  for (u64 i = 0; i < size; ++i) {
    if (block[i] != fill) return false;
  }
  return true;
}

class HeapAgainstModel {
 public:
  explicit HeapAgainstModel(u64 seed)
      : random_(seed),
        memory_(kBytes / 8 + 2, 0x5a5a5a5a5a5a5a5a),
        heap_(base(), kBytes),
        model_(address(base()), address(base()) + kBytes) {}

  void step() {
    const u64 action = random_() % 10;
    if (action < 5 || model_.blocks_.empty()) {
      allocate();
    } else if (action < 8) {
      release();
    } else {
      expand();
    }
    ASSERT_EQ(heap_.active_allocations(), model_.blocks_.size());
    ASSERT_EQ(heap_.current_usage(), model_.top() - address(base()));
    peak_usage_ = std::max(peak_usage_, heap_.current_usage());
    ASSERT_EQ(heap_.peak_usage(), peak_usage_);
  }
  void drain() {
    while (!model_.blocks_.empty()) release();
    ASSERT_EQ(heap_.current_usage(), 0u);
    ASSERT_EQ(memory_.front(), 0x5a5a5a5a5a5a5a5a);
    ASSERT_EQ(memory_.back(), 0x5a5a5a5a5a5a5a5a);
  }
  u64 refused() const { return refused_; }
  u64 expanded() const { return expanded_; }

 private:
  static constexpr u64 kBytes = 1 << 14;

  static u64 address(const void* p) { return reinterpret_cast<u64>(p); }
  void* base() { return &memory_[1]; }
  u8* user(u64 raw) const { return reinterpret_cast<u8*>(user_address(raw, align_.at(raw))); }

  void allocate() {
    const u64 size = random_() % 4 == 0 ? random_() % 3000 : random_() % 200;
    const u64 align = u64{1} << random_() % 8;
    const u64 bytes = round_8(size) + std::max<u64>(align, 8) + 40;
    const u64 raw = model_.place(bytes);
    if (raw == 0) {  // a refusal is fatal, so the model has to know
      ++refused_;
      return;
    }
    u8* block = static_cast<u8*>(heap_malloc(&heap_, size, align));
    align_[raw] = std::max<u64>(align, 8);
    ASSERT_EQ(block, user(raw)) << "first fit";
    const u8 fill = static_cast<u8>(random_());
    std::memset(block, fill, size);
    model_.blocks_[raw] = {bytes, size, fill};
  }
  u64 any() { return std::next(model_.blocks_.begin(), random_() % model_.blocks_.size())->first; }
  void release() {
    const u64 raw = any();
    const Model::Block& block = model_.blocks_.at(raw);
    ASSERT_TRUE(holds_only(user(raw), block.size, block.fill));
    heap_free(user(raw));
    model_.blocks_.erase(raw);
  }
  void expand() {
    const u64 raw = any();
    Model::Block& block = model_.blocks_.at(raw);
    const u64 size = random_() % (2 * block.size + 64);
    const u64 extent = address(user(raw)) - raw + round_8(size) + 8;
    if (extent > block.region_bytes && extent > model_.room(raw)) return;
    expand_block(user(raw), size);
    ASSERT_TRUE(holds_only(user(raw), block.size, block.fill));
    if (size <= block.size) return;
    std::memset(user(raw), block.fill, size);
    block.size = size;
    block.region_bytes = std::max(block.region_bytes, extent);
    ++expanded_;
  }

  std::mt19937_64 random_;
  std::vector<u64> memory_;
  Heap heap_;
  Model model_;
  std::map<u64, u64> align_;
  u64 peak_usage_ = 0;
  u64 refused_ = 0;
  u64 expanded_ = 0;
};

TEST(Heap, DoesWhatASortedListOfRegionsWouldDo) {
  for (u64 seed = 1; seed <= 20; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    HeapAgainstModel test(seed);
    for (int i = 0; i < 1500; ++i) ASSERT_NO_FATAL_FAILURE(test.step());
    EXPECT_GT(test.refused(), 0u) << "the region was never full";
    EXPECT_GT(test.expanded(), 0u);
    ASSERT_NO_FATAL_FAILURE(test.drain());
  }
}

/// Three blocks that leave nothing between the highest of them and the table; then the lowest is freed.
struct FullHeap {
  static constexpr u64 kBytes = 1008;
  static constexpr u64 kRegion = 64 + 8 + 40;
  FullHeap() {
    low = heap_malloc(&heap, 64, 8);
    middle = heap_malloc(&heap, 64, 8);
    high = heap_malloc(&heap, kBytes - 2 * kRegion - 48 - 3 * 16, 8);
    heap_free(low);
  }
  ~FullHeap() {
    heap_free(middle);
    heap_free(high);
  }
  alignas(8) u8 memory[kBytes];
  Heap heap{memory, sizeof memory};
  void *low, *middle, *high;
};

TEST(HeapDeathTest, LastEntryServesAGapButNotTheTop) {
  FullHeap full;
  ASSERT_EQ(full.heap.free_at_top(), 16u);
  const auto fails = ::testing::ExitedWithCode(1);
  const auto after = [](auto&& action) {
    console_to_stderr();
    action();
  };
  EXPECT_EXIT(after([&] { heap_malloc(&full.heap, 65, 8); }), fails, "Memory Allocation Failure.");
  EXPECT_EXIT(after([&] { expand_block(full.middle, 65); }), fails, "Unable to expand block.");
  EXPECT_EQ(heap_malloc(&full.heap, 64, 8), full.low);
  EXPECT_EQ(full.heap.free_at_top(), 0u);
  EXPECT_EXIT(after([&] { heap_malloc(&full.heap, 0, 8); }), fails, "Memory Allocation Failure.");
  heap_free(full.low);
}

TEST(HeapDeathTest, DamageAndMisuseEndTheProcess) {
  alignas(8) static u8 memory[4096];
  Heap heap(memory, sizeof memory);
  u8* block = static_cast<u8*>(heap_malloc(&heap, 100, 64));
  u8* loose = static_cast<u8*>(heap_malloc(nullptr, 10, 32));
  const auto fails = ::testing::ExitedWithCode(1);
  const auto after = [](auto&& action) {
    console_to_stderr();
    action();
  };
  EXPECT_EXIT(after([&] { block[-1] ^= 1, heap_free(block); }), fails, "Memory buffer has been underrun.");
  EXPECT_EXIT(after([&] { block[104] ^= 1, heap_free(block); }), fails, "Memory buffer has been overrun.");
  EXPECT_EXIT(after([&] { heap_free(block), heap_free(block); }), fails, "Heap is empty.");
  EXPECT_EXIT(after([&] { heap_malloc(&heap, 8, 8), heap_free(block), heap_free(block); }), fails,
              "Heap Inconsistency");
  EXPECT_EXIT(after([&] { expand_block(loose, 20); }), fails, "Pointer not associated with a heap.");
  EXPECT_EXIT(after([&] { Heap odd(memory + 4, 64); }), fails, "Alignment Error");
  EXPECT_EXIT(after([&] { Heap(&heap, 5000); }), fails, "Memory Allocation Failure.");
  EXPECT_EXIT(after([&] { Heap(nullptr, ~u64{0} >> 1); }), fails,
              "Insufficient Memory or address space.(.|\n)*Failed Allocation");
  expand_block(loose, 0);
  heap_free(loose);
  heap_free(block);
  heap_free(nullptr);
}

TEST(Heap, FinishedSubHeapsHandTheirLiveBlocksUp) {
  Heap top(nullptr, 1 << 16);
  void* before = heap_malloc(&top, 100, 8);
  void* inner_block = nullptr;
  void* outer_block = nullptr;
  {
    Heap outer(&top, 20000);
    void* gone = heap_malloc(&outer, 50, 8);
    {
      Heap inner(&outer, 5000);
      EXPECT_EQ(inner.parent(), &outer);
      inner_block = heap_malloc(&inner, 300, 64);
      std::memset(inner_block, 7, 300);
      heap_free(heap_malloc(&inner, 1000, 8));
    }
    EXPECT_EQ(outer.active_allocations(), 2u);
    outer_block = heap_malloc(&outer, 40, 8);
    heap_free(gone);
  }
  EXPECT_EQ(top.active_allocations(), 3u);
  EXPECT_TRUE(holds_only(static_cast<u8*>(inner_block), 300, 7));
  heap_free(outer_block);
  expand_block(inner_block, 400);
  EXPECT_TRUE(holds_only(static_cast<u8*>(inner_block), 300, 7));
  heap_free(before);
  heap_free(inner_block);
  EXPECT_EQ(top.current_usage(), 0u);
}

// The middle heap goes first: the blocks of its own sub-heap then belong to the top heap, and so does the
// sub-heap.
TEST(Heap, SubHeapSurvivesTheHeapAboveIt) {
  Heap top(nullptr, 1 << 16);
  auto middle = std::make_unique<Heap>(&top, 20000);
  auto bottom = std::make_unique<Heap>(middle.get(), 5000);
  void* block = heap_malloc(bottom.get(), 10, 8);
  middle.reset();
  EXPECT_EQ(bottom->parent(), &top);
  bottom.reset();
  heap_free(block);
  EXPECT_EQ(top.active_allocations(), 0u);
}

TEST(Heap, ReportsLeaksAndItsTable) {
  ::testing::internal::CaptureStdout();
  {
    Heap heap(nullptr, 1000);
    EXPECT_NE(heap.dump().find("No Active Allocations\n"), std::string::npos);
    heap_malloc(&heap, 1, 1);
    const std::string text = heap.dump();
    EXPECT_NE(text.find("Heap Table Dump:"), std::string::npos);
    EXPECT_NE(text.find("Active Allocations  : 1\n"), std::string::npos);
    EXPECT_EQ(text.find("No Active"), std::string::npos);
  }
  EXPECT_NE(::testing::internal::GetCapturedStdout().find("Memory leak detected\n"), std::string::npos);
}

}  // namespace
}  // namespace orl::test
