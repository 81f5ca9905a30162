#include "app/benchio_menu.h"

#include <string>

#include "app/action_file.h"
#include "app/menu_steps.h"
#include "arrays/raid_report.h"
#include "benchio/io_benchmark.h"
#include "console/console.h"
#include "console/menu_input.h"
#include "console/menu_row.h"
#include "core/exceptions.h"
#include "core/format.h"
#include "menus/allocator_menu.h"
#include "menus/bytes_per_seek_menu.h"
#include "menus/parallelism_menu.h"
#include "menus/raid_menu.h"

namespace orvane {
namespace {

namespace console = orl::console;

void print(const BenchIoSettings& settings) {
  console::println("\n\nI/O Performance Analysis:\n", 'Y');
  orl::print_menu_row("   1    Memory:", orl::format_bytes(settings.memory_bytes));
  orl::print_menu_row("        Swap file Size:", orl::format_bytes(settings.file_bytes()));
  orl::print_menu_row("   2    Memory Allocator:", settings.allocator->to_string());
  orl::print_menu_row("   3    Multi-Threading:",
                      settings.parallelism.framework().to_string(settings.parallelism.tds()));
  orl::print_menu_row("   4    Bytes/Seek:", orl::format_bytes(settings.bytes_per_seek.value(settings.raid)) +
                                                 "  for entire drive array");
  orl::print_menu_row("        Swap Paths:", settings.raid.to_string());
  console::newline();
  console::println("   5    View Swap-File Configuration", 'T');
  console::println("   6    Change Swap-File Configuration", 'T');
  orl::print_menu_row("   7    JSON Results:", settings.json_results ? "Enabled" : "Disabled");
  console::newline();
  print_file_rows();
  console::newline();
  if (const std::string refusal = settings.refusal(); !refusal.empty()) console::println(refusal + "\n", 'R');
  console::println("   0    Start I/O Performance Analysis!\n", 'T');
}

// With the state that the folders have now; the start of the benchmark tries them again.
void view_array(const BenchIoSettings& settings) {
  orl::R03::Raid03Descriptor tried = settings.raid;
  tried.prepare();
  print_raid_report(tried, settings.memory_bytes, settings.file_bytes());
}

void change(BenchIoSettings& settings, u64 choice) {
  switch (choice) {
    case 1:
      settings.memory_bytes = orl::ask_byte_size("\nMemory to use: (e.g. 8GB)\n", settings.memory_bytes);
      return;
    case 2:
      return orl::run_allocator_menu(settings.allocator);
    case 3:
      return orl::run_parallelism_menu(settings.parallelism);
    case 4:
      return orl::ask_bytes_per_seek(settings.bytes_per_seek);
    case 5:
      return view_array(settings);
    case 6:
      return orl::R03::run_raid_menu(settings.raid, settings.memory_bytes);
    case 7:
      settings.json_results = !settings.json_results;
      return;
    case kLoadRow:
      return choose_file_to_load([&](const std::string& path) { load_bench_io(path, settings); });
    case kSaveRow:
      return choose_file_to_save([&](const std::string& path) { save_bench_io(path, settings); });
  }
}

}  // namespace

int benchio_menu() {
  BenchIoSettings settings;
  for (;;) {
    print(settings);
    const u64 choice = console::read_bounded("Enter # to change option:\n", 0, kSaveRow, 'G');
    if (choice == 0 && settings.refusal().empty()) return run_io_benchmark(settings);
    try_step([&] { change(settings, choice); });
  }
}

}  // namespace orvane
