// How the libraries speak: failures that print themselves, warnings, the line of a long run.
//
// They know no screen. Text goes, with a letter for its colour, to the one Output in force. The program and its
// test mains put the console there (console::install(), console/console.h); without it the text goes to
// standard output as it stands, so that nothing is lost where nothing was installed.
//
// Colours  as in console/console.h: 'R' failure, 'Y' warning, 'G' value, 'w' the default, ' ' no change.
// Threads  set_output() belongs to the start of the program; afterwards any thread may speak.
#pragma once

#include <string>
#include <string_view>

#include "core/types.h"
#include "core/uncopied.h"

namespace orl {

class Output {
 public:
  virtual ~Output() = default;
  /// Writes the text as it stands, in one piece.
  virtual void print(std::string_view text, char colour);
  /// Writes the text and a line feed, in one piece.
  virtual void print_line(std::string_view text, char colour);
  /// Sets the colour of what follows; nothing is written but that.
  virtual void set_colour(char) {}
  /// Gives a terminal its own colours back, before the process ends.
  virtual void reset_colours() {}
  /// Waits until the user has seen what was printed, or for the end of input.
  virtual void wait_for_user() {}
};

/// The output in force.
Output& output();
/// Puts another output in force, which must live as long as anything may speak; null brings the plain one back.
void set_output(Output* output);

/// Keeps what its own thread says while it lives, instead of saying it. They may be nested.
class OutputCapture final : public Output, Uncopied {
 public:
  OutputCapture();
  ~OutputCapture() override;
  const std::string& text() const { return text_; }

 private:
  void print(std::string_view text, char) override { text_ += text; }
  void print_line(std::string_view text, char) override { (text_ += text) += '\n'; }

  Output* before_;
  std::string text_;
};

/// output().print() and output().print_line().
void notice(std::string_view text, char colour = 'w');
void notice_line(std::string_view text, char colour = 'w');
/// The label in the default colour, then the value in `colour`; no line feed.
void notice_value(std::string_view label, std::string_view value, char colour = 'G');

}  // namespace orl
