#include "outofcore/swap_number.h"

#include <algorithm>

#include "core/exceptions.h"
#include "core/fault_point.h"
#include "core/round_up.h"
#include "files/raw_io_buffer.h"
#include "words/hash.h"
#include "words/words.h"

namespace orl {
namespace {

u64 words_of_bytes(u64 bytes) { return bytes / sizeof(u32); }
u64 padded_bytes(u64 words) { return round_up(words * sizeof(u32), kIoAlignment); }

u64 hash_at(u64 at, Words<u32> A, ParallelContext parallel) {
  return hash_mul(bp_hash<u32>(0, A.ptr, A.count, parallel), hash_word_pow_u32(static_cast<s64>(at)));
}

}  // namespace

SwapNumber::SwapNumber(SwapDescriptor& disk, u64 words, const char* name)
    : file_(disk.allocate(words * sizeof(u32), name)), words_(words) {}

SwapNumber SwapNumber::view(u64 from, u64 to) const {
  SwapNumber part = *this;
  part.first_ = first_ + from;
  part.words_ = to - from;
  part.hash_.reset();
  return part;
}

void SwapNumber::set_hash(u64 hash) { hash_ = hash_canon(hash); }

sfb_t SwapNumber::piece() const { return {*file_, file_->name(), words_, sizeof(u32), first_ * sizeof(u32)}; }

FarTransfer SwapNumber::start_load(void* buffer, u64 from, u64 count) const {
  return piece().start_load(buffer, from * sizeof(u32), count * sizeof(u32));
}

FarTransfer SwapNumber::start_store(const void* buffer, u64 from, u64 count) const {
  return piece().start_store(buffer, from * sizeof(u32), count * sizeof(u32));
}

void WordSums::add(u64 at, Words<u32> A, ParallelContext parallel) {
  hash_ = hash_add(hash_, hash_at(at, A, parallel));
  if (ring_) ring_->add(residue_, at, A.ptr, A.count, parallel);
}

void WordSums::subtract(u64 at, Words<u32> A, ParallelContext parallel) {
  hash_ = hash_sub(hash_, hash_at(at, A, parallel));
  if (ring_) ring_->subtract(residue_, at, A.ptr, A.count, parallel);
}

u64 WordSums::hash() const { return hash_canon(hash_); }

WordSums WordSums::plain() const {
  WordSums sums;
  sums.hash_ = hash_;
  return sums;
}

u64 WordReader::bytes(u64 block_words) { return 2 * padded_bytes(block_words); }

WordReader::WordReader(const SwapNumber& number, u64 block_words, LinearHeapBuffer& memory,
                       const char* function, const RingCheck* ring)
    : number_(number), function_(function), block_words_(block_words), sums_(ring) {
  for (u32*& block : block_) block = memory.cut<u32>(words_of_bytes(padded_bytes(block_words)));
  loading_ = number_.start_load(block_[0], 0, count(0));
}

u64 WordReader::count(u64 from) const { return std::min(block_words_, number_.words() - from); }

Words<u32> WordReader::next(ParallelContext parallel) {
  at_ = next_;
  if (at_ == number_.words()) {
    if (number_.hash() && *number_.hash() != sums_.hash())
      throw AlgorithmFailedException(function_, kSwapNumberMismatch);
    return {};
  }
  const Words<u32> words{block_[current_], count(at_)};
  next_ += words.count;
  current_ ^= 1;
  loading_.wait();
  if (next_ != number_.words()) loading_ = number_.start_load(block_[current_], next_, count(next_));
  fault_point("swap operand", const_cast<u32*>(words.ptr), words.count * sizeof(u32));
  sums_.add(at_, words, parallel);
  return words;
}

NumberSink::NumberSink(SwapNumber& number, u64 skip, u64 block_bytes, LinearHeapBuffer memory)
    : number_(number), skip_(skip), block_words_(words_of_bytes(block_bytes)) {
  for (u32*& block : block_) block = memory.cut<u32>(block_words_);
}

void NumberSink::take(Words<u32> words, ParallelContext parallel) {
  const u64 begin = std::clamp(skip_, taken_, taken_ + words.count) - taken_;
  const u64 end = std::min(taken_ + words.count, std::max(taken_, skip_ + number_.words())) - taken_;
  taken_ += words.count;
  for (u64 at = begin, count; at < end; at += count) {
    count = std::min(end - at, block_words_ - held_);
    bp_copy(block_[current_] + held_, words.ptr + at, count, parallel);
    sums_.add(stored_ + held_, {block_[current_] + held_, count}, parallel);
    held_ += count;
    if (held_ == block_words_) flush();
  }
}

void NumberSink::flush() {
  if (held_ == 0) return;
  storing_ = number_.start_store(block_[current_], stored_, held_);
  stored_ += held_;
  held_ = 0;
  current_ ^= 1;
}

void NumberSink::load(u64 at, u32* words, u64 count) {
  flush();
  storing_.wait();
  number_.start_load(words, at, count).wait();
}

void NumberSink::store(u64 at, Words<u32> words, ParallelContext parallel) {
  u32* const before = block_[current_];
  for (u64 from = 0, count; from < words.count; from += count) {
    count = std::min(words.count - from, block_words_);
    number_.start_load(before, at + from, count).wait();
    sums_.subtract(at + from, {before, count}, parallel);
  }
  sums_.add(at, words, parallel);
  number_.start_store(words.ptr, at, words.count).wait();
}

void NumberSink::finish() {
  flush();
  storing_.wait();
  number_.set_hash(sums_.hash());
}

}  // namespace orl
