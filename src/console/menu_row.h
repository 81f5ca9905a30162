// Rows of the settings menus.
#pragma once

#include <string_view>

namespace orl {

/// The label padded to the column of values, then the value in green and a line feed.
void print_menu_row(std::string_view label, std::string_view value);

}  // namespace orl
