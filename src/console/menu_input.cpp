#include "console/menu_input.h"

#include <algorithm>

#include "console/console.h"
#include "console/number_forms.h"

namespace orl {

namespace {

constexpr std::string_view kBlanks = " \t";

void trim(std::string& text) {
  text.erase(0, std::min(text.find_first_not_of(kBlanks), text.size()));
  text.erase(text.find_last_not_of(kBlanks) + 1);
  std::erase(text, ',');
}

/// Steps past a leading run of digits; false when there is none.
bool skip_digits(std::string_view& text) {
  const u64 length = std::min(text.find_first_not_of("0123456789"), text.size());
  text.remove_prefix(length);
  return length != 0;
}

bool skip_one_of(std::string_view& text, std::string_view characters) {
  if (text.empty() || characters.find(text.front()) == std::string_view::npos) return false;
  text.remove_prefix(1);
  return true;
}

template <class Read>
u64 ask(std::string_view prompt, u64 current, Read read, std::string_view wanted) {
  for (;;) {
    const std::string line = console::read_line(prompt);
    if (line.find_first_not_of(kBlanks) == std::string::npos) return current;
    if (const std::optional<u64> value = read(line)) return *value;
    console::println(wanted, 'R');
  }
}

}  // namespace

std::optional<u64> exact_decimal_count(std::string text) {
  trim(text);
  std::string_view rest = text;
  if (!skip_digits(rest)) return std::nullopt;
  skip_one_of(rest, "kKmMbBtT");
  if (!rest.empty()) return std::nullopt;
  return parse_decimal_count(text);
}

std::optional<u64> exact_byte_size(std::string text) {
  trim(text);
  std::string_view rest = text;
  if (!skip_digits(rest)) return std::nullopt;
  if (skip_one_of(rest, ".") && !skip_digits(rest)) return std::nullopt;
  rest.remove_prefix(std::min(rest.find_first_not_of(kBlanks), rest.size()));
  if (skip_one_of(rest, "kKmMgGtTpPeE")) skip_one_of(rest, "i");
  skip_one_of(rest, "bB");
  if (!rest.empty()) return std::nullopt;
  return parse_byte_size(text);
}

u64 ask_decimal_count(std::string_view prompt, u64 current) {
  return ask(prompt, current, exact_decimal_count,
             "Please enter a whole number, with K, M, B or T behind it for 10^3, 10^6, 10^9 or 10^12.");
}

u64 ask_byte_size(std::string_view prompt, u64 current) {
  return ask(prompt, current, exact_byte_size,
             "Please enter a size such as 512 MB or 1.5 GB: K, M, G, T, P and E are 2^10 to 2^60.");
}

}  // namespace orl
