#include "outofcore/pass_shape.h"

#include <algorithm>
#include <bit>
#include <initializer_list>
#include <numeric>

#include "core/round_up.h"
#include "files/raw_io_buffer.h"

namespace orl {
namespace {

// Levels of a pass over columns: more make pieces too short before they make rows shorter than memory asks for.
constexpr u32 kMostLevels = 10;
static_assert(kMostLevels <= kFarMostLevels);
// So many stripes overlap well: only the first load and the last store have nothing beside them.
constexpr u64 kStripes = 12;
// So many batches of rows do.
constexpr u64 kBatches = 16;
// Points of a task that work on a part of a stripe keeps busy, and columns of a part at least.
constexpr u64 kTaskPoints = 1 << 15;
constexpr u64 kLeastPart = 64;
// Parts that a row comes in by at most.
constexpr u64 kMostRowParts = 16;
// Channels of the next stripe that are in memory during a join at least.
constexpr u64 kLeastAhead = 2;

u64 divide_up(u64 a, u64 b) { return a / b + (a % b != 0); }

// The least number of columns, a multiple of what parts need, whose bytes are a multiple of `block` in files of residues
// and, where `word_bytes` is not 0, as words.
u64 unit_columns(u64 block, u64 packed_bytes, u64 word_bytes) {
  const u64 unit = std::lcm(kLeastPart, block / std::gcd(block, packed_bytes));
  return word_bytes == 0 ? unit : std::lcm(unit, block / std::gcd(block, word_bytes));
}

// What a pass over stripes asks for.
struct StripePass {
  u64 columns;
  u64 pieces;                    // rows of a stripe
  u64 packed_bytes, word_bytes;  // of a point of the pieces that are stored; 0: no words are
  u64 shortest_bytes;            // of a point of the shortest pieces
  u64 copies;                    // bytes of memory per point
  u64 buffers;                   // of which these are made
  u64 parts;                     // that are in memory together
  u64 part, part_bytes, scratch_bytes;
  u64 runs_bytes;

  // Bytes of memory beside the buffers; these are cut at 4096, and so is their begin.
  u64 fixed() const {
    return parts * pass_buffer_bytes(part_bytes) + pass_buffer_bytes(scratch_bytes) +
           pass_buffer_bytes(runs_bytes) + (buffers + 1) * kIoAlignment;
  }
};

// Stripes in units of `unit` columns, as wide as memory allows, but many enough to overlap where they can be narrower.
std::optional<Stripes> cut_stripes(const StripePass& pass, u64 unit, const PassLimits& limits) {
  const u64 fixed = pass.fixed();
  if (pass.columns % unit != 0 || limits.memory_bytes <= fixed) return std::nullopt;
  const u64 units = pass.columns / unit;
  const u64 least = divide_up(limits.bytes_per_seek, pass.shortest_bytes * unit);
  const u64 most = (limits.memory_bytes - fixed) / (pass.pieces * pass.copies * unit);
  if (most == 0 || least > units) return std::nullopt;
  const u64 fewest = divide_up(units, most), many = units / std::max<u64>(least, 1);
  if (fewest > many) return std::nullopt;
  return Stripes{pass.columns,      unit, std::clamp(kStripes, fewest, many), pass.part, pass.part_bytes,
                 pass.scratch_bytes};
}

// In units that arrays like best, if that can be.
std::optional<Stripes> cut_stripes(const StripePass& pass, const PassLimits& limits) {
  std::optional<Stripes> stripes;
  for (const u64 block : {limits.row_bytes, u64{kIoAlignment}})
    for (const u64 word_bytes : {pass.word_bytes, u64{0}})
      if (!stripes) stripes = cut_stripes(pass, unit_columns(block, pass.packed_bytes, word_bytes), limits);
  return stripes;
}

class Planner {
 public:
  Planner(const FarFamily& family, const FarShape& shape, const PassLimits& limits)
      : family_(family), limits_(limits) {
    base_.shape = shape;
    base_.channels = family.channels(shape);
    base_.point_bytes = family.point_bytes(shape);
    base_.packed_bytes = family.packed_bytes(shape);
  }

