// The actions, the main menu, and what stands around them: help, version, about.
#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "app/command_line.h"
#include "app/options.h"

namespace orvane {

/// A row of the action table. `run` gets the line with the cursor on the action's own token and returns the
/// status; `options` is null for an action that takes none.
struct Action {
  const char* key;
  const char* form;
  const char* help;
  const char* example;
  int (*run)(orl::CommandLine::Parameters& line);
  std::vector<OptionText> (*options)() = nullptr;
};
/// All actions, in the order of the help.
std::span<const Action> actions();
/// The row with this key, or null.
const Action* find_action(std::string_view key);

/// Runs the action at the cursor, or the main menu when the line is at its end. An unknown word prints
/// "Invalid Parameter: " with its key; the status is then 1.
int dispatch(orl::CommandLine::Parameters& line);

/// True for a line that asks for help or the version: it is answered without a look at the machine.
bool asks_for_words(const orl::CommandLine::Parameters& line);
/// --help, -h, help: every action, option and number form with an example.
void print_help();
/// ACTION --help: one action.
void print_help(const Action& action);
/// --version, version.
void print_version();
/// The program's name, version and build target.
void print_banner();

}  // namespace orvane
