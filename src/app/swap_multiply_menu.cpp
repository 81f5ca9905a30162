#include "app/swap_multiply_menu.h"

#include <string>
#include <utility>
#include <vector>

#include "app/menu_steps.h"
#include "console/console.h"
#include "console/menu_input.h"
#include "console/menu_row.h"
#include "core/format.h"
#include "menus/bytes_per_seek_menu.h"
#include "menus/parallelism_menu.h"
#include "menus/raid_menu.h"
#include "stress/swap_multiply.h"
#include "transforms/registration.h"

namespace orvane {
namespace {

namespace console = orl::console;
using orl::R03::Raid03Descriptor;

constexpr const char* kAlgorithms[] = {"C17", "N64", "VST"};

void print(const SwapMultiplySettings& settings) {
  console::println("\n\nTest Swap Multiply:\n", 'Y');
  orl::print_menu_row("   1    Memory:", orl::format_bytes(settings.memory_bytes));
  orl::print_menu_row("   2    Operand Size:", orl::format_bytes(settings.operand_bytes()));
  orl::print_menu_row("   3    Algorithm:", settings.algorithm);
  orl::print_menu_row("   4    Multi-Threading:",
                      settings.parallelism.framework().to_string(settings.parallelism.tds()));
  orl::print_menu_row("   5    Bytes/Seek:", orl::format_bytes(settings.bytes_per_seek.value(settings.raid)) +
                                                 "  for entire drive array");
  orl::print_menu_row("   6    Swap Paths:", settings.raid.to_string());
  orl::print_menu_row("   7    Second Array:", settings.second ? settings.second->to_string() : "None");
  console::newline();
  if (const std::string refusal = settings.refusal(); !refusal.empty()) console::println(refusal + "\n", 'R');
  console::println("   0    Start Test!\n", 'T');
}

// Those of the table that have transforms for numbers on disks.
void choose_algorithm(std::string& algorithm) {
  std::vector<const char*> known;
  for (const char* id : kAlgorithms)
    if (orl::find_far_family(id)) known.push_back(id);
  console::newline();
  for (std::size_t i = 0; i < known.size(); i++)
    console::println("  " + std::to_string(i) + "     " + known[i], 'T');
  algorithm = known[console::read_bounded("option: ", 0, known.size() - 1, 'G')];
}

void choose_second_array(SwapMultiplySettings& settings) {
  console::println("\nThe second operand and the product lie on the second array.\n", 'w');
  console::println("  0     None", 'T');
  console::println("  1     A second array", 'T');
  if (console::read_bounded("option: ", 0, 1, 'G') == 0) {
    settings.second.reset();
    return;
  }
  Raid03Descriptor second = settings.second.value_or(Raid03Descriptor());
  orl::R03::run_raid_menu(second, settings.memory_bytes / 2);
  settings.second = std::move(second);
}

void change(SwapMultiplySettings& settings, u64 choice) {
  switch (choice) {
    case 1:
      settings.memory_bytes = orl::ask_byte_size("\nMemory to use: (e.g. 8GB)\n", settings.memory_bytes);
      return;
    case 2:
      settings.operand_setting = orl::ask_byte_size(
          "\nSize of each operand: (e.g. 2GB)  0 is half of the memory.\n", settings.operand_setting);
      return;
    case 3:
      return choose_algorithm(settings.algorithm);
    case 4:
      return orl::run_parallelism_menu(settings.parallelism);
    case 5:
      return orl::ask_bytes_per_seek(settings.bytes_per_seek);
    case 6:
      return orl::R03::run_raid_menu(settings.raid, settings.memory_bytes);
    case 7:
      return choose_second_array(settings);
  }
}

}  // namespace

int swap_multiply_menu() {
  SwapMultiplySettings settings;
  for (;;) {
    print(settings);
    const u64 choice = console::read_bounded("Enter # to change option:\n", 0, 7, 'G');
    if (choice == 0 && settings.refusal().empty()) return run_swap_multiply(settings);
    try_step([&] { change(settings, choice); });
  }
}

}  // namespace orvane
