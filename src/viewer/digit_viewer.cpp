#include "viewer/digit_viewer.h"

#include <algorithm>
#include <iterator>

#include "console/console.h"
#include "core/exceptions.h"
#include "core/format.h"
#include "viewer/file_view.h"

namespace orvane {
namespace {

namespace console = orl::console;
using orl::kMinDigitsPerFile;

// Without the blanks and the carriage return that a pasted line may bring.
std::string trimmed(const std::string& line) {
  constexpr const char* kBlanks = " \t\r";
  const auto begin = line.find_first_not_of(kBlanks);
  return begin == std::string::npos ? "" : line.substr(begin, line.find_last_not_of(kBlanks) - begin + 1);
}

std::string ask_line(const char* question) {
  console::println(question, 'w');
  return trimmed(console::read_line(""));
}

void print_title(const char* title) {
  console::println(title, 'Y');
  console::newline();
}

std::string few_digits_text() {
  return "Please select at least " + orl::format_with_commas(kMinDigitsPerFile) + " digits.";
}

// The questions about one file on the screen.
class FileMenu {
 public:
  explicit FileMenu(FileView& file) : file_(file) {}

  /// Returns when the user closes the file; false when anything failed.
  bool run();

 private:
  DigitRange ask_range() const;

  void view_range();
  void compute_stats();
  void extract();
  void compress();
  void compress_subset();
  void write_set(SetTarget target);
  void add_search_directory();
  void check_against_report();
  void prove_pi();

  bool enough_digits(u64 digits) const;

