#include "words/words.h"

#include <algorithm>
#include <atomic>
#include <cstring>

#include "core/exceptions.h"
#include "core/round_up.h"
#include "words/any_word.h"
#include "words/block_carry.h"
#include "words/word_kernels.h"
#include "words/word_loops.h"

namespace orl {
namespace {

// Fewer words after the head than this stay in the calling thread: a fork costs some microseconds.
constexpr u64 kSerialMove = 16384;
constexpr u64 kSerialAdd = 8192;
constexpr u64 kSerialMul = 20000;
constexpr u64 kSerialDivide = 1000;

// Arrays of fewer bytes take the plain loop at once: finding and entering a kernel costs what it would save.
constexpr u64 kPlainBytes = 64;

template <class W>
bool is_short(u64 L) {
  return L < kPlainBytes / sizeof(W);
}

// 64-bit words in L words. A u32 array is taken as its 64-bit words and, of an odd length, one word on top.
template <class W>
u64 kernel_words(u64 L) {
  return L / (8 / sizeof(W));
}

template <class W>
constexpr u64 kWordsPerLine = 64 / sizeof(W);

// Words before the next 64-byte boundary of T, at most L.
template <class W>
u64 head_words(const W* T, u64 L) {
  return std::min(L, (u64{0} - reinterpret_cast<std::uintptr_t>(T)) / sizeof(W) % kWordsPerLine<W>);
}

// An array cut into equal blocks, the last one shorter.
struct Blocks {
  Blocks(u64 words, u64 tasks, u64 least, u64 multiple)
      : length(words),
        block(round_up(std::max((words - 1) / tasks + 1, least), multiple)),
        count((words - 1) / block + 1) {}
  u64 start(u64 k) const { return k * block; }
  u64 size(u64 k) const { return std::min(block, length - k * block); }

