// The records that the families pass down to their stages.
#pragma once

#include "multiply/algorithm.h"

namespace orl {

/// What a product is taken modulo, with W = 2^32 and n words the capacity of the shape: nothing (it is below
/// W^n), W^n - 1, or W^n + 1, where coefficients may be negative.
enum class ProductRing : u8 { kPlain, kCyclic, kNegacyclic };

/// What the operands of a product have been through: the first stage, or the whole transform.
enum class OperandState : u8 { kStarted, kTransformed };

/// The words of an operand, as bytes; what lies behind them counts as zero.
struct OperandBytes {
  OperandBytes() = default;
  OperandBytes(Words<u32> A) : data(reinterpret_cast<const u8*>(A.ptr)), bytes(4 * A.count) {}
  OperandBytes(const u8* p, u64 count) : data(p), bytes(count) {}

  const u8* data = nullptr;
  u64 bytes = 0;
};

/// A 32-bit word of an array that its owner may hold as 64-bit words: it is copied, never named.
inline u32 load_u32(const u32* p) {
  u32 word;
  __builtin_memcpy(&word, p, sizeof word);
  return word;
}
inline void store_u32(u32* p, u32 word) { __builtin_memcpy(p, &word, sizeof word); }

/// Words [begin, end) (32-bit) of the product, to target[0, end - begin).
struct WordWindow {
  WordWindow() = default;
  WordWindow(u32* T, u64 first, u64 last) : target(T), begin(first), end(last) {}
  WordWindow(Window<u32> T) : WordWindow(T.T, T.skip, T.len) {}

  u32* target;
  u64 begin, end;

  /// Where word `index` goes, which must be one of them.
  u32* at(u64 index) const { return target + (index - begin); }
  bool holds(u64 index) const { return index >= begin && index < end; }
  /// What of the 64-bit word `index` of the product is in the window.
  void put_u64(u64 index, u64 value) const {
    if (2 * index >= begin && 2 * index + 2 <= end) {
      __builtin_memcpy(at(2 * index), &value, sizeof value);
      return;
    }
    if (holds(2 * index)) store_u32(at(2 * index), static_cast<u32>(value));
    if (holds(2 * index + 1)) store_u32(at(2 * index + 1), static_cast<u32>(value >> 32));
  }
};

/// Scratch as large as the shape states, and who works.
struct TransformWork {
  void* tmp;
  ParallelContext parallel;
};

/// Forks over units [0, count), at most one task per unit and `most` tasks in all: body(task, tasks, begin, end).
template <class Body>
void for_parts(ParallelContext parallel, u64 most, u64 count, Body&& body) {
  const u64 wanted = most < parallel.tds ? most : parallel.tds;
  const u64 tasks = wanted < count ? (wanted ? wanted : 1) : count;
  if (tasks == 0) return;
  if (tasks == 1) return body(u64{0}, u64{1}, u64{0}, count);
  // Not count * t / tasks: that would pass 64 bits.
  const auto cut = [&](u64 t) { return count / tasks * t + count % tasks * t / tasks; };
  fork_range(parallel.parallelizer, 0, tasks, [&](u64 t) { body(t, tasks, cut(t), cut(t + 1)); });
}
/// The same without numbers: body(begin, end).
template <class Body>
void for_parts(ParallelContext parallel, u64 count, Body&& body) {
  for_parts(parallel, parallel.tds, count, [&](u64, u64, u64 begin, u64 end) { body(begin, end); });
}

}  // namespace orl
