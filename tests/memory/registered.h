// The registries of frameworks and allocators are filled once a process, by the first test that needs one.
#pragma once

#include "memory/allocators.h"
#include "threads/frameworks.h"

namespace orl::test {

inline void fill_registries() {
  static const bool filled = (register_frameworks(), register_allocators(), true);
  static_cast<void>(filled);
}

}  // namespace orl::test
