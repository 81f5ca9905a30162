// The menu of a custom computation.
#pragma once

namespace orvane {

/// Shows every setting with its number until the user starts the computation; returns the run's status. What
/// the user gets wrong is told and leaves the settings as they were.
int custom_menu();

}  // namespace orvane
