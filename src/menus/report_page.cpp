#include "menus/report_page.h"

#include "console/console.h"

namespace orl {
namespace {

constexpr u64 kLabelWidth = 28;

// What is missing stands out.
char colour_of(std::string_view value) {
  const bool missing =
      value == "No" || value == "Unknown" || value.starts_with("No - ") || value.starts_with("Not Available");
  return missing ? 'Y' : 'G';
}

}  // namespace

void print_report_page(std::string_view title, const std::vector<ReportSection>& sections) {
  console::newline();
  console::println(title, 'T');
  for (const ReportSection& section : sections) {
    console::newline();
    const bool one_line = section.rows.size() == 1 && section.rows[0].first.empty();
    if (one_line) {
      console::print_padded(kLabelWidth, section.title, 'w');
    } else {
      console::println(section.title, 'w');
    }
    for (const auto& [label, value] : section.rows) {
      if (!one_line) console::print_padded(kLabelWidth, "    " + label, 'w');
      console::println(value, colour_of(value));
    }
  }
}

}  // namespace orl
