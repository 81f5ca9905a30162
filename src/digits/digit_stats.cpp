#include "digits/digit_stats.h"

#include <algorithm>
#include <optional>

#include "core/exceptions.h"
#include "digits/digit_kernels.h"
#include "digits/digit_text.h"
#include "digits/digit_words.h"
#include "words/hash.h"

namespace orl {

DigitCounts::DigitCounts(u32 radix) : radix_(static_cast<u8>(radix)) {
  if (radix > 16) throw InvalidParametersException("DigitCounts::DigitCounts()", "Radix is too large.");
}

u64 DigitCounts::total() const {
  u64 sum = 0;
  for (u64 count : counts_) sum += count;
  return sum;
}

void DigitCounts::add(const DigitCounts& other) {
  for (std::size_t i = 0; i < counts_.size(); i++) counts_[i] += other.counts_[i];
}

void DigitCounts::append(const u8* digits, u64 length) {
  digits::digit_kernels().count(digits, length, radix_, counts_.data());
}

u64 hash_digits(u32 radix, const u8* digits, u64 length) {
  const u64 width = digits_per_word(radix);
  const u64 base = hash_pow(radix, width);
  const u64 blocks = length / digits::DigitKernels::kHashBlock;
  u64 hash = blocks ? digits::digit_kernels().hash(digits, blocks, radix) : 0;
  u64 i = blocks * digits::DigitKernels::kHashBlock;
  for (; i + width <= length; i += width) {
    u64 word;
    pack_words(radix, &word, digits + i, 1);
    hash = hash_mul_add(hash, base, word);
  }
  for (; i < length; i++) hash = hash_mul_add(hash, radix, digits[i]);
  return hash;
}

void DigitStats::append(const u8* digits, u64 length) {
  // Stays in the first-level cache between the two passes.
  constexpr u64 kPiece = 64 * digits::DigitKernels::kHashBlock;
  for (u64 done = 0; done < length; done += kPiece) {
    const u64 piece = std::min(kPiece, length - done);
    counts.append(digits + done, piece);
    hash = hash_add(hash_mul(hash, hash_pow(counts.radix(), piece)),
                    hash_digits(counts.radix(), digits + done, piece));
  }
}

void DigitStats::append(const DigitStats& next, u64 length) {
  counts.add(next.counts);
  hash = hash_add(hash_mul(hash, hash_pow(counts.radix(), length)), next.hash);
}

void DigitStats::append(const u8* digits, u64 length, ParallelContext parallel) {
  // A task's share takes longer than handing it out.
  constexpr u64 kMinBlock = 65536;
  constexpr u64 kMaxBlocks = 64;
  const u64 blocks = std::clamp<u64>(length / kMinBlock, 1, std::min(parallel.tds, kMaxBlocks));
  if (blocks == 1) return append(digits, length);
  const u64 block = (length + blocks - 1) / blocks;
  const auto begin_of = [&](u64 i) { return std::min(i * block, length); };
  std::array<std::optional<DigitStats>, kMaxBlocks> parts;
  fork_range(parallel.parallelizer, 0, blocks, [&](u64 i) {
    parts[i].emplace(counts.radix()).append(digits + begin_of(i), begin_of(i + 1) - begin_of(i));
  });
  for (u64 i = 0; i < blocks; i++) append(*parts[i], begin_of(i + 1) - begin_of(i));
}

void LastDigits::set(u32 radix, const u8* digits, u64 length) {
  if (radix != 10 && radix != 16) throw InvalidParametersException("LastDigits::set()", "Invalid Radix.");
  const u64 taken = std::min(length, kLength);
  for (u64 i = length - taken; i < length; i++) text_.push_back(digit_character(digits[i]));
  if (text_.size() > kLength) text_.erase(0, text_.size() - kLength);
}

}  // namespace orl
