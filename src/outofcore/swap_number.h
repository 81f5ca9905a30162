// Words of a number on a disk array, with the hash that they must have; reading and writing them in blocks.
//
// Words     of 32 bits, least significant first; a number of 64-bit words is twice as many. No sign and no exponent.
// Hash      modulo 2^61 - 1 (words/hash.h), made by who wrote the words, compared by whoever reads all of them: a disk
//           that gives back other words than it was given shows at the next read.
// Overlap   a reader loads the next block while one is worked on, a sink stores the last one while the next is made.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "arrays/raid_array.h"
#include "memory/linear_buffer.h"
#include "multiply/ring_check.h"
#include "threads/parallelizer.h"
#include "words/word_view.h"

namespace orl {

/// The text of the exception that a product, and a number, ends with that has not its hash.
inline constexpr const char* kSwapProductMismatch = "Checksum Mismatch. Multiplication Failed.";
inline constexpr const char* kSwapNumberMismatch = "Checksum Mismatch. A number on the disks has changed.";

/// See the head of this file. Copies and views share the file, which goes with the last of them.
class SwapNumber {
 public:
  SwapNumber() = default;
  /// A file for `words` words, which are unknown until they are written. A null name: one that nobody needs to know.
  SwapNumber(SwapDescriptor& disk, u64 words, const char* name = nullptr);
  /// Words [from, to) of this number, with a hash that nobody knows yet.
  SwapNumber view(u64 from, u64 to) const;

  u64 words() const { return words_; }
  /// Canonical; none until it is known.
  std::optional<u64> hash() const { return hash_; }
  void set_hash(u64 hash);

  /// The verbs of far memory on words [from, from + count). Throws FarMemoryOutOfBoundsException.
  FarTransfer start_load(void* buffer, u64 from, u64 count) const;
  FarTransfer start_store(const void* buffer, u64 from, u64 count) const;
  /// The words as a piece of far memory with checks of its own.
  sfb_t piece() const;

 private:
  std::shared_ptr<PersistentMemory> file_;
  u64 first_ = 0, words_ = 0;
  std::optional<u64> hash_;
};

/// What is known of words that come in pieces, in any order: their hash and, for a product in a ring, their residue modulo
/// a divisor of the ring.
class WordSums {
 public:
  /// `ring`, which may be null, stays.
  explicit WordSums(const RingCheck* ring = nullptr) : ring_(ring) {}

  /// Adds, or takes away, words [at, at + A.count) of the number.
  void add(u64 at, Words<u32> A, ParallelContext parallel);
  void subtract(u64 at, Words<u32> A, ParallelContext parallel);
  /// Canonical.
  u64 hash() const;
  /// The hash alone, as if there were no ring.
  WordSums plain() const;
  const RingCheck::Residue& residue() const { return residue_; }
  bool operator==(const WordSums& o) const { return hash() == o.hash() && residue_ == o.residue_; }

 private:
  const RingCheck* ring_;
  u64 hash_ = 0;
  RingCheck::Residue residue_{};
};

/// Reads all words of a number once, from the lowest up, through two blocks of memory.
class WordReader : Uncopied {
 public:
  /// Bytes that a reader of blocks of `block_words` words cuts, a multiple of 4096.
  static u64 bytes(u64 block_words);
  /// Starts the first load. `function` is the name under which a read fails.
  WordReader(const SwapNumber& number, u64 block_words, LinearHeapBuffer& memory, const char* function,
             const RingCheck* ring = nullptr);

  /// The next block, empty behind the last one; the block before it is lost. Throws AlgorithmFailedException behind the
  /// last one when the words have not the number's hash.
  Words<u32> next(ParallelContext parallel);
  /// The first word of the block that next() returned.
  u64 at() const { return at_; }
  /// Of the blocks so far.
  const WordSums& sums() const { return sums_; }

 private:
  u64 count(u64 from) const;

  const SwapNumber& number_;
  const char* function_;
  u64 block_words_;
  u32* block_[2];
  u64 at_ = 0, next_ = 0;
  u32 current_ = 0;
  WordSums sums_;
  FarTransfer loading_;
};

/// Takes the words of a product as they are made, from the lowest up.
class ProductSink : Uncopied {
 public:
  virtual ~ProductSink() = default;

  /// The next words.
  virtual void take(Words<u32> words, ParallelContext parallel) = 0;
  /// The words that a product in a ring changes at its end, when all have been taken: [at, at + count) are read, changed
  /// and given back, from word 0 up, as far as a carry runs.
  virtual void load(u64 at, u32* words, u64 count) = 0;
  virtual void store(u64 at, Words<u32> words, ParallelContext parallel) = 0;
  /// All words have been given.
  virtual void finish() = 0;

  /// The number that words [skip, skip + number->words()) may be stored to in any order, instead of the calls above; none
  /// where they must be taken in turn.
  struct Direct {
    SwapNumber* number = nullptr;
    u64 skip = 0;
  };
  virtual Direct direct() { return {}; }  ///< none, unless a sink says so
};

/// Writes words [skip, skip + number.words()) of a product to a number, and sets its hash.
class NumberSink final : public ProductSink {
 public:
  /// Bytes that a sink with blocks of `block_bytes` bytes, a multiple of 4096, cuts.
  static u64 bytes(u64 block_bytes) { return 2 * block_bytes; }
  NumberSink(SwapNumber& number, u64 skip, u64 block_bytes, LinearHeapBuffer memory);

  void take(Words<u32> words, ParallelContext parallel) override;
  void load(u64 at, u32* words, u64 count) override;
  void store(u64 at, Words<u32> words, ParallelContext parallel) override;
  void finish() override;
  Direct direct() override { return {&number_, skip_}; }

 private:
  void flush();

  SwapNumber& number_;
  u64 skip_, block_words_;
  u32* block_[2];
  u32 current_ = 0;
  u64 taken_ = 0;   ///< words of the product so far
  u64 stored_ = 0;  ///< words of the number in blocks whose store was started
  u64 held_ = 0;    ///< words in the current block
  WordSums sums_;
  FarTransfer storing_;
};

}  // namespace orl
