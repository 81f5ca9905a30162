// Rows of the settings menus.
#pragma once

#include <string>

namespace orl {

/// The label padded to the column of values, then the value in green and a line feed.
void print_menu_row(const std::string& label, const std::string& value);

}  // namespace orl
