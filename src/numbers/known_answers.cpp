#include "numbers/known_answers.h"

#include <algorithm>

#include "frame/exceptions.h"
#include "numbers/hash.h"

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
KnownAnswerRounds<W>::KnownAnswerRounds(const Algorithm& algorithm, u64 words, u64 tds)
    : algorithm_(algorithm), words_(words) {
  const u64 bits = 2 * words * 8 * sizeof(W);
  if (bits > algorithm.max_bits())
    throw LimitExceededException("KnownAnswerRounds::KnownAnswerRounds()", algorithm.max_bits(), bits);
  table_bytes_ = LinearHeapBuffer::cut_bytes<u8>(algorithm.table_bytes(bits));
  scratch_bytes_ = algorithm.sizes(bits, tds).total_bytes();
  bytes_ = 2 * LinearHeapBuffer::cut_bytes<W>(words) + LinearHeapBuffer::cut_bytes<W>(2 * words) +
           table_bytes_ + LinearHeapBuffer::cut_bytes<u8>(scratch_bytes_);
}

template <class W>
void KnownAnswerRounds<W>::prepare(LinearHeapBuffer memory, u64 s, ParallelContext parallel) {
  if (memory.size < bytes_)
    throw BufferTooSmallException("KnownAnswerRounds::prepare()", memory.size, bytes_);
  A_ = memory.cut<W>(words_);
  B_ = memory.cut<W>(words_);
  T_ = memory.cut<W>(2 * words_);
  tables_.emplace(memory.cut_buffer(table_bytes_));
  scratch_ = memory.cut_buffer(LinearHeapBuffer::cut_bytes<u8>(scratch_bytes_));
  algorithm_.ensure_tables(*tables_, 2 * words_ * 8 * sizeof(W));
  fill_known_words(A_, 0, words_, s, parallel);
  fill_known_words(B_, 0, words_, s + words_, parallel);
  hash_A_ = bp_hash<W>(0, A_, words_, parallel);
  hash_B_ = bp_hash<W>(0, B_, words_, parallel);
}

template <class W>
KnownAnswerResult KnownAnswerRounds<W>::square(ParallelContext parallel) {
  algorithm_.sqr_window({parallel, *tables_, scratch_}, T_, 0, 2 * words_, A_, words_);
  return result_of(hash_mul(hash_A_, hash_A_), parallel);
}

template <class W>
KnownAnswerResult KnownAnswerRounds<W>::product(ParallelContext parallel) {
  algorithm_.mul_window({parallel, *tables_, scratch_}, T_, 0, 2 * words_, A_, words_, B_, words_);
  return result_of(hash_mul(hash_A_, hash_B_), parallel);
}

template <class W>
KnownAnswerResult KnownAnswerRounds<W>::result_of(u64 expected, ParallelContext parallel) const {
  return {hash_canon(expected), hash_canon(bp_hash<W>(0, T_, 2 * words_, parallel)), 2 * words_};
}

template void fill_known_words(u32*, u64, u64, u64, ParallelContext);
template void fill_known_words(u64*, u64, u64, u64, ParallelContext);
template class KnownAnswerRounds<u32>;
template class KnownAnswerRounds<u64>;

}  // namespace orl
