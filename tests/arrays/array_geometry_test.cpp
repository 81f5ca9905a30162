#include "arrays/array_geometry.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <string>

#include "core/exceptions.h"

namespace orl::R03 {
namespace {

TEST(ArrayGeometry, SizesFollowTheWidestLane) {
  struct Row {
    std::vector<LaneFiles> lanes;
    u64 buffer, row_bytes, buffer_bytes;
  };
  const Row rows[] = {
      {{{1, false}}, 67108864, 262144, 67108864},
      {{{1, true}}, 1048576, 262144, 2097152},
      {{{2, true}}, 1048576, 524288, 3145728},
      {{{64, false}}, 4096, 16777216, 16777216},  // one block at least
      {{{3, false}, {4, false}, {5, true}}, 4096, 1966080, 655360 * 3 + 491520 * 4 + 393216 * 6},
  };
  for (const Row& row : rows) {
    const ArrayGeometry geometry = geometry_of(row.lanes, row.buffer);
    EXPECT_EQ(geometry.row_bytes, row.row_bytes);
    EXPECT_EQ(geometry.buffer_bytes(), row.buffer_bytes);
  }
  const std::vector<LaneFiles> primes{{61, false}, {59, false}, {53, false}, {47, false}};
  EXPECT_THROW(geometry_of(primes, 4096), InvalidParametersException);
}

// The whole map of two rows: each place is taken once, and the files are as long as they are said to be.
TEST(ArrayGeometry, EveryByteHasAPlaceOfItsOwn) {
  const std::vector<LaneFiles> lanes{{3, false}, {4, false}, {5, true}};
  const ArrayGeometry geometry = geometry_of(lanes, 1 << 20);
  EXPECT_EQ(geometry.lanes[2].file_block_bytes, 393216u);
  const u64 bytes = 7 * geometry.row_bytes - 5;
  std::map<std::pair<u64, u64>, std::set<u64>> taken;
  u64 lane_of_block[] = {0, 1, 2, 0, 1, 2, 0};
  for (u64 a = 0; a < bytes; a += 4096) {
    const BytePlace place = place_of(geometry, a);
    ASSERT_EQ(place.lane, lane_of_block[a / geometry.row_bytes]);
    ASSERT_LT(place.file, lanes[place.lane].data_files);
    ASSERT_LT(place.offset, geometry.file_bytes_of(place.lane, bytes));
    ASSERT_TRUE((taken[{place.lane, place.file}].insert(place.offset).second));
  }
  for (const auto& [file, places] : taken)
    EXPECT_EQ(places.size() * 4096, geometry.file_bytes_of(file.first, bytes));
  EXPECT_EQ(geometry.rows_of(0, bytes), 3u);
  EXPECT_EQ(geometry.rows_of(2, bytes), 2u);
  EXPECT_EQ(geometry.rows_of(0, 0), 0u);
}

// Against a walk over every byte: rows in order, each once, hulls and elements exact.
TEST(RaidAccessRange, FindsTheRowsThatHaveBytes) {
  std::mt19937_64 random(20261122);
  for (int round = 0; round < 4000; round++) {
    const u64 row = 1 + random() % 40, lanes = 1 + random() % 4, lane = random() % lanes;
    StridedRange range{random() % 200, random() % 50, 0, random() % 9};
    range.stride = range.length + (random() % 3 == 0 ? 0 : random() % 120);
    struct Hull {
      u64 begin, end, bytes, first, last;
    };
    std::map<u64, Hull> expected;
    const StridedRange simple = range.simplified();
    for (u64 i = 0; i < simple.count; i++) {
      for (u64 a = simple.offset + i * simple.stride, end = a + simple.length; a < end; a++) {
        if (a / row % lanes != lane) continue;
        auto [at, fresh] = expected.try_emplace(a / row / lanes, Hull{a % row, 0, 0, i, i});
        at->second.end = a % row + 1;
        at->second.bytes++;
        at->second.last = i;
      }
    }
    RaidAccessRange walk(range, row, lanes, lane);
    RowPiece piece;
    for (const auto& [number, hull] : expected) {
      ASSERT_TRUE(walk.next(piece));
      ASSERT_EQ(piece.row, number);
      ASSERT_EQ(piece.row_start, (number * lanes + lane) * row);
      ASSERT_EQ(std::pair(piece.begin, piece.end), std::pair(hull.begin, hull.end));
      ASSERT_EQ(std::pair(piece.first, piece.last), std::pair(hull.first, hull.last));
      ASSERT_EQ(piece.dense, hull.bytes == hull.end - hull.begin);
    }
    ASSERT_FALSE(walk.next(piece));
  }
}

TEST(RaidAccessRange, WindowsHoldWhatTheParityOfAPieceTakes) {
  const LaneGeometry two{{2, true}, 262144, 4}, single{{1, true}, 262144, 4}, striped{{2, false}, 262144, 4};
  struct Row {
    u64 begin, end, window_begin, window_end;
    bool dense, two, single, striped;
  };
  const Row rows[] = {
      {0, 524288, 0, 262144, true, true, true, true},
      {0, 262144, 0, 262144, true, false, true, true},
      {4096, 8192, 4096, 8192, true, false, true, true},
      {4096, 8192, 4096, 8192, false, false, false, false},
      {262144 + 5, 262144 + 6, 0, 4096, true, false, false, false},
      {258048, 266240, 0, 262144, true, false, true, true},
  };
  for (const Row& row : rows) {
    const RowPiece piece{0, row.begin, row.end, 0, 0, 0, row.dense};
    const ColumnWindow window = window_of(piece, 262144);
    EXPECT_EQ(std::pair(window.begin, window.end), std::pair(row.window_begin, row.window_end));
    EXPECT_EQ(fills_window(piece, two), row.two) << row.begin;
    EXPECT_EQ(fills_window(piece, single), row.single) << row.begin;
    EXPECT_EQ(fills_window(piece, striped), row.striped) << row.begin;
  }
  const RowPiece piece{0, 258048, 266240, 0, 0, 0, true};
  EXPECT_EQ(columns_of(piece, 262144, 0).begin, 258048u);
  EXPECT_EQ(columns_of(piece, 262144, 1).end, 4096u);
  EXPECT_EQ(columns_of(piece, 262144, 2).bytes(), 0u);
}

}  // namespace
}  // namespace orl::R03
