// Random command lines and dialogues beside a model of how numbers are written: none is misread, and what the model
// refuses changes nothing.
//
// ORVANE_TEST_LINES=100000 makes as many lines, and a quarter as many dialogues.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <optional>
#include <regex>
#include <sstream>

#include "app/bbp_extractor.h"
#include "app/benchio_menu.h"
#include "app/custom_menu.h"
#include "app/options.h"
#include "app/stress_menu.h"
#include "core/exceptions.h"
#include "core/format.h"
#include "core/number_forms.h"
#include "core/settings.h"
#include "support/fake_file_calls.h"
#include "support/files.h"
#include "support/random_words.h"
#include "support/sanitized.h"
#include "viewer/digit_viewer.h"

namespace orvane {
namespace {

using orl::format_with_commas;
using orl::NumberForm;
using orl::test::Random;

constexpr u64 kLargest = ~u64{0}, kMillion = 1000000;
constexpr u64 kMaxHexadecimal = 830482023721945;  // the largest worth at most kMaxDecimalDigits

u64 how_many() {
  const char* const text = std::getenv("ORVANE_TEST_LINES");
  return text ? std::strtoull(text, nullptr, 10) : orl::test::kSanitized ? 200 : 1000;
}

// What a number means, said a second time: by regular expressions and floating point. None where it is refused.
std::optional<u64> model_of(const std::string& text, NumberForm form) {
  static const std::string integer = "([0-9]{1,3}(?:,[0-9]{3})+|[0-9]+(?:_[0-9]+)*)";
  static const std::map<NumberForm, std::regex> forms = {
      {NumberForm::kInteger, std::regex(integer + "(?:e([0-9]+))?", std::regex::icase)},
      {NumberForm::kCount, std::regex(integer + "(?:e([0-9]+)|([kmbt]))?", std::regex::icase)},
      {NumberForm::kBytes,
       std::regex(integer + "(?:e([0-9]+)|(\\.[0-9]+)? *([kmgtpe])(?:ib|b)?|(?:\\.[0-9]+)?(?: *b)?)",
                  std::regex::icase)}};
  const bool bytes = form == NumberForm::kBytes;
  std::smatch parts;
  if (!std::regex_match(text, parts, forms.at(form))) return std::nullopt;
  std::string digits = parts[1];
  std::erase_if(digits, [](char c) { return c == ',' || c == '_'; });
  long double value = std::stold(digits);
  if (value == 0 && parts[3].length() == 0) return 0;
  if (parts[2].length() != 0) value *= std::pow(10.0L, std::stold(parts[2]));
  const std::string unit = form == NumberForm::kInteger ? "" : parts[bytes ? 4 : 3].str();
  if (bytes && !unit.empty()) {
    if (parts[3].length() != 0) value += std::stold("0" + parts[3].str());
    value = std::ceil(value * std::pow(1024.0L, 1.0L + std::string("kmgtpe").find(std::tolower(unit[0]))));
  } else if (!unit.empty()) {
    value *= std::pow(1000.0L, 1.0L + std::string("kmbt").find(std::tolower(unit[0])));
  }
  return value >= 18446744073709551615.0L ? kLargest : static_cast<u64>(value);
}

// A text that is often a number, and often nearly one.
std::string random_text(Random& random) {
  static const char* const pieces[] = {"1", "25", "100", "1000", ",000", "_000", "0",  "7",  "k",   "M",
                                       "b", "T",  "G",   "e",    "E",    "e3",   "e6", ".5", ".",   " ",
                                       "-", "i",  "x",   "",     "MB",   "0",    "99", ",",  "4096"};
  std::string text;
  for (u64 i = random.between(1, 4); i != 0; i--) text += pieces[random.below(std::size(pieces))];
  return text;
}

// What an option takes.
enum class Takes { kInteger, kCount, kBytes, kSwitch };

// What the value of an option means; none where it is refused.
std::optional<u64> model_of_value(const std::string& text, Takes takes) {
  if (text.empty()) return 0;
  if (takes == Takes::kInteger) return model_of(text, NumberForm::kInteger);
  if (takes == Takes::kCount) return model_of(text, NumberForm::kCount);
  if (takes == Takes::kBytes) return model_of(text, NumberForm::kBytes);
  if (text == "yes" || text == "true") return 1;
  if (text == "no" || text == "false") return 0;
  if (!std::regex_match(text, std::regex("-?[0-9]+"))) return std::nullopt;
  return text.find_first_not_of("-0") != std::string::npos;
}

template <class Target>
struct NumberOption {
  const char* key;
  Takes takes;
  u64 low, high;  // of what is taken; 0 is it besides where `zero` says so
  bool zero;
  u64 most;  // larger ones are taken as this
  u64 (*read)(const Target&);
};

// Runs the line as its action does. False where it is refused.
template <class Target>
bool take_line(std::span<const Option<Target>> table, const std::vector<std::string>& tokens,
               Target& target) {
  std::vector<const char*> argv = {"orvane"};
  for (const std::string& token : tokens) argv.push_back(token.c_str());
  orl::CommandLine::Parameters line(static_cast<int>(argv.size()), argv.data());
  GivenOptions given;
  try {
    while (!line.at_end())
      if (!take_option(table, target, line, given)) return false;
  } catch (const orl::InvalidParametersException&) {
    return false;
  }
  return true;
}

template <class Target>
void play_line(Random& random, std::span<const Option<Target>> table, std::vector<std::string> tokens,
               std::span<const NumberOption<Target>> options, u64& taken) {
  static const char* const words[] = {"yes", "no", "true", "false", "1", "0", "-1", "on", "Yes", "yes "};
  std::map<const NumberOption<Target>*, std::string> texts;
  bool accepted = true;
  for (u64 i = random.between(1, 4); i != 0; i--) {
    const NumberOption<Target>& option = options[random.below(options.size())];
    const bool word = option.takes == Takes::kSwitch && random.coin();
    const std::string text = word ? words[random.below(std::size(words))] : random_text(random);
    tokens.push_back(option.key + (":" + text));
    const auto value = model_of_value(text, option.takes);
    accepted = accepted && value &&
               ((*value >= option.low && *value <= option.high) || (option.zero && *value == 0));
    const auto [place, is_new] = texts.emplace(&option, text);
    accepted = accepted && (is_new || place->second == text);
  }
  std::string shown;
  for (const std::string& token : tokens) shown += token + "|";
  SCOPED_TRACE(shown);
  Target target;
  ASSERT_EQ(take_line(table, tokens, target), accepted);
  if (!accepted) return;
  taken++;
  for (const auto& [option, text] : texts)
    ASSERT_EQ(option->read(target), std::min(*model_of_value(text, option->takes), option->most))
        << option->key;
}

const SwapParameters& swap_of(const ModeHolder& mode) {
  return dynamic_cast<const SwapParameters&>(mode.current());
}

TEST(RandomLines, SetWhatTheirNumbersSayOrAreRefused) {
  using Mode = ModeHolder;
  static constexpr NumberOption<Mode> custom[] = {
      {"-dec", Takes::kCount, kMinDecimalDigits, kMaxDecimalDigits, false, kLargest,
       [](const Mode& mode) { return swap_of(mode).decimal_digits(); }},
      {"-hex", Takes::kCount, 83, kMaxHexadecimal, true, kLargest,
       [](const Mode& mode) { return swap_of(mode).hexadecimal_digits(); }},
      {"-od", Takes::kSwitch, 0, 1, true, 1,
       [](const Mode& mode) { return u64{swap_of(mode).output_digits}; }},
      {"-verify", Takes::kSwitch, 0, 1, true, 1,
       [](const Mode& mode) { return u64{swap_of(mode).verify_conversion}; }},
      {"-json", Takes::kSwitch, 0, 1, true, 1,
       [](const Mode& mode) { return u64{swap_of(mode).json_results}; }},
      {"-overwrite", Takes::kSwitch, 0, 1, true, 1,
       [](const Mode& mode) { return u64{swap_of(mode).overwrite}; }},
      {"-TD", Takes::kInteger, 1, orl::kMaxTaskDecomposition, false, kLargest,
       [](const Mode& mode) { return swap_of(mode).parallelism.tds(); }},
      {"-M", Takes::kBytes, 1, kLargest, true, StressSettings::kMaxMemory,
       [](const Mode& mode) { return swap_of(mode).memory_setting(); }}};
  static constexpr NumberOption<BenchSettings> bench[] = {
      {"-od", Takes::kSwitch, 0, 1, true, 1,
       [](const BenchSettings& settings) { return u64{settings.parameters.output_digits}; }},
      {"-json", Takes::kSwitch, 0, 1, true, 1,
       [](const BenchSettings& settings) { return u64{settings.parameters.json_results}; }},
      {"-TD", Takes::kInteger, 1, orl::kMaxTaskDecomposition, false, kLargest,
       [](const BenchSettings& settings) { return settings.parameters.parallelism.tds(); }}};
  static constexpr NumberOption<BenchIoSettings> benchio[] = {
      {"-M", Takes::kBytes, 0, kLargest, true, StressSettings::kMaxMemory,
       [](const BenchIoSettings& io) { return io.memory_bytes; }},
      {"-json", Takes::kSwitch, 0, 1, true, 1,
       [](const BenchIoSettings& io) { return u64{io.json_results}; }},
      {"-TD", Takes::kInteger, 1, orl::kMaxTaskDecomposition, false, kLargest,
       [](const BenchIoSettings& io) { return io.parallelism.tds(); }}};
  static constexpr NumberOption<StressLine> stress[] = {
      {"-M", Takes::kBytes, 0, kLargest, true, StressSettings::kMaxMemory,
       [](const StressLine& line) { return line.settings.total_memory; }},
      {"-D", Takes::kInteger, 0, kLargest, true, StressSettings::kMaxSeconds,
       [](const StressLine& line) { return line.settings.seconds; }}};
  static constexpr NumberOption<BbpLine> bbp[] = {
      {"-offset", Takes::kCount, 0, kMaxBbpOffset, true, kLargest,
       [](const BbpLine& line) { return line.task.offset; }},
      {"-digits", Takes::kCount, kMinBbpDigits, kMaxBbpDigits, false, kLargest,
       [](const BbpLine& line) { return line.task.digits; }},
      {"-threads", Takes::kCount, 1, orl::kMaxThreads, false, kLargest,
       [](const BbpLine& line) { return line.task.threads; }}};
  static constexpr NumberOption<ViewerTask> viewer[] = {
      {"-start", Takes::kCount, 0, kLargest, true, kLargest,
       [](const ViewerTask& task) { return task.start.value_or(0); }},
      {"-end", Takes::kCount, 0, kLargest, true, kLargest,
       [](const ViewerTask& task) { return task.end.value_or(0); }},
      {"-view", Takes::kCount, 0, kLargest, true, kLargest,
       [](const ViewerTask& task) { return task.view.value_or(0); }},
      {"-endid", Takes::kInteger, 0, kLargest, true, kLargest,
       [](const ViewerTask& task) { return task.end_id.value_or(0); }}};
  static constexpr NumberOption<LogFormulaLine> log_formula[] = {
      {"-dec", Takes::kCount, 0, kLargest, true, kLargest,
       [](const LogFormulaLine& line) { return line.decimal_digits; }}};

  Random random;
  u64 taken = 0;
  const u64 lines = how_many();
  for (u64 i = 0; i < lines && !HasFatalFailure(); i++) {
    switch (random.below(9)) {
      case 0:
        play_line<BenchSettings>(random, bench_options(), {}, bench, taken);
        break;
      case 1:
        play_line<BenchIoSettings>(random, benchio_options(), {}, benchio, taken);
        break;
      case 2:
        play_line<StressLine>(random, stress_options(), {}, stress, taken);
        break;
      case 3:
        play_line<BbpLine>(random, bbp_options(), {}, bbp, taken);
        break;
      case 5:
        play_line<ViewerTask>(random, viewer_options(), {}, viewer, taken);
        break;
      case 4:
        play_line<LogFormulaLine>(random, log_formula_options(), {}, log_formula, taken);
        break;
      default:
        play_line<ModeHolder>(random, custom_options(), {"-mode:swap"}, custom, taken);
    }
  }
  EXPECT_GT(taken, lines / 20);
  EXPECT_LT(taken, lines);
}

// Thrown where a dialogue has no answer left: a menu that runs for ever is left so.
struct EndOfAnswers {};

class Answers final : public std::stringbuf {
 public:
  using std::stringbuf::stringbuf;

