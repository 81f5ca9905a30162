// environment.cfg, which stands where places.h says: the hardware that was detected when it was written, and
// the settings that depend on it. It is made when it is missing; settings from a file that was written on
// other hardware are not used.
#pragma once

#include <string>
#include <vector>

#include "config/object.h"
#include "core/types.h"
#include "system/topology.h"

namespace orl {

/// The settings that depend on the hardware.
struct Environment {
  /// Where threads are pinned, in turn. By default every core, first threads of physical cores before second
  /// ones.
  std::vector<u32> static_pin_order;
};

/// What holds without a file.
Environment default_environment(const Topology& topology);
/// The whole text of the file for this hardware, with the defaults.
std::string environment_text(const Topology& topology);
/// Throws InvalidParametersException or KeyNotFoundException for what cannot be used.
Environment parse_environment(const Object& root, const Topology& topology);

/// The settings of the file at `path`; writes the file first when there is none, and the way to it; an empty path stands
/// for no place to keep one. Says on the console what it
/// does, and why, when it falls back to the defaults; nothing that it meets is fatal.
Environment load_environment(const std::string& path, const Topology& topology);

/// Leaves out of the pin order what is not in `usable`, the cores that a container or a start on some cores
/// grants to this process, and says so. An order that would be empty stays as it is.
Environment on_usable_cores(Environment environment, const std::vector<u32>& usable);

/// The environment in force: what set_environment() was given, until then this machine's defaults. It is set
/// at start-up, while a single thread runs.
void set_environment(Environment environment);
const Environment& environment();
inline std::vector<u32> static_pin_order() { return environment().static_pin_order; }

}  // namespace orl
