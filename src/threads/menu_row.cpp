#include "threads/menu_row.h"

#include "core/console.h"

namespace orl {

void print_menu_row(const std::string& label, const std::string& value) {
  console::print_padded(32, label, 'T');
  console::println(value, 'G');
  console::set_colour('w');
}

}  // namespace orl
