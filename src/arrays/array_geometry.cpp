#include "arrays/array_geometry.h"

#include <algorithm>
#include <numeric>

#include "core/exceptions.h"
#include "files/raw_io_buffer.h"

namespace orl::R03 {
namespace {

constexpr u64 kMinWidestBlock = 262144;
constexpr u64 kMaxRowBytes = u64{1} << 32;

u64 down(u64 x) { return x & ~(kIoAlignment - 1); }
u64 up(u64 x) { return down(x + kIoAlignment - 1); }

u64 row_bytes_of(std::span<const LaneFiles> lanes) {
  u64 row = 1, widest = 1;
  for (const LaneFiles& lane : lanes) {
    if (lane.data_files == 0) continue;
    row = std::lcm(row, lane.data_files * kIoAlignment);
    widest = std::max<u64>(widest, lane.data_files);
    if (row > kMaxRowBytes) throw InvalidParametersException("geometry_of()", "Invalid Configuration.");
  }
  while (row / widest < kMinWidestBlock) row *= 2;
  return row;
}

}  // namespace

u64 ArrayGeometry::rows_of(u64 lane, u64 bytes) const {
  const u64 blocks = bytes / row_bytes + (bytes % row_bytes != 0);
  return (blocks + lanes.size() - 1 - lane) / lanes.size();
}

u64 ArrayGeometry::file_bytes_of(u64 lane, u64 bytes) const {
  return rows_of(lane, bytes) * lanes[lane].file_block_bytes;
}

u64 ArrayGeometry::buffer_bytes() const {
  u64 bytes = 0;
  for (const LaneGeometry& lane : lanes)
    bytes += lane.shape.files() * lane.file_block_bytes * lane.blocks_per_buffer;
  return bytes;
}

u64 ArrayGeometry::files() const {
  u64 count = 0;
  for (const LaneGeometry& lane : lanes) count += lane.shape.files();
  return count;
}

ArrayGeometry geometry_of(std::span<const LaneFiles> lanes, u64 buffer_per_file) {
  ArrayGeometry geometry{row_bytes_of(lanes), {}};
  for (const LaneFiles& lane : lanes) {
    const u64 block = geometry.row_bytes / lane.data_files;
    geometry.lanes.push_back({lane, block, std::max<u64>(1, buffer_per_file / block)});
  }
  return geometry;
}

BytePlace place_of(const ArrayGeometry& geometry, u64 address) {
  const u64 block = address / geometry.row_bytes, lanes = geometry.lanes.size();
  const u64 file_block = geometry.lanes[block % lanes].file_block_bytes;
  const u64 column = address % geometry.row_bytes;
  return {block % lanes, column / file_block, block / lanes * file_block + column % file_block};
}

StridedRange StridedRange::simplified() const {
  if (length == 0 || count == 0) return {offset, 0, 0, 0};
  if (count == 1 || stride == length) return {offset, length * count, length * count, 1};
  return *this;
}

RaidAccessRange::RaidAccessRange(const StridedRange& range, u64 row_bytes, u64 lanes, u64 lane)
    : range_(range.simplified()),
      row_bytes_(row_bytes),
      lanes_(lanes),
      lane_(lane),
      address_(range_.offset) {}

bool RaidAccessRange::next(RowPiece& piece) {
  for (;;) {
    if (element_ >= range_.count) return false;
    const u64 block = address_ / row_bytes_;
    const u64 ahead = (lane_ + lanes_ - block % lanes_) % lanes_;
    if (ahead == 0) break;
    const u64 next_start = (block + ahead) * row_bytes_;
    if (start_of(element_) + range_.length > next_start) {
      address_ = next_start;
      continue;
    }
    // The first element that ends behind the start of this lane's next row.
    element_ = (next_start - range_.offset - range_.length) / range_.stride + 1;
    if (element_ < range_.count) address_ = std::max(next_start, start_of(element_));
  }
  const u64 block = address_ / row_bytes_, row_start = block * row_bytes_, row_end = row_start + row_bytes_;
  const u64 last = std::min(range_.count - 1, (row_end - 1 - range_.offset) / range_.stride);
  const u64 last_end = start_of(last) + range_.length;
  piece = {block / lanes_, address_ - row_start, std::min(last_end, row_end) - row_start, element_, last,
           row_start,      last == element_};
  if (last_end > row_end) {
    element_ = last;
    address_ = row_end;
  } else {
    element_ = last + 1;
    if (element_ < range_.count) address_ = start_of(element_);
  }
  return true;
}

ColumnWindow window_of(const RowPiece& piece, u64 file_block_bytes) {
  const u64 first = piece.begin / file_block_bytes, last = (piece.end - 1) / file_block_bytes;
  if (first != last) return {0, file_block_bytes};
  return columns_of(piece, file_block_bytes, first);
}

ColumnWindow columns_of(const RowPiece& piece, u64 file_block_bytes, u64 file) {
  const u64 start = file * file_block_bytes;
  const u64 begin = std::max(piece.begin, start), end = std::min(piece.end, start + file_block_bytes);
  if (begin >= end) return {0, 0};
  return {down(begin - start), up(end - start)};
}

std::array<ColumnWindow, 2> edges_of(const RowPiece& piece, u64 file_block_bytes, u64 file) {
  std::array<ColumnWindow, 2> edges{};
  const u64 addresses[] = {piece.begin, piece.end};
  for (u64 i = 0; i < 2; i++) {
    const u64 sector = down(addresses[i]), column = sector - file * file_block_bytes;
    const bool here = sector / file_block_bytes == file;
    const bool again = i == 1 && edges[0].bytes() != 0 && edges[0].begin == column;
    if (addresses[i] != sector && here && !again) edges[i] = {column, column + kIoAlignment};
  }
  return edges;
}

bool fills_window(const RowPiece& piece, const LaneGeometry& lane) {
  const bool aligned = piece.begin % kIoAlignment == 0 && piece.end % kIoAlignment == 0;
  if (!piece.dense || !aligned) return false;
  if (!lane.shape.parity || lane.shape.data_files == 1) return true;
  return piece.begin == 0 && piece.end == lane.shape.data_files * lane.file_block_bytes;
}

}  // namespace orl::R03
