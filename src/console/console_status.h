// The line of a long run on the console.
#pragma once

#include <condition_variable>
#include <mutex>
#include <stop_token>
#include <string_view>
#include <thread>

#include "core/run_progress.h"
#include "core/status.h"

namespace orl {

/// The console's node. On a terminal the frames, or a count, stand on one line that is rewritten in place; elsewhere
/// only permanent text appears.
///
/// A node with a RunProgress also shows how far the run is, at the right of the line and every second whatever the
/// stage in work says; elsewhere it prints a line of it now and then, seldom: after 10 s first, then at intervals that
/// grow to ten minutes.
class LinearConsoleNode final : public LinearNode {
 public:
  /// `width`: characters of the line. `refresh_seconds`: the least time between two rewritings. `progress` may be
  /// null, and outlives the node.
  explicit LinearConsoleNode(u32 width = 79, double refresh_seconds = 1.0, RunProgress* progress = nullptr);
  ~LinearConsoleNode() override;

  /// Throws InvalidParametersException "Polling is not supported."
  StatusTree get_tree() const override;
  void print(std::string_view text, char colour = 'w') override;

 private:
  void changed(bool structure) override;
  void follow_parts(bool structure);
  void draw();
  void keep_drawing(const std::stop_token& stop);

  u32 width_;
  bool terminal_;
  u64 refresh_ns_;
  u64 last_ns_ = 0;
  StatusFrameId part_ = 0;  ///< the outermost frame

  RunProgress* progress_;
  SpinLock line_lock_;
  Line line_{};  ///< as it was last composed; the thread below draws it again
  std::mutex mutex_;
  std::condition_variable_any ending_;
  std::jthread thread_;
};

}  // namespace orl
