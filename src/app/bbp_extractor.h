// The BBP digit extractor as its user sees it: settings, run, report.
#pragma once

#include "bbp/bbp_digits.h"

namespace orvane {

/// Shows the settings until the user starts a run, runs it and prints its report.
void Menu_BbpExtractor();
/// The extraction that a menu begins with: one thread for each core.
BbpTask default_bbp_task();
/// Runs and prints an extraction.
void run_bbp_task(const BbpTask& task);
/// Runs an extraction and prints what came of it as JSON, and nothing else.
void print_bbp_object(const BbpTask& task);

}  // namespace orvane