 protected:
  int_type underflow() override {
    const int_type next = std::stringbuf::underflow();
    if (next == traits_type::eof()) throw EndOfAnswers();
    return next;
  }
};

// What somebody types, who is often misunderstood; and what came of it.
class Dialogue {
 public:
  explicit Dialogue(Random& source) : random(source) {}

  void type(const std::string& line) { lines_ += line + "\n"; }

  // Answers that are refused, sometimes, and one that is taken: a number in [low, high].
  u64 number(u64 low, u64 high, NumberForm form = NumberForm::kCount) {
    for (u64 tries = random.below(4); tries != 0; tries--) {
      const std::string text = random_text(random);
      type(text);
      const auto value = model_of(trimmed(text), form);
      if (value && *value >= low && *value <= high) return *value;
    }
    const u64 value =
        random.coin() ? low : random.between(low, std::min(high, low + random.below(high - low + 1)));
    type(random.coin() ? format_with_commas(value) : std::to_string(value));
    return value;
  }
  // A choice of a menu with rows up to `high`; what may be typed before it is none of them.
  void choose(u64 choice, u64 high) {
    const std::string text = random_text(random);
    const auto value = model_of(trimmed(text), NumberForm::kCount);
    if (random.below(4) == 0 && !trimmed(text).empty() && !(value && *value <= high)) type(text);
    type(std::to_string(choice));
  }
  // The answer to a question that an empty line leaves as it is.
  std::optional<u64> number_or_nothing(NumberForm form) {
    for (u64 tries = random.below(5); tries != 0; tries--) {
      const std::string text = random_text(random);
      type(text);
      if (trimmed(text).empty()) return std::nullopt;
      if (const auto value = model_of(trimmed(text), form)) return value;
    }
    type("");
    return std::nullopt;
  }

