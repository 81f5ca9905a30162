#include "app/help_sections.h"

#include <algorithm>

#include "memory/allocators.h"
#include "session/constant.h"
#include "system/machine_fault.h"
#include "threads/frameworks.h"

namespace orvane {
namespace {

constexpr const char* kUsage =
    "    orvane [GLOBAL OPTION...] [ACTION [ITS OPTIONS]]\n"
    "    orvane                 the main menu: everything can be done from there\n"
    "    orvane ACTION          the action's own menu, where it has one\n"
    "    orvane ACTION --help   what one action does, and its options\n"
    "    orvane --help | --version\n"
    "\n"
    "The status is 0 on success and 1 on any failure.";

constexpr const char* kFirstSteps =
    "A benchmark: Pi to 25 million digits on all cores, the time it took, and a validation file.\n"
    "\n"
    "    orvane bench 25m\n"
    "\n"
    "A constant of your choice, its digits as a text file in a folder:\n"
    "\n"
    "    orvane custom pi -dec:1m -o digits\n"
    "\n"
    "What a file describes; the menu of `orvane custom` saves its settings as one:\n"
    "\n"
    "    orvane config e-1m.cfg\n"
    "\n"
    "A look at the digits; without options the viewer asks for the file, then for what to do with it:\n"
    "\n"
    "    orvane digitviewer \"digits/Pi - Dec - Chudnovsky.txt\" -view:100\n"
    "\n"
    "Without a terminal nothing waits for ENTER and nothing is coloured. Scripts put `quiet:1 priority:0` in "
    "front: "
    "no words of the start, no real-time scheduling. Menus read their answers from standard input, a line "
    "each.";

constexpr struct {
  const char* action;
  const char* text;
} kManuals[] = {
    {"bench",
     "Computes Pi in memory to one of 34 sizes, proves the digits and leaves a validation file, which "
     "`orvane "
     "validate` checks, in the working folder. No digits are written unless asked for. A size that does not "
     "fit into the memory that is available is refused before anything is allocated.\n"
     "\n"
     "    orvane bench                     the menu: threads, then the sizes\n"
     "    orvane bench 25m                 25,000,000 digits on all cores\n"
     "    orvane bench 1G -TD:1 -PF:none   2^30 digits on one thread\n"
     "    orvane bench 100m -od:1 -o pi    with the digits, as a text file in pi"},
    {"stress",
     "Loads every core with the program's own products and compares each result with a known answer: a "
     "machine that fails here gives wrong digits. One iteration runs every test once for its seconds; then "
     "follows a summary, and the next iteration, until stopped with Ctrl-C. The status is 1 if any test "
     "failed.\n"
     "\n"
     "    orvane stress                    the menu\n"
     "    orvane stress -M:4G -D:60        all tests, 60 seconds each, on 4 GiB\n"
     "    orvane stress BKT C17            two of them"},
    {"benchio",
     "Measures how fast the disks of an array are written and read, alone and beside a computation.\n"
     "\n"
     "    orvane benchio -M:4G -swap:raid0 /disk1 /disk2"},
    {"custom",
     "Computes a constant and writes its digits.\n"
     "\n"
     "    orvane custom                the menu\n"
     "    orvane custom pi -dec:10m    Pi to 10,000,000 digits\n"
     "    orvane custom sqrt:2 -dec:10m -hex:1m -o digits\n"
     "                                 both radices, into the folder digits\n"
     "    orvane custom e -dec:1b '-algorithm:exp(-1)' -C:100m\n"
     "                                 compressed files of 100,000,000 digits\n"
     "\n"
     "Digits go to \"NAME - Dec - ALGORITHM.txt\" (Hex for hexadecimal ones); they are read back and proved. "
     "A finished run also leaves a validation file in the working folder."},
    {"bbp",
     "Computes hexadecimal digits of Pi at any offset without those in front.\n"
     "\n"
     "    orvane bbp                         the menu\n"
     "    orvane bbp -offset:1m -digits:64   64 digits behind the millionth\n"
     "    orvane quiet:1 bbp -offset:1m -json:1\n"
     "                                       for a script"},
    {"digitviewer",
     "Opens a digit file, text (.txt) or compressed (.ovd), of any size: shows ranges, counts digits, "
     "extracts, "
     "compresses and proves. Options name the steps, which are done in the order of the menu; a FILE alone "
     "opens "
     "its menu. An option that none of the steps reads is refused, and nothing that exists is written over. "
     "The "
     "status is 1 when a step fails.\n"
     "\n"
     "    orvane digitviewer               the menu\n"
     "    orvane digitviewer pi.txt -view:100\n"
     "                                     the first 100 digits\n"
     "    orvane digitviewer pi.txt -start:1,001 -end:2,000 -stats\n"
     "                                     counts and hash of a range\n"
     "    orvane digitviewer pi.txt -start:1,001 -end:2,000 -extract part.txt\n"
     "                                     its digits as a text file\n"
     "    orvane digitviewer pi.txt -C:100m -o digits\n"
     "                                     compressed files of 100,000,000 digits\n"
     "    orvane digitviewer pi.txt -C:100m -startid:2 -endid:3 -o digits\n"
     "                                     two of them\n"
     "    orvane digitviewer pi.txt -check \"Validation - Pi.txt\"\n"
     "                                     all digits against a report\n"
     "    orvane digitviewer pi-hex.txt -prove\n"
     "                                     the end of Pi by another formula\n"
     "\n"
     "The menu reads its answers from standard input too:\n"
     "\n"
     "    printf '%s\\n' pi.txt 0 1 100 '' '' | orvane digitviewer"},
    {"logformula",
     "Finds two sums of hyperbolic arc-cotangents that equal the natural logarithm of a whole number from 2 "
     "to "
     "2147483647: a primary one to compute it by, and a secondary one, which has no term in common, to "
     "verify it. Both "
     "are proved in integers. Which formulas are the cheapest depends on the digits wanted.\n"
     "\n"
     "    orvane logformula                asks for the number and the digits\n"
     "    orvane logformula 97             for a million digits\n"
     "    orvane logformula 97 -dec:1b     for a billion"},
    {"about", "Prints what this program is."},
    {"validate",
     "Says whether a validation file is as the program wrote it; without a FILE it asks for one.\n"
     "\n"
     "    orvane validate\n"
     "    orvane validate \"Validation - e - exp(1) - 1000 - 20261121-160502.txt\"\n"
     "    orvane quiet:1 validate report.txt -json:1\n"
     "                                     for a script"},
    {"config",
     "Runs what a file describes. `orvane custom` saves such a file from its menu. A minimal one, e-1m.cfg:\n"
     "\n"
     "    {\n"
     "        Action : \"CustomCompute\"\n"
     "        CustomCompute : {\n"
     "            Mode : \"ram\"\n"
     "            Constant : { Constant : \"e\" }\n"
     "            ComputeSize : { DecimalDigits : 1000000 HexadecimalDigits : 0 }\n"
     "        }\n"
     "    }\n"
     "\n"
     "    orvane config e-1m\n"
     "\n"
     "Values need no commas between them; // begins a comment. Whatever is left out keeps its default. A "
     "fault "
     "is reported with its line."},
};

std::string join(const std::vector<std::string>& words, const char* between) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : between) + word;
  return text;
}

