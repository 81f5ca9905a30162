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
  std::string size = format_binary_size(bytes);
  // The number takes five columns.
  if (const auto blank = size.find(' '); blank < 5) size.insert(0, 5 - blank, ' ');
  return format_with_commas(bytes) + " (" + size + ")";
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

}  // namespace orl
