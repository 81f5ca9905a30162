#include "arrays/io_thread.h"

#include <utility>

#include "threads/thread_start.h"

namespace orl {

IoThread::IoThread() : thread_(start_thread([this] { return std::thread([this] { run(); }); })) {}

IoThread::~IoThread() {
  {
    const std::lock_guard guard(mutex_);
    ending_ = true;
  }
  changed_.notify_one();
  thread_.join();
}

void IoThread::post(std::function<void()> job) {
  {
    const std::lock_guard guard(mutex_);
    jobs_.push_back(std::move(job));
  }
  changed_.notify_one();
}

void IoThread::run() {
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return ending_ || !jobs_.empty(); });
    if (jobs_.empty()) return;
    std::function<void()> job = std::move(jobs_.front());
    jobs_.pop_front();
    lock.unlock();
    job();
    job = nullptr;  // what it holds goes without the lock
    lock.lock();
  }
}

}  // namespace orl
