// Optional keys of a configuration object: an absent one leaves its setting alone.
#pragma once

#include <optional>
#include <string>

#include "config/object.h"
#include "parallel/large_memory.h"

namespace orl {

inline std::optional<s64> optional_integer(const Object& object, const std::string& key) {
  if (!object.contains(key)) return std::nullopt;
  return object.get_integer(key);
}

inline std::optional<bool> optional_bool(const Object& object, const std::string& key) {
  if (!object.contains(key)) return std::nullopt;
  return object.get_bool(key);
}

inline std::optional<std::string> optional_string(const Object& object, const std::string& key) {
  if (!object.contains(key)) return std::nullopt;
  return object.get_string(key);
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
