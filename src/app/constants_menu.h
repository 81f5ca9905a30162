// The menus of constants and of their algorithms.
#pragma once

#include <memory>

#include "session/constant.h"

namespace orvane {

/// Prints the catalogue and reads a choice and its argument; none when the user cancels. Throws
/// ConfigException for a formula file that cannot be taken.
std::unique_ptr<Constant> constants_menu();

/// Prints the algorithms of `constant` and sets the one that is chosen.
void algorithm_menu(Constant& constant);

}  // namespace orvane
