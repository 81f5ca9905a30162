// Configuration files that hold an action and its settings.
#pragma once

#include <string>

#include "app/command_line.h"
#include "compute/parameters.h"

namespace orvane {

/// The name with ".cfg" behind it, unless it holds a point anywhere.
std::string action_file_path(const std::string& name);

/// Writes the settings of a custom computation. Throws FileException.
void save_custom(const std::string& path, const ModeHolder& mode);
/// Takes the settings from a file. Throws ConfigException, ParseException, EndOfStreamException or
/// FileException; the settings stay as they were then.
void load_custom(const std::string& path, ModeHolder& mode);

/// The action `config`: runs the action of the file that the line names.
int run_config(orl::CommandLine::Parameters& line);

}  // namespace orvane
