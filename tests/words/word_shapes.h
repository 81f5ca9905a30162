// The lengths and task counts that tests of word arrays go through.
#pragma once

#include <string>
#include <vector>

#include "support/random_words.h"
#include "support/targets.h"
#include "support/test_parallelizers.h"
#include "threads/push_pool_framework.h"

namespace orl::test {

/// Calls body(context) for 1 to 1000 tasks in reverse order, and for a pool of threads.
template <class Body>
void for_each_context(Body&& body) {
  ReverseOrder reverse;
  for (u64 tds : {1, 2, 3, 7, 64, 1000}) {
    SCOPED_TRACE("reverse order, tds " + std::to_string(tds));
    body(ParallelContext{reverse, tds});
  }
  Parallelizer_PushPool pool;
  SCOPED_TRACE("push pool, tds 7");
  body(ParallelContext{pool, 7});
}

/// All zeros or all ones but for a few edge words, which lie around multiples of `block`: what sends a carry
/// over whole blocks.
template <class W>
std::vector<W> boundary_runs(Random& random, u64 L, u64 block) {
  std::vector<W> words(L, random.coin() ? W{0} : static_cast<W>(~W{0}));
  for (u64 n = random.below(6); n > 0; --n) {
    const u64 at = random.below(L / block + 1) * block + random.below(6);
    if (at >= 2 && at - 2 < L) words[at - 2] = random.edge_word<W>();
  }
  return words;
}

}  // namespace orl::test
