// Optional keys of a configuration object: an absent one leaves its setting alone; one of the wrong kind
// throws ConfigException.
#pragma once

#include <optional>
#include <string>

#include "config/located.h"

namespace orl {

/// Each gives the value of `key`, none when the key is absent.
inline std::optional<s64> optional_integer(const Object& object, const std::string& key) {
  std::optional<s64> value;
  read_optional_key(object, key, [&] { value = object.get_integer(key); });
  return value;
}

/// The string "true" or "false".
inline std::optional<bool> optional_bool(const Object& object, const std::string& key) {
  std::optional<bool> value;
  read_optional_key(object, key, [&] { value = object.get_bool(key); });
  return value;
}

/// Any string.
inline std::optional<std::string> optional_string(const Object& object, const std::string& key) {
  std::optional<std::string> value;
  read_optional_key(object, key, [&] { value = object.get_string(key); });
  return value;
}

}  // namespace orl
