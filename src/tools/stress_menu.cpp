// The stress tester's menu.
#include <algorithm>
#include <string>

#include "frame/console.h"
#include "frame/number_forms.h"
#include "system/machine.h"
#include "system/topology.h"
#include "tools/stress_tester.h"

namespace orvane {
namespace {

namespace console = orl::console;

constexpr u64 kFirstTestRow = 7;
constexpr unsigned kGaugeLength = 12;  // of "CPU------Mem"

void print_row(u64 number, const std::string& label, const std::string& value) {
  const std::string text = std::to_string(number);
  console::print_padded(32, "  " + text + std::string(4 - std::min<u64>(text.size(), 3), ' ') + label, 'T');
  console::println(value, 'G');
}

// " 1.18 MiB" of "1,234,567 ( 1.18 MiB)".
std::string short_bytes(u64 bytes) {
  const std::string text = console::format_bytes(bytes);
  const std::size_t open = text.find('(');
  return text.substr(open + 1, text.size() - open - 2);
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

void choose_cores(StressSettings& settings) {
  const std::vector<u32>& all = orl::topology().cores;
  const u64 back = all.back() + u64{1};
  for (;;) {
    console::println("\nLogical Cores:\n", 'Y');
    console::print("Pin threads to the following cores in a round-robin fashion.\r\n", 'w');
    console::newline();
    for (const u32 core : all) {
      const bool selected =
          std::find(settings.cores.begin(), settings.cores.end(), core) != settings.cores.end();
      console::print_padded(16, "  Core " + std::to_string(core), 'T');
      console::println(selected ? "Enabled" : "Disabled", selected ? 'G' : 'r');
    }
    console::print_padded(7, "\n  " + std::to_string(back), 'T');
    console::println("Return", 'T');
    console::println("\nEnter Core # to toggle it.", 'w');
    const u64 choice = console::read_bounded("Core: ", 0, back, 'G');
    if (choice == back) return;
    if (std::find(all.begin(), all.end(), choice) != all.end()) {
      toggle(settings.cores, static_cast<u32>(choice));
      std::sort(settings.cores.begin(), settings.cores.end());
    }
  }
}

void choose_memory(StressSettings& settings) {
  console::println("\nMemory to test, in bytes. The suffixes K, M, G and T are powers of 1024.", 'w');
  console::label_value("Available Memory:  ", console::format_bytes(orl::available_memory_bytes()), 'G');
  console::newline();
  u64 bytes = 0;
  while (bytes == 0) bytes = orl::parse_byte_size(console::read_line("Memory: "));
  settings.total_memory = bytes;
}

void toggle_all(StressSettings& settings) {
  settings.enable_all(settings.enabled_count() < settings.tests.size());
}

void print_menu(const StressSettings& settings) {
  console::println("\nComponent Stress Tester\n", 'Y');
  print_row(1, "Logical Cores:", core_list(settings));
  print_row(2, "Memory Allocation:", policy_text(settings.allocate_locally));
  print_row(3, "Memory to Test:", console::format_bytes(settings.total_memory));
  print_row(4, "Time per Test:", console::format_with_commas(settings.seconds) + " seconds");
  print_row(5, "Stop on Error:", settings.stop_on_error ? "Yes" : "No");
  print_row(6, "Enable All Tests / Disable All Tests", "");
  print_tests(settings);
  console::println("\n  0   Start Stress Test!\n", 'T');
}

}  // namespace

int run_stress_menu() {
  StressSettings settings;
  for (;;) {
    print_menu(settings);
    const u64 choice = console::read_bounded("Enter # to change option:\noption: ", 0,
                                             kFirstTestRow + settings.tests.size() - 1, 'G');
    if (choice == 1) choose_cores(settings);
    if (choice == 2) settings.allocate_locally = !settings.allocate_locally;
    if (choice == 3) choose_memory(settings);
    if (choice == 4)
      settings.seconds = console::read_bounded("\nSeconds per test: ", 1, StressSettings::kMaxSeconds, 'G');
    if (choice == 5) settings.stop_on_error = !settings.stop_on_error;
    if (choice == 6) toggle_all(settings);
    if (choice >= kFirstTestRow) {
      bool& enabled = settings.tests[choice - kFirstTestRow]->enabled;
      enabled = !enabled;
    }
    if (choice != 0) continue;
    const std::string refusal = settings.refusal();
    if (refusal.empty()) return run_stress_test(settings);
    console::println("\n" + refusal, 'R');
  }
}

}  // namespace orvane
