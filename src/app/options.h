// Option tables: what the program parses, and the text that --help prints for each row.
//
// One row serves both, so an option cannot be parsed and undocumented, or documented and ignored.
#pragma once

#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "app/command_line.h"
#include "bbp/bbp_digits.h"
#include "benchio/io_benchmark.h"
#include "core/settings.h"
#include "session/parameters.h"
#include "stress/stress_settings.h"
#include "viewer/digit_viewer.h"

namespace orvane {

/// What the value of an option is chosen from, for the completion of a line.
enum class Values {
  kAny,
  kAlgorithm,
  kAllocator,
  kFramework,
  kMode,
  kRaidType,
  kBbpFormula,
  kFolder,  ///< the token behind the option
  kFile,    ///< the token behind the option
};
/// Whether an option may stand on a line again with another value.
enum class Repeats { kNo, kYes };

/// A row of a table. `form` is what the user types, `help` what it does, `example` a token that works.
template <class Target>
struct Option {
  const char* key;
  const char* form;
  const char* help;
  const char* example;
  void (*handler)(Target&, orl::CommandLine::Parameters&);
  Values values = Values::kAny;
  Repeats repeats = Repeats::kNo;
};

/// A row as its readers see it.
struct OptionText {
  const char* key;
  const char* form;
  const char* help;
  const char* example;
  Values values;
};

/// What help, manual and completion show of a table.
template <class Target>
std::vector<OptionText> option_texts(std::span<const Option<Target>> table) {
  std::vector<OptionText> texts;
  for (const auto& row : table) texts.push_back({row.key, row.form, row.help, row.example, row.values});
  return texts;
}

/// Settings of the Pi benchmark. It writes no digits unless asked to.
struct BenchSettings {
  BenchSettings() { parameters.output_digits = false; }

  u64 decimal_digits = 0;  ///< 0: no size given yet
  RamParameters parameters;
};

/// A line of the generator of formulas for Log(n).
struct LogFormulaLine {
  std::string argument;  ///< n as it was typed
  u64 decimal_digits = 1000000;
};

/// A line that checks a validation file.
struct ValidateLine {
  bool json = false;  ///< the outcome for scripts
};

/// A line of the digit extractor.
struct BbpLine {
  BbpTask task;
  bool json = false;  ///< the outcome for scripts
};

/// A line of the component stress tester.
struct StressLine {
  StressSettings settings;
  std::vector<std::string> tests;  ///< those that it names; empty: all
};

/// The tables: the options that every action knows, then those of one action each.
std::span<const Option<orl::Settings>> global_options();
std::span<const Option<ModeHolder>> custom_options();
std::span<const Option<BenchSettings>> bench_options();
std::span<const Option<BenchIoSettings>> benchio_options();
std::span<const Option<StressLine>> stress_options();
std::span<const Option<LogFormulaLine>> log_formula_options();
std::span<const Option<BbpLine>> bbp_options();
std::span<const Option<ViewerTask>> viewer_options();
std::span<const Option<ValidateLine>> validate_options();

/// A benchmark size: its token and decimal digits. kDecimalSizes rows in powers of ten, then those in powers
/// of two.
struct BenchSize {
  const char* token;
  u64 decimal_digits;
};
inline constexpr u64 kDecimalSizes = 16;
/// All sizes, in the order of the menu.
std::span<const BenchSize> bench_sizes();

/// The options that a line has given so far: one may be repeated, not contradicted.
class GivenOptions {
 public:
  /// Notes the tokens of `line` from `first` to the cursor as `option`, any pointer that stands for it. Throws
  /// InvalidParametersException when it stood there before with another value.
  void add(const void* option, const orl::CommandLine::Parameters& line, u64 first);

 private:
  std::map<const void*, std::string> values_;
};

/// Throws InvalidParametersException when the current token brings a value that nobody reads.
void refuse_value(const orl::CommandLine::Parameters& line);

/// The row with this key, or null.
template <class Target>
const Option<Target>* find_option(std::span<const Option<Target>> table, const std::string& key) {
  for (const auto& option : table)
    if (key == option.key) return &option;
  return nullptr;
}

/// Runs the token at the cursor, and what belongs to it, through `table`. False, and nothing done, when the table
/// does not have it.
template <class Target>
bool take_option(std::span<const Option<Target>> table, Target& target, orl::CommandLine::Parameters& line,
                 GivenOptions& given) {
  const auto* option = find_option(table, line.key());
  if (!option) return false;
  const bool has_value = std::string_view(option->form).substr(line.key().size()).starts_with(':');
  if (!has_value) refuse_value(line);
  const u64 first = line.cursor;
  option->handler(target, line);
  // Two names of one option share their handler; options that share one have no values.
  if (option->repeats == Repeats::kNo) given.add(reinterpret_cast<const void*>(option->handler), line, first);
  return true;
}

}  // namespace orvane