  // Runs the menu. Its status; none where it wanted more answers.
  std::optional<int> play(const std::function<int()>& menu) {
    Answers answers(lines_);
    std::ostringstream screen;
    std::streambuf* const keyboard = std::cin.rdbuf(&answers);
    std::streambuf* const console = std::cout.rdbuf(screen.rdbuf());
    std::cin.exceptions(std::ios::badbit);
    std::optional<int> status;
    try {
      status = menu();
    } catch (const EndOfAnswers&) {
    }
    std::cin.exceptions(std::ios::goodbit);
    std::cin.clear();
    std::cin.rdbuf(keyboard);
    std::cout.rdbuf(console);
    screen_ = std::move(screen).str();
    return status;
  }

  const std::string& typed() const { return lines_; }
  const std::string& screen() const { return screen_; }
  // What stands behind the label where it was printed last.
  std::string shown(const std::string& label) const {
    const auto at = screen_.rfind(label);
    if (at == std::string::npos) return "nothing";
    const auto value = screen_.find_first_not_of(' ', at + label.size());
    return screen_.substr(value, screen_.find('\n', value) - value);
  }

  Random& random;

 private:
  static std::string trimmed(const std::string& text) {
    const auto begin = text.find_first_not_of(' ');
    return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(' ') - begin + 1);
  }

