#include "threads/frameworks.h"

#include <bit>

#include "config/object.h"
#include "core/exceptions.h"
#include "core/output.h"
#include "threads/push_pool_framework.h"
#include "threads/simple_frameworks.h"
#include "threads/tbb_framework.h"
#if ORVANE_HAS_CILK
#include "threads/cilk_framework.h"
#endif

namespace orl {

namespace {

Registry<Parallelizer>& registry() {
  static Registry<Parallelizer> table;
  return table;
}

template <class Framework>
std::unique_ptr<Parallelizer> make() {
  return std::make_unique<Framework>();
}

/// The name stands with the class; one object is made to read it.
template <class Framework>
void register_class() {
  const Framework framework;
  register_framework({framework.key(), framework.name(), make<Framework>});
}

}  // namespace

void register_framework(const FrameworkType& type) {
  if (!registry().add(type)) fatal_error("Duplicate Framework Type");
}

void register_frameworks() {
  register_class<Parallelizer_None>();
  register_class<Parallelizer_Spawn>();
  register_class<Parallelizer_Async>();
  register_class<Parallelizer_PushPool>();
#if ORVANE_HAS_CILK
  register_class<Parallelizer_Cilk>();
#endif
  register_class<Parallelizer_Tbb>();
}

const std::vector<FrameworkType>& frameworks() { return registry().entries(); }

bool has_framework(const std::string& key) { return registry().find(key) != nullptr; }

std::unique_ptr<Parallelizer> create_framework(const std::string& key) {
  const FrameworkType* type = registry().find(key);
  if (type == nullptr) {
    throw InvalidParametersException("create_framework()", "Invalid Parallel Framework: " + key);
  }
  return type->create();
}

u64 default_task_decomposition(u64 logical_cores) {
  const u64 tasks = std::has_single_bit(logical_cores) ? logical_cores : 2 * logical_cores;
  return std::min(tasks, kMaxTaskDecomposition);
}

std::string default_framework_key(u64 logical_cores) {
  if (logical_cores <= 16) return "pushpool";
  return has_framework("cilk") ? "cilk" : "tbb";
}

void check_task_decomposition(u64 tds) {
  if (tds >= 1 && tds <= kMaxTaskDecomposition) return;
  throw InvalidParametersException(
      "check_task_decomposition()",
      "Task decomposition must be between 1 and " + std::to_string(kMaxTaskDecomposition) + ".");
}

u64 checked_thread_count(s64 threads) {
  if (threads >= 0 && static_cast<u64>(threads) <= kMaxThreads) return static_cast<u64>(threads);
  throw InvalidParametersException(
      "checked_thread_count()", "WorkerThreads must be between 0 and " + std::to_string(kMaxThreads) + ".");
}

u64 ask_thread_count(SettingsMenu& menu, const char* prompt) {
  return std::min(menu.ask_number(prompt), kMaxThreads);
}

std::string Parallelizer::to_string(u64 tds) const {
  const u64 count = threads();
  return std::string(name()) + "  ->  " + std::to_string(tds) + " / " +
         (count == 0 ? "?" : std::to_string(count)) + details();
}

void Parallelizer::print_status(u64 tds) const {
  const u64 count = threads();
  notice(name(), 'G');
  notice("  ->  ", 'w');
  notice(std::to_string(tds), 'Y');
  notice(" / ", 'w');
  notice(count == 0 ? "?" : std::to_string(count), 'Y');
  notice(details(), 'w');
}

Object Parallelizer::to_object() const {
  Object object;
  object.add_string("Framework", key());
  write_settings(object);
  return object;
}

}  // namespace orl
