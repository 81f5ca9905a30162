// Sections of a report as a page on the console.
#pragma once

#include <string_view>
#include <vector>

#include "system/machine.h"

namespace orl {

/// Title, then each section under its heading, values in a column.
void print_report_page(std::string_view title, const std::vector<ReportSection>& sections);

}  // namespace orl
