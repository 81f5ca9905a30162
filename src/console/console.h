// Everything that the user sees or types goes through here.
//
// Colours  one letter each: R error, Y warning, G value, T menu entry, B blue, P magenta, lower case for the
//          dim form, 'w' and any other letter the terminal's own text colour, ' ' no change. A colour stays until
//          the next one is set. settings().colors_enabled = false writes no escape sequence at all.
// Output   std::cout, or std::wcout if standard output has been put in wide orientation. Every call flushes.
// Input    a prompt for ENTER returns at the end of input; any other reader then says so and ends the program
//          with status 1.
// Threads  printing takes no lock; one call's text is written in one piece.
// Below    the libraries include nothing of this: they speak through core/output.h, where install() puts the
//          console.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "core/number_forms.h"
#include "core/types.h"

namespace orl::console {

/// Sets the colour and writes the text as it stands. Returns the length of the text in bytes.
u64 print(std::string_view text, char colour = 'w');
/// print() with a line feed behind the text. Returns the length of the text without the line feed.
u64 println(std::string_view text, char colour = 'w');
void newline();
void set_colour(char colour);
/// Gives the terminal its own colours back.
void reset_colours();

/// Pads with blanks behind the text to `width`; a longer text prints whole. Returns the length printed.
u64 print_padded(u64 width, std::string_view text, char colour = 'w');
/// With thousands separators, right-aligned in `width`.
u64 print_number(u64 width, u64 value, char colour = 'G');
/// The label in the default colour, then the value in the colour given; no line feed. A blank colour changes
/// nothing.
u64 label_value(std::string_view label, std::string_view value, char colour = 'G');

/// Prints the prompt and reads a number of the form (core/number_forms.h) in the colour given. Asks again when the
/// line is none or does not fit 64 bits; a number with something behind it is told first.
u64 read_number(std::string_view prompt, char colour = 'G', NumberForm form = NumberForm::kCount);
/// read_number() until low <= value <= high, with no message; `high` of all ones is no bound. Then back to
/// 'w', unless the colour is the blank.
u64 read_bounded(std::string_view prompt, u64 low, u64 high, char colour = 'G',
                 NumberForm form = NumberForm::kCount);
/// As read_bounded, but an empty line gives nothing: the user's way back.
std::optional<u64> read_choice(std::string_view prompt, u64 low, u64 high, char colour = 'G');
/// A line without its end.
std::string read_line(std::string_view prompt);
/// "Press ENTER to continue . . .", then waits for a line or the end of input. Without a terminal at both ends it
/// does nothing, unless the line asked for pauses.
void pause();

/// Number of print calls so far, of all threads.
u64 print_calls();

/// Shows label, value and tail as the line that is rewritten in place: the label and the tail in the default
/// colour, the value in `colour`, together at most one line of plain text. Does nothing unless standard
/// output is a terminal with the cursor at the start of a line. The next print of any kind takes the line
/// away first. Allocates nothing.
void show_live_line(std::string_view label, std::string_view value = {}, std::string_view tail = {},
                    char colour = 'G');
void clear_live_line();
/// Prints a line of its own, unless the cursor stands behind some text: then false.
bool print_line_between(std::string_view text);

/// Makes the console the output of the libraries (core/output.h). Every main that has a user calls it first.
void install();

/// Standard output is a terminal that takes colours: none named "dumb", and NO_COLOR is not set.
bool terminal_takes_colours();

/// From now on SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGPIPE and SIGXCPU give a terminal its colours back, remove the files
/// that are not finished (core/unfinished_files.h) and say so, before they end the process as they would have done. One
/// that is ignored stays ignored. A file that grows beyond its limit (SIGXFSZ) becomes an error of the call that writes.
void end_in_order_at_signals();

}  // namespace orl::console
