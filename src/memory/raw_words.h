// 64-bit words at addresses of any alignment: the headers and guards of blocks.
#pragma once

#include <cstring>

#include "core/types.h"

namespace orl {

/// Eight bytes at any address.
inline u64 load_word(std::uintptr_t address) {
  u64 value;
  std::memcpy(&value, reinterpret_cast<const void*>(address), sizeof value);
  return value;
}

/// Eight bytes to any address.
inline void store_word(std::uintptr_t address, u64 value) {
  std::memcpy(reinterpret_cast<void*>(address), &value, sizeof value);
}

}  // namespace orl
