// The results of a run for scripts: what the validation file says, as an object.
#pragma once

#include <string>

#include "session/run_report.h"

namespace orvane {

/// The version of the form of a results file: it grows when a reader of an older one could go wrong.
inline constexpr orl::s64 kResultsVersion = 2;

/// Sizes in bytes, times in microseconds, counts as integers, dates by ISO 8601.
orl::Object results_object(const RunReport& report, const std::string& validation_file);

/// Results as JSON. Texts become valid UTF-8 without control characters: other bytes read U+FFFD, so that every reader of
/// JSON takes them.
std::string results_json(const orl::Object& results);
/// Prints that JSON.
void print_results(const orl::Object& results);

}  // namespace orvane
