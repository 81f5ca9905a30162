// Products whose hash is known before they are made: reproducible operands, and rounds of "make the product,
// hash it, compare".
//
// Operand   word i with seed s is a cubic in i + s with wrapping arithmetic, so any window of it can be
//           written by itself, by any number of tasks.
// Answer    the hash of a product is the product of the hashes of its operands, which are taken once, from
//           words as they were generated.
// Rounds    one object an algorithm and size, through the algorithm's own slots: every family is exercised
//           the same way, whatever the multiplication tables name. It may hold many operands, of which each
//           round reads one or two; the product, the tables and the scratch are there once.
#pragma once

#include <atomic>
#include <optional>

#include "core/types.h"
#include "multiply/algorithm.h"

namespace orl {

/// Word i of the operand with seed s.
template <class W>
constexpr W known_word(u64 i, u64 s) {
  if constexpr (sizeof(W) == 4) {
    const u32 x = static_cast<u32>(i + s) - 930923655u;
    return x * x * x * 0xC82B9175u - 933796325u;
  } else {
    const u64 x = i + s + 2760733047673u;
    return x * x * x * 2760727302517u + 2760730175003u;
  }
}

/// T[0, count) = words [first, first + count) of the operand with seed s.
template <class W>
void fill_known_words(W* T, u64 first, u64 count, u64 s, ParallelContext parallel);

/// What one round found, and how much it did.
struct KnownAnswerResult {
  u64 expected = 0;  ///< canonical hashes
  u64 actual = 0;
  u64 product_words = 0;
  bool passed() const { return expected == actual; }
};

/// See the head of this file. Not for several threads at once.
template <class W>
class KnownAnswerRounds {
 public:
  /// `operands` (at least one) operands of `words` words each. Throws LimitExceededException when the product
  /// of two is above the algorithm's largest.
  KnownAnswerRounds(const Algorithm& algorithm, u64 words, u64 tds, u64 operands = 2);

  /// Memory for the operands, the product, the tables and the scratch.
  u64 bytes() const { return operands_bytes() + hashes_bytes() + workspace_bytes_; }
  /// The operands' share of bytes(), and the share that does not depend on their number.
  u64 operands_bytes() const { return operands_ * stride_ * sizeof(W); }
  u64 workspace_bytes() const { return workspace_bytes_; }
  /// Cuts `memory`, fills it and takes the hashes of the operands; operand i has the seed s + i * words. False when
  /// `stop` became true first: the memory is not filled then.
  bool prepare(LinearHeapBuffer memory, u64 s, ParallelContext parallel,
               const std::atomic<bool>* stop = nullptr);
  /// One square or product, hashed and compared. After prepare(); `parallel` with at most its tds.
  KnownAnswerResult square(ParallelContext parallel, u64 i = 0);
  KnownAnswerResult product(ParallelContext parallel, u64 i = 0, u64 j = 1);
  /// Whether all operands and the tables still are what prepare() made. Reads every word of them.
  bool intact(ParallelContext parallel) const;

  u64 words() const { return words_; }
  u64 operands() const { return operands_; }
  /// Operand i, after prepare().
  W* operand(u64 i) { return A_ + i * stride_; }
  /// The tables, as they lie in memory.
  LinearHeapBuffer tables() { return table_block_; }
  /// What the last round wrote, 2 * words() words.
  const W* result() const { return T_; }

 private:
  KnownAnswerResult result_of(u64 expected, ParallelContext parallel) const;

  u64 hashes_bytes() const { return LinearHeapBuffer::cut_bytes<u64>(operands_); }
  u64 table_hash(ParallelContext parallel) const;

  const Algorithm& algorithm_;
  u64 words_;
  u64 operands_;
  u64 stride_;  ///< words from one operand to the next
  u64 table_bytes_ = 0;
  u64 scratch_bytes_ = 0;
  u64 workspace_bytes_ = 0;
  u64 seed_ = 0;
  W* A_ = nullptr;
  u64* hashes_ = nullptr;
  W* T_ = nullptr;
  u64 table_hash_ = 0;
  LinearHeapBuffer table_block_{};
  std::optional<TransformTables> tables_;
  LinearHeapBuffer scratch_{};
};

}  // namespace orl
