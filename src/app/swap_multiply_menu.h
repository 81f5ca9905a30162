// The menu of "Test Swap Multiply".
#pragma once

namespace orvane {

/// Asks for settings until the test is started; returns the status of the process.
int swap_multiply_menu();

}  // namespace orvane
