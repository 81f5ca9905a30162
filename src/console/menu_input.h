// Numbers with units, asked for by menus: of the forms of core/number_forms.h. Anything else is asked for again with
// a line that says what was read and what is wanted; an empty line keeps the current value.
#pragma once

#include <string_view>

#include "core/types.h"

namespace orl {

/// Asks until the answer is a number of the form; an empty line gives back `current`.
u64 ask_decimal_count(std::string_view prompt, u64 current);
u64 ask_byte_size(std::string_view prompt, u64 current);

}  // namespace orl
