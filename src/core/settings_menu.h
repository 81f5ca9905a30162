// How an object with settings of its own shows and changes them in a menu, without knowing a screen. The menus
// of src/menus do it on the console.
#pragma once

#include <string_view>
#include <vector>

#include "core/types.h"

namespace orl {

/// What an object with settings needs of a menu.
class SettingsMenu {
 public:
  virtual ~SettingsMenu() = default;
  /// A row such as "   4    Worker Threads:" and the setting's value.
  virtual void row(std::string_view label, std::string_view value) = 0;
  /// A line of explanation below the rows.
  virtual void text(std::string_view line) = 0;
  /// Asks for a number of 64 bits.
  virtual u64 ask_number(std::string_view prompt) = 0;
  /// Asks for numbers of NUMA nodes, each one of `known`, as often as the user likes; may be none.
  virtual std::vector<u32> ask_nodes(const std::vector<u32>& known) = 0;
};

}  // namespace orl
