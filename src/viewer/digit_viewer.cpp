#include "viewer/digit_viewer.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "console/console.h"
#include "console/console_status.h"
#include "core/exceptions.h"
#include "core/format.h"
#include "core/status.h"
#include "digits/digit_text.h"
#include "digits/ovd_set.h"
#include "digits/text_file.h"
#include "files/path_check.h"
#include "memory/aligned_malloc.h"
#include "session/digit_check.h"
#include "threads/parallelism.h"
#include "viewer/digit_passes.h"
#include "words/hash.h"

namespace orvane {
namespace {

namespace console = orl::console;
using orl::InvalidParametersException;
using orl::kMinDigitsPerFile;
using orl::LinearHeapBuffer;
using orl::u8;

constexpr u64 kPageBytes = 4096;
constexpr u64 kMaxViewDigits = 100000;
constexpr u64 kRowDigits = 50;
constexpr u64 kNoBound = ~u64{0};
constexpr u64 kStatsDigits = 64 * 1000 * 1000;  // between two lines of progress

struct AlignedFree {
  void operator()(void* pointer) const { orl::aligned_free(pointer); }
};

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

void print_label(const char* label, const std::string& value) {
  constexpr u64 kLabelWidth = 28;
  console::print_padded(kLabelWidth, label, 'w');
  console::println(value, 'G');
}

void print_path(const char* label, const std::string& path) {
  console::label_value(label, path, 'G');
  console::newline();
}

std::string range_text(DigitRange range) {
  return std::to_string(range.begin + 1) + " - " + std::to_string(range.end);
}

void refuse_existing(const char* function, const std::string& path) {
  std::error_code ignored;  // whatever is wrong with the path is told when the file is made
  if (!std::filesystem::exists(path, ignored)) return;
  throw InvalidParametersException(function,
                                   "This file exists already, and nothing is written over. Give another name "
                                   "or path, or remove the file.\nPath: " +
                                       path);
}

// Rows that begin at multiples of 50 of the index; blanks stand for the digits before the range.
void print_rows(const char* text, u64 start, u64 count) {
  for (u64 done = 0; done < count;) {
    const u64 column = (start - 1 + done) % kRowDigits;
    const u64 length = std::min(kRowDigits - column, count - done);
    console::println(std::string(column, ' ') + std::string(text + done, length), 'G');
    done += length;
  }
}

// One file on the screen.
class FileMenu {
 public:
  explicit FileMenu(std::unique_ptr<orl::DigitReader> reader)
      : reader_(std::move(reader)),
        set_(dynamic_cast<orl::BasicOvdSetReader*>(reader_.get())),
        memory_(orl::aligned_malloc(kViewerWindowBytes, kPageBytes)) {}

  /// Returns when the user closes the file; false when anything failed.
  bool run();

 private:
  void print_head() const;
  // Index of the last digit; an unbounded stream has any.
  u64 last_digit() const { return reader_->total_digits() ? reader_->total_digits() : kNoBound; }
  LinearHeapBuffer window() const { return {memory_.get(), kViewerWindowBytes}; }
  DigitRange ask_range() const;

  void view_range();
  void compute_stats();
  void extract();
  void compress();
  void compress_subset();
  void add_search_directory();
  void check_against_report();
  void prove_pi();

  orl::DigitStats read_stats(DigitRange range, u64 top);
  bool enough_digits(u64 digits) const;
  void write_set(SetTarget target);
  void refuse_other_set(const SetTarget& target, const std::string& file) const;

