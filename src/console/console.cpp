#include "console/console.h"

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <wchar.h>

#include <algorithm>
#include <atomic>
#include <iostream>
#include <optional>

#include "core/ending.h"
#include "core/format.h"
#include "core/output.h"
#include "core/settings.h"
#include "core/uncopied.h"
#include "core/unfinished_files.h"

namespace orl::console {

namespace {

std::atomic<u64> print_call_count{0};
std::atomic<u64> live_length{0};  ///< bytes of the live line on the screen; 0: none
std::atomic<bool> at_line_start{true};
std::atomic<char> current_colour{' '};

std::string_view sequence(char colour) {
  switch (colour) {
    case ' ':
      return {};
    case 'B':
      return "\033[01;34m";
    case 'G':
      return "\033[01;32m";
    case 'P':
      return "\033[01;35m";
    case 'R':
      return "\033[01;31m";
    case 'T':
      return "\033[01;36m";
    case 'Y':
      return "\033[01;33m";
    case 'b':
      return "\033[22;34m";
    case 'g':
      return "\033[22;32m";
    case 'p':
      return "\033[22;35m";
    case 'r':
      return "\033[22;31m";
    case 't':
      return "\033[22;36m";
    case 'y':
      return "\033[22;33m";
    default:
      // Bright white, and then what the terminal itself takes for its text: white is no colour on a light ground.
      return "\033[01;37m\033[0m";
  }
}

// The first sequence leaves bold as it is, the second ends it.
constexpr std::string_view kReset = "\033[39;49m\033[0m";

bool is_wide() { return fwide(stdout, 0) > 0; }

/// Keeps what one call writes together. It is the lock of the C stream, which std::cout writes through.
class OnePiece : Uncopied {
 public:
  OnePiece() { flockfile(stdout); }
  ~OnePiece() {
    if (is_wide()) {
      std::wcout.flush();
    } else {
      std::cout.flush();
    }
    funlockfile(stdout);
  }
};

void write_raw(std::string_view text) {
  if (!is_wide()) {
    std::cout.write(text.data(), static_cast<std::streamsize>(text.size()));
    return;
  }
  for (const char c : text) std::wcout.put(std::wcout.widen(c));
}

void write_blanks(u64 count) {
  constexpr std::string_view blanks = "                                                                ";
  for (; count > blanks.size(); count -= blanks.size()) write_raw(blanks);
  write_raw(blanks.substr(0, count));
}

void write_colour(char colour) {
  if (colour == ' ') return;
  current_colour = colour;
  if (settings().colors_enabled) write_raw(sequence(colour));
}

void write_text(std::string_view text) {
  if (text.empty()) return;
  write_raw(text);
  at_line_start = text.back() == '\n';
}

void erase_live_line() {
  const u64 length = live_length.exchange(0);
  if (length == 0) return;
  write_raw("\r");
  write_blanks(length);
  write_raw("\r");
}

/// A line without its end; nothing at the end of input.
std::optional<std::string> next_line() {
  std::string line;
  if (!std::getline(std::cin, line)) return std::nullopt;
  // A terminal has echoed the line feed.
  if (isatty(STDIN_FILENO)) at_line_start = true;
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return line;
}

/// Returns the length of the text.
u64 write_piece(std::string_view text, char colour, std::string_view end) {
  print_call_count.fetch_add(1, std::memory_order_relaxed);
  const OnePiece piece;
  erase_live_line();
  write_colour(colour);
  write_text(text);
  write_text(end);
  return text.size();
}

}  // namespace

u64 print(std::string_view text, char colour) { return write_piece(text, colour, {}); }

u64 println(std::string_view text, char colour) { return write_piece(text, colour, "\n"); }

void newline() { print("\n", ' '); }

void set_colour(char colour) {
  const OnePiece piece;
  erase_live_line();
  write_colour(colour);
}

void reset_colours() {
  const OnePiece piece;
  erase_live_line();
  current_colour = ' ';
  if (settings().colors_enabled) write_raw(kReset);
}

u64 print_padded(u64 width, std::string_view text, char colour) {
  print_call_count.fetch_add(1, std::memory_order_relaxed);
  const OnePiece piece;
  erase_live_line();
  write_colour(colour);
  write_text(text);
  if (text.size() >= width) return text.size();
  write_blanks(width - text.size());
  at_line_start = false;
  return width;
}

u64 print_number(u64 width, u64 value, char colour) {
  std::string text = format_with_commas(value);
  if (text.size() < width) text.insert(0, width - text.size(), ' ');
  return print(text, colour);
}

u64 label_value(std::string_view label, std::string_view value, char colour) {
  const u64 length = print(label, colour == ' ' ? ' ' : 'w');
  return length + print(value, colour);
}

namespace {

std::string line_or_exit() {
  std::optional<std::string> line = next_line();
  if (!line) {
    println("\nThe input has ended before this was answered.", 'R');
    quiet_exit(1);
  }
  return *std::move(line);
}

std::string_view without_blanks(std::string_view line) {
  const u64 begin = std::min(line.find_first_not_of(" \t\r"), line.size());
  return line.substr(begin, line.find_last_not_of(" \t\r") + 1 - begin);
}

/// The number that the line is. What has something behind it is told; an answer without any number, or past 64 bits,
/// is not.
std::optional<u64> answered_number(std::string_view line, NumberForm form) {
  const Number number = parse_number(without_blanks(line), form);
  if (number.is_whole() && !number.too_large) return number.value;
  if (!number.read.empty() && !number.rest.empty()) println(number_refusal(number, form), 'R');
  return std::nullopt;
}

}  // namespace

u64 read_number(std::string_view prompt, char colour, NumberForm form) {
  for (;;) {
    print(prompt, colour == ' ' ? ' ' : 'w');
    set_colour(colour);
    if (const std::optional<u64> value = answered_number(line_or_exit(), form)) return *value;
  }
}

u64 read_bounded(std::string_view prompt, u64 low, u64 high, char colour, NumberForm form) {
  u64 value = read_number(prompt, colour, form);
  while (value < low || value > high) value = read_number(prompt, colour, form);
  if (colour != ' ') set_colour('w');
  return value;
}

std::optional<u64> read_choice(std::string_view prompt, u64 low, u64 high, char colour) {
  for (;;) {
    print(prompt, colour == ' ' ? ' ' : 'w');
    set_colour(colour);
    const std::string line = line_or_exit();
    if (colour != ' ') set_colour('w');
    if (without_blanks(line).empty()) return std::nullopt;
    const std::optional<u64> value = answered_number(line, NumberForm::kCount);
    if (value && low <= *value && *value <= high) return value;
  }
}

std::string read_line(std::string_view prompt) {
  print(prompt, 'w');
  return line_or_exit();
}

void pause() {
  const Settings& given = settings();
  const bool asked_for = given.pause_given && given.pause_level >= -1;
  if (!asked_for && !(isatty(STDIN_FILENO) && isatty(STDOUT_FILENO))) return;
  print("Press ENTER to continue . . .", ' ');
  next_line();
}

u64 print_calls() { return print_call_count.load(std::memory_order_relaxed); }

namespace {

// Characters that a line can have on this terminal without going on in the next one.
u64 terminal_width() {
  winsize size{};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col < 2) return ~u64{0};
  return size.ws_col - 1u;
}

// Takes up to `excess` bytes from the front.
void shorten(std::string_view& text, u64& excess) {
  const u64 cut = std::min<u64>(text.size(), excess);
  text.remove_prefix(cut);
  excess -= cut;
}

}  // namespace

