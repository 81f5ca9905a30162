// A stage of a constant: shown on the status line while it runs, left as a permanent line with its time.
#pragma once

#include <chrono>
#include <cstdio>
#include <optional>

#include "core/status.h"

namespace orl {

/// A stage on the live line and, when it is finished, a line with its time.
class StageTimer {
 public:
  /// `text` such as "Large Multiply..."; it must outlive the stage.
  StageTimer(StatusNode& status, const char* text) : status_(status), text_(text) {
    frame_.emplace(status, text);
  }
  /// Ends the stage; prints the text and the seconds since construction.
  void finish() {
    frame_.reset();
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start_;
    char line[128];
    std::snprintf(line, sizeof line, "%s  %.3f seconds\n", text_, elapsed.count());
    status_.print(line);
  }

 private:
  StatusNode& status_;
  const char* text_;
  std::optional<StatusFrame> frame_;
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

}  // namespace orl