  // Keeps the shape with these levels if it is the best so far.
  void try_levels(u32 levels, u32 inner_levels) {
    if (levels + inner_levels + kFarLeastRowLevels > base_.shape.n) return;
    PassShape shape = base_;
    shape.levels = levels;
    shape.inner_levels = inner_levels;
    if (!choose_rows(shape) || !choose_outer(shape)) return;
    if (inner_levels != 0 && !choose_inner(shape)) return;
    if (!best_ || shape.transfers(2) < best_->transfers(2)) best_ = shape;
  }
  const std::optional<PassShape>& best() const { return best_; }

 private:
  // Columns of a part of a stripe of which `channels` are in memory together.
  u64 part_of(u64 pieces, u64 columns, u64 channels) const {
    const u64 wanted = std::bit_floor(std::max(limits_.tasks * kTaskPoints / pieces, kLeastPart));
    const u64 affordable = limits_.memory_bytes / 8 / (pieces * channels * base_.packed_bytes * 4 / 3);
    return std::min({wanted, std::bit_floor(std::max(affordable, kLeastPart)), columns});
  }
  // The rest of a pass that keeps so many parts of a stripe.
  StripePass with_parts(StripePass pass, const PassShape& shape, const FarNode& node, u32 levels,
                        u64 parts) const {
    pass.part = part_of(pass.pieces, pass.columns, parts);
    pass.parts = parts;
    pass.part_bytes = family_.stripe_bytes(shape.shape, {node, levels, 0, pass.part});
    pass.scratch_bytes = family_.stripe_scratch_bytes(shape.shape, levels, limits_.tasks);
    return pass;
  }
  // Cuts the stripes of a pass and counts their memory; false where they do not fit.
  bool cut(PassShape& shape, const StripePass& pass, Stripes& stripes) const {
    const auto found = cut_stripes(pass, limits_);
    if (!found) return false;
    stripes = *found;
    shape.memory_bytes =
        std::max(shape.memory_bytes, pass.pieces * stripes.most() * pass.copies + pass.fixed());
    return true;
  }

  bool choose_outer(PassShape& shape) const {
    const u64 b = shape.point_bytes, f = shape.packed_bytes;
    StripePass pass{};
    pass.columns = shape.columns();
    pass.pieces = shape.pieces();
    pass.packed_bytes = f;
    pass.shortest_bytes = std::min(b, f);
    pass.copies = 2 * b + 3 * f;
    pass.buffers = 5;
    if (!cut(shape, with_parts(pass, shape, {}, shape.levels, 1), shape.forward)) return false;
    shape.runs_bytes = pass.runs_bytes = family_.runs_bytes(shape.shape, shape.levels);
    pass.word_bytes = b;
    const StripePass joined = with_parts(pass, shape, {}, shape.levels, shape.channels);
    const auto with_ahead = [&](u64 ahead) {
      StripePass back = joined;
      back.copies = b + (shape.channels + ahead) * f;
      back.buffers = 1 + shape.channels + ahead;
      return back;
    };
    shape.ahead = std::min(shape.channels, kLeastAhead);
    if (!cut(shape, with_ahead(shape.ahead), shape.back)) return false;
    // What memory has left takes more of the next stripe.
    for (u64 ahead = shape.ahead + 1; ahead <= shape.channels; ahead++) {
      const StripePass more = with_ahead(ahead);
      const u64 bytes = more.pieces * shape.back.most() * more.copies + more.fixed();
      if (bytes > limits_.memory_bytes) break;
      shape.ahead = ahead;
      shape.memory_bytes = std::max(shape.memory_bytes, bytes);
    }
    return true;
  }

