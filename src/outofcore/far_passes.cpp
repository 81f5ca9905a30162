#include "outofcore/far_passes.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <vector>

#include "core/fault_point.h"
#include "files/raw_io_buffer.h"
#include "outofcore/product_runs.h"

namespace orl {
namespace {

constexpr u64 kNumberWordBytes = 4;

// What the memory of a pass is cut into.
class PassMemory {
 public:
  explicit PassMemory(LinearHeapBuffer ram) : ram_(ram) {
    const u64 beyond = reinterpret_cast<std::uintptr_t>(ram_.ptr) % kIoAlignment;
    if (beyond != 0) ram_.cut<u8>(kIoAlignment - beyond);
  }
  u8* cut(u64 bytes) { return ram_.cut<u8>(pass_buffer_bytes(bytes)); }
  LinearHeapBuffer cut_buffer(u64 bytes) { return ram_.cut_buffer(pass_buffer_bytes(bytes)); }

 private:
  LinearHeapBuffer ram_;
};

// Calls body(begin, width, offset) for the parts of stripe i; `offset` columns lie before a part in its stripe.
template <class Body>
void for_parts_of(const Stripes& stripes, u64 i, Body&& body) {
  const u64 width = stripes.width(i);
  for (u64 at = 0; at < width; at += stripes.part)
    body(stripes.begin(i) + at, std::min(stripes.part, width - at), at);
}

// A stripe of an operand's words in memory.
class OperandStripe {
 public:
  OperandStripe(const PassShape& shape, const SwapNumber& operand, u8* words)
      : shape_(shape), operand_(operand), words_(words), row_(shape.columns() * shape.point_bytes) {}

  // Starts to load stripe i. Rows of zeros are not read.
  void start(u64 i) {
    const sfb_t piece = operand_.piece();
    first_ = shape_.forward.begin(i) * shape_.point_bytes;
    piece_ = shape_.forward.width(i) * shape_.point_bytes;
    full_ = piece.size() < first_ + piece_
                ? 0
                : std::min(shape_.pieces(), (piece.size() - first_ - piece_) / row_ + 1);
    const u64 next = full_ * row_ + first_;
    rest_ = full_ < shape_.pieces() && next < piece.size() ? piece.size() - next : 0;
    pieces_ = piece.start_gather(words_, first_, piece_, row_, full_);
    if (rest_ != 0) last_ = piece.start_load(words_ + full_ * piece_, next, rest_);
  }
  // Waits for it, and adds up its words.
  void wait(WordSums& sums, ParallelContext parallel) {
    pieces_.wait();
    last_.wait();
    for (u64 j = 0; j < full_ + (rest_ != 0); j++) {
      const u64 bytes = j < full_ ? piece_ : rest_;
      u8* const words = words_ + j * piece_;
      fault_point("swap operand", words, bytes);
      sums.add((j * row_ + first_) / kNumberWordBytes,
               {reinterpret_cast<const u32*>(words), bytes / kNumberWordBytes}, parallel);
    }
  }
  // The words of each row from the stripe's column `at` on.
  void rows(u64 at, std::span<OperandBytes> out) const {
    const u64 begin = at * shape_.point_bytes;
    for (u64 j = 0; j < out.size(); j++) {
      const u64 bytes = j < full_ ? piece_ : j == full_ ? rest_ : 0;
      out[j] = bytes > begin ? OperandBytes(words_ + j * piece_ + begin, bytes - begin) : OperandBytes();
    }
  }

 private:
  const PassShape& shape_;
  const SwapNumber& operand_;
  u8* words_;
  u64 row_;                    // bytes of a row
  u64 first_ = 0, piece_ = 0;  // bytes: before the stripe in a row, and of the stripe in a row
  u64 full_ = 0, rest_ = 0;    // rows that the operand fills; its bytes in the one behind
  FarTransfer pieces_, last_;
};

// Where a channel's part of a stripe lies.
struct ChannelPieces {
  ChannelPieces(const PassShape& shape, const Stripes& stripes, u64 channel, u64 i)
      : offset(shape.row_offset(channel, 0) + stripes.begin(i) * shape.packed_bytes),
        length(stripes.width(i) * shape.packed_bytes),
        stride(shape.columns() * shape.packed_bytes),
        count(shape.pieces()) {}

