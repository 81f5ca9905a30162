#include "console/console_status.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>

#include "console/console.h"

namespace orl {

namespace {

u64 now_ns() {
  return static_cast<u64>(std::chrono::steady_clock::now().time_since_epoch() / std::chrono::nanoseconds(1));
}

}  // namespace

LinearConsoleNode::LinearConsoleNode(u32 width, double refresh_seconds)
    : LinearNode("LinearConsoleNode"),
      width_(width),
      terminal_(isatty(STDOUT_FILENO) != 0),
      refresh_ns_(static_cast<u64>(std::max(refresh_seconds, 0.0) * 1e9)) {}

LinearConsoleNode::~LinearConsoleNode() { console::clear_live_line(); }

StatusTree LinearConsoleNode::get_tree() const { refuse("get_tree", "Polling is not supported."); }

void LinearConsoleNode::print(std::string_view text, char colour) { console::print(text, colour); }

void LinearConsoleNode::changed(bool structure) {
  if (!terminal_) return;
  if (depth() == 0) {
    console::clear_live_line();
    last_ns_ = 0;
    return;
  }
  // A stage that opens is shown sooner than a percentage that moves, since nothing may follow it for hours.
  const u64 now = now_ns();
  if (last_ns_ != 0 && now - last_ns_ < (structure ? refresh_ns_ / 20 : refresh_ns_)) return;
  last_ns_ = now;
  Line line;
  compose(line, width_);
  console::show_live_line(line.label, line.value, line.tail);
}

}  // namespace orl