  std::string lines_, screen_;
};

void play_custom_menu(Dialogue& dialogue) {
  constexpr u64 kRows = 21;
  u64 decimal = kMillion, hexadecimal = 0, per_file = 0, tasks = orl::Parallelism().tds();
  bool output = true, verify = true, json = false;
  const auto too_few = [&] { return decimal < kMillion || (hexadecimal != 0 && hexadecimal < kMillion); };
  for (u64 steps = dialogue.random.between(1, 5); steps != 0; steps--) {
    switch (dialogue.random.below(7)) {
      case 0: {
        dialogue.choose(3, kRows);
        const u64 digits = dialogue.number_or_nothing(NumberForm::kCount).value_or(decimal);
        if (digits >= kMinDecimalDigits && digits <= kMaxDecimalDigits) decimal = digits;
        break;
      }
      case 1: {
        dialogue.choose(4, kRows);
        const u64 digits = dialogue.number_or_nothing(NumberForm::kCount).value_or(hexadecimal);
        if (digits == 0 || (digits >= 83 && digits <= kMaxHexadecimal)) hexadecimal = digits;
        break;
      }
      case 2: {
        dialogue.choose(7, kRows);
        const u64 format = dialogue.number(0, 2);
        const u64 digits = format == 0   ? 0
                           : format == 1 ? kOneFile
                                         : dialogue.number_or_nothing(NumberForm::kCount).value_or(per_file);
        if (digits == 0 || (!too_few() && digits >= kMillion)) per_file = digits;
        break;
      }
      case 3:
        dialogue.choose(11, kRows);
        dialogue.choose(3, 9);
        tasks = dialogue.number(1, orl::kMaxTaskDecomposition);
        dialogue.choose(0, 9);
        break;
      case 4:
        dialogue.choose(5, kRows);
        output = !output;
        break;
      case 5:
        dialogue.choose(8, kRows);
        verify = !verify;
        break;
      default:
        dialogue.choose(15, kRows);
        json = !json;
    }
    if (too_few()) per_file = 0;
  }
  EXPECT_EQ(dialogue.play(custom_menu), std::nullopt);
  EXPECT_EQ(dialogue.shown("  3     Decimal Digits:"), format_with_commas(decimal));
  EXPECT_EQ(dialogue.shown("  4     Hexadecimal Digits:"),
            hexadecimal == 0 ? "Disabled" : format_with_commas(hexadecimal));
  EXPECT_EQ(dialogue.shown("  7     Compression:"), format_text(per_file));
  EXPECT_EQ(dialogue.shown("  5     Output Digits:").substr(0, 7), output ? "Enabled" : "Disable");
  EXPECT_EQ(dialogue.shown("  8     Verify Output:"), verify ? "Enabled" : "Disabled");
  EXPECT_EQ(dialogue.shown(" 15     JSON Results:"), json ? "Enabled" : "Disabled");
  EXPECT_NE(dialogue.shown(" 11     Multi-Threading:").find("->  " + std::to_string(tasks) + " / "),
            std::string::npos);
}

void play_bbp_menu(Dialogue& dialogue) {
  BbpTask task = default_bbp_task();
  for (u64 steps = dialogue.random.between(1, 5); steps != 0; steps--) {
    const u64 row = dialogue.random.between(1, 4);
    dialogue.choose(row, 5);
    if (row == 1) task.formula = static_cast<BbpFormula>(dialogue.number(0, 1));
    if (row == 2) task.offset = dialogue.number(0, kMaxBbpOffset);
    if (row == 3) task.digits = dialogue.number(kMinBbpDigits, kMaxBbpDigits);
    if (row == 4) task.threads = dialogue.number(1, orl::kMaxThreads);
  }
  EXPECT_EQ(dialogue.play([] {
    Menu_BbpExtractor();
    return 0;
  }),
            std::nullopt);
  EXPECT_EQ(dialogue.shown("  1     Formula:").substr(0, 7),
            task.formula == BbpFormula::kPlouffe ? "Plouffe" : "Bellard");
  EXPECT_EQ(dialogue.shown("  2     Hexadecimal Offset:"), format_with_commas(task.offset));
  EXPECT_EQ(dialogue.shown("  3     Digits to Compute :"), format_with_commas(task.digits));
  EXPECT_EQ(dialogue.shown("  4     Multi-Threading:"),
            format_with_commas(task.threads) + (task.threads == 1 ? " thread" : " threads"));
}

void play_stress_menu(Dialogue& dialogue) {
  constexpr u64 kRows = 21;
  std::optional<u64> seconds, memory;
  bool stop = true;
  for (u64 steps = dialogue.random.between(1, 4); steps != 0; steps--) {
    switch (dialogue.random.below(3)) {
      case 0:
        dialogue.choose(4, kRows);
        seconds = dialogue.number(1, StressSettings::kMaxSeconds, NumberForm::kInteger);
        break;
      case 1:
        dialogue.choose(3, kRows);
        // Nothing at all cannot be tested: it is asked for again.
        for (std::optional<u64> bytes = 0; bytes == 0;) {
          bytes = dialogue.number_or_nothing(NumberForm::kBytes);
          if (bytes && *bytes != 0) memory = std::min(*bytes, StressSettings::kMaxMemory);
        }
        break;
      default:
        dialogue.choose(5, kRows);
        stop = !stop;
    }
  }
  EXPECT_EQ(dialogue.play(stress_menu), std::nullopt);
  EXPECT_EQ(dialogue.shown("  4   Time per Test:"), format_with_commas(seconds.value_or(120)) + " seconds");
  EXPECT_EQ(dialogue.shown("  5   Stop on Error:"), stop ? "Yes" : "No");
  if (memory) {
    EXPECT_EQ(dialogue.shown("  3   Memory to Test:"), orl::format_bytes(*memory));
  }
}

void play_benchio_menu(Dialogue& dialogue) {
  constexpr u64 kRows = 21, kLeastUnit = 4096, kDefaultUnit = 1 << 20;
  std::optional<u64> memory;
  u64 unit = 0;
  bool json = false;
  for (u64 steps = dialogue.random.between(1, 4); steps != 0; steps--) {
    switch (dialogue.random.below(3)) {
      case 0:
        dialogue.choose(1, kRows);
        if (const auto bytes = dialogue.number_or_nothing(NumberForm::kBytes)) memory = bytes;
        break;
      case 1: {
        dialogue.choose(4, kRows);
        const u64 bytes = dialogue.number_or_nothing(NumberForm::kBytes).value_or(unit);
        if (bytes == 0 || (bytes >= kLeastUnit && bytes >> 63 == 0)) unit = bytes;
        break;
      }
      default:
        dialogue.choose(7, kRows);
        json = !json;
    }
  }
  EXPECT_EQ(dialogue.play(benchio_menu), std::nullopt);
  if (memory) {
    EXPECT_EQ(dialogue.shown("   1    Memory:"), orl::format_bytes(*memory));
  }
  EXPECT_EQ(dialogue.shown("   4    Bytes/Seek:"),
            orl::format_bytes(unit == 0 ? kDefaultUnit : unit) + "  for entire drive array");
  EXPECT_EQ(dialogue.shown("   7    JSON Results:"), json ? "Enabled" : "Disabled");
}

// A file of digits, and what the viewer is to show and to write of it.
void play_viewer(Dialogue& dialogue) {
  static const orl::test::TemporaryFolder folder;
  static const std::string digits = [] {
    std::string text;
    for (u64 i = 0; i < 2500; i++) text += static_cast<char>('0' + i * i * i % 7 + i % 4);
    orl::test::write_file(folder.file("digits.txt"), "3." + text);
    return text;
  }();
  const std::string copy = folder.file("copy.txt");
  dialogue.type(folder.file("digits.txt"));
  dialogue.choose(dialogue.random.coin() ? 2 : 0, 7);
  const bool extracts = dialogue.typed().ends_with("\n2\n");
  const u64 first = dialogue.number(1, digits.size());
  const u64 count = extracts ? dialogue.number(first, digits.size()) - first + 1
                             : dialogue.number(1, digits.size() - first + 1);
  const std::string range = digits.substr(first - 1, count);
  if (extracts) dialogue.type(copy);
  const bool fails = dialogue.random.below(8) == 0;
  dialogue.type("");
  if (fails) dialogue.type(folder.file("no such file.txt"));
  dialogue.type("");
  EXPECT_EQ(dialogue.play(Menu_DigitViewer), fails ? 1 : 0);
  if (extracts) {
    EXPECT_EQ(orl::test::read_file(copy), (first == 1 ? "3." : "0.") + range);
    std::filesystem::remove(copy);
    return;
  }
  std::string rows(std::string((first - 1) % 50, ' '));
  for (u64 i = 0; i < count; i++)
    rows += (i != 0 && (first - 1 + i) % 50 == 0 ? "\n" : "") + range.substr(i, 1);
  EXPECT_NE(dialogue.screen().find(rows + "\n\n"), std::string::npos) << first << " " << count;
}

TEST(RandomDialogues, SetWhatTheirNumbersSayOrAskAgain) {
  Random random;
  const orl::test::FakeFileCalls no_flushes;
  const bool colours = std::exchange(orl::settings().colors_enabled, false);
  constexpr std::pair<const char*, void (*)(Dialogue&)> menus[] = {{"custom", play_custom_menu},
                                                                   {"bbp", play_bbp_menu},
                                                                   {"stress", play_stress_menu},
                                                                   {"benchio", play_benchio_menu},
                                                                   {"viewer", play_viewer}};
  for (u64 i = 0; i < how_many() / 4 && !HasFailure(); i++) {
    Dialogue dialogue(random);
    const auto& [name, menu] = menus[random.below(std::size(menus))];
    menu(dialogue);
    if (HasFailure()) ADD_FAILURE() << name << "\n" << dialogue.typed() << "\n" << dialogue.screen();
  }
  orl::settings().colors_enabled = colours;
}

}  // namespace
}  // namespace orvane
