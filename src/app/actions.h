// The nine actions, the main menu, and what stands around them: help, version, about.
#pragma once

#include <span>

#include "app/command_line.h"

namespace orvane {

/// A row of the action table. `run` gets the line with the cursor on the action's own token and returns the
/// status.
struct Action {
  const char* key;
  const char* form;
  const char* help;
  const char* example;
  int (*run)(orl::CommandLine::Parameters& line);
};
std::span<const Action> actions();

/// Runs the action at the cursor, or the main menu when the line is at its end. An unknown word prints
/// "Invalid Parameter: " with its key; the status is then 1.
int dispatch(orl::CommandLine::Parameters& line);

/// --help, -h, help: every action, option and number form with an example.
void print_help();
/// --version, version.
void print_version();
/// The program's name, version and build target.
void print_banner();

}  // namespace orvane
