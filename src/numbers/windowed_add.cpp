#include "numbers/windowed_add.h"

#include <algorithm>
#include <cstring>

#include "words/block_carry.h"
#include "words/words.h"

namespace orl {
namespace {

// Fewer words after the head stay in the calling thread.
constexpr u64 kSerialWords = 4096;

template <class W>
constexpr u64 kWordsPerLine = 64 / sizeof(W);

// Words of `number` at exponents [e, e + n), n <= kAdditionBuffer: in place when it has them all, else copied
// to `buffer` between zeros.
template <class W>
const W* read(const WordWindow<W>& number, s64 e, u64 n, W* buffer) {
  const s64 end = e + static_cast<s64>(n);
  if (number.exp <= e && end <= number.end()) return number.T + (e - number.exp);
  std::fill_n(buffer, n, W{0});
  const s64 from = std::max(e, number.exp);
  const s64 to = std::min(end, number.end());
  if (from < to) std::copy_n(number.T + (from - number.exp), to - from, buffer + (from - e));
  return buffer;
}

// Words from exponent e up that both numbers have.
template <class W>
u64 common_words(const WordWindow<W>& a, const WordWindow<W>& b, s64 e) {
  const s64 end = std::min(a.end(), b.end());
  return e >= a.exp && e >= b.exp && e < end ? static_cast<u64>(end - e) : 0;
}

template <bool kSubtract, class W>
W pass(W* T, s64 e, u64 n, const WordWindow<W>& a, const WordWindow<W>& b, W carry) {
  W a_buffer[kAdditionBuffer];
  W b_buffer[kAdditionBuffer];
  while (n > 0) {
    u64 step = std::min(n, common_words(a, b, e));
    const W* A;
    const W* B;
    if (step > 0) {
      A = a.T + (e - a.exp);
      B = b.T + (e - b.exp);
    } else {
      step = std::min(n, kAdditionBuffer);
      A = read(a, e, step, a_buffer);
      B = read(b, e, step, b_buffer);
    }
    carry = kSubtract ? bp_sub(T, A, B, step, carry) : bp_add(T, A, B, step, carry);
    T += step;
    e += static_cast<s64>(step);
    n -= step;
  }
  return carry;
}

template <bool kSubtract, class W>
W windowed(W* T, s64 bottom, u64 n, const WordWindow<W>& a, const WordWindow<W>& b,
           ParallelContext parallel) {
  const u64 head = std::min(n, (u64{0} - reinterpret_cast<std::uintptr_t>(T)) / sizeof(W) % kWordsPerLine<W>);
  const u64 rest = n - head;
  if (parallel.tds <= 1 || rest <= kSerialWords) return pass<kSubtract>(T, bottom, n, a, b, W{0});
  const W head_carry = pass<kSubtract>(T, bottom, head, a, b, W{0});
  T += head;
  bottom += static_cast<s64>(head);
  const u64 tasks = std::min(parallel.tds, kMaxWordTasks);
  const u64 block = (std::max((rest - 1) / tasks + 1, kSerialWords) + 15) & ~u64{15};
  W carries[kMaxWordTasks];
  fork_range(parallel.parallelizer, 0, (rest - 1) / block + 1, [&](u64 k) {
    const u64 at = k * block;
    carries[k] = pass<kSubtract>(T + at, bottom + static_cast<s64>(at), std::min(block, rest - at), a, b,
                                 k == 0 ? head_carry : W{0});
  });
  return add_block_carries(T, rest, block, carries, kSubtract, parallel);
}

}  // namespace

template <class W>
W windowed_add(W* T, s64 bottom, u64 n, const WordWindow<W>& a, const WordWindow<W>& b,
               ParallelContext parallel) {
  return windowed<false>(T, bottom, n, a, b, parallel);
}
template <class W>
W windowed_sub(W* T, s64 bottom, u64 n, const WordWindow<W>& a, const WordWindow<W>& b,
               ParallelContext parallel) {
  return windowed<true>(T, bottom, n, a, b, parallel);
}

template u32 windowed_add(u32*, s64, u64, const WordWindow<u32>&, const WordWindow<u32>&, ParallelContext);
template u64 windowed_add(u64*, s64, u64, const WordWindow<u64>&, const WordWindow<u64>&, ParallelContext);
template u32 windowed_sub(u32*, s64, u64, const WordWindow<u32>&, const WordWindow<u32>&, ParallelContext);
template u64 windowed_sub(u64*, s64, u64, const WordWindow<u64>&, const WordWindow<u64>&, ParallelContext);

}  // namespace orl
