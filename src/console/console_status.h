// The line of a long run on the console.
#pragma once

#include <string_view>

#include "core/status.h"

namespace orl {

/// The console's node. On a terminal the frames stand on one line that is rewritten in place; elsewhere only
/// permanent text appears.
class LinearConsoleNode final : public LinearNode {
 public:
  /// `width`: characters of the line. `refresh_seconds`: the least time between two rewritings.
  explicit LinearConsoleNode(u32 width = 79, double refresh_seconds = 1.0);
  ~LinearConsoleNode() override;

  /// Throws InvalidParametersException "Polling is not supported."
  StatusTree get_tree() const override;
  void print(std::string_view text, char colour = 'w') override;

 private:
  void changed(bool structure) override;

  u32 width_;
  bool terminal_;
  u64 refresh_ns_;
  u64 last_ns_ = 0;
};

}  // namespace orl
