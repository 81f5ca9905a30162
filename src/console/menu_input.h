// Numbers with units, asked for by menus.
//
// The forms are those of the command line (number_forms.h), but nothing may stand behind the number,
// thousands may be separated by commas and a unit of bytes may end in "B" or "iB". Anything else is asked for
// again with a line that says what is wanted; an empty line keeps the current value.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "core/types.h"

namespace orl {

/// Asks until the answer is a number of the form; an empty line gives back `current`.
u64 ask_decimal_count(std::string_view prompt, u64 current);
u64 ask_byte_size(std::string_view prompt, u64 current);

/// None when the text is not of the form.
std::optional<u64> exact_decimal_count(std::string text);
std::optional<u64> exact_byte_size(std::string text);

}  // namespace orl
