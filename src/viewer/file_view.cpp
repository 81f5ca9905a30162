#include "viewer/file_view.h"

#include <algorithm>
#include <cctype>
#include <filesystem>

#include "console/console.h"
#include "console/console_status.h"
#include "core/exceptions.h"
#include "core/format.h"
#include "digits/digit_text.h"
#include "digits/text_file.h"
#include "files/path_check.h"
#include "session/digit_check.h"
#include "words/hash.h"

namespace orvane {
namespace {

namespace console = orl::console;
using orl::InvalidParametersException;
using orl::LinearHeapBuffer;
using orl::u8;

constexpr u64 kPageBytes = 4096;
constexpr u64 kRowDigits = 50;
constexpr u64 kStatsDigits = 64 * 1000 * 1000;  // between two lines of progress
constexpr std::string_view kTextExtension = ".txt", kSetExtension = ".ovd";

std::unique_ptr<orl::DigitReader> open_file(const std::string& path) {
  constexpr const char* kFunction = "Menu_DigitViewer()";
  const auto point = path.find('.', path.find_last_of("/\\") + 1);
  if (point == std::string::npos) throw InvalidParametersException(kFunction, "No Extension found.");
  const std::string extension = path.substr(path.rfind('.'));
  std::string lower = extension;
  std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
  if (lower == kTextExtension) return std::make_unique<orl::BasicTextReader>(path, 0);
  if (extension == kSetExtension) return std::make_unique<orl::BasicOvdSetReader>(path);
  // The other files of a set are found by their names.
  if (lower == kSetExtension)
    throw InvalidParametersException(
        kFunction, "Unrecognized Extension: " + extension + "\nThe files of a set have names in .ovd.");
  throw InvalidParametersException(kFunction, "Unrecognized Extension: " + extension);
}

void print_figure(const char* label, const std::string& value) {
  constexpr u64 kLabelWidth = 28;
  console::print_padded(kLabelWidth, label, 'w');
  console::println(value, 'G');
}

void print_path(const char* label, const std::string& path) {
  console::label_value(label, path, 'G');
  console::newline();
}

void print_written(DigitRange range) {
  console::println("\n" + orl::format_with_commas(range.count()) + " digits written.", 'w');
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

// The hash from the start is known where the range begins at the point.
std::string start_hash(const orl::DigitStats& stats, u64 top, u64 count) {
  const u64 shifted = orl::hash_mul(top, orl::hash_pow(stats.counts.radix(), count));
  return std::to_string(orl::hash_canon(orl::hash_add(shifted, stats.hash)));
}

}  // namespace

FileView::FileView(const std::string& path)
    : path_(path),
      reader_(open_file(path)),
      set_(dynamic_cast<orl::BasicOvdSetReader*>(reader_.get())),
      memory_(orl::aligned_malloc(kViewerWindowBytes, kPageBytes)) {}

u64 FileView::last_id(u64 digits_per_file) const {
  // The last digit of an unbounded stream's last file has an index of its own as well.
  return reader_->total_digits() ? (last_digit() - 1) / digits_per_file : kNoDigitBound / digits_per_file - 1;
}

std::string FileView::own_name() const {
  std::string name = set_ ? orl::ovd_stem(path_) : path_.substr(0, path_.size() - kTextExtension.size());
  name.erase(0, name.find_last_of("/\\") + 1);
  if (set_ && name.ends_with(" - ")) name.resize(name.size() - 3);
  return name.empty() ? "Name" : name;
}

void FileView::print_head() const {
  console::println(set_ ? "\n\nCompressed Digit File" : "\n\nText File", 'Y');
  console::newline();
  print_figure("First Digits:", reader_->first_digits());
  const u64 total = reader_->total_digits();
  print_figure("Digits after Decimal Place: ",
               total ? orl::format_with_commas(total) : "Unknown - Extended File Format");
  if (!set_) return;
  print_figure("Digits per File:", orl::format_with_commas(set_->digits_per_file()));
  console::println("\nSearch paths:", 'w');
  for (const std::string& path : set_->search_paths())
    console::println("    " + (path.empty() ? "./" : path), 'G');
}

bool FileView::view(u64 start, u64 count) {
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
    return false;
  }
  orl::digits_to_text(text, digits, count);
  print_rows(text, start, count);
  return true;
}

orl::DigitStats FileView::read_stats(DigitRange range, u64 top) {
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
  print_figure("Current Offset:", orl::format_with_commas(range.end));
  if (range.begin == 0) print_figure("Hash(start - current):", start_hash(stats, top, range.count()));
  print_figure(range_label.c_str(), std::to_string(orl::hash_canon(stats.hash)));
  return stats;
}

void FileView::compute_stats(DigitRange range) {
  const u64 top = top_hash(reader_->first_digits(), reader_->radix());
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

void FileView::extract(DigitRange range, std::string path) {
  if (!path.ends_with(kTextExtension)) path += kTextExtension;
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

// Shares of one set meet in its folder; files of another one there would make both unreadable.
void FileView::refuse_other_set(const SetTarget& target, const std::string& file) const {
  const std::string stem = orl::ovd_stem(file);
  std::error_code ignored;
  for (const auto& entry :
       std::filesystem::directory_iterator(std::filesystem::path(file).parent_path(), ignored)) {
    const std::string other = entry.path().string();
    if (!other.ends_with(kSetExtension) || orl::ovd_stem(other) != stem) continue;
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

void check_set_name(const std::string& name) {
  if (name.find_first_of("/\\") == std::string::npos && name != "." && name != "..") return;
  throw InvalidParametersException(
      "write_set()",
      "A name holds no / or \\, and is neither . nor .. itself. Give folders as the "
      "destination path.");
}

void FileView::compress(const SetTarget& target) {
  constexpr const char* kFunction = "write_set()";
  check_set_name(target.name);
  int reason = orl::why_unwritable(target.path);
  if (reason == 0) reason = orl::make_folders(target.path);
  if (reason != 0) throw InvalidParametersException(kFunction, orl::unwritable_text(target.path, reason));

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

void FileView::add_search_directory(const std::string& folder) {
  constexpr const char* kFunction = "add_search_directory()";
  if (!set_)
    throw InvalidParametersException(kFunction, "A text file is one file: there is nothing to search for.");
  if (!std::filesystem::is_directory(folder))
    throw InvalidParametersException(kFunction, "There is no such folder: " + folder);
  set_->add_search_path(folder);
}

bool FileView::check_against_report(const std::string& path) { return run_digit_check(*reader_, path) == 0; }

bool FileView::prove_pi() { return run_pi_proof(*reader_) == 0; }

}  // namespace orvane
