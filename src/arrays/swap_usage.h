// How much of a disk array is in use, now and at most.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "core/types.h"
#include "core/uncopied.h"

namespace orl {

/// The objects that live on an array. Any thread may use it.
class SwapUsage : Uncopied {
 public:
  /// `limit_bytes` is what a plan expects at most; 0 where none does.
  explicit SwapUsage(u64 limit_bytes) : limit_(limit_bytes) {}

  /// Counts an object. The first time in the process that a limit is passed is told; nothing is refused for that. Throws
  /// InvalidParametersException where a living object has the name.
  void add(const std::string& name, u64 bytes);
  /// The object has another name from now on. Throws as add() does.
  void rename(const std::string& name, const std::string& new_name);
  /// Ends what add() began.
  void remove(const std::string& name);

  /// Bytes of the objects that live now, and at the time of which there were most.
  u64 current() const;
  u64 peak() const;
  /// Each object with its size.
  std::vector<std::string> list() const;

 private:
  struct Allocation {
    std::string name;
    u64 bytes;
  };

  void check_free(const std::string& name) const;

  mutable std::mutex mutex_;
  std::vector<Allocation> allocations_;
  u64 current_ = 0, peak_ = 0;
  u64 limit_;
};

}  // namespace orl
