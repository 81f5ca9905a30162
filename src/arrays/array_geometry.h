// Where a byte of a disk array lies: pure functions of the arrangement.
//
// Logical bytes are dealt in blocks of `row_bytes` to the lanes in turn: block b belongs to lane b mod g, at its row
// b / g. A row is cut into one piece of file_block_bytes for each data file of the lane; the piece of row r lies at
// r * file_block_bytes of its file. The parity file of a lane, behind its data files, has at the same offset the
// complement of the XOR of the data files' pieces.
#pragma once

#include <array>
#include <span>
#include <vector>

#include "core/types.h"

namespace orl::R03 {

/// Files of a lane at most, those of RAID 0.
inline constexpr u64 kMaxFiles = 64;

/// How many files a lane has.
struct LaneFiles {
  u32 data_files = 1;
  bool parity = false;
  u32 files() const { return data_files + (parity ? 1 : 0); }
};

/// A lane, with the sizes that follow from the whole arrangement.
struct LaneGeometry {
  LaneFiles shape;
  u64 file_block_bytes = 0;   ///< piece of a row in each file, a multiple of 4096
  u64 blocks_per_buffer = 0;  ///< such pieces in the buffer of each file
};

/// Sizes of a whole array.
struct ArrayGeometry {
  u64 row_bytes = 0;  ///< "Group Block Size", the same for all lanes
  std::vector<LaneGeometry> lanes;

  /// Rows that lane `lane` has for `bytes` logical bytes.
  u64 rows_of(u64 lane, u64 bytes) const;
  /// Bytes that each file of lane `lane` has for `bytes` logical bytes.
  u64 file_bytes_of(u64 lane, u64 bytes) const;
  /// Buffers of all files together, those of parity included.
  u64 buffer_bytes() const;
  u64 files() const;
};

/// The sizes for these lanes: the least common multiple of 4096 bytes for each data file, doubled until a file of the
/// widest lane has 262144 bytes of a row. `buffer_per_file` counts whole blocks, one at least. Throws
/// InvalidParametersException "Invalid Configuration." where a row would be longer than 4 GiB.
ArrayGeometry geometry_of(std::span<const LaneFiles> lanes, u64 buffer_per_file);

/// The place of one logical byte.
struct BytePlace {
  u64 lane, file, offset;
};
/// Where the byte at a logical address lies; files count from the first data file of the lane.
BytePlace place_of(const ArrayGeometry& geometry, u64 address);

/// `count` elements of `length` bytes, the first at `offset`, each `stride` bytes behind the one before.
struct StridedRange {
  u64 offset = 0, length = 0, stride = 0, count = 0;

  /// One element of all bytes where they follow each other without a gap; none where there are no bytes.
  StridedRange simplified() const;
  u64 bytes() const { return length * count; }
};

/// The part of an access that lies in one row of a lane.
struct RowPiece {
  u64 row;
  u64 begin, end;   ///< hull of the bytes, from the start of the row
  u64 first, last;  ///< elements that have bytes here, both included
  u64 row_start;    ///< logical address of the row's first byte
  bool dense;       ///< no byte of the hull is left out
};

/// Goes through the rows of one lane that an access touches, in order; it jumps over rows that have none. Elements must
/// not overlap: stride >= length.
class RaidAccessRange {
 public:
  /// Rows of lane `lane` out of `lanes`, each `row_bytes` long.
  RaidAccessRange(const StridedRange& range, u64 row_bytes, u64 lanes, u64 lane);
  /// The next row, or false behind the last one.
  bool next(RowPiece& piece);

 private:
  u64 start_of(u64 element) const { return range_.offset + element * range_.stride; }

  StridedRange range_;
  u64 row_bytes_, lanes_, lane_;
  u64 element_ = 0;
  u64 address_ = 0;  ///< the next byte of element_ that has not been passed
};

/// Bytes [begin, end) of each file's piece of a row, multiples of 4096, that hold a hull and whatever its parity takes.
struct ColumnWindow {
  u64 begin, end;
  u64 bytes() const { return end - begin; }
};
/// The window of a piece: its own columns, or the whole width where it lies in more than one file.
ColumnWindow window_of(const RowPiece& piece, u64 file_block_bytes);
/// What data file `file` itself holds of a piece, rounded out to 4096; empty where it holds nothing.
ColumnWindow columns_of(const RowPiece& piece, u64 file_block_bytes, u64 file);
/// What of columns_of() a store of a dense piece leaves as it was: the first 4096 bytes where it begins between multiples of
/// that, and the last ones where it ends so; each empty otherwise, the second also where they are the same.
std::array<ColumnWindow, 2> edges_of(const RowPiece& piece, u64 file_block_bytes, u64 file);
/// Whether a store of the piece leaves nothing in its window as it was.
bool fills_window(const RowPiece& piece, const LaneGeometry& lane);

}  // namespace orl::R03