void show_live_line(std::string_view label, std::string_view value, std::string_view tail, char colour) {
  if (!isatty(STDOUT_FILENO)) return;
  // What stands at the right matters most.
  const u64 whole = label.size() + value.size() + tail.size(), width = terminal_width();
  u64 excess = whole > width ? whole - width : 0;
  for (std::string_view* const part : {&label, &value, &tail}) shorten(*part, excess);
  const OnePiece piece;
  if (!at_line_start) return;
  const char before = current_colour;
  write_raw("\r");
  write_colour('w');
  write_raw(label);
  if (!value.empty()) {
    write_colour(colour);
    write_raw(value);
    write_colour('w');
  }
  write_raw(tail);
  const u64 length = label.size() + value.size() + tail.size();
  const u64 old_length = live_length.exchange(length);
  if (old_length > length) {
    write_blanks(old_length - length);
    live_length = old_length;
  }
  write_colour(before);
}

bool print_line_between(std::string_view text) {
  const OnePiece piece;
  if (!at_line_start) return false;
  erase_live_line();
  write_text(text);
  write_text("\n");
  return true;
}

void clear_live_line() {
  const OnePiece piece;
  erase_live_line();
}

namespace {

class ConsoleOutput final : public Output {
 public:
  void print(std::string_view text, char colour) override { console::print(text, colour); }
  void print_line(std::string_view text, char colour) override { console::println(text, colour); }
  void set_colour(char colour) override { console::set_colour(colour); }
  void reset_colours() override { console::reset_colours(); }
  void wait_for_user() override { console::pause(); }
};

constexpr int kEndingSignals[] = {SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGPIPE, SIGXCPU};

void write_now(std::string_view text) {
  if (::write(STDOUT_FILENO, text.data(), text.size()) < 0) {
    // The terminal is gone.
  }
}

/// Only what a signal handler may do. Others of these signals wait meanwhile, and SIGPIPE is an error number.
void end_by_signal(int number) {
  if (put_off(number)) return;
  const bool removed = remove_unfinished_at_end() != 0;
  if (number != SIGPIPE) {
    if (settings().colors_enabled) write_now(kReset);
    if (!at_line_start || live_length != 0) write_now("\n");
    write_now(number == SIGINT || number == SIGQUIT ? "Interrupted." : "Ended by a signal.");
    if (removed) write_now(" What was not finished has been removed.");
    write_now("\n");
  }
  ::signal(number, SIG_DFL);
  raise(number);
}

}  // namespace

void install() {
  // Never destroyed: a thread may speak while the process ends.
  static ConsoleOutput* const console = new ConsoleOutput;
  set_output(console);
}

bool terminal_takes_colours() {
  const char* const refused = getenv("NO_COLOR");
  const char* const terminal = getenv("TERM");
  if (refused != nullptr && *refused != '\0') return false;
  if (terminal != nullptr && std::string_view(terminal) == "dumb") return false;
  return isatty(STDOUT_FILENO) != 0;
}

void end_in_order_at_signals() {
  ::signal(SIGXFSZ, SIG_IGN);
  struct sigaction action {};
  action.sa_handler = end_by_signal;
  action.sa_flags = SA_RESTART;
  for (const int number : kEndingSignals) sigaddset(&action.sa_mask, number);
  for (const int number : kEndingSignals) {
    struct sigaction before {};
    if (sigaction(number, nullptr, &before) != 0 || before.sa_handler == SIG_IGN) continue;
    sigaction(number, &action, nullptr);
  }
}

}  // namespace orl::console
