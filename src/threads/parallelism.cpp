#include "threads/parallelism.h"

#include "config/located.h"
#include "config/settings_keys.h"
#include "core/exceptions.h"
#include "core/format.h"
#include "system/limits.h"

namespace orl {

namespace {

/// TaskDecomposition is an integer in a configuration file and an object with a Value in a dump.
std::optional<s64> read_decomposition(const Object& object) {
  if (!object.contains("TaskDecomposition")) return std::nullopt;
  const Value& value = object.get("TaskDecomposition");
  if (value.kind() == ValueKind::kObject) return optional_integer(value.as_object(""), "Value");
  return optional_integer(object, "TaskDecomposition");
}

}  // namespace

Parallelism::Parallelism() { restore_defaults(processor_count()); }

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
  decomposition.add_string("DisplayText", format_with_commas(tds_));
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

}  // namespace orl
