#include "console/menu_row.h"

#include "console/console.h"

namespace orl {

void print_menu_row(std::string_view label, std::string_view value) {
  console::print_padded(32, label, 'T');
  console::println(value, 'G');
  console::set_colour('w');
}

}  // namespace orl
