// Words of a product that come in rows side by side, on their way to a number.
//
// A row is a range of the product's words, each as long as the others; row j begins where row j - 1 ends. Pieces come from the
// begin of the rows to their end, those of all rows together. What a row leaves to the words behind it is known when all
// pieces have gone, and is added then: a block is read, changed and stored, seldom a second one.
#pragma once

#include <algorithm>
#include <vector>

#include "outofcore/product_proof.h"
#include "outofcore/swap_product.h"

namespace orl {

/// Where words [skip, skip + number.words()) (32-bit) of a product of `made` words go.
struct ProductTarget {
  SwapNumber& number;
  u64 skip = 0;
  u64 made = 0;
};

/// Rows of a product; `bytes` is a multiple of 8.
struct ProductRows {
  u64 count = 0;
  u64 bytes = 0;
};

/// Words of a row that lie below the window: summed up and not kept. A carry that comes to the row may pass them all.
class DroppedWords {
 public:
  /// Takes the next words.
  void take(const u64* words, u64 count);
  /// Adds a carry, which becomes what leaves the last of the words.
  void add(FarCarry& carry);

 private:
  // Behind so many words a carry is 1 or -1.
  static constexpr u64 kHeads = FarCarry::kWords + 2;
  u64 head_[kHeads] = {};
  u64 heads_ = 0;
  bool more_ = false, ones_ = true, zeros_ = true;
};

/// See the head of this file. Gives all words to the proof.
class ProductRuns : Uncopied {
 public:
  /// The product is `all` rows, of which those that have made words come.
  ProductRuns(const ProductRows& all, ProductProof& proof, const ProductTarget& target,
              ParallelContext parallel);

  /// Rows that have words of the product.
  u64 rows() const { return rows_; }

  /// Starts to store bytes [first, first + piece) of each row, multiples of 8, those of row j at words + j piece; they stay
  /// until wait().
  void start(u64 first, u64 piece, u8* words);
  void wait();

  /// Behind the last wait(): tells the proof of a carry to the words from row j on.
  void count(u64 j, const FarCarry& carry);
  /// Adds a carry to row j; it becomes what leaves the row.
  void add(u64 j, FarCarry& carry);
  /// Ends a product whose last row left `carry`; sets the number's hash. True for a product modulo W^n + 1 that is W^n.
  bool finish(ProductRing ring, const FarCarry& carry);

 private:
  void drop(u64 j, u64 at, const u8* words, u64 bytes);
  u64* load(u64 at, u64 count);
  void store(u64 at, u64 count);
  struct Span {
    u64 from, to;  ///< bytes of the product
    u8* block;     ///< where they are in block_
  };
  Span span_of(u64 at, u64 count);
  Words<u32> words_of(const Span& span) const;

  static constexpr u64 kBlockWords = 512;

  ProductProof& proof_;
  ProductTarget target_;
  ParallelContext parallel_;
  sfb_t file_;
  u64 row_, rows_;
  u64 begin_, end_;                    ///< of the window, in bytes of the product
  std::vector<DroppedWords> dropped_;  ///< of the rows that begin below the window
  u64 half_ = 0;                       ///< the half of a word below a window that begins within it
  alignas(64) u64 block_[kBlockWords];
  WordSums sums_;  ///< of the number's words
  FarTransfer pieces_, cut_[2];
};

/// Calls body(target) to store the product's words, and has them where the work's sink wants them: in its number at once, or
/// in a file that it is shown afterwards. Returns what body returns.
template <class Body>
bool with_product_target(const SwapWork& work, Body&& body) {
  const u64 made = work.plan.made_words();
  const ProductSink::Direct direct = work.sink.direct();
  if (direct.number != nullptr) return body(ProductTarget{*direct.number, direct.skip, made});
  SwapNumber words(work.run.disk, made);
  const bool top = body(ProductTarget{words, 0, made});
  LinearHeapBuffer memory = work.run.memory;
  WordReader reader(words, std::min(made, memory.size / 16 / sizeof(u32)), memory, work.proof.function());
  while (true) {
    const Words<u32> block = reader.next(work.run.parallel);
    if (block.count == 0) break;
    work.sink.take(block, work.run.parallel);
  }
  work.sink.finish();
  return top;
}

}  // namespace orl
