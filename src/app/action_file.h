// Configuration files that hold an action and its settings.
#pragma once

#include <string>

#include "app/command_line.h"
#include "benchio/io_benchmark.h"
#include "session/parameters.h"
#include "stress/stress_settings.h"

namespace orvane {

/// The name with ".cfg" behind it, unless it holds a point anywhere.
std::string action_file_path(const std::string& name);

/// Writes the settings with the action that they belong to. Throws FileException.
void save_custom(const std::string& path, const ModeHolder& mode);
void save_bench_io(const std::string& path, const BenchIoSettings& settings);
void save_stress(const std::string& path, const StressSettings& settings);
/// Takes the settings from a file of their action. Throws ConfigException, ParseException,
/// EndOfStreamException or FileException; the settings stay as they were then.
void load_custom(const std::string& path, ModeHolder& mode);
void load_bench_io(const std::string& path, BenchIoSettings& settings);
void load_stress(const std::string& path, StressSettings& settings);

/// The action `config`: runs the action of the file that the line names.
int run_config(orl::CommandLine::Parameters& line);

}  // namespace orvane