std::string manual_of(const Action& action) {
  for (const auto& row : kManuals)
    if (std::string_view(row.action) == action.key) return row.text;
  return {};
}

HelpSection option_section(const std::string& title, const std::vector<OptionText>& options) {
  HelpSection section{title, {}, {}};
  for (const OptionText& option : options) {
    std::string help = option.help;
    if (option.values == Values::kAllocator || option.values == Values::kFramework)
      help += " One of: " + join(value_words(option.values), ", ") + ".";
    section.entries.push_back({option.form, help, option.example});
  }
  return section;
}

HelpSection sizes() {
  std::string text = "In powers of ten:";
  for (const BenchSize& size : bench_sizes().first(kDecimalSizes)) text += std::string(" ") + size.token;
  text += ".\n\nIn powers of two:";
  for (const BenchSize& size : bench_sizes().subspan(kDecimalSizes)) text += std::string(" ") + size.token;
  return {"Sizes of bench", text + ".", {}};
}

// "zeta3, zeta(3)": the words of a constant, with what stands behind its colon.
std::string words_of(u64 index, const Constant& constant) {
  const bool file = index == static_cast<u64>(ConstantIndex::kCustom);
  const std::string argument = constant.takes_argument() ? (file ? ":FILE" : ":N") : "";
  std::string text;
  for (const ConstantWord& row : constant_words())
    if (row.index == index) text += (text.empty() ? "" : ", ") + (row.word + argument);
  return text;
}

HelpSection constants() {
  HelpSection section{
      "Constants and their algorithms (the first is the default where none is marked)", {}, {}};
  for (u64 i = 0; i < kConstantCount; i++) {
    const auto constant = make_constant(i);
    std::string text = catalogue()[i].menu.name;
    const char* separator = ": ";
    const AlgorithmMenu& menu = catalogue()[i].algorithm_menu;
    for (const AlgorithmRow& row : menu.rows) {
      text += separator + std::string(row.key);
      if (menu.default_row != 0 && &row == &menu.rows[menu.default_row]) text += " (default)";
      separator = ", ";
    }
    if (menu.remark) text += std::string("; ") + menu.remark;
    if (!constant->unavailable().empty()) text += " (not in this version yet)";
    section.entries.push_back({words_of(i, *constant), text, {}});
  }
  return section;
}

