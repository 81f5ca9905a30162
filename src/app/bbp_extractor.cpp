#include "app/bbp_extractor.h"

#include <algorithm>
#include <cmath>

#include "bbp/bbp_digits.h"
#include "console/console.h"
#include "console/console_status.h"
#include "console/menu_row.h"
#include "core/format.h"
#include "core/run_timer.h"
#include "core/settings.h"
#include "core/status.h"
#include "session/run_results.h"
#include "system/environment.h"
#include "system/limits.h"
#include "threads/frameworks.h"

namespace orvane {
namespace {

namespace console = orl::console;
using orl::format_with_commas;

constexpr orl::u32 kStatusWidth = 79;
constexpr double kStatusRefresh = 0.1;

constexpr const char* kFormulaNames[] = {"Plouffe's 4-term BBP", "Bellard's 7-term BBP  (~43% faster)"};
constexpr const char* kFormulas[][3] = {
    {"         inf   1  (  4      2      1      1   )", "    Pi = SUM ---- ( ---- - ---- - ---- - ---- )",
     "         k=0 16^k ( 8k+1   8k+4   8k+5   8k+6 )"},
    {"         inf (-1)^k (   2^-1   2^-6    2^2      1     2^-4    2^-4    2^-6  )",
     "    Pi = SUM ------ ( - ---- - ---- + ----- - ----- - ----- - ----- + ----- )",
     "         k=0 1024^k (   4k+1   4k+3   10k+1   10k+3   10k+5   10k+7   10k+9 )"},
};

std::string formula_name(BbpFormula formula) { return kFormulaNames[static_cast<int>(formula)]; }

void print_line(std::string_view label, std::string_view value, char colour = 'G') {
  console::label_value(label, value, colour);
  console::newline();
}

void choose_formula(BbpTask& task) {
  console::println("\nSelect the formula:\n", 'w');
  for (std::size_t i = 0; i < std::size(kFormulas); i++) {
    console::println("  " + std::to_string(i) + "     " + kFormulaNames[i] + "\n", 'T');
    for (const char* line : kFormulas[i]) console::println(line, 'w');
    console::newline();
  }
  console::println("Enter your choice:", 'w');
  task.formula = static_cast<BbpFormula>(console::read_bounded("option: ", 0, std::size(kFormulas) - 1));
}

void choose_offset(BbpTask& task) {
  console::println("\nSelect the hexadecimal offset:", 'w');
  for (;;) {
    const u64 offset = console::read_bounded("offset: ", 0, ~u64{0});
    if (offset <= kMaxBbpOffset) {
      task.offset = offset;
      return;
    }
    console::println("The largest offset is " + format_with_commas(kMaxBbpOffset) +
                         ": beyond it, rounding could\nreach the digits that are asked for. Please enter a "
                         "smaller one.",
                     'Y');
  }
}

void choose_digits(BbpTask& task) {
  console::println("\nSelect the # of digits to compute after the offset:", 'w');
  task.digits = console::read_bounded("digits (8 to 1,048,576): ", kMinBbpDigits, kMaxBbpDigits);
}

void choose_threads(BbpTask& task) {
  console::println("\nSelect the # of threads to use:", 'w');
  task.threads = console::read_bounded("threads (1 to 65,536): ", 1, orl::kMaxThreads);
}

// Until the user starts the computation.
BbpTask ask_settings() {
  BbpTask task = default_bbp_task();
  for (;;) {
    console::println("\nBBP Digit Extractor for Pi\n", 'Y');
    orl::print_menu_row("  1     Formula:", formula_name(task.formula));
    orl::print_menu_row("  2     Hexadecimal Offset:", format_with_commas(task.offset));
    orl::print_menu_row("  3     Digits to Compute :", format_with_commas(task.digits));
    orl::print_menu_row("        Internal Precision:", format_with_commas(task.precision_digits()));
    orl::print_menu_row("  4     Multi-Threading:",
                        format_with_commas(task.threads) + (task.threads == 1 ? " thread" : " threads"));
    orl::print_menu_row("  5     Pin Threads to Cores:", task.pin_order.empty() ? "Disabled" : "Enabled");
    console::println("\n  0     Start Computation!\n", 'T');
    switch (console::read_bounded("Enter # to change option:\n", 0, 5)) {
      case 0:
        return task;
      case 1:
        choose_formula(task);
        break;
      case 2:
        choose_offset(task);
        break;
      case 3:
        choose_digits(task);
        break;
      case 4:
        choose_threads(task);
        break;
      default:
        task.pin_order = task.pin_order.empty() ? orl::static_pin_order() : std::vector<orl::u32>();
    }
  }
}

void print_task(const BbpTask& task) {
  constexpr u64 kLabelWidth = 21;  // with the line feed in front
  const auto row = [](const char* label, const std::string& value) {
    console::print_padded(kLabelWidth, label, 'w');
    console::print(value, 'G');
  };
  row("\nHexadecimal Offset: ", format_with_commas(task.offset));
  row("\nDigits to Compute: ", format_with_commas(task.digits));
  row("\nThreads: ", format_with_commas(task.threads));
  if (!task.pin_order.empty()) console::print("  (pinned to cores)", 'w');
  row("\nTerms Needed: ", format_with_commas(task.terms_needed()));
  row("\nInternal Precision: ", format_with_commas(task.precision_digits()) + " Hexadecimal Digits");
  console::println("\n\n" + formula_name(task.formula) + "\n", 'Y');
  for (const orl::BbpTerm& term : bbp_terms(task.formula, task.offset))
    console::println((term.positive ? "  + " : "  - ") + to_string(term), 'w');
}

// Groups of eight, six to a line, with the place of the line's last digit.
void print_digits(std::string_view digits, u64 place, u64 last_place, char colour) {
  constexpr std::size_t kGroup = 8, kLine = 48;
  const std::size_t place_width = format_with_commas(last_place).size();
  for (std::size_t at = 0; at < digits.size(); at += kLine) {
    const std::string_view part = digits.substr(at, kLine);
    std::string line;
    for (std::size_t group = 0; group < part.size(); group += kGroup)
      line.append(part.substr(group, kGroup)).append(" ");
    console::print_padded(kLine + kLine / kGroup, line, colour);
    console::print(" :  ", 'w');
    console::print_number(place_width, place + at + part.size(), 'w');
    console::newline();
  }
}

void print_result(const BbpTask& task, std::string_view digits) {
  const u64 last_place = task.offset + digits.size();
  console::println("\nHexadecimal Digits starting from: 16^-" + format_with_commas(task.offset) + "\n", 'w');
  print_digits(digits.substr(0, task.digits), task.offset, last_place, 'G');
  print_digits(digits.substr(task.digits), task.offset + task.digits, last_place, 'Y');
  const bool colours = orl::settings().colors_enabled;
  console::print(colours ? "\nGreen " : "\nThe first " + format_with_commas(task.digits), 'G');
  console::println(" = Requested digits that should be correct.", 'w');
  console::print(colours ? "Yellow" : "The others", 'Y');
  console::println(" = Extra working precision. May not be correct.", 'w');
}

}  // namespace

BbpTask default_bbp_task() {
  BbpTask task;
  task.threads = orl::processor_count();
  return task;
}

void Menu_BbpExtractor() {
  console::println("Orvane BBP v2.0.5", 'T');
  run_bbp_task(ask_settings());
}

void run_bbp_task(const BbpTask& task) {
  print_task(task);
  orl::RunTimer timer;
  print_line("\nStart Time:    ", timer.start_date(), 'Y');
  std::string digits;
  {
    orl::LinearConsoleNode status(kStatusWidth, kStatusRefresh);
    digits = bbp_digits(task, status);
  }
  timer.stop();
  print_result(task, digits);
  console::newline();
  print_line("End Time:      ", timer.end_date(), 'Y');
  print_line("Total Time:    ", orl::seconds_text(timer.wall_seconds()));
  console::newline();
  print_line("CPU Utilization:        ", timer.utilization(1), 'Y');
  print_line("Multi-core Efficiency:  ", timer.utilization(orl::processor_count()), 'Y');
}

void print_bbp_object(const BbpTask& task) {
  orl::RunTimer timer;
  const std::string digits = bbp_digits(task, orl::silent_status());
  timer.stop();
  orl::Object object;
  object.add_integer("ResultsVersion", kResultsVersion);
  object.add_string("Formula", task.formula == BbpFormula::kPlouffe ? "plouffe" : "bellard");
  object.add_integer("Offset", static_cast<orl::s64>(task.offset));
  object.add_string("Digits", digits.substr(0, task.digits));
  object.add_integer("Threads", static_cast<orl::s64>(task.threads));
  object.add_bool("Pinned", !task.pin_order.empty());
  object.add_string("StartDate", timer.iso_start_date());
  object.add_string("EndDate", timer.iso_end_date());
  object.add_integer("WallMicroseconds", std::llround(timer.wall_seconds() * 1e6));
  print_results(object);
}

}  // namespace orvane
