// The permanent log of a run, which ends up in the validation file under "Event Log:".
#pragma once

#include <string>
#include <string_view>

namespace orl {

/// Belongs to the thread that drives the run.
class EventLog {
 public:
  /// Adds a stage under a short name, such as "Begin Computation", with the date and time of now.
  void add(std::string_view name);
  /// Adds "label value" as a line of the current stage, such as "Working Memory: ", "1,234,567 (1.18 MiB)".
  /// The label brings its own separator.
  void add_line(std::string_view label, std::string_view value);
  /// All lines so far, each ended by CR LF.
  const std::string& text() const { return text_; }
  void clear() { text_.clear(); }

 private:
  std::string text_;
};

}  // namespace orl
