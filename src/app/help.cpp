#include <algorithm>
#include <string>
#include <string_view>

#include "app/actions.h"
#include "app/help_sections.h"
#include "console/console.h"
#include "core/format.h"
#include "core/version.h"
#include "simd/target.h"

namespace orvane {
namespace {

namespace console = orl::console;

constexpr std::size_t kFormWidth = 22;

void print_text(std::string_view text) {
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(text.size(), line.size() + 1));
    if (line.starts_with("    "))
      console::println(line, 'G');
    else
      console::println((line.empty() ? "" : "  ") + orl::wrapped(line, 2), 'w');
  }
}

// "  form      help text, wrapped under itself" and the example on its own line.
void print_entry(const HelpEntry& entry) {
  const std::size_t margin = kFormWidth + 2;
  console::print("  ", 'w');
  console::print_padded(kFormWidth, entry.form, 'G');
  if (entry.form.size() >= kFormWidth) {
    console::newline();
    console::print(std::string(margin, ' '), 'w');
  }
  console::println(orl::wrapped(entry.help, margin), 'w');
  if (!entry.example.empty()) console::println(std::string(margin, ' ') + "Example: " + entry.example, 't');
}

void print_sections(const std::vector<HelpSection>& sections) {
  print_banner();
  for (const HelpSection& section : sections) {
    console::println("\n" + section.title, 'Y');
    print_text(section.text);
    for (const HelpEntry& entry : section.entries) print_entry(entry);
  }
}

}  // namespace

void print_banner() {
  console::println(std::string("Orvane v") + orl::kVersion + "  (" +
                       orl::simd::target_name(orl::simd::active_target()) + ", " + orl::kBuildType + ")",
                   'T');
}

void print_version() { console::println(std::string("Orvane ") + orl::kVersion, 'w'); }

void print_help() { print_sections(whole_help()); }
void print_help(const Action& action) {
  std::vector<HelpSection> sections = action_help(action);
  if (action.options) sections.push_back(number_forms());
  print_sections(sections);
}

}  // namespace orvane