  std::unique_ptr<orl::DigitReader> reader_;
  orl::BasicOvdSetReader* set_;  ///< null for a text file
  std::unique_ptr<void, AlignedFree> memory_;
  orl::Parallelism parallelism_;
  bool failed_ = false;
};

void FileMenu::print_head() const {
  print_title(set_ ? "\n\nCompressed Digit File" : "\n\nText File");
  print_label("First Digits:", reader_->first_digits());
  const u64 total = reader_->total_digits();
  print_label("Digits after Decimal Place: ",
              total ? orl::format_with_commas(total) : "Unknown - Extended File Format");
  if (set_) {
    print_label("Digits per File:", orl::format_with_commas(set_->digits_per_file()));
    console::println("\nSearch paths:", 'w');
    for (const std::string& path : set_->search_paths())
      console::println("    " + (path.empty() ? "./" : path), 'G');
  }
  console::println("\nWhat would you like to do?\n", 'w');
}

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
  const bool may_be_pi = reader_->radix() == 16 && reader_->first_digits() == "3.";
  const auto shown = [&](u64 row) {
    return row == kSearchRow ? set_ != nullptr : row != kProofRow || may_be_pi;
  };
  for (;;) {
    print_head();
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
  const u64 start = console::read_bounded("Starting Digit: ", 1, last_digit());
  const u64 end = console::read_bounded("Ending Digit:   ", start, last_digit());
  return {start - 1, end};
}

void FileMenu::view_range() {
  print_title("\n\nView a Range of Digits");
  const u64 start = console::read_bounded("Starting Digit: ", 1, last_digit());
  const u64 count =
      console::read_bounded("Digits to View: ", 1, std::min(last_digit() - (start - 1), kMaxViewDigits));
  console::newline();
  if (reader_->radix() != 10 && reader_->radix() != 16)
    throw InvalidParametersException("view_range()", "Invalid Radix");
  LinearHeapBuffer buffer = window();
  u8* const digits = buffer.cut<u8>(kMaxViewDigits);
  char* const text = buffer.cut<char>(kMaxViewDigits);
  try {
    reader_->load_digits(digits, start - 1, count, buffer, parallelism_.context());
  } catch (const orl::Exception& e) {
    e.print();
    console::println("This range of digits is not accessible.", 'R');
    failed_ = true;
    return;
  }
  orl::digits_to_text(text, digits, count);
  print_rows(text, start, count);
}

// The hash from the start is known where the range begins at the point.
std::string start_hash(const orl::DigitStats& stats, u64 top, u64 count) {
  const u64 shifted = orl::hash_mul(top, orl::hash_pow(stats.counts.radix(), count));
  return std::to_string(orl::hash_canon(orl::hash_add(shifted, stats.hash)));
}

orl::DigitStats FileMenu::read_stats(DigitRange range, u64 top) {
  const std::string range_label = "Hash(" + std::to_string(range.begin + 1) + " - current): ";
  orl::DigitStats stats(reader_->radix());
  for (u64 done = 0; done < range.count();) {
    const u64 length = std::min(kStatsDigits, range.count() - done);
    reader_->load_stats(stats, range.begin + done, length, window(), parallelism_.context());
    done += length;
    const std::string offset = "Current Offset: " + orl::format_with_commas(range.begin + done) + "  ";
    if (range.begin == 0)
      console::show_live_line(offset + "Hash(start - current): ", start_hash(stats, top, done));
    else
      console::show_live_line(offset + range_label, std::to_string(orl::hash_canon(stats.hash)));
  }
  print_label("Current Offset:", orl::format_with_commas(range.end));
  if (range.begin == 0) print_label("Hash(start - current):", start_hash(stats, top, range.count()));
  print_label(range_label.c_str(), std::to_string(orl::hash_canon(stats.hash)));
  return stats;
}

void FileMenu::compute_stats() {
  print_title("\n\nCompute Digit Statistics");
  const u64 top = top_hash(reader_->first_digits(), reader_->radix());
  const DigitRange range = ask_range();
  console::print("\nProcessing ", 'w');
  console::print(orl::format_with_commas(range.count()), 'G');
  console::println(" digits..", 'w');
  const u64 width = orl::format_with_commas(range.end).size();
  console::print("    From: ", 'w');
  console::print_number(width, range.begin + 1);
  console::print("\n    To  : ", 'w');
  console::print_number(width, range.end);
  console::println("\n", 'w');

  reader_->check_range(range.begin, range.count());
  const orl::DigitStats stats = read_stats(range, top);

  console::println("\nDigit Counts (" + range_text(range) + "):", 'w');
  for (u32 digit = 0; digit < stats.counts.radix(); digit++) {
    console::print(std::string("    ") + orl::digit_character(digit) + "  :  ", 'w');
    console::print_number(width, stats.counts.count(digit));
    console::newline();
  }
  console::println("\nHash(A - B) are the digits from A - B as an integer modulo (2^61 - 1).", 'w');
  if (range.begin == 0)
    console::println("Hash(start - B) begins with the digits before the decimal place.", 'w');
}

void print_written(DigitRange range) {
  console::println("\n" + orl::format_with_commas(range.count()) + " digits written.", 'w');
}

void FileMenu::extract() {
  constexpr const char* kExtension = ".txt";
  print_title("\n\nWrite to Text File");
  const DigitRange range = ask_range();
  std::string path = ask_line("\nEnter the path of the destination file:");
  if (path.empty()) {
    console::println("Nothing was written: there is no path.", 'Y');
    return;
  }
  if (!path.ends_with(kExtension)) path += kExtension;
  refuse_existing("extract()", path);
  reader_->check_range(range.begin, range.count());
  // A file of other digits must not look like the number itself.
  const bool from_start = range.begin == 0;
  orl::BasicTextWriter writer(path, from_start ? reader_->first_digits() : "0.", reader_->radix(),
                              range.count());
  orl::LinearConsoleNode status;
  copy_digits(*reader_, range, writer, 0, {parallelism_.context(), window(), status});
  writer.close_and_get_basic_reader();
  print_written(range);
  print_path("Path: ", path);
  if (!from_start)
    console::println("The file begins with \"0.\", since its digits are not the first ones.", 'Y');
}

bool FileMenu::enough_digits(u64 digits) const {
  if (digits >= kMinDigitsPerFile) return true;
  console::println("Please select at least " + orl::format_with_commas(kMinDigitsPerFile) + " digits.", 'Y');
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
  if (!enough_digits(last_digit())) return;
  u64 end;
  do end = console::read_bounded("Ending Digit:   ", 1, last_digit());
  while (!enough_digits(end));
  const u64 size = ask_digits_per_file("Digits per file (0 for single file): ", true);
  write_set({"", "", size, end, 0, (end - 1) / size});
}

void FileMenu::compress_subset() {
  print_title("\n\nWrite to Compressed File (partial)");
  if (!enough_digits(last_digit())) return;
  const u64 size = ask_digits_per_file("Digits per file: ", false);
  // The last digit of an unbounded stream's last file has an index of its own as well.
  const u64 last_id = reader_->total_digits() ? (last_digit() - 1) / size : kNoBound / size - 1;
  const u64 first = console::read_bounded("Start ID: ", 0, last_id);
  const u64 last = console::read_bounded("End   ID: ", 0, last_id);
  if (last < first) {
    console::println("No Digits to Recompress.", 'Y');
    return;
  }
  write_set({"", "", size, reader_->total_digits(), first, last});
}

// Shares of one set meet in its folder; files of another one there would make both unreadable.
void FileMenu::refuse_other_set(const SetTarget& target, const std::string& file) const {
  const std::string stem = orl::ovd_stem(file);
  std::error_code ignored;
  for (const auto& entry :
       std::filesystem::directory_iterator(std::filesystem::path(file).parent_path(), ignored)) {
    const std::string other = entry.path().string();
    if (!other.ends_with(".ovd") || orl::ovd_stem(other) != stem) continue;
    const orl::OvdHeader header = orl::BasicOvdFileReader(other).header();
    const u64 size =
        target.total_digits ? std::min(target.digits_per_file, target.total_digits) : target.digits_per_file;
    if (header.radix != reader_->radix() || header.total_digits != target.total_digits ||
        header.block_size != size || header.first_digits != reader_->first_digits())
      throw InvalidParametersException("write_set()",
                                       "The folder holds files of another set of this name. Give another "
                                       "name or path, or remove them.\nPath: " +
                                           other);
  }
}

// Asks for name and path.
void FileMenu::write_set(SetTarget target) {
  constexpr const char* kFunction = "write_set()";
  target.name = ask_line("\nEnter a name for the digits:");
  if (target.name.empty()) target.name = "Name";
  if (target.name.find_first_of("/\\") != std::string::npos)
    throw InvalidParametersException(kFunction,
                                     "A name holds no / or \\. Give folders as the destination path.");
  target.path = ask_line("\nEnter the destination path (SPACE for default):");
  if (!orl::path_is_writable(target.path))
    throw InvalidParametersException(kFunction, "Path is not writable.");

  const DigitRange all = target.range(target.first_id, target.last_id);
  reader_->check_range(all.begin, all.count());
  const orl::BasicOvdSetWriter set = make_set_writer(*reader_, target);
  for (u64 id = target.first_id; id <= target.last_id; id++) refuse_existing(kFunction, set.file_path(id));
  refuse_other_set(target, set.file_path(target.first_id));
  u64 missing = target.first_id;  // the first file that has no name yet
  try {
    orl::LinearConsoleNode status;
    copy_to_set(*reader_, target, {parallelism_.context(), window(), status}, [&](u64 first, u64 last) {
      print_written(target.range(first, last));
      print_path("Path: ", set.file_path(first));
      if (first != last) print_path("  to: ", set.file_path(last));
      missing = last + 1;
    });
  } catch (const orl::Exception&) {
    if (missing != target.first_id)
      console::println("These files are complete. To write the rest, compress a subset from ID " +
                           std::to_string(missing) + " to " + std::to_string(target.last_id) +
                           " under the same name.",
                       'Y');
    throw;
  }
}

void FileMenu::add_search_directory() {
  const std::string folder = ask_line("\nEnter directory:");
  if (!std::filesystem::is_directory(folder))
    throw InvalidParametersException("add_search_directory()", "There is no such folder: " + folder);
  set_->add_search_path(folder);
}

void FileMenu::check_against_report() {
  print_title("\n\nCheck against a Validation File");
  const std::string path = ask_line("Enter Path of Validation File:");
  console::newline();
  if (run_digit_check(*reader_, path) != 0) failed_ = true;
}

void FileMenu::prove_pi() {
  print_title("\n\nLast Hexadecimal Digits of Pi");
  if (run_pi_proof(*reader_) != 0) failed_ = true;
}

std::unique_ptr<orl::DigitReader> open_file(const std::string& path) {
  constexpr const char* kFunction = "Menu_DigitViewer()";
  const auto point = path.find('.', path.find_last_of("/\\") + 1);
  if (point == std::string::npos) throw InvalidParametersException(kFunction, "No Extension found.");
  const std::string extension = path.substr(path.rfind('.'));
  if (extension == ".txt") return std::make_unique<orl::BasicTextReader>(path, 0);
  if (extension == ".ovd") return std::make_unique<orl::BasicOvdSetReader>(path);
  throw InvalidParametersException(kFunction, "Unrecognized Extension: " + extension);
}

}  // namespace

int Menu_DigitViewer() {
  bool failed = false;
  console::println("\nOrvane Digit Viewer v2.5.312", 'T');
  for (;;) {
    console::println("\n\nEnter the path of the file (include .txt or .ovd extensions):", 'w');
    const std::string path = ask_line("(ENTER alone leaves the viewer.)");
    if (path.empty()) return failed ? 1 : 0;
    try {
      if (!FileMenu(open_file(path)).run()) failed = true;
    } catch (const orl::Exception& e) {
      console::newline();
      e.print();
      failed = true;
    }
  }
}

}  // namespace orvane
