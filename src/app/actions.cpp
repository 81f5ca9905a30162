#include "app/actions.h"

#include <algorithm>
#include <memory>
#include <string>

#include "app/action_file.h"
#include "app/bbp_extractor.h"
#include "app/bench.h"
#include "app/benchio_menu.h"
#include "app/custom_menu.h"
#include "app/log_formula_tool.h"
#include "app/options.h"
#include "app/stress_menu.h"
#include "app/swap_multiply_menu.h"
#include "console/console.h"
#include "core/exceptions.h"
#include "core/settings.h"
#include "menus/report_page.h"
#include "session/digit_check.h"
#include "session/validation_file.h"
#include "stress/stress_tester.h"
#include "system/machine.h"
#include "viewer/digit_viewer.h"

namespace orvane {
namespace {

namespace console = orl::console;
using orl::InvalidParametersException;
using Line = orl::CommandLine::Parameters;

int invalid_parameter(const std::string& key) {
  console::println("Invalid Parameter: " + key, 'R');
  return 1;
}

// Runs the rest of the line through a table, and what the table does not have through `take_other`, which says
// whether it knew it. False after an unknown key, which has been reported.
template <class Target, class TakeOther>
bool parse_options(std::span<const Option<Target>> table, Target& target, Line& line, TakeOther take_other) {
  GivenOptions given;
  while (!line.at_end()) {
    if (take_option(table, target, line, given) || take_other()) continue;
    invalid_parameter(line.key());
    return false;
  }
  return true;
}
template <class Target>
bool parse_options(std::span<const Option<Target>> table, Target& target, Line& line) {
  return parse_options(table, target, line, [] { return false; });
}

// True at the end of the line; what else stands there has been reported.
bool is_at_end(const Line& line) {
  if (!line.at_end()) invalid_parameter(line.key());
  return line.at_end();
}

int run_custom(Line& line) {
  line.take();
  if (line.at_end()) return custom_menu();
  ModeHolder mode;
  auto constant = make_constant(constant_index(line.key()));
  if (constant->takes_argument() || !line.value().empty()) constant->set_argument(line.value());
  line.take();
  mode.current().set_constant(std::move(constant));
  if (!parse_options(custom_options(), mode, line)) orl::fatal_exit(1);
  mode.current().settle_digits_per_file();
  return run_computation(mode.current());
}

int run_bench(Line& line) {
  line.take();
  if (line.at_end()) return bench_menu();
  BenchSettings settings;
  const auto take_size = [&] {
    const auto sizes = bench_sizes();
    const auto size = std::find_if(sizes.begin(), sizes.end(),
                                   [&](const BenchSize& row) { return line.key() == row.token; });
    if (size == sizes.end()) return false;
    if (settings.decimal_digits != 0 && settings.decimal_digits != size->decimal_digits)
      throw InvalidParametersException(
          "bench", "Only one size is taken at a time, and \"" + line.key() + "\" is a second one.");
    settings.decimal_digits = size->decimal_digits;
    line.take();
    return true;
  };
  if (!parse_options(bench_options(), settings, line, take_size)) return 1;
  if (settings.decimal_digits == 0) throw InvalidParametersException("bench", "No benchmark size selected.");
  return run_benchmark(settings);
}

int run_stress(Line& line) {
  line.take();
  if (line.at_end()) return stress_menu();
  StressLine stress;
  if (!parse_options(stress_options(), stress, line)) return 1;
  if (stress.tests.empty())
    stress.settings.enable_all(true);
  else
    stress.settings.enable_only(stress.tests);
  const std::string refusal = stress.settings.refusal();
  if (!refusal.empty()) throw InvalidParametersException("stress", refusal);
  return run_stress_test(stress.settings);
}

int run_benchio(Line& line) {
  line.take();
  if (line.at_end()) return benchio_menu();
  BenchIoSettings settings;
  if (!parse_options(benchio_options(), settings, line)) return 1;
  if (const std::string refusal = settings.refusal(); !refusal.empty())
    throw InvalidParametersException("benchio", refusal);
  return run_io_benchmark(settings);
}

int run_log_formula(Line& line) {
  line.take();
  if (line.at_end()) return log_formula_menu();
  LogFormulaLine formula;
  formula.argument = line.take();
  if (!parse_options(log_formula_options(), formula, line)) return 1;
  return run_log_formula(formula);
}

int run_bbp(Line& line) {
  line.take();
  if (line.at_end()) {
    Menu_BbpExtractor();
    return 0;
  }
  BbpLine bbp{default_bbp_task()};
  if (!parse_options(bbp_options(), bbp, line)) return 1;
  if (bbp.json)
    print_bbp_object(bbp.task);
  else
    run_bbp_task(bbp.task);
  return 0;
}

// The file that options follow. One of them in its place is not taken for a name.
template <class Target>
std::string take_file(std::span<const Option<Target>> table, Line& line) {
  if (find_option(table, line.key()))
    throw InvalidParametersException(line.key(), "The file comes first, then what to do with it.");
  return line.take();
}

int run_digit_viewer(Line& line) {
  line.take();
  if (line.at_end()) return Menu_DigitViewer();
  const std::string path = take_file(viewer_options(), line);
  ViewerTask task;
  return parse_options(viewer_options(), task, line) ? run_viewer_task(path, task) : 1;
}

int run_validate(Line& line) {
  line.take();
  if (line.at_end()) return run_validator();
  const std::string path = take_file(validate_options(), line);
  ValidateLine validate;
  if (!parse_options(validate_options(), validate, line)) return 1;
  return validate.json ? print_validation_object(path) : validate_file(path);
}

int run_check_digits(Line& line) {
  line.take();
  if (line.at_end()) throw InvalidParametersException("checkdigits", "Please specify a file of digits.");
  const auto reader = orl::open_digits(line.take());
  if (line.at_end()) return run_pi_proof(*reader);
  const std::string report = line.take();
  if (!line.at_end()) return invalid_parameter(line.key());
  return run_digit_check(*reader, report);
}

int run_about(Line& line) {
  line.take();
  if (!is_at_end(line)) return 1;
  print_banner();
  console::println(
      "\nComputes Pi, e, square roots, the golden ratio and other constants to as many\n"
      "digits as the memory holds. Every large operation is proved with a hash modulo\n"
      "2^61 - 1, so a finished run is also a test of the machine that made it.\n\n"
      "MIT licence. Options: orvane --help",
      'w');
  return 0;
}

constexpr Action kActions[] = {
    {"bench", "bench SIZE [OPTION...]", "Pi benchmark in memory.", "orvane bench 25m -TD:4", run_bench,
     [] { return option_texts(bench_options()); }},
    {"stress", "stress [OPTION...]", "Component stress tester.", "orvane stress -M:4G -D:60 BKT C17",
     run_stress, [] { return option_texts(stress_options()); }},
    {"benchio", "benchio [OPTION...]", "I/O benchmark of a disk array.",
     "orvane benchio -M:4G -swap:raid0 /disk1 /disk2", run_benchio,
     [] { return option_texts(benchio_options()); }},
    {"custom", "custom CONSTANT[:ARGUMENT] [OPTION...]", "Computes a constant.",
     "orvane custom sqrt:2 -dec:10m -hex:1m -o digits", run_custom,
     [] { return option_texts(custom_options()); }},
    {"bbp", "bbp [OPTION...]", "Hexadecimal digits of Pi at any offset.", "orvane bbp -offset:1m -digits:32",
     run_bbp, [] { return option_texts(bbp_options()); }},
    {"digitviewer", "digitviewer [FILE [OPTION...]]",
     "Looks into digit files of any size: ranges, statistics, extraction, compression, proofs.",
     "orvane digitviewer pi.txt -start:1m -view:100", run_digit_viewer,
     [] { return option_texts(viewer_options()); }},
    {"logformula", "logformula N [OPTION...]",
     "Two Machin-like formulas for Log(N): the sums of series that compute and verify it.",
     "orvane logformula 97 -dec:1b", run_log_formula, [] { return option_texts(log_formula_options()); }},
    {"about", "about", "About this program.", "orvane about", run_about},
    {"validate", "validate [FILE [OPTION...]]",
     "Checks a validation file, and asks for its path where it is not named; status 0 if it is as the "
     "program wrote it.",
     "orvane validate report.txt", run_validate, [] { return option_texts(validate_options()); }},
    {"checkdigits", "checkdigits FILE [REPORT]",
     "Checks all digits of a file or a set against the validation file of its run; without one, the last "
     "hexadecimal digits of Pi by another formula.",
     "orvane checkdigits digits/pi.txt report.txt", run_check_digits},
    {"config", "config FILE", "Runs a configuration file; .cfg is added to a name without a point.",
     "orvane config pi-1b.cfg", run_config},
};

bool is_help(const std::string& key) { return key == "--help" || key == "-h" || key == "help"; }
bool is_version(const std::string& key) { return key == "--version" || key == "version"; }

// "ACTION --help", or --help at the end of an action's line.
bool asks_for_help_behind(const Line& line) {
  if (!find_action(line.key()) || line.cursor + 1 >= line.tokens.size()) return false;
  const std::string& next = line.tokens[line.cursor + 1];
  return next == "--help" || next == "-h" || line.tokens.back() == "--help";
}

// "--help" alone, or with an action behind it.
int help(Line& line) {
  line.take();
  if (line.at_end()) {
    print_help();
    return 0;
  }
  const Action* action = find_action(line.key());
  if (!action) return invalid_parameter(line.key());
  line.take();
  if (!is_at_end(line)) return 1;
  print_help(*action);
  return 0;
}

struct MenuEntry {
  const char* name;
  char colour;
  int (*run)();
};

int advanced_menu() {
  static constexpr MenuEntry entries[] = {
      {"Benchmark Validator", 'T', run_validator},
      {"Log(n) Formula Generator", 'T', log_formula_menu},
      {"Hardware Features", 'T',
       [] {
         orl::print_report_page("Hardware Features", orl::hardware_sections());
         return 0;
       }},
      {"Compilation Options", 'T',
       [] {
         orl::print_report_page("Compilation Options", orl::compilation_sections());
         return 0;
       }},
      {"Test Swap Multiply", 'Y', swap_multiply_menu},
  };
  console::println("\nAdvanced Options\n", 'w');
  for (std::size_t i = 0; i < std::size(entries); i++)
    console::println("  " + std::to_string(i) + "         " + entries[i].name, entries[i].colour);
  console::println("\nEnter your choice:", 'w');
  return entries[console::read_bounded("option: ", 0, std::size(entries) - 1, 'G')].run();
}

int main_menu() {
  print_banner();
  static constexpr struct {
    const char* text;
    char colour;
    const char* note = "";
  } rows[] = {
      {"  0         Benchmark Pi  (all in ram)", 'T'},
      {"  1         Component Stress Tester", 'T'},
      {"  2         Run I/O Performance Analysis", 'T'},
      {"  3         Custom Compute a Constant", 'Y'},
      {"                -   Compute other constants (e, Golden Ratio, etc...)", 'Y'},
      {"                -   Choose your own settings (use disk for large computations)", 'Y',
       "\n                    (computing on disk is not in this version yet)"},
      {"  4         BBP Digit Extractor for Pi", 'G'},
      {"  5         Digit Viewer", 'G'},
      {"  6         Advanced Options", 'G'},
      {"  7         About", 'G'},
  };
  console::newline();
  for (const auto& row : rows) console::println(std::string(row.text) + row.note, row.colour);
  console::println("\nEnter your choice:", 'w');
  const u64 choice = console::read_bounded("option: ", 0, 7, 'G');
  console::newline();
  if (choice == 6) return advanced_menu();
  static constexpr const char* keys[] = {"bench", "stress",      "benchio", "custom",
                                         "bbp",   "digitviewer", "",        "about"};
  const char* arguments[] = {"orvane", keys[choice]};
  Line line(2, arguments);
  return dispatch(line);
}

}  // namespace

std::span<const Action> actions() { return kActions; }

const Action* find_action(std::string_view key) {
  for (const Action& action : kActions)
    if (key == action.key) return &action;
  return nullptr;
}

bool asks_for_words(const Line& line) {
  if (line.at_end()) return false;
  return is_help(line.key()) || is_version(line.key()) || asks_for_help_behind(line);
}

int dispatch(Line& line) {
  if (line.at_end()) return main_menu();
  const std::string key = line.key();
  const Action* action = find_action(key);
  if (action && asks_for_help_behind(line)) {
    print_help(*action);
    return 0;
  }
  if (action) {
    refuse_value(line);
    return action->run(line);
  }
  if (is_help(key)) return help(line);
  if (is_version(key)) {
    line.take();
    if (!is_at_end(line)) return 1;
    print_version();
    return 0;
  }
  return invalid_parameter(key);
}

}  // namespace orvane
