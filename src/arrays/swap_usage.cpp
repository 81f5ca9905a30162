#include "arrays/swap_usage.h"

#include <algorithm>
#include <atomic>

#include "core/exceptions.h"
#include "core/format.h"
#include "core/output.h"

namespace orl {
namespace {

std::atomic<bool> g_limit_told{false};

void tell_limit(u64 current, u64 limit) {
  if (g_limit_told.exchange(true)) return;
  notice("Swap usage exceeded estimated limit.\n", 'Y');
  notice_line("Current " + format_bytes(current), 'Y');
  notice_line("Limit   " + format_bytes(limit), 'Y');
  notice("\nFurther messages of this warning will be suppressed.\n", 'Y');
  output().set_colour('w');
}

}  // namespace

void SwapUsage::check_free(const std::string& name) const {
  for (const Allocation& one : allocations_)
    if (one.name == name)
      throw InvalidParametersException("SwapUsage::add()",
                                       "Two swap objects have the name \"" + name + "\".");
}

void SwapUsage::add(const std::string& name, u64 bytes) {
  const std::lock_guard guard(mutex_);
  check_free(name);
  allocations_.push_back({name, bytes});
  current_ += bytes;
  peak_ = std::max(peak_, current_);
  if (limit_ != 0 && current_ > limit_) tell_limit(current_, limit_);
}

void SwapUsage::rename(const std::string& name, const std::string& new_name) {
  const std::lock_guard guard(mutex_);
  check_free(new_name);
  for (Allocation& one : allocations_)
    if (one.name == name) one.name = new_name;
}

void SwapUsage::remove(const std::string& name) {
  const std::lock_guard guard(mutex_);
  const auto at = std::find_if(allocations_.begin(), allocations_.end(),
                               [&](const Allocation& one) { return one.name == name; });
  if (at == allocations_.end()) return;
  current_ -= at->bytes;
  allocations_.erase(at);
}

u64 SwapUsage::current() const {
  const std::lock_guard guard(mutex_);
  return current_;
}

u64 SwapUsage::peak() const {
  const std::lock_guard guard(mutex_);
  return peak_;
}

std::vector<std::string> SwapUsage::list() const {
  const std::lock_guard guard(mutex_);
  std::vector<std::string> lines;
  for (const Allocation& one : allocations_) lines.push_back(one.name + "  " + format_bytes(one.bytes));
  return lines;
}

}  // namespace orl
