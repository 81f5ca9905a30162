// How a thread waits for something that another thread is about to do.
//
// A sleeping thread takes 15 us to wake, a spinning one 0.3 us, so a thread first spins for a bounded time
// and sleeps after it. The spin must not hurt when there are more threads than processors: after its first
// part it gives the processor away between looks, so a thread that is ready to run runs instead of being
// waited for. Measured on 2 processors, wall time over the ideal one, sleeping at once -> this: 2 tasks of 5
// us 1.25 -> 1.00, 8 tasks of 5 us 6.5 -> 1.2, 64 tasks of 5 us 40 -> 2.9, 64 tasks of 500 us 1.48 -> 1.06; a
// yielding part of 25, 80 or 200 us made no difference there (bench/threads/fork_bench).
#pragma once

#include <emmintrin.h>
#include <sched.h>
#include <x86intrin.h>

#include "core/types.h"

namespace orl {

/// Time-stamp ticks, 2 to 4 of them a nanosecond: 4000 are 1 to 2 us, 100000 are 25 to 50 us.
inline constexpr u64 kSpinTicks = 4000;
inline constexpr u64 kYieldTicks = 100000;

/// Looks at `reached()` until it holds (true) or the bound has passed (false; the caller should go to sleep).
template <class Condition>
bool spin_until(Condition&& reached) {
  constexpr int kLooksPerClock = 16;
  const u64 start = __rdtsc();
  for (;;) {
    for (int look = 0; look < kLooksPerClock; ++look) {
      if (reached()) return true;
      _mm_pause();
    }
    const u64 waited = __rdtsc() - start;
    if (waited > kYieldTicks) return reached();
    if (waited > kSpinTicks) sched_yield();
  }
}

/// For a wait of a few stores of another thread, which may have lost its processor in between them.
template <class Condition>
void spin_for_moment(Condition&& reached) {
  while (!spin_until(reached)) {
  }
}

}  // namespace orl
