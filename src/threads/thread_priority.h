// Scheduling priority of the calling thread; threads that it starts inherit it.
#pragma once

namespace orl {

/// 0 leaves the scheduling alone. Otherwise the thread gets the round-robin policy, at its lowest priority
/// for a negative level and at its highest for a positive one. A failure is reported once a process and is
/// not fatal.
void set_thread_priority(int level);

/// What that is: the least priority of the policy for a level below 0, otherwise its highest.
int round_robin_priority(int level);

}  // namespace orl
