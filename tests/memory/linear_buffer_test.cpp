#include "memory/linear_buffer.h"

#include <gtest/gtest.h>

#include "memory/sizing_arena.h"
#include "support/thrown.h"

namespace orl::test {
namespace {

alignas(64) u8 memory[1024];

TEST(LinearHeapBuffer, CutsFromTheFrontUntilNothingIsLeft) {
  LinearHeapBuffer buffer(memory, 512);
  EXPECT_EQ(buffer.spawn_words<u64>(0), reinterpret_cast<u64*>(memory));
  EXPECT_EQ(buffer.size, 512u) << "nothing was cut";
  EXPECT_EQ(static_cast<void*>(buffer.spawn_words<u64>(8)), memory);
  EXPECT_EQ(static_cast<void*>(buffer.spawn_words<u32>(16)), memory + 64);
  EXPECT_EQ(static_cast<void*>(buffer.cut<u32>(17)), memory + 128);
  const LinearHeapBuffer share = buffer.cut_buffer(65);
  EXPECT_EQ(share.ptr, memory + 256);
  EXPECT_EQ(share.size, 128u);
  EXPECT_EQ(buffer.ptr, memory + 384);
  EXPECT_EQ(buffer.size, 128u);
  EXPECT_NO_THROW(buffer.cut<u64>(16));
  EXPECT_EQ(buffer.size, 0u);
  EXPECT_THROW(buffer.cut<u64>(1), BufferTooSmallException);
}

TEST(LinearHeapBuffer, RefusesWithoutCutting) {
  LinearHeapBuffer buffer(memory, 128);
  EXPECT_THROW(buffer.spawn_words<u64>(1), InvalidParametersException);
  EXPECT_THROW(buffer.spawn_words<u32>(33), BufferTooSmallException);
  EXPECT_THROW(buffer.spawn_words<u64>(u64{1} << 61), BufferTooSmallException) << "bytes wrap to 0";
  EXPECT_THROW(buffer.cut<u64>(~u64{0}), BufferTooSmallException) << "rounding wraps to 0";
  EXPECT_THROW(buffer.cut_buffer(129), BufferTooSmallException);
  EXPECT_THROW(buffer.cut_buffer(~u64{0}), BufferTooSmallException);
  EXPECT_THROW(LinearHeapBuffer(memory, 100).cut_buffer(90), BufferTooSmallException) << "128 when rounded";
  EXPECT_EQ(buffer.ptr, memory);
  EXPECT_EQ(buffer.size, 128u);
  const auto failure = caught<BufferTooSmallException>([&] { buffer.spawn_words<u64>(24); });
  EXPECT_EQ(failure.function(), "LinearHeapBuffer::spawn_words()");
  EXPECT_EQ(failure.buffer_size(), 128u);
  EXPECT_EQ(failure.required_size(), 192u);
  EXPECT_THROW(LinearHeapBuffer(memory + 8, 64), InvalidParametersException);
}

TEST(LinearWordBuffer, CutsAnyNumberOfWords) {
  u64 words[10];
  LinearWordBuffer<u64> buffer{words, 10};
  EXPECT_EQ(buffer.cut_from_bottom(3), words);
  EXPECT_EQ(buffer.cut_from_bottom(7), words + 3);
  EXPECT_EQ(buffer.cut_from_bottom(0), words + 10);
  EXPECT_THROW(buffer.cut_from_bottom(1), BufferTooSmallException);
}

// What a layout over a SizingArena counts is what the same layout takes of memory, branches and calls included.
TEST(SizingArena, CountsWhatALayoutTakes) {
  const auto layout = [](auto& arena, u64 words) {
    arena.template cut<u32>(words);
    {
      auto branch = arena.cut_buffer(100);
      branch.template cut<u8>(words);
    }
    auto call = arena;
    call.template cut<u64>(3 * words);
    arena.template cut<u64>(words);
    arena.leave(1000);
  };
  alignas(64) u8 area[4096];
  for (const u64 words : {1, 7, 8, 33, 60, 61, 62, 63, 64, 65, 100}) {
    const u64 bytes = layout_bytes([&](auto& arena) { layout(arena, words); });
    LinearHeapBuffer enough(area, bytes), short_of_a_line(area, bytes - 8);
    EXPECT_NO_THROW(layout(enough, words)) << words;
    EXPECT_THROW(layout(short_of_a_line, words), BufferTooSmallException) << words;
  }
  EXPECT_EQ(layout_bytes([](auto& arena) { arena.template cut<u64>(~u64{0} / 4), arena.leave(1); }), ~u64{0});
}

TEST(CutObserver, SeesWhatIsUsedOfASharedBuffer) {
  struct HighWater final : CutObserver {
    void on_cut(const void* begin, u64 bytes) override {
      end = std::max<const u8*>(end, static_cast<const u8*>(begin) + bytes);
    }
    const u8* end = memory;
  } water;
  set_cut_observer(&water);
  LinearHeapBuffer buffer(memory, 1024);
  LinearHeapBuffer share = buffer.cut_buffer(512);
  EXPECT_EQ(water.end, memory) << "a share by itself is no use";
  share.cut<u32>(20);
  set_cut_observer(nullptr);
  share.cut<u32>(20);
  EXPECT_EQ(water.end, memory + 128);
}

TEST(Need, AddsWhatIsAliveTogetherAndSharesTables) {
  const Need a{100, 5, 1000, 1};
  const Need b{30, 9, 2000, 2};
  const Need together = Need::sum(a, b);
  EXPECT_EQ(together.ram_bytes, 130u);
  EXPECT_EQ(together.out_words, 14u);
  EXPECT_EQ(together.table_bits, 2000u);
  EXPECT_EQ(together.disk_bytes, 3u);
  const Need in_turn = Need::max(a, b);
  EXPECT_EQ(in_turn.ram_bytes, 100u);
  EXPECT_EQ(in_turn.out_words, 9u);
}

}  // namespace
}  // namespace orl::test
