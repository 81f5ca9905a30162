// Counts what a layout cuts, so that a memory plan is stated once.
//
// A layout is a function of an arena. The constructor of a plan runs it over a SizingArena and so learns what
// to ask for; run() runs it over the LinearHeapBuffer that it was given. It may hand copies of the arena to
// others, as run() does: what a copy cuts is free again for the next one.
#pragma once

#include <algorithm>
#include <limits>

#include "memory/linear_buffer.h"

namespace orl {

class SizingArena {
 public:
  /// `need` is raised: its ram_bytes to the most that this arena and its copies have cut at one time, its
  /// table_bits to the most that a call asks for.
  explicit SizingArena(Need& need) : need_(&need) {}

  /// Null: a layout hands pointers on and does not look behind them.
  template <class W>
  W* cut(u64 count) {
    const u64 rounded = LinearHeapBuffer::round_up_words<W>(count);
    u64 bytes = 0;
    const bool absurd = rounded < count || __builtin_mul_overflow(rounded, sizeof(W), &bytes);
    take(absurd ? kTooMuch : bytes);
    return nullptr;
  }
  /// The share of a branch, which cuts from its start.
  SizingArena cut_buffer(u64 bytes) {
    const SizingArena share = *this;
    cut<u8>(bytes);
    return share;
  }
  /// A call that gets the rest of this arena cuts up to `bytes` from it.
  void leave(u64 bytes) const { SizingArena(*this).take(bytes); }
  void leave(const Need& need) const {
    leave(need.ram_bytes);
    need_->table_bits = std::max(need_->table_bits, need.table_bits);
  }

 private:
  static constexpr u64 kTooMuch = std::numeric_limits<u64>::max();

  void take(u64 bytes) {
    used_ = bytes > kTooMuch - used_ ? kTooMuch : used_ + bytes;
    need_->ram_bytes = std::max(need_->ram_bytes, used_);
  }

  Need* need_;
  u64 used_ = 0;
};

/// Memory that `layout`, a function of a SizingArena&, takes, and the tables of the calls that it leaves memory to.
template <class Layout>
Need layout_need(Layout&& layout) {
  Need need;
  SizingArena arena(need);
  layout(arena);
  return need;
}
/// Its bytes.
template <class Layout>
u64 layout_bytes(Layout&& layout) {
  return layout_need(layout).ram_bytes;
}

}  // namespace orl
