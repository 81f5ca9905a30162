// The settings menu of multi-threading.
#pragma once

#include "threads/parallelism.h"

namespace orl {

/// Lets the user choose framework, task decomposition and the framework's own settings; returns when the user
/// leaves the menu.
void run_parallelism_menu(Parallelism& settings);

}  // namespace orl
