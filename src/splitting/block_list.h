// The blocks of a sum: how its terms are cut into them, and the walk from the last block to the first.
//
// A block ends where its numbers are as long as the precision that is still needed behind it, so that nothing longer
// than that is ever multiplied. What a block makes of the terms behind it is the block's own: its Tail.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "splitting/series.h"

namespace orl {

/// How large the blocks of a series may be.
enum class SeriesMemory {
  kFast,     ///< as long as the precision behind them
  kReduced,  ///< at most half of the precision, folded in up to four pieces
};

/// What a block is planned for.
struct BlockShape {
  u64 p = 0;  ///< precision of the whole sum, which caps what is kept
  u64 tds = 1;
  u64 halving = 0;  ///< as BSR_BlockT has it
  SeriesMemory memory = SeriesMemory::kFast;
};

/// What the console calls a sum.
struct SumTitle {
  const char* headline = nullptr;  ///< null: "Series " and the name of the kind
  const char* status = "Series";   ///< of the live line
};

/// The blocks of a series to p words. `Block` is planned for a range of terms and a BlockShape, and run(ctx, frame,
/// tail, heap) turns the tail of the terms behind it, which lies at the start of `heap`, into its own.
template <class Store, class Block>
class BlockList {
 public:
  using W = typename Store::Word;
  using Tail = typename Block::Tail;

  /// `series` outlives the list.
  BlockList(const Series<W>& series, u64 p, const Store::Budget& budget, SeriesMemory memory,
            const SumTitle& title);

  const std::vector<std::unique_ptr<Block>>& blocks() const { return blocks_; }
  /// The largest block's bytes.
  u64 total_bytes() const;
  /// Plans every block as fast as `bytes` allow, and raises the tables that `need` asks for to what they take.
  void use_memory(u64 bytes, Need& need);

  /// tail = that of all terms.
  void run(const RunContext& ctx, Store::Frame& frame, Tail& tail, Store::Arena heap) const;

 private:
  void plan(u64 p, const Store::Budget& budget, SeriesMemory memory);

  const Series<W>& series_;
  const char* status_;
  std::string headline_;  ///< the line on the console, made here because a run allocates nothing
  std::vector<std::unique_ptr<Block>> blocks_;
};

}  // namespace orl
