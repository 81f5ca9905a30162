// What the families share of their work on numbers on disks.
#pragma once

#include <algorithm>

#include "transforms/common/far_transform.h"

namespace orl {

inline constexpr u64 kFarUnit = 64;         ///< points of a block that tasks do not share
inline constexpr u64 kFarTilePoints = 256;  ///< of all channels together on their way: in L1

/// Forks over `count` units, at most as many tasks as have `bytes` of scratch each: body(task, tasks, begin, end, memory).
template <class Body>
void for_tasks(FarWork work, u64 bytes, u64 count, Body&& body) {
  const u64 own_bytes = LinearHeapBuffer::cut_bytes<u8>(bytes);
  for_parts(work.parallel, work.scratch.size / own_bytes, count,
            [&](u64 task, u64 tasks, u64 begin, u64 end) {
              LinearHeapBuffer own = work.scratch;
              own.cut<u8>(task * own_bytes);
              body(task, tasks, begin, end, own.cut<u8>(own_bytes));
            });
}

/// The words of an operand from byte `at` on.
inline OperandBytes operand_from(OperandBytes a, u64 at) {
  at = std::min(at, a.bytes);
  return {a.data + at, a.bytes - at};
}

}  // namespace orl
