// The BBP digit extractor as its user sees it: settings, run, report.
#pragma once

namespace orvane {

/// Shows the settings until the user starts a run, runs it and prints its report.
void Menu_BbpExtractor();

}  // namespace orvane
