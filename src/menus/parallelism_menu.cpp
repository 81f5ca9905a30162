#include "menus/parallelism_menu.h"

#include "console/console.h"
#include "core/format.h"
#include "menus/console_settings_menu.h"
#include "system/limits.h"

namespace orl {

namespace {

constexpr const char* kDecompositionHelp[] = {
    "In order to parallelize a task, it must be decomposed to smaller tasks.",
    "However, decomposing tasks incurs CPU and memory overhead.",
    "  - With fewer tasks, you have less overhead, but you may not achieve high",
    "    utilization of the processor cores.",
    "  - With more tasks, you have more overhead, but better CPU utilization.",
    "At minimum value, this should be at least the # of logical cores. But it may",
    "be optimal to go even higher. This is known as \"over-decomposition\".",
};

u64 ask_decomposition() {
  console::newline();
  for (const char* line : kDecompositionHelp) console::println(line, 'w');
  console::newline();
  return console::read_bounded("Task Decomposition (1 to 65,536): ", 1, kMaxTaskDecomposition, 'G');
}

void choose_framework(Parallelism& settings) {
  const auto& types = frameworks();
  console::newline();
  console::println("Parallel Frameworks:", 'T');
  console::newline();
  for (std::size_t i = 0; i < types.size(); ++i) {
    console::println("   " + std::to_string(i) + "    " + types[i].name, 'T');
  }
  console::newline();
  const u64 choice = console::read_bounded("Enter your choice:\noption: ", 0, types.size() - 1, 'G');
  settings.set_framework(types[choice].key);
}

}  // namespace

void run_parallelism_menu(Parallelism& settings) {
  ConsoleSettingsMenu menu;
  for (;;) {
    const u64 cores = processor_count();
    console::newline();
    console::println("Multi-Threading Settings:", 'Y');
    console::newline();
    console::println("   0    Return", 'T');
    console::println("   1    Restore defaults for " + format_with_commas(cores) + " logical cores.", 'T');
    menu.row("   2    Framework:", settings.framework().name());
    menu.row("   3    Task Decomposition:", format_with_commas(settings.tds()));
    settings.framework().print_menu_rows(menu);
    console::newline();
    const u64 choice = console::read_bounded("Enter # to change option:\n", 0, 9, 'G');
    if (choice == 0) return;
    if (choice == 1) settings.restore_defaults(cores);
    if (choice == 2) choose_framework(settings);
    if (choice == 3) settings.set_tds(ask_decomposition());
    if (choice >= 4) settings.framework().handle_menu_choice(choice, menu);
  }
}

}  // namespace orl
