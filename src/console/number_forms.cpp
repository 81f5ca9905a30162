#include "console/number_forms.h"

#include <limits>

namespace orl {
namespace {

constexpr u64 kMax = std::numeric_limits<u64>::max();

bool is_digit(char c) { return c >= '0' && c <= '9'; }

u64 saturating_mul(u64 a, u64 b) {
  const u128 product = static_cast<u128>(a) * b;
  return product > kMax ? kMax : static_cast<u64>(product);
}

// Reads the leading digits and removes them from `text`.
u64 take_digits(std::string_view& text, bool* too_large = nullptr) {
  u64 value = 0;
  while (!text.empty() && is_digit(text.front())) {
    const u128 next = static_cast<u128>(value) * 10 + static_cast<u64>(text.front() - '0');
    value = next > kMax ? kMax : static_cast<u64>(next);
    if (too_large && next > kMax) *too_large = true;
    text.remove_prefix(1);
  }
  return value;
}

char upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

}  // namespace

u64 parse_decimal_count(std::string_view text) {
  const u64 value = take_digits(text);
  if (text.empty()) return value;
  switch (upper(text.front())) {
    case 'K':
      return saturating_mul(value, 1000);
    case 'M':
      return saturating_mul(value, 1000000);
    case 'B':
      return saturating_mul(value, 1000000000);
    case 'T':
      return saturating_mul(value, 1000000000000);
    default:
      return value;
  }
}

s64 parse_signed_count(std::string_view text) {
  const bool negative = !text.empty() && text.front() == '-';
  if (negative) text.remove_prefix(1);
  const u64 value = parse_decimal_count(text);
  const u64 limit = static_cast<u64>(std::numeric_limits<s64>::max());
  const s64 magnitude = static_cast<s64>(value > limit ? limit : value);
  return negative ? -magnitude : magnitude;
}

u64 parse_byte_size(std::string_view text) {
  const u64 whole = take_digits(text);
  std::string_view fraction;
  if (!text.empty() && text.front() == '.') {
    text.remove_prefix(1);
    fraction = text;
    take_digits(text);
    fraction.remove_suffix(text.size());
  }
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  static constexpr std::string_view units = "KMGTPE";
  const auto unit = text.empty() ? std::string_view::npos : units.find(upper(text.front()));
  if (unit == std::string_view::npos) return whole;
  const u64 scale = u64{1} << (10 * (unit + 1));

  // ceil(0.d1d2... * scale), digit by digit from the last: after each step `part` is scale times the
  // fraction's tail, and `rest` says that something below a byte was cut off.
  u64 part = 0;
  bool rest = false;
  for (auto digit = fraction.rbegin(); digit != fraction.rend(); ++digit) {
    const u128 sum = static_cast<u128>(scale) * static_cast<u64>(*digit - '0') + part;
    part = static_cast<u64>(sum / 10);
    rest = rest || sum % 10 != 0;
  }
  const u64 bytes = saturating_mul(whole, scale);
  return bytes > kMax - part - rest ? kMax : bytes + part + rest;
}

u64 parse_plain_integer(std::string_view text) { return take_digits(text); }

WholeNumber parse_whole_number(std::string_view text) {
  if (text.empty()) return {0, WholeNumber::kNone};
  bool too_large = false;
  const u64 value = take_digits(text, &too_large);
  if (!text.empty()) return {0, WholeNumber::kNone};
  return {value, too_large ? WholeNumber::kTooLarge : WholeNumber::kExact};
}

}  // namespace orl