  FileView& file_;
  bool failed_ = false;
};

bool FileMenu::run() {
  struct Row {
    const char* text;
    const char* note;
    void (FileMenu::*run)();
  };
  static constexpr Row kRows[] = {
      {"View a small range of digits.", "", &FileMenu::view_range},
      {"Compute Stats (Digit Counts + Hash).", "", &FileMenu::compute_stats},
      {"Extract digits into a .txt file.", "", &FileMenu::extract},
      {"Compress digits 1 - N into one or more .ovd files.", "", &FileMenu::compress},
      {"Compress a subset of digits into .ovd files.", "", &FileMenu::compress_subset},
      {"Add search directory.", " (if .ovd files are in multiple paths)", &FileMenu::add_search_directory},
      {"Check all digits against a validation file.", "", &FileMenu::check_against_report},
      {"Prove the last hexadecimal digits of Pi by the BBP formula.", "", &FileMenu::prove_pi},
  };
  constexpr u64 kSearchRow = 5, kProofRow = 7;
  const orl::DigitReader& reader = file_.reader();
  const bool may_be_pi = reader.radix() == 16 && reader.first_digits() == "3.";
  const auto shown = [&](u64 row) {
    return row == kSearchRow ? file_.set() != nullptr : row != kProofRow || may_be_pi;
  };
  for (;;) {
    file_.print_head();
    console::println("\nWhat would you like to do?\n", 'w');
    for (u64 i = 0; i < std::size(kRows); i++) {
      if (!shown(i)) continue;
      console::print("  " + std::to_string(i) + "     " + kRows[i].text, 'T');
      console::println(kRows[i].note, 'w');
    }
    console::println("\n        (ENTER alone closes the file.)", 'w');
    console::println("\nEnter your choice:", 'w');
    const auto choice = console::read_choice("option: ", 0, std::size(kRows) - 1);
    if (!choice) return !failed_;
    if (!shown(*choice)) continue;
    try {
      (this->*kRows[*choice].run)();
    } catch (const orl::Exception& e) {
      console::newline();
      e.print();
      failed_ = true;
    }
  }
}

DigitRange FileMenu::ask_range() const {
  const u64 start = console::read_bounded("Starting Digit: ", 1, file_.last_digit());
  const u64 end = console::read_bounded("Ending Digit:   ", start, file_.last_digit());
  return {start - 1, end};
}

void FileMenu::view_range() {
  print_title("\n\nView a Range of Digits");
  const u64 start = console::read_bounded("Starting Digit: ", 1, file_.last_digit());
  const u64 most = std::min(file_.last_digit() - (start - 1), kMaxViewDigits);
  const u64 count = console::read_bounded("Digits to View: ", 1, most);
  console::newline();
  if (!file_.view(start, count)) failed_ = true;
}

void FileMenu::compute_stats() {
  print_title("\n\nCompute Digit Statistics");
  file_.compute_stats(ask_range());
}

void FileMenu::extract() {
  print_title("\n\nWrite to Text File");
  const DigitRange range = ask_range();
  const std::string path = ask_line("\nEnter the path of the destination file:");
  if (path.empty())
    console::println("Nothing was written: there is no path.", 'Y');
  else
    file_.extract(range, path);
}

bool FileMenu::enough_digits(u64 digits) const {
  if (digits >= kMinDigitsPerFile) return true;
  console::println(few_digits_text(), 'Y');
  return false;
}

u64 ask_digits_per_file(const char* prompt, bool single_file) {
  for (;;) {
    const u64 digits = console::read_bounded(prompt, 0, orl::kSingleFile - 1);
    if (digits == 0 && single_file) return orl::kSingleFile;
    if (digits >= kMinDigitsPerFile) return digits;
    console::println("Too few digits to compress.", 'Y');
  }
}

void FileMenu::compress() {
  print_title("\n\nWrite to Compressed File");
  console::println("Starting Digit: 1", 'w');
  if (!enough_digits(file_.last_digit())) return;
  u64 end;
  do end = console::read_bounded("Ending Digit:   ", 1, file_.last_digit());
  while (!enough_digits(end));
  const u64 size = ask_digits_per_file("Digits per file (0 for single file): ", true);
  write_set({"", "", size, end, 0, (end - 1) / size});
}

void FileMenu::compress_subset() {
  print_title("\n\nWrite to Compressed File (partial)");
  if (!enough_digits(file_.last_digit())) return;
  const u64 size = ask_digits_per_file("Digits per file: ", false);
  const u64 first = console::read_bounded("Start ID: ", 0, file_.last_id(size));
  const u64 last = console::read_bounded("End   ID: ", 0, file_.last_id(size));
  if (last < first)
    console::println("No Digits to Recompress.", 'Y');
  else
    write_set({"", "", size, file_.reader().total_digits(), first, last});
}

// Asks for name and path.
void FileMenu::write_set(SetTarget target) {
  target.name = ask_line("\nEnter a name for the digits:");
  if (target.name.empty()) target.name = "Name";
  check_set_name(target.name);
  target.path = ask_line("\nEnter the destination path (SPACE for default):");
  file_.compress(target);
}

void FileMenu::add_search_directory() { file_.add_search_directory(ask_line("\nEnter directory:")); }

void FileMenu::check_against_report() {
  print_title("\n\nCheck against a Validation File");
  const std::string path = ask_line("Enter Path of Validation File:");
  console::newline();
  if (!file_.check_against_report(path)) failed_ = true;
}

void FileMenu::prove_pi() {
  print_title("\n\nLast Hexadecimal Digits of Pi");
  if (!file_.prove_pi()) failed_ = true;
}

// Settings that nothing on the line reads.
void refuse_unread(const ViewerTask& task) {
  const bool whole = task.digits_per_file && !task.is_share();
  const struct {
    const char* option;
    bool given, read;
    const char* readers;
  } rows[] = {
      {"-start", task.start.has_value(), task.view || task.stats || task.extract,
       "-view, -stats and -extract"},
      {"-end", task.end.has_value(), task.stats || task.extract || whole,
       "-stats, -extract and -C without -startid and -endid"},
      {"-startid", task.start_id.has_value(), task.digits_per_file.has_value(), "-C"},
      {"-endid", task.end_id.has_value(), task.digits_per_file.has_value(), "-C"},
      {"-name", task.name.has_value(), task.digits_per_file.has_value(), "-C"},
      {"-o", task.folder.has_value(), task.digits_per_file.has_value(), "-C"},
  };
  for (const auto& row : rows)
    if (row.given && !row.read)
      throw orl::InvalidParametersException(
          row.option, "Nothing on the line reads it. It belongs to " + std::string(row.readers) + ".");
}

u64 within(const char* option, u64 value, u64 low, u64 high) {
  if (value >= low && value <= high) return value;
  throw orl::InvalidParametersException(option, "It must be between " + orl::format_with_commas(low) +
                                                    " and " + orl::format_with_commas(high) + ".");
}

// The last of what `all` ends with; digits without a known end want it named.
u64 last_of(const char* option, const FileView& file, std::optional<u64> given, u64 low, u64 all) {
  if (given || file.reader().total_digits() != 0) return within(option, given.value_or(all), low, all);
  throw orl::InvalidParametersException(option, "These digits have no known end: please give one.");
}

// The files that -C asks for.
SetTarget target_of(const ViewerTask& task, const FileView& file) {
  const u64 size = *task.digits_per_file, last = file.last_digit();
  if (last < kMinDigitsPerFile) throw orl::InvalidParametersException("-C", few_digits_text());
  if (size < kMinDigitsPerFile) throw orl::InvalidParametersException("-C", "Too few digits to compress.");
  const std::string name = task.name.value_or(file.own_name()), folder = task.folder.value_or("");
  if (!task.is_share()) {
    const u64 end = last_of("-end", file, task.end, kMinDigitsPerFile, last);
    return {folder, name, size, end, 0, (end - 1) / size};
  }
  if (size == orl::kSingleFile)
    throw orl::InvalidParametersException("-C", "Shares need a number of digits per file.");
  const u64 last_id = file.last_id(size), first = within("-startid", task.start_id.value_or(0), 0, last_id);
  return {folder, name,
          size,   file.reader().total_digits(),
          first,  last_of("-endid", file, task.end_id, first, last_id)};
}

// What the line asks for, in the order of the menu. False when the file failed a step.
bool run_steps(const ViewerTask& task, FileView& file) {
  // All numbers before the first step.
  const u64 last = file.last_digit(), start = within("-start", task.start.value_or(1), 1, last);
  const u64 end = task.stats || task.extract ? last_of("-end", file, task.end, start, last) : start;
  const DigitRange range{start - 1, end};
  if (task.view) within("-view", *task.view, 1, std::min(last - range.begin, kMaxViewDigits));
  std::optional<SetTarget> target;
  if (task.digits_per_file) target = target_of(task, file);
  if (target) check_set_name(target->name);

  bool passed = !task.view || file.view(start, *task.view);
  if (task.stats) file.compute_stats(range);
  if (task.extract) file.extract(range, *task.extract);
  if (target) file.compress(*target);
  if (task.report && !file.check_against_report(*task.report)) passed = false;
  if (task.prove && !file.prove_pi()) passed = false;
  return passed;
}

void print_version() { console::println("\nOrvane Digit Viewer v2.5.312", 'T'); }

}  // namespace

int Menu_DigitViewer() {
  bool failed = false;
  print_version();
  for (;;) {
    console::println("\n\nEnter the path of the file (include .txt or .ovd extensions):", 'w');
    const std::string path = ask_line("(ENTER alone leaves the viewer.)");
    if (path.empty()) return failed ? 1 : 0;
    try {
      FileView file(path);
      if (!FileMenu(file).run()) failed = true;
    } catch (const orl::Exception& e) {
      console::newline();
      e.print();
      failed = true;
    }
  }
}

int run_viewer_task(const std::string& path, const ViewerTask& task) {
  refuse_unread(task);
  FileView file(path);
  for (const std::string& folder : task.search_folders) file.add_search_directory(folder);
  if (task.has_steps()) return run_steps(task, file) ? 0 : 1;
  print_version();
  return FileMenu(file).run() ? 0 : 1;
}

}  // namespace orvane
