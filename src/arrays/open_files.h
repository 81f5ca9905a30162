// How many files the system lets this process have open.
#pragma once

#include "core/types.h"

namespace orl {

/// Raises the process's limit to `wanted` files more than it has now, as far as the system lets it, and says once what to
/// do where that is not enough. Returns the limit.
u64 allow_open_files(u64 wanted);

}  // namespace orl
