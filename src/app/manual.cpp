#include <algorithm>
#include <cctype>
#include <string_view>

#include "app/documents.h"
#include "app/help_sections.h"
#include "core/version.h"

namespace orvane {
namespace {

// Text in which roff sees no commands of its own. `bold` makes `these` bold instead of quoting them.
std::string escaped(std::string_view text, bool bold) {
  std::string roff;
  bool inside = false;
  for (const char c : text) {
    if (c == '\\') {
      roff += "\\e";
    } else if (c == '-') {
      roff += "\\-";
    } else if (c == '`' && bold) {
      inside = !inside;
      roff += inside ? "\\fB" : "\\fP";
    } else {
      roff += c;
    }
  }
  if (!roff.empty() && (roff[0] == '.' || roff[0] == '\'')) roff.insert(0, "\\&");
  return roff;
}

std::string heading(const char* macro, std::string title) {
  // Sections in capitals, as in every manual.
  if (std::string_view(macro) == "SH")
    std::transform(title.begin(), title.end(), title.begin(),
                   [](unsigned char c) { return std::toupper(c); });
  return "." + std::string(macro) + " \"" + escaped(title, false) + "\"\n";
}

// Paragraphs, with what is indented as an example.
std::string paragraphs(std::string_view text) {
  std::string roff;
  bool example = false;
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(text.size(), line.size() + 1));
    const bool indented = line.starts_with("    ");
    if (indented && !example) roff += ".PP\n.RS 2\n.nf\n";
    if (!indented && example) roff += ".fi\n.RE\n";
    if (indented)
      roff += escaped(line.substr(4), false) + "\n";
    else if (!line.empty())
      roff += ".PP\n" + escaped(line, true) + "\n";
    example = indented;
  }
  return roff + (example ? ".fi\n.RE\n" : "");
}

std::string entries(const std::vector<HelpEntry>& rows) {
  std::string roff;
  for (const HelpEntry& row : rows) {
    roff += ".TP\n\\fB" + escaped(row.form, false) + "\\fP\n" + escaped(row.help, true) + "\n";
    if (!row.example.empty()) roff += ".br\nExample: " + escaped(row.example, false) + "\n";
  }
  return roff;
}

std::string section(const char* macro, const HelpSection& part) {
  return heading(macro, part.title) + paragraphs(part.text) + entries(part.entries);
}

}  // namespace

std::string manual_page() {
  std::string roff =
      ".TH ORVANE 1 \"\" \"Orvane " + std::string(orl::kVersion) + "\" \"User Commands\"\n.nh\n.ad l\n";
  roff += heading("SH", "NAME") + "orvane \\- compute and prove mathematical constants to very many digits\n";
  roff += heading("SH", "SYNOPSIS") +
          "\\fBorvane\\fP [\\fIglobal option\\fP ...] [\\fIaction\\fP [\\fIits options\\fP]]\n";
  const auto action_sections = [&] {
    for (const Action& action : actions()) {
      std::vector<HelpSection> parts = action_help(action);
      parts.front().title = action.form;
      for (const HelpSection& part : parts) roff += section("SS", part);
    }
  };
  for (const HelpSection& part : common_help()) {
    roff += section("SH", part);
    // What the actions have in common leads over to each by itself.
    if (part.title == kActionsTitle) action_sections();
  }
  return roff;
}

}  // namespace orvane