  u64 offset, length, stride, count;
};

FarTransfer start_gather(FarMemory& from, const ChannelPieces& pieces, u8* packed) {
  return from.start_gather(packed, pieces.offset, pieces.length, pieces.stride, pieces.count);
}
FarTransfer start_scatter(FarMemory& to, const ChannelPieces& pieces, const u8* packed) {
  return to.start_scatter(packed, pieces.offset, pieces.length, pieces.stride, pieces.count);
}

// Batches of rows as they come in, part by part: the first operand's, then the second's, if there is one.
class RowParts {
 public:
  RowParts(const PassShape& shape, std::span<FarMemory* const> operands, PassMemory& memory)
      : operands_(operands),
        row_parts_(shape.row_parts),
        parts_(shape.row_ring),
        points_(shape.batch * shape.row_points() / shape.row_parts),
        bytes_(points_ * shape.packed_bytes),
        count_(shape.channels * shape.shape.points() / points_ * operands.size()) {
    for (Part& part : parts_) part.packed = memory.cut(bytes_);
    for (u64 q = 0; q < parts_.size(); q++) start(q);
  }

  u64 points() const { return points_; }  // of a part
  // Calls body(packed) with the next part; then another one begins to come in.
  template <class Body>
  void take(Body&& body) {
    Part& part = parts_[next_ % parts_.size()];
    part.loading.wait();
    fault_point("swap residues", part.packed, bytes_);
    body(static_cast<const u8*>(part.packed));
    start(next_++ + parts_.size());
  }

 private:
  struct Part {
    u8* packed;
    FarTransfer loading;
  };
  void start(u64 q) {
    if (q >= count_) return;
    const u64 batch = q / row_parts_ / operands_.size(), operand = q / row_parts_ % operands_.size();
    Part& part = parts_[q % parts_.size()];
    part.loading =
        operands_[operand]->start_load(part.packed, (batch * row_parts_ + q % row_parts_) * bytes_, bytes_);
  }

