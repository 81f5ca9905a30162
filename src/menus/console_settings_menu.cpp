#include "menus/console_settings_menu.h"

#include <algorithm>
#include <string>

#include "console/console.h"
#include "console/menu_row.h"
#include "core/number_forms.h"

namespace orl {

void ConsoleSettingsMenu::row(std::string_view label, std::string_view value) {
  print_menu_row(label, value);
}

void ConsoleSettingsMenu::text(std::string_view line) { console::println(line, line.empty() ? ' ' : 'w'); }

u64 ConsoleSettingsMenu::ask_number(std::string_view prompt) { return console::read_number(prompt, 'G'); }

std::vector<u32> ConsoleSettingsMenu::ask_nodes(const std::vector<u32>& known) {
  console::println("\n\nEnter NUMA node #'s one-by-one. Enter nothing to stop.", 'w');
  std::vector<u32> nodes;
  for (;;) {
    const std::string line = console::read_line("node: ");
    if (line.empty()) return nodes;
    const WholeNumber number = parse_whole_number(line);
    if (number.kind == WholeNumber::kExact &&
        std::find(known.begin(), known.end(), number.value) != known.end()) {
      nodes.push_back(static_cast<u32>(number.value));
    } else {
      console::println("There is no NUMA node \"" + line + "\" on this machine.", 'R');
      console::set_colour('w');
    }
  }
}

}  // namespace orl
