// What a transfer and the threads that work at it share.
#pragma once

#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <utility>

#include "core/exceptions.h"
#include "core/types.h"
#include "core/uncopied.h"

namespace orl {

/// A failure on its way from one thread to another: a copy, so that the threads share no exception object.
using Failure = std::unique_ptr<const Exception>;

/// What body() throws, or null.
template <class Body>
Failure failure_of(Body&& body) {
  try {
    body();
  } catch (const Exception& e) {
    return e.clone();
  } catch (const std::exception& e) {
    return std::make_unique<StdException>(e.what());
  }
  return nullptr;
}

/// Counts the parts of a transfer that have not ended, and keeps the first failure.
class TransferState : Uncopied {
 public:
  /// Of `parts` parts.
  explicit TransferState(u64 parts) : open_(parts) {}

  /// One part has ended; `failure` may be null.
  void finish(Failure failure) {
    const std::lock_guard guard(mutex_);
    if (failure && !failure_) failure_ = std::move(failure);
    // Under the lock: who waits may free this object as soon as it sees zero.
    if (--open_ == 0) done_.notify_all();
  }
  /// Returns when all parts have ended: the first failure, or null.
  const Exception* wait() {
    std::unique_lock lock(mutex_);
    done_.wait(lock, [this] { return open_ == 0; });
    return failure_.get();
  }

 private:
  std::mutex mutex_;
  std::condition_variable done_;
  u64 open_;
  Failure failure_;
};

}  // namespace orl