  std::span<FarMemory* const> operands_;
  u64 row_parts_;
  std::vector<Part> parts_;
  u64 points_, bytes_, count_;
  u64 next_ = 0;
};

}  // namespace

void FarPasses::forward(const SwapNumber& operand, WordSums& read, FarMemory& residues) const {
  const Stripes& stripes = shape_.forward;
  PassMemory memory(ram_);
  const u64 points = shape_.pieces() * stripes.most();
  u8* const words[2] = {memory.cut(points * shape_.point_bytes), memory.cut(points * shape_.point_bytes)};
  u8* packed[3];
  for (u8*& buffer : packed) buffer = memory.cut(points * shape_.packed_bytes);
  u8* const part = memory.cut(stripes.part_bytes);
  const FarWork work{memory.cut_buffer(stripes.scratch_bytes), parallel_};

  std::vector<OperandBytes> rows(shape_.pieces());
  OperandStripe loaded[2] = {{shape_, operand, words[0]}, {shape_, operand, words[1]}};
  FarTransfer storing[3];
  loaded[0].start(0);
  for (u64 i = 0, next = 0; i < stripes.count; i++) {
    OperandStripe& stripe = loaded[i % 2];
    show(i, stripes.count);
    stripe.wait(read, parallel_);
    if (i + 1 < stripes.count) loaded[(i + 1) % 2].start(i + 1);
    for (u32 c = 0; c < shape_.channels; c++, next = (next + 1) % 3) {
      storing[next].wait();
      for_parts_of(stripes, i, [&](u64 begin, u64 width, u64 at) {
        const FarStripe columns = outer(begin, width);
        stripe.rows(at, rows);
        transform_.split_stripe(c, columns, rows, part, work);
        transform_.columns(c, columns, part, work);
        transform_.pack_stripe(c, columns, part, packed[next] + at * shape_.packed_bytes,
                               stripes.width(i) * shape_.packed_bytes, parallel_);
      });
      storing[next] = start_scatter(residues, {shape_, stripes, c, i}, packed[next]);
    }
  }
  for (FarTransfer& transfer : storing) transfer.wait();
  if (shape_.inner_levels != 0) columns_within(residues, Direction::kForward);
}

void FarPasses::columns_within(FarMemory& residues, Direction direction) const {
  const Stripes& stripes = shape_.inner;
  const u64 f = shape_.packed_bytes, rows = shape_.inner_rows(),
            count = shape_.channels * shape_.pieces() * stripes.count;
  PassMemory memory(ram_);
  u8* packed[3];
  for (u8*& buffer : packed) buffer = memory.cut(rows * stripes.most() * f);
  u8* const part = memory.cut(stripes.part_bytes);
  const FarWork work{memory.cut_buffer(stripes.scratch_bytes), parallel_};

  // Stripe q % count of row q / count.
  const auto place = [&](u64 q) {
    return (q / stripes.count * shape_.columns() + stripes.begin(q % stripes.count)) * f;
  };
  const auto width = [&](u64 q) { return stripes.width(q % stripes.count); };
  FarTransfer moving[3];
  const auto load = [&](u64 q) {
    if (q < count)
      moving[q % 3] =
          residues.start_gather(packed[q % 3], place(q), width(q) * f, shape_.row_points() * f, rows);
  };
  load(0);
  for (u64 q = 0; q < count; q++) {
    show(q, count);
    u8* const mine = packed[q % 3];
    moving[(q + 1) % 3].wait();
    load(q + 1);
    moving[q % 3].wait();
    fault_point("swap residues", mine, rows * width(q) * f);
    const u64 row = q / stripes.count;
    const u32 channel = static_cast<u32>(row / shape_.pieces());
    const FarNode node{shape_.levels, static_cast<u32>(row / shape_.rows() % shape_.shape.k),
                       row % shape_.rows()};
    for_parts_of(stripes, q % stripes.count, [&](u64 begin, u64 columns, u64 at) {
      const FarStripe stripe{node, shape_.inner_levels, begin, columns};
      transform_.unpack_stripe(channel, stripe, part, mine + at * f, width(q) * f, parallel_);
      if (direction == Direction::kForward)
        transform_.columns(channel, stripe, part, work);
      else
        transform_.columns_back(channel, stripe, part, work);
      transform_.pack_stripe(channel, stripe, part, mine + at * f, width(q) * f, parallel_);
    });
    moving[q % 3] = residues.start_scatter(mine, place(q), width(q) * f, shape_.row_points() * f, rows);
  }
  for (FarTransfer& transfer : moving) transfer.wait();
}

void FarPasses::multiply(FarMemory& residues, FarMemory& other) const {
  const bool square = &residues == &other;
  FarMemory* const operands[2] = {&residues, &other};
  const u32 levels = shape_.levels + shape_.inner_levels;
  const u64 rows = shape_.pieces() * shape_.inner_rows(),
            row_bytes = shape_.row_points() * shape_.packed_bytes;
  PassMemory memory(ram_);
  const FarWork work{memory.cut_buffer(shape_.scratch_bytes), parallel_};
  u8* const F = memory.cut(shape_.batch * shape_.node_bytes);
  u8* const G = memory.cut(shape_.batch * shape_.node_bytes);
  u8* const product = shape_.spare ? memory.cut(shape_.batch * row_bytes) : G;
  RowParts parts(shape_, std::span(operands).first(square ? 1 : 2), memory);

  FarTransfer storing;
  for (u64 first = 0; first < rows * shape_.channels; first += shape_.batch) {
    show(first, rows * shape_.channels);
    const u32 channel = static_cast<u32>(first / rows);
    const auto node = [&](u64 b) {
      const u64 row = first % rows + b, of_sequence = shape_.rows() * shape_.inner_rows();
      return FarNode{levels, static_cast<u32>(row / of_sequence), row % of_sequence};
    };
    const auto load = [&](u8* X) {
      for (u64 p = 0; p < shape_.row_parts; p++)
        parts.take([&](const u8* packed) {
          const u64 points = std::min(parts.points(), shape_.row_points());
          for (u64 b = 0; b < shape_.batch; b++)
            transform_.unpack(channel, node(b), X + b * shape_.node_bytes, {p * points, (p + 1) * points},
                              packed + b * row_bytes, parallel_);
        });
      for (u64 b = 0; b < shape_.batch; b++)
        transform_.start(channel, node(b), X + b * shape_.node_bytes, work);
    };
    load(F);
    if (!shape_.spare) storing.wait();
    if (!square) load(G);
    for (u64 b = 0; b < shape_.batch; b++) {
      u8* const X = F + b * shape_.node_bytes;
      transform_.multiply(channel, node(b), X, square ? X : G + b * shape_.node_bytes, OperandState::kStarted,
                          work);
      transform_.finish(channel, node(b), X, work);
      storing.wait();
      transform_.pack(channel, node(b), X, {0, shape_.row_points()}, product + b * row_bytes, parallel_);
    }
    storing =
        residues.start_store(product, shape_.row_offset(channel, first % rows), shape_.batch * row_bytes);
  }
  storing.wait();
}

bool FarPasses::back(FarMemory& residues, ProductProof& proof, const ProductTarget& target) const {
  if (shape_.inner_levels != 0) columns_within(residues, Direction::kBack);
  const Stripes& stripes = shape_.back;
  const u64 f = shape_.packed_bytes, channels = shape_.channels, buffers = channels + shape_.ahead;
  const u64 points = shape_.pieces() * stripes.most();
  PassMemory memory(ram_);
  u8* const joined = memory.cut(points * shape_.point_bytes);
  std::vector<u8*> packed(buffers);
  for (u8*& buffer : packed) buffer = memory.cut(points * f);
  std::vector<void*> parts(channels);
  for (void*& part : parts) part = memory.cut(stripes.part_bytes);
  void* const runs = memory.cut(shape_.runs_bytes);
  const FarWork work{memory.cut_buffer(stripes.scratch_bytes), parallel_};

  ProductRuns product({shape_.pieces(), shape_.columns() * shape_.point_bytes}, proof, target, parallel_);
  std::vector<u64*> words(shape_.pieces());
  std::vector<FarTransfer> loading(buffers);
  // Channel q % channels of stripe q / channels.
  u64 started = 0;
  const auto load_to = [&](u64 end) {
    for (end = std::min(end, channels * stripes.count); started < end; started++)
      loading[started % buffers] = start_gather(
          residues, {shape_, stripes, started % channels, started / channels}, packed[started % buffers]);
  };
  load_to(buffers);
  transform_.start_runs(shape_.levels, runs);
  for (u64 i = 0; i < stripes.count; i++) {
    show(i, stripes.count);
    const u64 width = stripes.width(i);
    const auto mine = [&](u64 c) { return packed[(i * channels + c) % buffers]; };
    for (u32 c = 0; c < channels; c++) {
      loading[(i * channels + c) % buffers].wait();
      fault_point("swap residues", mine(c), shape_.pieces() * width * f);
      for_parts_of(stripes, i, [&](u64 begin, u64 columns, u64 at) {
        transform_.unpack_stripe(c, outer(begin, columns), parts[c], mine(c) + at * f, width * f, parallel_);
        transform_.columns_back(c, outer(begin, columns), parts[c], work);
        transform_.pack_stripe(c, outer(begin, columns), parts[c], mine(c) + at * f, width * f, parallel_);
      });
    }
    product.wait();
    for_parts_of(stripes, i, [&](u64 begin, u64 columns, u64 at) {
      for (u32 c = 0; c < channels; c++)
        transform_.unpack_stripe(c, outer(begin, columns), parts[c], mine(c) + at * f, width * f, parallel_);
      for (u64 j = 0; j < words.size(); j++)
        words[j] = j < product.rows() ? reinterpret_cast<u64*>(joined + (j * width + at) * shape_.point_bytes)
                                      : nullptr;
      transform_.join_stripe(outer(begin, columns), parts, words, runs, work);
    });
    load_to((i + 1) * channels + buffers);
    product.start(stripes.begin(i) * shape_.point_bytes, width * shape_.point_bytes, joined);
  }
  product.wait();
  FarCarry carry;
  for (u64 j = 0; j < product.rows(); j++) {
    if (j != 0) product.add(j, carry);
    const FarCarry own = transform_.run_carry(shape_.levels, runs, j);
    product.count(j + 1, own);
    carry.add(own);
  }
  return product.finish(transform_.ring(), carry);
}

}  // namespace orl
