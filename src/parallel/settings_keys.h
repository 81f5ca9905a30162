// Optional keys of a configuration object: an absent one leaves its setting alone.
#pragma once

#include <optional>
#include <string>

#include "config/object.h"

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

}  // namespace orl
