// The settings menu of memory allocators.
#pragma once

#include <memory>

#include "memory/allocators.h"

namespace orl {

/// Lets the user choose an allocator and change its settings; returns when the user leaves the menu. A choice
/// that this machine refuses says why and leaves the former allocator in place.
void run_allocator_menu(std::unique_ptr<MemoryAllocator>& allocator);

}  // namespace orl
