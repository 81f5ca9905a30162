#include "console/console_status.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <system_error>

#include "console/console.h"
#include "core/fault_mutex.h"

namespace orl {

namespace {

u64 now_ns() {
  return static_cast<u64>(std::chrono::steady_clock::now().time_since_epoch() / std::chrono::nanoseconds(1));
}

// Characters at the right of the line that belong to the run.
constexpr u32 kProgressWidth = 34;

// The intervals of the lines in a log: ten within five minutes, then from one minute to ten.
constexpr double kFirstInterval = 10, kGrowth = 1.25, kLongestInterval = 600;

}  // namespace

LinearConsoleNode::LinearConsoleNode(u32 width, double refresh_seconds, RunProgress* progress)
    : LinearNode("LinearConsoleNode"),
      width_(width),
      terminal_(isatty(STDOUT_FILENO) != 0),
      refresh_ns_(static_cast<u64>(std::max(refresh_seconds, 0.0) * 1e9)),
      progress_(progress) {
  if (!progress_) return;
  try {
    thread_ = std::jthread([this](std::stop_token stop) { keep_drawing(stop); });
  } catch (const std::system_error&) {
    // The system gives no thread: then the line moves only when the stage in work says something.
  }
}

LinearConsoleNode::~LinearConsoleNode() {
  if (thread_.joinable()) {
    thread_.request_stop();
    thread_.join();
  }
  console::clear_live_line();
}

StatusTree LinearConsoleNode::get_tree() const { refuse("get_tree", "Polling is not supported."); }

void LinearConsoleNode::print(std::string_view text, char colour) {
  hide_count();
  {
    const std::lock_guard guard(line_lock_);
    compose(line_, progress_ ? width_ - kProgressWidth : width_);
  }
  console::print(text, colour);
}

// A frame that opens or closes while no other is open begins or ends a part of the run's stage.
void LinearConsoleNode::follow_parts(bool structure) {
  if (structure) {
    const StatusRecord* const outer = outermost();
    const StatusFrameId part = outer ? outer->id : 0;
    if (part != part_) {
      if (part_ != 0) progress_->close_part();
      if (part != 0) progress_->open_part(outer->text);
      part_ = part;
    }
  }
  if (const Stated now = stated(); now.fraction >= 0) progress_->set_fraction(now.fraction, now.goal);
}

void LinearConsoleNode::changed(bool structure) {
  if (progress_) follow_parts(structure);
  if (!terminal_ && !progress_) return;
  {
    const std::lock_guard guard(line_lock_);
    compose(line_, progress_ ? width_ - kProgressWidth : width_);
  }
  if (!terminal_) return;
  if (!has_line()) {
    console::clear_live_line();
    last_ns_ = 0;
    return;
  }
  // A stage that opens is shown sooner than a percentage that moves, since nothing may follow it for hours.
  const u64 now = now_ns();
  if (last_ns_ != 0 && now - last_ns_ < (structure ? refresh_ns_ / 20 : refresh_ns_)) return;
  last_ns_ = now;
  draw();
}

void LinearConsoleNode::draw() {
  Line line;
  {
    const std::lock_guard guard(line_lock_);
    line = line_;
  }
  char run[64] = {}, tail[128];
  u64 length = std::strlen(line.tail);
  std::memcpy(tail, line.tail, length);
  if (progress_) {
    const std::string_view text = progress_text(progress_->read(), run);
    const u64 shown = std::strlen(line.label) + std::strlen(line.value) + length;
    // Behind the words with two blanks at least, and at the right where they are short.
    for (u64 column = shown; column + text.size() < std::max<u64>(width_, shown + text.size() + 2); column++)
      if (length + text.size() < sizeof tail) tail[length++] = ' ';
    length += text.copy(tail + length, sizeof tail - length);
  }
  console::show_live_line(line.label, line.value, {tail, length});
}

// Not while the user is asked about a fault: the line would run over the answer.
void LinearConsoleNode::keep_drawing(const std::stop_token& stop) {
  double interval = terminal_ ? 1 : kFirstInterval;
  std::unique_lock lock(mutex_);
  while (!ending_.wait_for(lock, stop, std::chrono::duration<double>(interval), [] { return false; })) {
    if (stop.stop_requested()) return;
    const std::unique_lock asking(fault_mutex(), std::try_to_lock);
    if (!asking) continue;
    if (terminal_) {
      draw();
      continue;
    }
    char run[64];
    std::string text = "Progress:  " + std::string(progress_text(progress_->read(), run));
    {
      const std::lock_guard guard(line_lock_);
      text += std::string("  ") + line_.label + line_.value + line_.tail;
    }
    if (console::print_line_between(text)) interval = std::min(interval * kGrowth, kLongestInterval);
  }
}

}  // namespace orl
