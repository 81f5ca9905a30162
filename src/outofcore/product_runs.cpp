#include "outofcore/product_runs.h"

#include <algorithm>
#include <cstring>

#include "core/fault_point.h"

namespace orl {
namespace {

constexpr u64 kWordBytes = sizeof(u64), kNumberWordBytes = sizeof(u32);

u64 divide_up(u64 a, u64 b) { return a / b + (a % b != 0); }

Words<u32> number_words(const u8* words, u64 bytes) {
  return {reinterpret_cast<const u32*>(words), bytes / kNumberWordBytes};
}

bool is_one(FarCarry carry) {
  carry.add(-1);
  return carry.zero();
}

}  // namespace

void DroppedWords::take(const u64* words, u64 count) {
  for (; count != 0 && heads_ < kHeads; words++, count--) head_[heads_++] = *words;
  for (; count != 0; words++, count--) {
    ones_ = ones_ && *words == ~u64{0};
    zeros_ = zeros_ && *words == 0;
    more_ = true;
  }
}

void DroppedWords::add(FarCarry& carry) {
  carry.add_to(head_, heads_);
  if (more_ && !carry.zero() && !(is_one(carry) ? ones_ : zeros_)) carry = {};
}

ProductRuns::ProductRuns(const ProductRows& all, ProductProof& proof, const ProductTarget& target,
                         ParallelContext parallel)
    : proof_(proof),
      target_(target),
      parallel_(parallel),
      file_(target.number.piece()),
      row_(all.bytes),
      rows_(std::min(all.count, divide_up(target.made * kNumberWordBytes, row_))),
      begin_(target.skip * kNumberWordBytes),
      end_(begin_ + file_.size()),
      dropped_(std::min(rows_, divide_up(begin_ / kWordBytes * kWordBytes, row_))) {}

void ProductRuns::start(u64 first, u64 piece, u8* words) {
  u64 whole = 0, whole_count = 0, cut_count = 0;
  for (u64 j = 0; j < rows_; j++) {
    u8* const mine = words + j * piece;
    const u64 at = j * row_ + first, from = std::max(at, begin_), to = std::min(at + piece, end_);
    fault_point("swap product", mine, piece);
    proof_.add_product(at / kNumberWordBytes, number_words(mine, piece), parallel_);
    if (at < begin_) drop(j, at, mine, std::min(piece, begin_ - at));
    if (from >= to) continue;
    sums_.add((from - begin_) / kNumberWordBytes, number_words(mine + (from - at), to - from), parallel_);
    if (to - from == piece) {
      if (whole_count++ == 0) whole = j;
    } else {
      cut_[cut_count++] = file_.start_store(mine + (from - at), from - begin_, to - from);
    }
  }
  if (whole_count != 0)
    pieces_ =
        file_.start_scatter(words + whole * piece, whole * row_ + first - begin_, piece, row_, whole_count);
}

void ProductRuns::wait() {
  pieces_.wait();
  for (FarTransfer& transfer : cut_) transfer.wait();
}

void ProductRuns::drop(u64 j, u64 at, const u8* words, u64 bytes) {
  if (j < dropped_.size()) dropped_[j].take(reinterpret_cast<const u64*>(words), bytes / kWordBytes);
  if (at + bytes == begin_ && bytes % kWordBytes != 0)
    std::memcpy(&half_, words + bytes - kNumberWordBytes, kNumberWordBytes);
}

void ProductRuns::count(u64 j, const FarCarry& carry) {
  proof_.add_carry(j * row_ / kNumberWordBytes, carry, parallel_);
}

void ProductRuns::add(u64 j, FarCarry& carry) {
  if (j < dropped_.size()) dropped_[j].add(carry);
  const u64 end = divide_up(std::min((j + 1) * row_, end_), kWordBytes);
  for (u64 at = std::max(j * row_, begin_) / kWordBytes, count; at < end && !carry.zero(); at += count) {
    count = std::min(kBlockWords, end - at);
    carry.add_to(load(at, count), count);
    store(at, count);
  }
  if ((j + 1) * row_ > end_) carry = {};  // it belongs to words that nobody wants
}

bool ProductRuns::finish(ProductRing ring, const FarCarry& carry) {
  bool top = false;
  if (ring != ProductRing::kPlain)
    top = close_ring(
        ring, end_ / kWordBytes, kBlockWords, carry, [&](u64 at, u64 count) { return load(at, count); },
        [&](u64 at, u64 count) { store(at, count); });
  target_.number.set_hash(sums_.hash());
  return top;
}

ProductRuns::Span ProductRuns::span_of(u64 at, u64 count) {
  const u64 from = std::max(at * kWordBytes, begin_), to = std::min((at + count) * kWordBytes, end_);
  return {from, to, reinterpret_cast<u8*>(block_) + (from - at * kWordBytes)};
}

Words<u32> ProductRuns::words_of(const Span& span) const {
  return number_words(span.block, span.to - span.from);
}

u64* ProductRuns::load(u64 at, u64 count) {
  const Span span = span_of(at, count);
  block_[count - 1] = 0;
  block_[0] = half_;
  file_.start_load(span.block, span.from - begin_, span.to - span.from).wait();
  sums_.subtract((span.from - begin_) / kNumberWordBytes, words_of(span), parallel_);
  return block_;
}

void ProductRuns::store(u64 at, u64 count) {
  const Span span = span_of(at, count);
  sums_.add((span.from - begin_) / kNumberWordBytes, words_of(span), parallel_);
  file_.start_store(span.block, span.from - begin_, span.to - span.from).wait();
}

}  // namespace orl