  bool choose_inner(PassShape& shape) const {
    StripePass pass{};
    pass.columns = shape.row_points();
    pass.pieces = shape.inner_rows();
    pass.packed_bytes = pass.shortest_bytes = shape.packed_bytes;
    pass.copies = 3 * shape.packed_bytes;
    pass.buffers = 3;
    return cut(shape, with_parts(pass, shape, {shape.levels, 0, 0}, shape.inner_levels, 1), shape.inner);
  }

  // As many rows together as leave enough batches; a row that fills memory comes in by parts, as many as there is room for.
  bool choose_rows(PassShape& shape) const {
    const u32 levels = shape.levels + shape.inner_levels;
    const u64 packed = shape.row_points() * shape.packed_bytes, rows = shape.rows() * shape.inner_rows();
    shape.node_bytes = family_.node_bytes(shape.shape, levels);
    shape.scratch_bytes = family_.node_scratch_bytes(shape.shape, levels, limits_.tasks);
    const auto bytes = [&] {
      return kIoAlignment + pass_buffer_bytes(shape.scratch_bytes) +
             2 * pass_buffer_bytes(shape.batch * shape.node_bytes) +
             shape.row_ring * pass_buffer_bytes(shape.batch * packed / shape.row_parts) +
             (shape.spare ? pass_buffer_bytes(shape.batch * packed) : 0);
    };
    const auto fits = [&] { return bytes() <= limits_.memory_bytes; };
    shape.spare = true;
    if (fits()) {
      const u64 most = std::min(rows, rows * shape.shape.k * shape.channels / kBatches);
      for (; 2 * shape.batch <= most && fits(); shape.batch *= 2) continue;
      if (!fits()) shape.batch /= 2;
    } else {
      shape.spare = false;
      while (shape.row_parts < kMostRowParts && packed / (2 * shape.row_parts) >= limits_.bytes_per_seek)
        shape.row_parts *= 2;
      for (shape.row_ring = 2 * shape.row_parts; !fits() && shape.row_ring > 2; shape.row_ring--) continue;
    }
    shape.memory_bytes = std::max(shape.memory_bytes, bytes());
    return fits();
  }

  const FarFamily& family_;
  PassLimits limits_;
  PassShape base_;
  std::optional<PassShape> best_;
};

}  // namespace

u64 pass_buffer_bytes(u64 bytes) { return round_up(bytes, kIoAlignment); }

u64 Stripes::begin(u64 i) const {
  const u64 units = columns / unit;
  return (units / count * i + units % count * i / count) * unit;
}

u64 PassShape::transfers(u64 operands) const {
  const u64 stripes = operands * forward.count + back.count, all_rows = pieces() * inner_rows() * channels;
  const u64 inside = inner_levels == 0 ? 0 : 2 * (operands + 1) * all_rows * inner.count;
  return stripes * pieces() * (channels + 1) + inside + (operands + 1) * all_rows / batch;
}

PassTraffic pass_traffic(const PassShape& shape, u64 operands, u64 operand_bytes, u64 result_bytes) {
  const u64 passes = shape.inner_levels == 0 ? 1 : 2;
  const u64 moved = passes * (operands + 1) * shape.residue_bytes();
  return {operand_bytes + moved, result_bytes + moved, operands * shape.residue_bytes()};
}

std::optional<PassShape> plan_two_passes(const FarFamily& family, const FarShape& shape,
                                         const PassLimits& limits) {
  Planner planner(family, shape, limits);
  for (u32 levels = 1; levels <= kMostLevels; levels++) planner.try_levels(levels, 0);
  return planner.best();
}

std::optional<PassShape> plan_three_passes(const FarFamily& family, const FarShape& shape,
                                           const PassLimits& limits) {
  Planner planner(family, shape, limits);
  for (u32 levels = 1; levels <= kMostLevels; levels++)
    for (u32 inner = 1; inner <= kMostLevels; inner++) planner.try_levels(levels, inner);
  return planner.best();
}

}  // namespace orl
