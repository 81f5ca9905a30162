// The registry of frameworks is filled once a process, by the first test that needs it.
#pragma once

#include "threads/frameworks.h"

namespace orl::test {

inline void fill_registries() {
  static const bool filled = (register_frameworks(), true);
  static_cast<void>(filled);
}

}  // namespace orl::test
