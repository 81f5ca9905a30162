#include "stress/known_answers.h"

#include <algorithm>

#include "core/exceptions.h"
#include "words/hash.h"

namespace orl {
namespace {

constexpr u64 kSerialWords = 16384;

}  // namespace

template <class W>
void fill_known_words(W* T, u64 first, u64 count, u64 s, ParallelContext parallel) {
  const auto fill = [=](u64 begin, u64 end) {
    for (u64 i = begin; i < end; ++i) T[i] = known_word<W>(first + i, s);
  };
  const u64 tasks = std::min(parallel.tds, count / kSerialWords);
  if (tasks <= 1) return fill(0, count);
  const u64 block = (count - 1) / tasks + 1;
  fork_range(parallel.parallelizer, 0, tasks,
             [&](u64 t) { fill(std::min(t * block, count), std::min((t + 1) * block, count)); });
}

template <class W>
KnownAnswerRounds<W>::KnownAnswerRounds(const Algorithm& algorithm, u64 words, u64 tds, u64 operands)
    : algorithm_(algorithm),
      words_(words),
      operands_(operands),
      stride_(LinearHeapBuffer::round_up_words<W>(words)) {
  const u64 bits = 2 * words * 8 * sizeof(W);
  if (bits > algorithm.max_bits())
    throw LimitExceededException("KnownAnswerRounds::KnownAnswerRounds()", algorithm.max_bits(), bits);
  table_bytes_ = LinearHeapBuffer::cut_bytes<u8>(algorithm.table_bytes(bits));
  scratch_bytes_ = LinearHeapBuffer::cut_bytes<u8>(algorithm.sizes(bits, tds).total_bytes());
  workspace_bytes_ = LinearHeapBuffer::cut_bytes<W>(2 * words) + table_bytes_ + scratch_bytes_;
}

template <class W>
bool KnownAnswerRounds<W>::prepare(LinearHeapBuffer memory, u64 s, ParallelContext parallel,
                                   const std::atomic<bool>* stop) {
  if (memory.size < bytes())
    throw BufferTooSmallException("KnownAnswerRounds::prepare()", memory.size, bytes());
  A_ = memory.cut<W>(operands_ * stride_);
  hashes_ = memory.cut<u64>(operands_);
  T_ = memory.cut<W>(2 * words_);
  table_block_ = memory.cut_buffer(table_bytes_);
  scratch_ = memory.cut_buffer(scratch_bytes_);
  tables_.emplace(table_block_);
  algorithm_.ensure_tables(*tables_, 2 * words_ * 8 * sizeof(W));
  table_hash_ = table_hash(parallel);
  seed_ = s;
  for (u64 i = 0; i < operands_; ++i) {
    if (stop != nullptr && *stop) return false;
    fill_known_words(operand(i), 0, words_, s + i * words_, parallel);
    hashes_[i] = bp_hash<W>(0, operand(i), words_, parallel);
  }
  return true;
}

template <class W>
KnownAnswerResult KnownAnswerRounds<W>::square(ParallelContext parallel, u64 i) {
  algorithm_.sqr_window({parallel, *tables_, scratch_}, Window<W>{T_, 0, 2 * words_},
                        Words<W>{operand(i), words_});
  return result_of(hash_mul(hashes_[i], hashes_[i]), parallel);
}

template <class W>
KnownAnswerResult KnownAnswerRounds<W>::product(ParallelContext parallel, u64 i, u64 j) {
  algorithm_.mul_window({parallel, *tables_, scratch_}, Window<W>{T_, 0, 2 * words_},
                        Words<W>{operand(i), words_}, Words<W>{operand(j), words_});
  return result_of(hash_mul(hashes_[i], hashes_[j]), parallel);
}

template <class W>
bool KnownAnswerRounds<W>::intact(ParallelContext parallel) const {
  for (u64 i = 0; i < operands_; ++i) {
    const W* A = A_ + i * stride_;
    W difference = 0;
    for (u64 k = 0; k < words_; ++k) difference |= A[k] ^ known_word<W>(k, seed_ + i * words_);
    if (difference != 0) return false;
  }
  return table_hash(parallel) == table_hash_;
}

template <class W>
KnownAnswerResult KnownAnswerRounds<W>::result_of(u64 expected, ParallelContext parallel) const {
  return {hash_canon(expected), hash_canon(bp_hash<W>(0, T_, 2 * words_, parallel)), 2 * words_};
}

template <class W>
u64 KnownAnswerRounds<W>::table_hash(ParallelContext parallel) const {
  if (table_bytes_ == 0) return 0;
  return hash_canon(bp_hash<u64>(0, static_cast<const u64*>(table_block_.ptr), table_bytes_ / 8, parallel));
}

template void fill_known_words(u32*, u64, u64, u64, ParallelContext);
template void fill_known_words(u64*, u64, u64, u64, ParallelContext);
template class KnownAnswerRounds<u32>;
template class KnownAnswerRounds<u64>;

}  // namespace orl
