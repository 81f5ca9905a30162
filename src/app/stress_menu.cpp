#include "app/stress_menu.h"

#include <algorithm>
#include <string>

#include "app/action_file.h"
#include "app/menu_steps.h"
#include "console/console.h"
#include "console/menu_input.h"
#include "core/format.h"
#include "stress/stress_tester.h"
#include "system/limits.h"
#include "system/topology.h"

namespace orvane {
namespace {

namespace console = orl::console;

constexpr u64 kFirstTestRow = 7;
constexpr unsigned kGaugeLength = 12;  // of "CPU------Mem"

void print_row(u64 number, const std::string& label, const std::string& value) {
  const std::string text = std::to_string(number);
  console::print_padded(30, "  " + text + std::string(4 - std::min<u64>(text.size(), 3), ' ') + label, 'T');
  console::println(value, 'G');
}

// "1.18 MiB", with its number in five columns.
std::string short_bytes(u64 bytes) {
  const std::string text = orl::format_binary_size(bytes);
  const std::size_t number = text.find(' ');
  return std::string(number < 5 ? 5 - number : 0, ' ') + text;
}

std::string core_list(const StressSettings& settings) {
  std::string text =
      std::to_string(settings.cores.size()) + " of " + std::to_string(orl::topology().cores.size()) + "  (";
  for (std::size_t i = 0; i < settings.cores.size(); ++i)
    text += (i == 0 ? "" : " ") + std::to_string(settings.cores[i]);
  return text + ")";
}

const char* policy_text(bool locally) {
  return locally ? "Local - Memory allocated from local thread."
                 : "Interleaved - Memory interleaved across all nodes.";
}

// The mark stands the further right the more the test leans on memory.
std::string gauge(unsigned weight) {
  std::string text(kGaugeLength, '-');
  text[(weight - 1) * (kGaugeLength - 1) / 9] = '*';
  return text;
}

void print_tests(const StressSettings& settings) {
  console::println("\n  #   Tag - Test Name               Mem/Thread   Component        CPU------Mem", 'w');
  for (std::size_t i = 0; i < settings.tests.size(); ++i) {
    const StressTest& test = *settings.tests[i];
    const auto work = test.plan(settings.share_bytes());
    const char colour = test.enabled ? 'T' : 'b';
    const std::string number = std::to_string(kFirstTestRow + i);
    console::print_padded(6, std::string(3 - number.size(), ' ') + number, colour);
    console::print_padded(30, test.title(), colour);
    console::print_padded(13,
                          !test.enabled ? "Disabled"
                          : work        ? short_bytes(work->bytes())
                                        : "Too little",
                          !test.enabled ? 'r'
                          : work        ? 'G'
                                        : 'Y');
    console::print_padded(17, test.component(), colour);
    console::println(gauge(test.weight()), colour);
  }
  if (settings.enabled_count() == 0) console::println("\n      Please select at least one test.", 'R');
}

void toggle(std::vector<u32>& cores, u32 core) {
  const auto found = std::find(cores.begin(), cores.end(), core);
  if (found != cores.end()) {
    cores.erase(found);
  } else {
    cores.push_back(core);
  }
}

// The machine's cores, and those that a loaded file names beyond them.
std::vector<u32> cores_to_show(const StressSettings& settings) {
  std::vector<u32> cores = orl::topology().cores;
  cores.insert(cores.end(), settings.cores.begin(), settings.cores.end());
  std::sort(cores.begin(), cores.end());
  cores.erase(std::unique(cores.begin(), cores.end()), cores.end());
  return cores;
}

void choose_cores(StressSettings& settings) {
  for (;;) {
    const std::vector<u32> all = cores_to_show(settings);
    console::println("\nLogical Cores:\n", 'Y');
    console::print("Pin threads to the following cores in a round-robin fashion.\r\n", 'w');
    console::newline();
    for (const u32 core : all) {
      const bool selected =
          std::find(settings.cores.begin(), settings.cores.end(), core) != settings.cores.end();
      console::print_padded(16, "  Core " + std::to_string(core), 'T');
      console::println(selected ? "Enabled" : "Disabled", selected ? 'G' : 'r');
    }
    console::println("\nEnter Core # to toggle it.  (ENTER alone returns.)", 'w');
    const auto choice = console::read_choice("Core: ", 0, all.back(), 'G');
    if (!choice) return;
    if (std::find(all.begin(), all.end(), *choice) != all.end()) {
      toggle(settings.cores, static_cast<u32>(*choice));
      std::sort(settings.cores.begin(), settings.cores.end());
    }
  }
}

void choose_memory(StressSettings& settings) {
  console::println("\nMemory to test, in bytes. The suffixes K, M, G and T are powers of 1024.", 'w');
  console::label_value("Available Memory:  ", orl::format_bytes(orl::available_memory_bytes()), 'G');
  console::newline();
  u64 bytes = 0;
  while (bytes == 0) bytes = orl::ask_byte_size("Memory: ", settings.total_memory);
  settings.total_memory = std::min(bytes, StressSettings::kMaxMemory);
}

void toggle_all(StressSettings& settings) {
  settings.enable_all(settings.enabled_count() < settings.tests.size());
}

void print_menu(const StressSettings& settings) {
  console::println("\nComponent Stress Tester\n", 'Y');
  print_row(1, "Logical Cores:", core_list(settings));
  print_row(2, "Memory Allocation:", policy_text(settings.allocate_locally));
  print_row(3, "Memory to Test:", orl::format_bytes(settings.total_memory));
  print_row(4, "Time per Test:",
            orl::format_with_commas(settings.seconds) + " seconds" +
                (settings.seconds == 0 ? "  (one round)" : ""));
  print_row(5, "Stop on Error:", settings.stop_on_error ? "Yes" : "No");
  print_row(6, "Enable All Tests / Disable All Tests", "");
  print_tests(settings);
  console::newline();
  print_file_rows();
  console::println("\n  0   Start Stress Test!\n", 'T');
}

void change(StressSettings& settings, u64 choice) {
  switch (choice) {
    case 1:
      return choose_cores(settings);
    case 2:
      settings.allocate_locally = !settings.allocate_locally;
      return;
    case 3:
      return choose_memory(settings);
    case 4:
      settings.seconds = console::read_bounded("\nSeconds per test (1 to 1,000,000): ", 1,
                                               StressSettings::kMaxSeconds, 'G', orl::NumberForm::kInteger);
      return;
    case 5:
      settings.stop_on_error = !settings.stop_on_error;
      return;
    case 6:
      return toggle_all(settings);
    case kLoadRow:
      return choose_file_to_load([&](const std::string& path) { load_stress(path, settings); });
    case kSaveRow:
      return choose_file_to_save([&](const std::string& path) { save_stress(path, settings); });
  }
  if (choice - kFirstTestRow < settings.tests.size()) {
    bool& enabled = settings.tests[choice - kFirstTestRow]->enabled;
    enabled = !enabled;
  }
}

}  // namespace

int stress_menu() {
  StressSettings settings;
  for (;;) {
    print_menu(settings);
    const u64 choice = console::read_bounded("Enter # to change option:\noption: ", 0, kSaveRow, 'G');
    if (choice != 0) {
      try_step([&] { change(settings, choice); });
      continue;
    }
    const std::string refusal = settings.refusal();
    if (refusal.empty()) return run_stress_test(settings);
    console::println("\n" + orl::wrapped(refusal), 'R');
  }
}

}  // namespace orvane