HelpSection exit_statuses() {
  return {"Exit status",
          {},
          {{"0", "All that was asked for was done: computed, proved and written. A menu was left.", {}},
           {"1",
            "Anything else: a refusal, an error, a check that failed, the end of the input before a question "
            "was "
            "answered, or words that the standard output did not take.",
            {}},
           {"128 + N", "Signal N ended the program, such as 130 after Ctrl-C and 143 after a kill.", {}}}};
}

std::vector<HelpEntry> files() {
  return {{"NAME - Dec - ALGORITHM.txt",
           "Decimal digits; Hex for hexadecimal ones, .ovd for compressed files.",
           {}},
          {"Validation File", "Report of a finished run, in the working folder; closed by a hash.", {}},
          {orl::kEventLogFile,
           "Results that a check found wrong, in the working folder: the machine, the work and the details.",
           {}},
          {"Digits/", "First digits of every constant, with which each run is compared.", {}},
          {"Username.txt",
           "A line \"Username: NAME\" names the user in validation files. Beside the program; for an "
           "installed one in ~/.config/orvane/ or /etc/orvane/.",
           {}},
          {"environment.cfg",
           "The cores and nodes it found, and the cores that threads are pinned to. In the same places.",
           {}}};
}

// Sections of an action beyond its description.
void add_options(const Action& action, std::vector<HelpSection>& sections) {
  if (!action.options) return;
  sections.push_back(option_section(std::string("Options of ") + action.key, action.options()));
  if (action.key == std::string_view("bench")) sections.push_back(sizes());
  if (action.key == std::string_view("custom")) sections.push_back(constants());
}

}  // namespace

std::vector<std::string> value_words(Values values, std::string_view constant) {
  std::vector<std::string> words;
  switch (values) {
    case Values::kAny:
    case Values::kFolder:
    case Values::kFile:
      break;
    case Values::kAlgorithm:
      for (u64 i = 0; i < kConstantCount; i++) {
        const auto candidate = make_constant(i);
        if (!constant.empty() && constant != candidate->key()) continue;
        for (const AlgorithmRow& row : candidate->algorithms())
          if (std::find(words.begin(), words.end(), row.key) == words.end()) words.push_back(row.key);
      }
      break;
    case Values::kAllocator:
      for (const auto& type : orl::allocators()) words.push_back(type.key);
      break;
    case Values::kFramework:
      for (const auto& type : orl::frameworks()) words.push_back(type.key);
      break;
    case Values::kMode:
      return {"ram", "swap"};
    case Values::kBbpFormula:
      return {"plouffe", "bellard"};
    case Values::kRaidType:
      return {"raid0", "raid3"};
  }
  return words;
}

HelpSection number_forms() {
  return {
      "Numbers",
      {},
      {{"DIGITS, DIGIT", "A whole number; K, M, B or T behind it for 10^3, 10^6, 10^9 or 10^12.",
        "10m is 10,000,000"},
       {"N",
        "As DIGITS, with an optional minus sign. Where it stands for yes or no: 1, yes, true; 0, no, false.",
        "-1"},
       {"BYTES", "A number, a fraction, then K, M, G, T, P or E for 2^10 to 2^60.", "1.5G is 1,610,612,736"},
       {"SECONDS, ID, tasks", "A whole number.", "64"},
       {"all of them",
        "Commas in groups of three, underscores and an exponent are understood; a number with anything "
        "else behind it is refused.",
        "1,000,000 and 1_000_000 and 1e6"}}};
}

std::vector<HelpSection> common_help() {
  HelpSection list{kActionsTitle, {}, {}};
  for (const Action& action : actions()) list.entries.push_back({action.form, action.help, action.example});
  return {{"Usage", kUsage, {}},
          {"First steps", kFirstSteps, {}},
          option_section("Global options (before the action)", option_texts(global_options())),
          std::move(list),
          number_forms(),
          exit_statuses(),
          {"Files", {}, files()}};
}

std::vector<HelpSection> whole_help() {
  std::vector<HelpSection> sections;
  for (HelpSection& part : common_help()) {
    sections.push_back(std::move(part));
    if (sections.back().title != kActionsTitle) continue;
    for (const Action& action : actions()) add_options(action, sections);
    sections.push_back({"A configuration file", manual_of(*find_action("config")), {}});
  }
  return sections;
}

std::vector<HelpSection> action_help(const Action& action) {
  std::vector<HelpSection> sections{
      {"Usage",
       "    orvane [GLOBAL OPTION...] " + std::string(action.form) + "\n\n" + manual_of(action),
       {}}};
  add_options(action, sections);
  return sections;
}

}  // namespace orvane
