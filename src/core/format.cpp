#include "core/format.h"

#include <stdio.h>

#include <algorithm>
#include <cstdlib>

namespace orl {

std::string format_with_commas(u64 value) {
  std::string text = std::to_string(value);
  for (u64 digits = text.size(); digits > 3; digits -= 3) text.insert(digits - 3, 1, ',');
  return text;
}

std::string format_bytes(u64 bytes) {
  return format_with_commas(bytes) + " (" + format_binary_size(bytes) + ")";
}

std::string format_binary_size(u64 bytes) {
  static constexpr const char* units[] = {"bytes", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  double value = static_cast<double>(bytes);
  u32 unit = 0;
  // 1023.5 and more would be shown as 1024.
  for (; value >= 1023.5; value /= 1024) unit++;
  return (unit == 0 ? std::to_string(bytes) : format_float(value, 3)) + " " + units[unit];
}

std::string format_float(double value, u32 digits) {
  char text[512];
  const int precision = static_cast<int>(std::clamp<u32>(digits, 1, 17)) - 1;
  // The exponent after rounding: 9.996 has three digits as "10.0".
  snprintf(text, sizeof text, "%.*e", precision, value);
  const char* exponent = std::find(text, text + sizeof text - 1, 'e');
  if (*exponent != 'e') return text;
  const int decimals = std::max(0, precision - std::atoi(exponent + 1));
  snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}

std::string padded(std::string_view text, u64 width) {
  std::string result(text);
  if (result.size() < width) result.append(width - result.size(), ' ');
  return result;
}

std::string wrapped(std::string_view text, u64 margin) {
  constexpr u64 kLineWidth = 79;
  const std::string line_feed = "\n" + std::string(margin, ' ');
  std::string lines;
  for (bool first = true; first || !text.empty(); first = false) {
    std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(text.size(), line.size() + 1));
    if (!first) lines += line_feed;
    const bool names_path = line.starts_with("Path: ") || line.starts_with('"');
    while (!names_path && margin + line.size() > kLineWidth) {
      u64 end = line.rfind(' ', kLineWidth - margin);
      if (end == std::string_view::npos) end = std::min(line.find(' '), line.size());
      lines.append(line.substr(0, end));
      line.remove_prefix(std::min(line.size(), end + 1));
      if (!line.empty()) lines += line_feed;
    }
    lines += line;
  }
  return lines;
}

}  // namespace orl
