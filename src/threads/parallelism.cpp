#include "threads/parallelism.h"

#include "config/located.h"
#include "config/settings_keys.h"
#include "core/console.h"
#include "core/exceptions.h"
#include "threads/menu_row.h"

namespace orl {

namespace {

constexpr const char* kDecompositionHelp[] = {
    "In order to parallelize a task, it must be decomposed to smaller tasks.",
    "However, decomposing tasks incurs CPU and memory overhead.",
    "  - With fewer tasks, you have less overhead, but you may not achieve high",
    "    utilization of the processor cores.",
    "  - With more tasks, you have more overhead, but better CPU utilization.",
    "At minimum value, this should be at least the # of logical cores. But it may",
    "be optimal to go even higher. This is known as \"over-decomposition\".",
};

/// TaskDecomposition is an integer in a configuration file and an object with a Value in a dump.
std::optional<s64> read_decomposition(const Object& object) {
  if (!object.contains("TaskDecomposition")) return std::nullopt;
  const Value& value = object.get("TaskDecomposition");
  if (value.kind() == ValueKind::kObject) return optional_integer(value.as_object(""), "Value");
  return optional_integer(object, "TaskDecomposition");
}

u64 ask_decomposition() {
  console::newline();
  for (const char* line : kDecompositionHelp) console::println(line, 'w');
  console::newline();
  return console::read_bounded("Task Decomposition: ", 1, kMaxTaskDecomposition, 'G');
}

}  // namespace

Parallelism::Parallelism() { restore_defaults(logical_core_count()); }

void Parallelism::set_tds(u64 tds) {
  check_task_decomposition(tds);
  tds_ = tds;
}

void Parallelism::set_framework(const std::string& key) { framework_ = create_framework(key); }

void Parallelism::restore_defaults(u64 logical_cores) {
  tds_ = default_task_decomposition(logical_cores);
  framework_ = create_framework(default_framework_key(logical_cores));
}

void Parallelism::write_settings(Object& object) const {
  object.add_integer("TaskDecomposition", static_cast<s64>(tds_));
  object.add_string("Framework", framework_->key());
  framework_->write_settings(object);
}

Object Parallelism::to_object() const {
  Object decomposition;
  decomposition.add_integer("Value", static_cast<s64>(tds_));
  decomposition.add_string("DisplayText", console::format_with_commas(tds_));
  Object object;
  object.add_object("TaskDecomposition", std::move(decomposition));
  object.add_string("Framework", framework_->key());
  framework_->write_settings(object);
  object.add_string("DisplayText", framework_->to_string(tds_));
  return object;
}

void Parallelism::read_object(const Object& object) {
  const auto decomposition = read_decomposition(object);
  if (decomposition)
    read_key(object, "TaskDecomposition",
             [&] { check_task_decomposition(static_cast<u64>(*decomposition)); });
  const std::string key = optional_string(object, "Framework").value_or(framework_->key());
  std::unique_ptr<Parallelizer> framework;
  read_key(object, "Framework", [&] { framework = create_framework(key); });
  framework->read_object(object);
  if (decomposition) tds_ = static_cast<u64>(*decomposition);
  framework_ = std::move(framework);
}

void Parallelism::choose_framework() {
  const auto& types = frameworks();
  console::newline();
  console::println("Parallel Frameworks:", 'T');
  console::newline();
  for (std::size_t i = 0; i < types.size(); ++i) {
    console::println("   " + std::to_string(i) + "    " + types[i].name, 'T');
  }
  console::newline();
  const u64 choice = console::read_bounded("Enter your choice:\noption: ", 0, types.size() - 1, 'G');
  set_framework(types[choice].key);
}

void Parallelism::run_menu() {
  for (;;) {
    const u64 cores = logical_core_count();
    console::newline();
    console::println("Multi-Threading Settings:", 'Y');
    console::newline();
    console::println("   0    Return", 'T');
    console::println("   1    Restore defaults for " + console::format_with_commas(cores) + " logical cores.",
                     'T');
    print_menu_row("   2    Framework:", framework_->name());
    print_menu_row("   3    Task Decomposition:", console::format_with_commas(tds_));
    framework_->print_menu_rows();
    console::newline();
    const u64 choice = console::read_bounded("Enter # to change option:\n", 0, 9, 'G');
    if (choice == 0) return;
    if (choice == 1) restore_defaults(cores);
    if (choice == 2) choose_framework();
    if (choice == 3) tds_ = ask_decomposition();
    if (choice >= 4) framework_->handle_menu_choice(choice);
  }
}

}  // namespace orl
