#include "words/block_carry.h"

#include <algorithm>

#include "core/exceptions.h"
#include "words/any_word.h"
#include "words/words.h"

namespace orl {
namespace {

// What a later carry would do to a block.
constexpr u8 kClosed = 0x80;    // it cannot pass
constexpr u8 kAllZeros = 0x00;  // -1 passes and leaves all ones
constexpr u8 kAllOnes = 0xff;   // +1 passes and leaves all zeros

struct BlockRecord {
  u8 state = kClosed;
  s8 carry = 0;  // after pass one: what left the top; after the serial pass: what comes in
};

template <class W>
bool all_words(const W* T, u64 L, W value) {
  return bp_strip<W>(value, T, L) == 0;
}

template <class W>
BlockRecord first_pass(W* T, u64 L, s8 pending) {
  BlockRecord record;
  record.carry = static_cast<s8>(bp_carry<W>(pending, T, L));
  if (all_words(T, L, W{0}))
    record.state = kAllZeros;
  else if (all_words(T, L, static_cast<W>(~W{0})))
    record.state = kAllOnes;
  return record;
}

// State plus carry is a byte with a carry out of it exactly when the carry passes the block.
int serial_pass(BlockRecord* records, u64 count) {
  int running = 0;
  for (u64 k = 0; k < count; ++k) {
    const int sum = running + records[k].state;
    const int left_top = records[k].carry;
    records[k].carry = static_cast<s8>(running);
    running = (sum >> 8) + left_top;
  }
  return running;
}

template <class W>
void second_pass(W* T, u64 L, BlockRecord record) {
  if (record.state == kAllOnes && record.carry > 0)
    bp_fill(T, L, W{0});
  else if (record.state == kAllZeros && record.carry < 0)
    bp_fill(T, L, static_cast<W>(~W{0}));
  else if (record.carry != 0)
    bp_carry<W>(record.carry, T, L);
}

// T[0, L) +- c; returns 1 when a carry (borrow) is left.
template <class W>
s8 ripple_word(W* T, u64 L, W c, bool subtract) {
  AnyWord<W>* const t = T;
  for (u64 i = 0; i < L && c; ++i) {
    const W before = t[i];
    t[i] = static_cast<W>(subtract ? before - c : before + c);
    c = subtract ? before < c : t[i] < c;
  }
  return c != 0;
}

}  // namespace

template <class W>
int bp_ksr_carry(W* T, u64 L, u64 block, const s8* pending, ParallelContext parallel) {
  if (L == 0) internal_error("bp_ksr_carry()", "bp_ksr_carry(): Length cannot be zero.");
  const u64 count = (L - 1) / block + 1;
  BlockRecord records[kMaxWordTasks];
  const auto length = [&](u64 k) { return std::min(block, L - k * block); };
  fork_range(parallel.parallelizer, 0, count,
             [&](u64 k) { records[k] = first_pass(T + k * block, length(k), pending[k]); });
  const int carry = serial_pass(records, count);
  fork_range(parallel.parallelizer, 0, count,
             [&](u64 k) { second_pass(T + k * block, length(k), records[k]); });
  return carry;
}

template <class W>
W add_block_carries(W* T, u64 L, u64 block, const W* carries, bool subtract, ParallelContext parallel) {
  constexpr u64 kAbsorb = 2;
  const u64 count = (L - 1) / block + 1;
  s8 pending[kMaxWordTasks] = {};
  bool any = false;
  for (u64 k = 1; k < count; ++k) {
    const u64 start = k * block;
    const s8 left = ripple_word(T + start, std::min(kAbsorb, L - start), carries[k - 1], subtract);
    pending[k] = subtract ? static_cast<s8>(-left) : left;
    any = any || left;
  }
  W top = carries[count - 1];
  if (!any) return top;
  // Shifted by the words already done, so a block that they fill begins past the end: its carry is the top's.
  const u64 rest = L - kAbsorb;
  int out = bp_ksr_carry(T + kAbsorb, rest, block, pending, parallel);
  if ((count - 1) * block >= rest) out += pending[count - 1];
  return static_cast<W>(subtract ? top - out : top + out);
}

template int bp_ksr_carry(u32*, u64, u64, const s8*, ParallelContext);
template int bp_ksr_carry(u64*, u64, u64, const s8*, ParallelContext);
template u32 add_block_carries(u32*, u64, u64, const u32*, bool, ParallelContext);
template u64 add_block_carries(u64*, u64, u64, const u64*, bool, ParallelContext);

}  // namespace orl
