// The console as the menu in which frameworks and allocators show and change their own settings.
#pragma once

#include "core/settings_menu.h"

namespace orl {

/// The menu on the console.
class ConsoleSettingsMenu final : public SettingsMenu {
 public:
  void row(std::string_view label, std::string_view value) override;
  void text(std::string_view line) override;
  u64 ask_number(std::string_view prompt) override;
  /// Reads numbers until an empty line. One that is not known is refused by name.
  std::vector<u32> ask_nodes(const std::vector<u32>& known) override;
};

}  // namespace orl
