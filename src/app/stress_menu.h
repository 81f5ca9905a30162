// The menu of the component stress tester.
#pragma once

namespace orvane {

/// Shows every setting with its number until the user starts the test; returns the status of the test.
int stress_menu();

}  // namespace orvane
