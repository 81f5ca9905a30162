#include "core/unfinished_files.h"

#include <sched.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <vector>

namespace orl {
namespace {

std::atomic_flag g_locked = ATOMIC_FLAG_INIT;
std::atomic<u64> g_holds{0};
std::atomic<int> g_put_off{0};
static_assert(std::atomic<u64>::is_always_lock_free && std::atomic<int>::is_always_lock_free,
              "signal handlers use them");

// Never destroyed: a thread may end the process while others run.
std::vector<std::string>& listed() {
  static std::vector<std::string>* const names = new std::vector<std::string>;
  return *names;
}

void lock_list() {
  while (g_locked.test_and_set(std::memory_order_acquire)) sched_yield();
}

// The list, with the signals of its thread blocked.
class ListLock : Uncopied {
 public:
  ListLock() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
    lock_list();
  }
  ~ListLock() {
    g_locked.clear(std::memory_order_release);
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }

 private:
  sigset_t before_;
};

u64 unlink_listed() noexcept {
  u64 removed = 0;
  for (const std::string& path : listed()) removed += ::unlink(path.c_str()) == 0;
  return removed;
}

}  // namespace

void list_unfinished(const std::string& path) {
  const ListLock lock;
  listed().push_back(path);
}

void unlist_unfinished(const std::string& path) {
  const ListLock lock;
  const auto place = std::find(listed().begin(), listed().end(), path);
  if (place != listed().end()) listed().erase(place);
}

void remove_unfinished() {
  const ListLock lock;
  unlink_listed();
  listed().clear();
}

// The list stays locked.
u64 remove_unfinished_at_end() noexcept {
  lock_list();
  return unlink_listed();
}

EndingHold::EndingHold() { g_holds++; }

EndingHold::~EndingHold() {
  if (--g_holds != 0) return;
  if (const int signal = g_put_off.exchange(0)) raise(signal);
}

bool put_off(int signal) noexcept {
  if (g_holds == 0) return false;
  g_put_off = signal;
  return g_holds != 0 || g_put_off.exchange(0) == 0;
}

}  // namespace orl
