#include "app/log_formula_tool.h"

#include <algorithm>
#include <string>

#include "console/console.h"
#include "console/menu_input.h"
#include "core/exceptions.h"
#include "core/format.h"
#include "core/number_forms.h"
#include "machin/generator.h"
#include "splitting/size_model.h"

namespace orvane {
namespace {

namespace console = orl::console;
using orl::parse_whole_number;
using orl::WholeNumber;

// Why there is no formula; empty where there is one.
std::string refusal(const WholeNumber& n) {
  if (n.kind == WholeNumber::kTooLarge || n.value > orl::kMaxLogArgument) return "\nInvalid Range";
  if (n.value == 0) return "Error: Log(0)";
  if (n.value == 1) return "Argument must be greater than 1.";
  return {};
}

std::string refusal_of_digits(u64 decimal_digits) {
  return decimal_digits < kMinDecimalDigits || decimal_digits > kMaxDecimalDigits ? "\nInvalid Range" : "";
}

// True when there is nothing to refuse.
bool is_accepted(const std::string& refusal_text) {
  if (!refusal_text.empty()) console::println(refusal_text, 'R');
  return refusal_text.empty();
}

void print_formula(const char* heading, const orl::MachinFormula& formula) {
  console::println(heading, 'w');
  u64 width = 0;
  for (const orl::MachinTerm& term : formula)
    width = std::max<u64>(width, std::to_string(term.coefficient).size());
  for (const orl::MachinTerm& term : formula) {
    const std::string blanks(4 + width - std::to_string(term.coefficient).size(), ' ');
    console::println(blanks + to_string(term), 'G');
  }
}

int print_formulas(u64 n, u64 decimal_digits) {
  const Precision precision{decimal_digits + kGuardDigits};
  const double nats = orl::words_to_nats<Word>(precision.words()).to_double();
  console::newline();
  const orl::LogFormulas formulas = orl::generate_log_formulas(n, nats);
  print_formula("\nPrimary Formula:\n", formulas.primary);
  print_formula("\nSecondary Formula:\n", formulas.secondary);
  return 0;
}

WholeNumber ask_argument() {
  for (;;) {
    const WholeNumber n = parse_whole_number(console::read_line("n = "));
    if (n.kind != WholeNumber::kNone) return n;
    console::println("Please enter a whole number.", 'R');
  }
}

}  // namespace

int log_formula_menu() {
  console::println("\nLog(n)", 'Y');
  const WholeNumber n = ask_argument();
  if (!is_accepted(refusal(n))) return 1;
  console::println("\nDecimal Digits", 'Y');
  const u64 decimal_digits = orl::ask_decimal_count("dec = ", LogFormulaLine().decimal_digits);
  if (!is_accepted(refusal_of_digits(decimal_digits))) return 1;
  return print_formulas(n.value, decimal_digits);
}

int run_log_formula(const LogFormulaLine& line) {
  const WholeNumber n = parse_whole_number(line.argument);
  if (n.kind == WholeNumber::kNone)
    throw orl::InvalidParametersException(
        "logformula", "A formula needs a whole number as its argument, such as logformula 97.");
  if (!is_accepted(refusal(n)) || !is_accepted(refusal_of_digits(line.decimal_digits))) return 1;
  console::println("\nLog(n)", 'Y');
  console::label_value("n = ", std::to_string(n.value));
  console::newline();
  console::println("\nDecimal Digits", 'Y');
  console::label_value("dec = ", orl::format_with_commas(line.decimal_digits));
  console::newline();
  return print_formulas(n.value, line.decimal_digits);
}

}  // namespace orvane
