// What is installed beside the program, made from its tables when it is built.
#pragma once

#include <string>

namespace orvane {

/// The manual page orvane(1), as roff.
std::string manual_page();
/// Completion of the program's command line in bash.
std::string bash_completion();
/// A line for each option, "action TAB key TAB form", for scripts. Global options stand under "global".
std::string option_list();

}  // namespace orvane