  u64 length, block, count;
};

// Runs body(start, size) over T[0, L): the head, then the rest in one piece or in blocks.
template <class W, class Body>
void move_blocks(const W* T, u64 L, ParallelContext parallel, Body&& body) {
  const u64 head = head_words(T, L);
  const u64 rest = L - head;
  if (parallel.tds <= 1 || rest < kSerialMove) return body(u64{0}, L);
  body(u64{0}, head);
  const Blocks blocks(rest, parallel.tds, kSerialMove, 16);
  fork_range(parallel.parallelizer, 0, blocks.count,
             [&](u64 k) { body(head + blocks.start(k), blocks.size(k)); });
}

// What bp_add and bp_sub share: the kernel of the target over the 64-bit words, the loop over what is left.
template <class W, auto kKernel, auto kLoop>
[[gnu::always_inline]] inline W combine(W* T, const W* A, const W* B, u64 L, W carry) {
  u64 done = 0;
  if (!is_short<W>(L)) {
    const u64 n = kernel_words<W>(L);
    carry = static_cast<W>((word_kernels().*kKernel)(T, A, B, n, carry));
    done = n * 8 / sizeof(W);
  }
  return kLoop(T + done, A + done, B + done, L - done, carry);
}

u64 block_tasks(ParallelContext parallel) { return std::min(parallel.tds, kMaxWordTasks); }

// What their parallel forms share: serial(T, A, B, L, carry) does a piece.
template <class W, class Serial>
W add_blocks(W* T, const W* A, const W* B, u64 L, W carry, bool subtract, ParallelContext parallel,
             Serial&& serial) {
  const u64 head = head_words(T, L);
  const u64 rest = L - head;
  if (parallel.tds <= 1 || rest < kSerialAdd) return serial(T, A, B, L, carry);
  carry = serial(T, A, B, head, carry);
  T += head, A += head, B += head;
  const Blocks blocks(rest, block_tasks(parallel), kSerialAdd, kWordsPerLine<W>);
  W carries[kMaxWordTasks];
  fork_range(parallel.parallelizer, 0, blocks.count, [&](u64 k) {
    const u64 at = blocks.start(k);
    carries[k] = serial(T + at, A + at, B + at, blocks.size(k), k == 0 ? carry : W{0});
  });
  return add_block_carries(T, rest, blocks.block, carries, subtract, parallel);
}

}  // namespace

template <class W>
void bp_fill(W* T, u64 L, std::type_identity_t<W> value) {
  AnyWord<W>* const t = T;
  for (u64 i = 0; i < L; ++i) t[i] = value;
}
template <class W>
void bp_fill(W* T, u64 L, std::type_identity_t<W> value, ParallelContext parallel) {
  move_blocks(T, L, parallel, [=](u64 at, u64 n) { bp_fill(T + at, n, value); });
}

template <class W>
void bp_copy(W* T, const W* A, u64 L) {
  if (L) std::memcpy(T, A, L * sizeof(W));
}
template <class W>
void bp_copy(W* T, const W* A, u64 L, ParallelContext parallel) {
  move_blocks(T, L, parallel, [=](u64 at, u64 n) { bp_copy(T + at, A + at, n); });
}

template <class W>
void bp_not(W* T, const W* A, u64 L) {
  AnyWord<W>* const t = T;
  const AnyWord<W>* const a = A;
  for (u64 i = 0; i < L; ++i) t[i] = static_cast<W>(~a[i]);
}
template <class W>
void bp_not(W* T, const W* A, u64 L, ParallelContext parallel) {
  move_blocks(T, L, parallel, [=](u64 at, u64 n) { bp_not(T + at, A + at, n); });
}

template <class W>
u64 bp_strip(std::type_identity_t<W> value, const W* A, u64 L) {
  const AnyWord<W>* const a = A;
  while (L > 0 && a[L - 1] == value) --L;
  return L;
}
template <class W>
u64 bp_strip(std::type_identity_t<W> value, const W* A, u64 L, ParallelContext parallel) {
  // The highest end of any block that is not wholly `value`. Blocks below one that has decided need no look.
  std::atomic<u64> end{0};
  move_blocks(A, L, parallel, [&, A, value](u64 at, u64 n) {
    if (end.load(std::memory_order_relaxed) >= at + n) return;
    const u64 left = bp_strip<W>(value, A + at, n);
    if (left == 0) return;
    u64 seen = end.load(std::memory_order_relaxed);
    while (seen < at + left && !end.compare_exchange_weak(seen, at + left, std::memory_order_relaxed)) {
    }
  });
  return end.load(std::memory_order_relaxed);
}

template <class W>
W bp_add(W* T, const W* A, const W* B, u64 L, std::type_identity_t<W> carry) {
  return combine<W, &WordKernels::add, &word_loops::add<W>>(T, A, B, L, carry);
}
template <class W>
W bp_add(W* T, const W* A, const W* B, u64 L, std::type_identity_t<W> carry, ParallelContext parallel) {
  return add_blocks<W>(T, A, B, L, carry, false, parallel,
                       [](W* t, const W* a, const W* b, u64 n, W c) { return bp_add(t, a, b, n, c); });
}

template <class W>
W bp_sub(W* T, const W* A, const W* B, u64 L, std::type_identity_t<W> borrow) {
  return combine<W, &WordKernels::sub, &word_loops::sub<W>>(T, A, B, L, borrow);
}
template <class W>
W bp_sub(W* T, const W* A, const W* B, u64 L, std::type_identity_t<W> borrow, ParallelContext parallel) {
  return add_blocks<W>(T, A, B, L, borrow, true, parallel,
                       [](W* t, const W* a, const W* b, u64 n, W c) { return bp_sub(t, a, b, n, c); });
}

template <class W>
std::make_signed_t<W> bp_carry(std::type_identity_t<std::make_signed_t<W>> c, W* T, u64 L) {
  if (c == 0 || L == 0) return c;
  AnyWord<W>* const t = T;
  const W word = static_cast<W>(c);
  const W before = t[0];
  const W sum = static_cast<W>(before + word);
  t[0] = sum;
  if (c > 0) {
    if (sum >= word) return 0;
    for (u64 i = 1; i < L; ++i)
      if (++t[i] != 0) return 0;
    return 1;
  }
  if (sum < before) return 0;
  for (u64 i = 1; i < L; ++i)
    if (t[i]-- != 0) return 0;
  return -1;
}
template <class W>
std::make_signed_t<W> bp_carry(std::type_identity_t<std::make_signed_t<W>> c, W* T, u64 L,
                               ParallelContext parallel) {
  constexpr u64 kFirst = 4;
  if (parallel.tds <= 1 || L < kFirst + kSerialAdd) return bp_carry(c, T, L);
  c = bp_carry(c, T, kFirst);
  if (c == 0) return 0;
  const u64 rest = L - kFirst;
  const Blocks blocks(rest, block_tasks(parallel), kSerialAdd, 1);
  s8 pending[kMaxWordTasks] = {static_cast<s8>(c)};
  return static_cast<std::make_signed_t<W>>(bp_ksr_carry(T + kFirst, rest, blocks.block, pending, parallel));
}

template <class W>
W bp_mul_uW(W* T, const W* A, u64 L, std::type_identity_t<W> w, std::type_identity_t<W> carry) {
  u64 done = 0;
  if (!is_short<W>(L)) {
    const u64 n = kernel_words<W>(L);
    carry = static_cast<W>(word_kernels().mul(T, A, n, w, carry));
    done = n * 8 / sizeof(W);
  }
  return word_loops::mul<W>(T + done, A + done, L - done, w, carry);
}
template <class W>
W bp_mul_uW(W* T, const W* A, u64 L, std::type_identity_t<W> w, std::type_identity_t<W> carry,
            ParallelContext parallel) {
  const u64 head = head_words(T, L);
  const u64 rest = L - head;
  if (parallel.tds <= 1 || rest < kSerialMul) return bp_mul_uW(T, A, L, w, carry);
  carry = bp_mul_uW(T, A, head, w, carry);
  T += head, A += head;
  const Blocks blocks(rest, block_tasks(parallel), kSerialMul, 16);
  W carries[kMaxWordTasks];
  fork_range(parallel.parallelizer, 0, blocks.count, [&](u64 k) {
    const u64 at = blocks.start(k);
    carries[k] = bp_mul_uW(T + at, A + at, blocks.size(k), w, k == 0 ? carry : W{0});
  });
  return add_block_carries(T, rest, blocks.block, carries, false, parallel);
}

namespace {

// Pass two of a parallel division: each block divides from its predicted start; the block below it must begin
// where it ends. starts[k] is the remainder that enters block k from above.
template <class W, class Divide>
W divide_blocks(const Blocks& blocks, const W* starts, const char* function, ParallelContext parallel,
                Divide&& divide) {
  W ends[kMaxWordTasks];
  fork_range(parallel.parallelizer, 0, blocks.count,
             [&](u64 k) { ends[k] = divide(blocks.start(k), blocks.size(k), starts[k]); });
  for (u64 k = 1; k < blocks.count; ++k)
    if (ends[k] != starts[k - 1]) throw AlgorithmFailedException(function, "Mismatching block residuals.");
  return ends[0];
}

// starts[k] = starts[k + 1] * W^(size of block k + 1) + residues[k + 1], from the top down.
template <class W>
void predict_starts(const ShoupDivider<W>& divider, const Blocks& blocks, W top, const W* residues,
                    W* starts) {
  const u64 last = blocks.count - 1;
  starts[last] = top;
  if (last == 0) return;
  const W power = divider.pow_base(blocks.block);
  W shift = divider.pow_base(blocks.size(last));
  for (u64 k = last; k > 0; --k) {
    starts[k - 1] = divider.add(divider.mul(starts[k], shift), residues[k]);
    shift = power;
  }
}

}  // namespace

template <class W>
W bp_div_np(const ShoupDivider<W>& divider, W* T, const W* A, u64 L, std::type_identity_t<W> top) {
  return divider.divmod(T, A, L, top);
}
template <class W>
W bp_div_np(const ShoupDivider<W>& divider, W* T, const W* A, u64 L, std::type_identity_t<W> top,
            ParallelContext parallel) {
  if (parallel.tds < 3 || L < kSerialDivide) return bp_div_np(divider, T, A, L, top);
  const Blocks blocks(L, block_tasks(parallel), kSerialDivide, 1);
  W residues[kMaxWordTasks];
  W starts[kMaxWordTasks];
  fork_range(parallel.parallelizer, 0, blocks.count,
             [&](u64 k) { residues[k] = divider.mod(A + blocks.start(k), blocks.size(k), 0); });
  predict_starts(divider, blocks, top, residues, starts);
  return divide_blocks(blocks, starts, "bp_div_np(A)", parallel,
                       [&](u64 at, u64 n, W r) { return divider.divmod(T + at, A + at, n, r); });
}

template <class W>
W bp_div_ex(const ShoupDivider<W>& divider, W* T, u64 L, std::type_identity_t<W> top) {
  return divider.divmod(T, L, top);
}
template <class W>
W bp_div_ex(const ShoupDivider<W>& divider, W* T, u64 L, std::type_identity_t<W> top,
            ParallelContext parallel) {
  if (parallel.tds < 2 || L < kSerialDivide) return bp_div_ex(divider, T, L, top);
  const Blocks blocks(L, block_tasks(parallel), kSerialDivide, 1);
  constexpr W kNoResidues[kMaxWordTasks] = {};
  W starts[kMaxWordTasks];
  predict_starts(divider, blocks, top, kNoResidues, starts);
  return divide_blocks(blocks, starts, "bp_div_ex()", parallel,
                       [&](u64 at, u64 n, W r) { return divider.divmod(T + at, n, r); });
}

#define ORL_INSTANTIATE(W)                                                                     \
  template void bp_fill(W*, u64, W);                                                           \
  template void bp_fill(W*, u64, W, ParallelContext);                                          \
  template void bp_copy(W*, const W*, u64);                                                    \
  template void bp_copy(W*, const W*, u64, ParallelContext);                                   \
  template void bp_not(W*, const W*, u64);                                                     \
  template void bp_not(W*, const W*, u64, ParallelContext);                                    \
  template u64 bp_strip<W>(W, const W*, u64);                                                  \
  template u64 bp_strip<W>(W, const W*, u64, ParallelContext);                                 \
  template W bp_add(W*, const W*, const W*, u64, W);                                           \
  template W bp_add(W*, const W*, const W*, u64, W, ParallelContext);                          \
  template W bp_sub(W*, const W*, const W*, u64, W);                                           \
  template W bp_sub(W*, const W*, const W*, u64, W, ParallelContext);                          \
  template std::make_signed_t<W> bp_carry<W>(std::make_signed_t<W>, W*, u64);                  \
  template std::make_signed_t<W> bp_carry<W>(std::make_signed_t<W>, W*, u64, ParallelContext); \
  template W bp_mul_uW(W*, const W*, u64, W, W);                                               \
  template W bp_mul_uW(W*, const W*, u64, W, W, ParallelContext);                              \
  template W bp_div_np(const ShoupDivider<W>&, W*, const W*, u64, W);                          \
  template W bp_div_np(const ShoupDivider<W>&, W*, const W*, u64, W, ParallelContext);         \
  template W bp_div_ex(const ShoupDivider<W>&, W*, u64, W);                                    \
  template W bp_div_ex(const ShoupDivider<W>&, W*, u64, W, ParallelContext);
ORL_INSTANTIATE(u32)
ORL_INSTANTIATE(u64)
#undef ORL_INSTANTIATE

}  // namespace orl
