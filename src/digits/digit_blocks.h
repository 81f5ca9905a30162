// Work on an array of digits, cut into tasks.
#pragma once

#include <algorithm>

#include "threads/parallelizer.h"

namespace orl {

/// Runs body(begin, end) over [0, count) in equal blocks, at once where the context allows it. A block has at least
/// `least` items: below that a task costs more than its work.
template <class Body>
void for_blocks(u64 count, u64 least, ParallelContext parallel, Body&& body) {
  const u64 blocks = std::clamp<u64>(count / least, 1, parallel.tds);
  const u64 block = (count + blocks - 1) / blocks;
  if (blocks == 1) return body(u64{0}, count);
  fork_range(parallel.parallelizer, 0, blocks,
             [&](u64 i) { body(std::min(i * block, count), std::min((i + 1) * block, count)); });
}

}  // namespace orl
