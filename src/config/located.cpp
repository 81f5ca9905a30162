#include "config/located.h"

#include <algorithm>
#include <utility>

namespace orl {

namespace {

std::string full_text(u64 line, const std::string& key, const std::string& reason) {
  const std::string place = line == 0 ? "" : "Line " + std::to_string(line) + ": ";
  return place + key + ": " + reason;
}

void refuse_unknown_values(const std::string& key, const Value& value, const Value& known);

// An older name of a key is known where the key is.
const Value* find_known(const Object& known, const std::string& key) {
  return known.find(key == "LockedPages" ? "LockPages" : key);
}

void refuse_in_object(const std::string& prefix, const Object& object, const Object& known) {
  for (const Object::Node& node : object.nodes()) {
    if (node.key == "DisplayText") continue;
    const std::string key = prefix + node.key;
    const Value* counterpart = find_known(known, node.key);
    if (!counterpart)
      throw ConfigException(node.value->line, key, "Unknown key. Please remove it or correct its name.");
    refuse_unknown_values(key, *node.value, *counterpart);
  }
}

void refuse_unknown_values(const std::string& key, const Value& value, const Value& known) {
  if (value.kind() != known.kind()) return;
  if (value.kind() == ValueKind::kObject)
    refuse_in_object(key + ".", value.as_object(key), known.as_object(key));
  if (value.kind() != ValueKind::kArray) return;
  const Array& array = value.as_array(key);
  const Array& known_array = known.as_array(key);
  for (u64 i = 0; i < std::min(array.size(), known_array.size()); i++)
    refuse_unknown_values(key, array[i], known_array[i]);
}

}  // namespace

ConfigException::ConfigException(u64 line, std::string key, std::string reason)
    : ExceptionType("", full_text(line, key, reason)),
      line_(line),
      key_(std::move(key)),
      reason_(std::move(reason)) {}

ConfigException located(const Object& object, const std::string& key, const Exception& e) {
  if (const auto* inner = dynamic_cast<const ConfigException*>(&e))
    return {inner->line(), key + (inner->key().front() == '[' ? "" : ".") + inner->key(), inner->reason()};
  // The type check has put the key in front.
  const std::string named = key + ": ";
  const bool is_named = e.message().starts_with(named);
  const Value* value = object.find(key);
  return {value ? value->line : object.line, key, is_named ? e.message().substr(named.size()) : e.message()};
}

void refuse_unknown_keys(const Object& object, const Object& known) { refuse_in_object("", object, known); }

}  // namespace orl
