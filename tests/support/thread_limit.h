// A process that the system gives only a few more threads.
#pragma once

#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <stdexcept>

namespace orl::test {

/// While it lives `threads` more threads can be started, and no others: each wants a gibibyte of address
/// space for its stack, and the process may map no more than that.
class ThreadLimit {
 public:
  explicit ThreadLimit(std::uint64_t threads) {
    std::uint64_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    if (pages == 0 || getrlimit(RLIMIT_AS, &space_) != 0) throw std::runtime_error("ThreadLimit");
    pthread_getattr_default_np(&stack_);
    set_default_stack(kStack);
    rlimit narrow = space_;
    narrow.rlim_cur = pages * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE)) + threads * kStack + kOther;
    setrlimit(RLIMIT_AS, &narrow);
  }
  ~ThreadLimit() {
    setrlimit(RLIMIT_AS, &space_);
    pthread_setattr_default_np(&stack_);
    pthread_attr_destroy(&stack_);
  }
  ThreadLimit(const ThreadLimit&) = delete;
  ThreadLimit& operator=(const ThreadLimit&) = delete;

 private:
  static constexpr std::uint64_t kStack = std::uint64_t{1} << 30;
  static constexpr std::uint64_t kOther = kStack / 4 * 3;  // what a thread maps besides

  static void set_default_stack(std::uint64_t bytes) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, bytes);
    pthread_setattr_default_np(&attributes);
    pthread_attr_destroy(&attributes);
  }

  rlimit space_{};
  pthread_attr_t stack_;
};

}  // namespace orl::test
