#include "tools/digit_viewer.h"

#include <algorithm>
#include <memory>
#include <string>

#include "digits/digit_text.h"
#include "digits/ovd_set.h"
#include "digits/text_file.h"
#include "frame/console.h"
#include "frame/exceptions.h"
#include "parallel/aligned_malloc.h"
#include "parallel/parallelism.h"

namespace orvane {
namespace {

namespace console = orl::console;
using orl::InvalidParametersException;
using orl::LinearHeapBuffer;
using orl::u8;

constexpr u64 kPageBytes = 4096;
constexpr u64 kMaxViewDigits = 100000;
constexpr u64 kRowDigits = 50;
constexpr u64 kNoBound = ~u64{0};

struct AlignedFree {
  void operator()(void* pointer) const { orl::aligned_free(pointer); }
};

void print_label(const char* label, const std::string& value) {
  constexpr u64 kLabelWidth = 28;
  console::print_padded(kLabelWidth, label, 'w');
  console::println(value, 'G');
}

// One file on the screen.
class FileMenu {
 public:
  explicit FileMenu(std::unique_ptr<orl::DigitReader> reader)
      : reader_(std::move(reader)),
        set_(dynamic_cast<orl::BasicOvdSetReader*>(reader_.get())),
        memory_(orl::aligned_malloc(kViewerWindowBytes, kPageBytes)) {}

  /// Returns when the user closes the file.
  void run();

 private:
  void print_head() const;
  // Index of the last digit; an unbounded stream has any.
  u64 last_digit() const { return reader_->total_digits() ? reader_->total_digits() : kNoBound; }
  LinearHeapBuffer window() const { return {memory_.get(), kViewerWindowBytes}; }

  void view_range();

  std::unique_ptr<orl::DigitReader> reader_;
  orl::BasicOvdSetReader* set_;  ///< null for a text file
  std::unique_ptr<void, AlignedFree> memory_;
  orl::Parallelism parallelism_;
};

void FileMenu::print_head() const {
  console::println(set_ ? "\n\nCompressed Digit File" : "\n\nText File", 'Y');
  console::newline();
  print_label("First Digits:", reader_->first_digits());
  const u64 total = reader_->total_digits();
  print_label("Digits after Decimal Place: ",
              total ? console::format_with_commas(total) : "Unknown - Extended File Format");
  console::println("\nWhat would you like to do?\n", 'w');
}

void FileMenu::run() {
  struct Row {
    const char* text;
    void (FileMenu::*run)();
  };
  static constexpr Row kRows[] = {
      {"View a small range of digits.", &FileMenu::view_range},
  };
  for (;;) {
    print_head();
    for (std::size_t i = 0; i < std::size(kRows); i++)
      console::println("  " + std::to_string(i) + "     " + kRows[i].text, 'T');
    console::println("\n        (ENTER alone closes the file.)", 't');
    console::println("\nEnter your choice:", 'w');
    const auto choice = console::read_choice("option: ", 0, std::size(kRows) - 1);
    if (!choice) return;
    try {
      (this->*kRows[*choice].run)();
    } catch (const orl::Exception& e) {
      console::newline();
      e.print();
    }
  }
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

void FileMenu::view_range() {
  console::println("\n\nView a Range of Digits", 'Y');
  console::newline();
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
    return;
  }
  orl::digits_to_text(text, digits, count);
  print_rows(text, start, count);
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

// Without the blanks and the carriage return that a pasted line may bring.
std::string trimmed(const std::string& line) {
  constexpr const char* kBlanks = " \t\r";
  const auto begin = line.find_first_not_of(kBlanks);
  return begin == std::string::npos ? "" : line.substr(begin, line.find_last_not_of(kBlanks) - begin + 1);
}

}  // namespace

void Menu_DigitViewer() {
  console::println("\nOrvane Digit Viewer v2.5.312", 'T');
  for (;;) {
    console::println("\n\nEnter the path of the file (include .txt or .ovd extensions):", 'w');
    console::println("(ENTER alone leaves the viewer.)", 't');
    const std::string path = trimmed(console::read_line("path: "));
    if (path.empty()) return;
    try {
      FileMenu(open_file(path)).run();
    } catch (const orl::Exception& e) {
      console::newline();
      e.print();
    }
  }
}

}  // namespace orvane
