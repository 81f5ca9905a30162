// What the settings menus share: faults that are told and leave the menu open, and the rows for files.
#pragma once

#include <functional>
#include <string>

#include "core/types.h"

namespace orvane {

/// Runs `step`; an exception is told. False when there was one.
bool try_step(const std::function<void()>& step);

inline constexpr orl::u64 kLoadRow = 20, kSaveRow = 21;

/// " 20/21  Load / Save Configuration".
void print_file_rows();
/// Asks for a path and hands it to `load`; an empty one leaves everything as it is. The extension may be left
/// out. A file that exists is saved over only after a "yes".
void choose_file_to_load(const std::function<void(const std::string& path)>& load);
void choose_file_to_save(const std::function<void(const std::string& path)>& save);

}  // namespace orvane
