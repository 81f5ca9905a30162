// Optional keys of a configuration object: an absent one leaves its setting alone; one of the wrong kind
// throws ConfigException.
#pragma once

#include <optional>
#include <string>

#include "config/located.h"
#include "parallel/large_memory.h"

namespace orl {

inline std::optional<s64> optional_integer(const Object& object, const std::string& key) {
  std::optional<s64> value;
  read_optional_key(object, key, [&] { value = object.get_integer(key); });
  return value;
}

inline std::optional<bool> optional_bool(const Object& object, const std::string& key) {
  std::optional<bool> value;
  read_optional_key(object, key, [&] { value = object.get_bool(key); });
  return value;
}

inline std::optional<std::string> optional_string(const Object& object, const std::string& key) {
  std::optional<std::string> value;
  read_optional_key(object, key, [&] { value = object.get_string(key); });
  return value;
}

inline Mode mode_or(const Object& object, const std::string& key, Mode otherwise) {
  const auto word = optional_string(object, key);
  return word ? word_to_mode(key, *word) : otherwise;
}

/// The key LockPages; LockedPages is an older name for it.
inline Mode lock_mode_or(const Object& object, Mode otherwise) {
  const auto older = optional_string(object, "LockedPages");
  return mode_or(object, "LockPages", older ? word_to_mode("LockPages", *older) : otherwise);
}

}  // namespace orl
