// The definitions of block_list.h, for the files that instantiate them for a store.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "core/format.h"
#include "core/output.h"
#include "core/status.h"
#include "splitting/block_list.h"
#include "splitting/merge.h"

namespace orl {

namespace block_list {

// The smallest block worth giving to one thread, in bits.
inline constexpr u64 kThreadBits = 221185;
inline constexpr u64 kManyBlocks = 10000;

/// First m in (a, b] with reached(m), which stays true from there on; b when there is none before it.
template <class Predicate>
u64 first_reached(u64 a, u64 b, const Predicate& reached) {
  while (b - a > 1) {
    const u64 m = a + (b - a) / 2;
    (reached(m) ? b : a) = m;
  }
  return b;
}

/// The end of the block that begins at a: where its size reaches the precision that remains behind it, but at
/// least `smallest` and at most `largest` nats.
template <class W>
u64 block_end(const Series<W>& series, u64 a, DoubleDouble smallest, DoubleDouble largest) {
  const u64 end = series.terms();
  u64 m = first_reached(a, end, [&](u64 x) { return series.size(a, x) >= series.remaining(x); });
  const auto grown_to = [&](DoubleDouble nats) {
    return first_reached(a, end, [&](u64 x) { return series.size(a, x) >= nats; });
  };
  if (series.size(a, m) < smallest) m = grown_to(smallest);
  if (series.size(a, m) > largest) m = grown_to(largest);
  return m;
}

/// What a block of so many nats takes beside others: its size by its length's logarithm twice, once for the levels of the
/// splitting and once for the products of each. Measured for Pi at 10 and 100 million digits, the exponent is 1.75.
inline double block_work(DoubleDouble nats) {
  constexpr double kNatsPerWord = 44.4;
  const double size = nats.to_double();
  return size * std::pow(std::log2(std::max(size / kNatsPerWord, 2.0)), 1.75);
}

/// Says so once, when a plan passes kManyBlocks.
inline void warn_of_many_blocks(u64 count) {
  static bool warned = false;
  if (count == kManyBlocks && !warned) {
    warned = true;
    notice_line("Performance Warning: PSR plan has exceeded 10000 blocks.", 'Y');
  }
}

/// Says how many blocks a plan of that many has.
inline void warn_of_plan_size(u64 count) {
  if (count < kManyBlocks) return;
  notice_line("PSR plan has reached a size of " + format_with_commas(count) + " blocks.", 'Y');
  notice_line("It is not recommended to proceed with such a computation.", 'Y');
}

}  // namespace block_list

template <class Store, class Block>
BlockList<Store, Block>::BlockList(const Series<W>& series, u64 p, const Store::Budget& budget,
                                   SeriesMemory memory, const SumTitle& title)
    : series_(series), status_(title.status) {
  plan(p, budget, memory);
  // How much larger than the precision the numbers of the whole range would be.
  const DoubleDouble expansion = series.size(0, series.terms()) / words_to_nats<W>(p);
  headline_ = (title.headline ? std::string(title.headline) : std::string("Series ") + series.kind().name()) +
              "...  " + format_with_commas(series.terms()) +
              " terms  (Expansion Factor = " + format_float(expansion.to_double(), 3) + ")";
}

template <class Store, class Block>
void BlockList<Store, Block>::plan(u64 p, const Store::Budget& budget, SeriesMemory memory) {
  u64 width = 1;
  while (width < budget.tds) width *= 2;
  const DoubleDouble smallest = DoubleDouble::from_u64(width * block_list::kThreadBits) * DoubleDouble::ln2();
  const DoubleDouble largest = Block::largest(p, memory);
  u64 highest = 0;
  const auto total_with = [&](const Block& block) { return std::max(highest, block.total_bytes()); };
  BlockShape shape{p, std::max<u64>(budget.tds, 1), 0, memory};
  for (u64 a = 0; a < series_.terms(); a = blocks_.back()->b()) {
    const TermRange range{a, block_list::block_end(series_, a, smallest, largest)};
    const auto with_halving = [&](u64 levels) {
      shape.halving = levels;
      return std::make_unique<Block>(series_, range, shape);
    };
    auto block = with_halving(0);
    if (shape.tds >= 2 && total_with(*block) > highest) {
      // A halving level costs time; it is worth a ninth of the memory.
      auto halved = with_halving(1);
      const u64 total = total_with(*halved);
      if (total <= highest || total + total / 8 < total_with(*block)) block = std::move(halved);
    }
    highest = total_with(*block);
    blocks_.push_back(std::move(block));
    block_list::warn_of_many_blocks(blocks_.size());
  }
  block_list::warn_of_plan_size(blocks_.size());
}

template <class Store, class Block>
u64 BlockList<Store, Block>::total_bytes() const {
  u64 bytes = 0;
  for (const auto& block : blocks_) bytes = std::max(bytes, block->total_bytes());
  return bytes;
}

template <class Store, class Block>
void BlockList<Store, Block>::use_memory(u64 bytes, Need& need) {
  for (const auto& block : blocks_) {
    block->use_memory(bytes);
    need.table_bits = std::max(need.table_bits, block->product_words() * 8 * sizeof(W));
  }
}

template <class Store, class Block>
void BlockList<Store, Block>::run(const RunContext& ctx, Store::Frame& frame, Tail& tail,
                                  Store::Arena heap) const {
  ctx.status.println(headline_);
  tail = {};
  StatusFrame status(ctx.status, status_);
  const auto work_of = [&](const Block& block) {
    return block_list::block_work(series_.size(block.a(), block.b()));
  };
  double whole = 0, done = 0;
  for (const auto& block : blocks_) whole += work_of(*block);
  for (u64 i = blocks_.size(); i-- > 0;) {
    const Block& block = *blocks_[i];
    char line[64];
    const bool leaf = block.b() - block.a() <= series_.leaf_width();
    std::snprintf(line, sizeof line, "%s: %c  %llu )", status_, leaf ? 'E' : 'A',
                  static_cast<unsigned long long>(i));
    ctx.status.set_line(line, done / whole);
    done += work_of(block);
    ctx.status.set_goal(done / whole);
    frame.stage([&] { block.run(ctx, frame, tail, heap); }, tail);
  }
}

}  // namespace orl
