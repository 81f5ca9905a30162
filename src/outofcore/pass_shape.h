// The arithmetic of products whose transforms lie on disks: how passes cut their data, what they hold in memory, and what
// they move. Pure functions.
//
// A transform of k 2^n points is made channel by channel. Its first D levels work on columns of k R rows, R = 2^D, that
// stand C = 2^(n - D) points apart; what they leave are k R rows, which go on by themselves.
//
//   columns   A stripe of w columns: k R pieces of the operand's words come in, k R pieces of residues go out per channel.
//   inner     With three passes, each row is columns again: R' = 2^D' rows of C / R' points.
//   rows      Rows of both operands: forward, product and back. The product's take the place of the first one's.
//   back      Stripes the other way round. Words leave in k R runs, which go on from stripe to stripe.
//
// A file of residues holds row j of sequence t of channel r at ((r k + t) R + j) C points from its begin. So a channel's part
// of a stripe is one gather or scatter of equal pieces, and rows are contiguous.
//
// Memory, per point of a stripe (k R w of them) or of a row, a point having b bytes of words, c channels of f bytes on disk
// and u bytes in memory:
//   columns   2 b + 3 f: words of this stripe and the next, residues of a channel at work and of two that are being stored.
//   inner     3 f.
//   rows      2 u + 3 f or less: both operands, what comes in next, in parts where memory is short, and what goes out.
//   back      b + (c + 2) f or more: this stripe, the first channels of the next, and words, which are stored while these come
//             in.
// The levels of a stripe work on narrow parts of it, so what they take stays small. With C17 and nine primes that is 66, 18,
// 34 to 17 and 90 bytes: with s bytes per seek and M of memory, two passes serve products of about M^2 / (12 s) bytes.
#pragma once

#include <optional>

#include "transforms/common/far_transform.h"

namespace orl {

/// What a plan may use.
struct PassLimits {
  u64 memory_bytes = 0;    ///< for the buffers of a pass
  u64 bytes_per_seek = 0;  ///< no piece is shorter
  u64 row_bytes = 4096;    ///< what an array likes the pieces that are stored to be multiples of
  u64 tasks = 1;
};

/// Columns [0, columns) cut into `count` stripes of about equal width, in whole units.
struct Stripes {
  u64 columns = 0;
  u64 unit = 0;
  u64 count = 0;
  u64 part = 0;           ///< columns that are worked on together
  u64 part_bytes = 0;     ///< of memory, for a channel
  u64 scratch_bytes = 0;  ///< of memory, beside them

  /// The first column of stripe i; that of stripe `count` is `columns`.
  u64 begin(u64 i) const;
  u64 width(u64 i) const { return begin(i + 1) - begin(i); }
  /// The widths of the widest and of the narrowest stripe.
  u64 most() const { return (columns / unit + count - 1) / count * unit; }
  u64 least() const { return columns / unit / count * unit; }
};

/// A product, or a square, in passes.
struct PassShape {
  FarShape shape;
  u64 channels = 0, point_bytes = 0, packed_bytes = 0;  ///< those of the family's shape
  u32 levels = 0;                                       ///< D
  u32 inner_levels = 0;                                 ///< D', 0 in two passes
  Stripes forward, inner, back;
  u64 batch = 1;       ///< rows that are worked on together: consecutive ones of a sequence, a power of two
  u64 row_parts = 1;   ///< parts that a batch comes in by, a power of two
  u64 row_ring = 2;    ///< parts in memory that wait or are being loaded
  bool spare = false;  ///< whether products have a buffer to be stored from, and not the second operand's
  u64 node_bytes = 0;  ///< of memory, for a row
  u64 scratch_bytes = 0;  ///< of memory, beside rows
  u64 runs_bytes = 0;     ///< of memory, for the runs of the join
  u64 ahead = 1;          ///< channels of the next stripe that come in during the join
  u64 memory_bytes = 0;   ///< of the largest pass

  u64 rows() const { return u64{1} << levels; }
  u64 inner_rows() const { return u64{1} << inner_levels; }
  /// Rows of all sequences: pieces of a stripe.
  u64 pieces() const { return shape.k * rows(); }
  u64 columns() const { return shape.points() / pieces(); }
  /// Points of what is transformed as a whole in memory.
  u64 row_points() const { return columns() >> inner_levels; }
  u64 word_bytes() const { return shape.points() * point_bytes; }
  /// Bytes of an operand's residues.
  u64 residue_bytes() const { return shape.points() * channels * packed_bytes; }
  /// Where row `row`, of those of all sequences after all levels, of a channel begins in a file of residues.
  u64 row_offset(u64 channel, u64 row) const {
    return (channel * shape.points() + row * row_points()) * packed_bytes;
  }

  /// Pieces that the passes of a product transfer: places that the disks have to find. A square has one operand.
  u64 transfers(u64 operands) const;
};

/// Bytes that a buffer takes: its end is rounded up to the alignment of unbuffered files.
u64 pass_buffer_bytes(u64 bytes);

/// What a product moves and keeps.
struct PassTraffic {
  u64 loaded_bytes = 0, stored_bytes = 0;  ///< of operands, residues and result
  u64 disk_bytes = 0;                      ///< of residues, beside operands and result
};
/// For `operands` different operands, two or, of a square, one, of `operand_bytes` in all, and `result_bytes` that are kept.
PassTraffic pass_traffic(const PassShape& shape, u64 operands, u64 operand_bytes, u64 result_bytes);

/// The product in two passes with the fewest transfers; none where a pass does not fit or its pieces would be too short.
std::optional<PassShape> plan_two_passes(const FarFamily& family, const FarShape& shape,
                                         const PassLimits& limits);
/// The product in three passes.
std::optional<PassShape> plan_three_passes(const FarFamily& family, const FarShape& shape,
                                           const PassLimits& limits);

}  // namespace orl
