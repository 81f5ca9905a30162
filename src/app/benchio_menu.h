// The menu of the I/O benchmark.
#pragma once

namespace orvane {

/// Lets the user change the settings until the benchmark is started; returns its status.
int benchio_menu();

}  // namespace orvane
