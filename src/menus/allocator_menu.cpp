#include "menus/allocator_menu.h"

#include "console/console.h"
#include "core/exceptions.h"
#include "menus/console_settings_menu.h"

namespace orl {

namespace {

void choose_allocator(std::unique_ptr<MemoryAllocator>& allocator) {
  const auto types = allocators();
  console::newline();
  console::println("Memory Allocators:", 'T');
  console::newline();
  for (std::size_t i = 0; i < types.size(); ++i)
    console::println("   " + std::to_string(i) + "    " + types[i].name, 'T');
  console::newline();
  const u64 choice = console::read_bounded("Enter your choice:\noption: ", 0, types.size() - 1, 'G');
  allocator = create_allocator(types[choice].key);
}

// False when the user leaves.
bool change_setting(std::unique_ptr<MemoryAllocator>& allocator) {
  ConsoleSettingsMenu menu;
  console::newline();
  console::println("Memory Allocator Settings:", 'Y');
  console::newline();
  console::println("   0    Return", 'T');
  console::println("   1    Restore defaults.", 'T');
  menu.row("   2    Allocator:", allocator->name());
  allocator->print_menu_rows(menu);
  console::newline();
  const u64 choice = console::read_bounded("Enter # to change option:\n", 0, 9, 'G');
  if (choice == 1) allocator = create_allocator(default_allocator_key());
  if (choice == 2) choose_allocator(allocator);
  if (choice >= 3) allocator->handle_menu_choice(choice, menu);
  return choice != 0;
}

}  // namespace

void run_allocator_menu(std::unique_ptr<MemoryAllocator>& allocator) {
  for (bool stay = true; stay;) {
    try {
      stay = change_setting(allocator);
    } catch (const InvalidParametersException& e) {
      console::println(e.message(), 'R');
    }
  }
}

}  // namespace orl
