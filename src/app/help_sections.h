// What the help and the manual page say, made from the tables of actions and options.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "app/actions.h"

namespace orvane {

/// "form  help", with an example that works; either of the latter may be empty.
struct HelpEntry {
  std::string form, help, example;
};

/// A stretch of the help: its heading, its paragraphs and its options.
struct HelpSection {
  std::string title;
  std::string text;  ///< paragraphs, an empty line between two; a line of four blanks stands as it is
  std::vector<HelpEntry> entries;
};

/// What the actions have in common. Their options belong behind the section with the title kActionsTitle.
std::vector<HelpSection> common_help();
inline constexpr const char* kActionsTitle = "Actions";
/// common_help() with all options.
std::vector<HelpSection> whole_help();
/// One action: how it is called, what it does, its options.
std::vector<HelpSection> action_help(const Action& action);

/// How the numbers among the options are written.
HelpSection number_forms();

/// Words that the value of an option is chosen from; empty for kAny. Algorithms are those of `constant`, a
/// key of the catalogue, and of all constants where it is empty.
std::vector<std::string> value_words(Values values, std::string_view constant = {});

}  // namespace orvane
