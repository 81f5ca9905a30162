// Keys of a configuration object that hold a mode of the allocators (off, try, force). A word that is no mode
// throws ConfigException.
#pragma once

#include <string>

#include "config/settings_keys.h"
#include "memory/large_memory.h"

namespace orl {

/// The mode under `key`, `otherwise` when the key is absent.
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
