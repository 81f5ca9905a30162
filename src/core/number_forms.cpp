#include "core/number_forms.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace orl {
namespace {

constexpr u64 kMax = std::numeric_limits<u64>::max();

bool is_digit(char c) { return c >= '0' && c <= '9'; }

char upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

/// A text that is read from its front. Past 64 bits the value stays at the largest.
class NumberReader {
 public:
  explicit NumberReader(std::string_view text) : text_(text) {}

  Number number(NumberForm form) {
    if (!skip_digits()) return {0, false, {}, text_};
    if (!skip_exponent()) {
      if (form == NumberForm::kCount) skip_decimal_unit();
      if (form == NumberForm::kBytes) skip_fraction_and_unit();
    }
    return {value_, too_large_, text_.substr(0, at_), text_.substr(at_)};
  }

 private:
  char peek(u64 ahead = 0) const { return at_ + ahead < text_.size() ? text_[at_ + ahead] : '\0'; }
  u64 digits_at(u64 ahead) const {
    u64 count = 0;
    while (is_digit(peek(ahead + count))) count++;
    return count;
  }
  bool skip_one_of(std::string_view characters) {
    if (peek() == '\0' || characters.find(peek()) == std::string_view::npos) return false;
    at_++;
    return true;
  }

  void scale_by(u64 factor) {
    const u128 product = static_cast<u128>(value_) * factor;
    too_large_ = too_large_ || product > kMax;
    value_ = product > kMax ? kMax : static_cast<u64>(product);
  }
  void add(u64 term) {
    too_large_ = too_large_ || value_ > kMax - term;
    value_ = value_ > kMax - term ? kMax : value_ + term;
  }
  void take_digits(u64 count) {
    for (; count != 0; count--) {
      scale_by(10);
      add(static_cast<u64>(peek() - '0'));
      at_++;
    }
  }

  // One to three digits and groups of three behind commas, or digits and more digits behind underscores.
  bool skip_digits() {
    const u64 first = digits_at(0);
    if (first == 0) return false;
    take_digits(first);
    const char separator = peek();
    const bool commas = separator == ',' && first <= 3;
    while ((commas && peek() == ',' && digits_at(1) == 3) ||
           (separator == '_' && peek() == '_' && digits_at(1) != 0)) {
      at_++;
      take_digits(digits_at(0));
    }
    return true;
  }

  bool skip_exponent() {
    if (upper(peek()) != 'E' || digits_at(1) == 0) return false;
    at_++;
    const u64 value = std::exchange(value_, 0);
    const bool too_large = too_large_;
    take_digits(digits_at(0));
    const u64 exponent = std::min<u64>(value_, 20);  // 10^20 is past 64 bits
    value_ = value;
    too_large_ = too_large;
    for (u64 i = 0; i < exponent; i++) scale_by(10);
    return true;
  }

  void skip_decimal_unit() {
    static constexpr std::string_view kUnits = "KMBT";
    const auto unit = peek() == '\0' ? std::string_view::npos : kUnits.find(upper(peek()));
    if (unit == std::string_view::npos) return;
    at_++;
    for (u64 i = 0; i <= unit; i++) scale_by(1000);
  }

  void skip_fraction_and_unit() {
    std::string_view fraction;
    if (peek() == '.' && digits_at(1) != 0) {
      fraction = text_.substr(at_ + 1, digits_at(1));
      at_ += 1 + fraction.size();
    }
    u64 blanks = 0;
    while (peek(blanks) == ' ') blanks++;
    static constexpr std::string_view kUnits = "KMGTPE";
    const char letter = upper(peek(blanks));
    const auto unit = letter == '\0' ? std::string_view::npos : kUnits.find(letter);
    if (unit != std::string_view::npos) {
      at_ += blanks + 1;
      apply_unit(u64{1} << (10 * (unit + 1)), fraction);
      if (upper(peek()) == 'I' && upper(peek(1)) == 'B') at_++;
      skip_one_of("bB");
    } else if (letter == 'B') {
      at_ += blanks + 1;
    }
  }

  // ceil(0.d1d2... * unit), digit by digit from the last: after each step `part` is the unit times the fraction's
  // tail, and `cut` says that something below a byte was cut off.
  void apply_unit(u64 unit, std::string_view fraction) {
    u64 part = 0;
    bool cut = false;
    for (auto digit = fraction.rbegin(); digit != fraction.rend(); ++digit) {
      const u128 sum = static_cast<u128>(unit) * static_cast<u64>(*digit - '0') + part;
      part = static_cast<u64>(sum / 10);
      cut = cut || sum % 10 != 0;
    }
    scale_by(unit);
    add(part + cut);
  }

  std::string_view text_;
  u64 at_ = 0;
  u64 value_ = 0;
  bool too_large_ = false;
};

const char* how_to_write(NumberForm form) {
  switch (form) {
    case NumberForm::kInteger:
      return "Please enter a whole number.";
    case NumberForm::kCount:
      return "Please enter a whole number; K, M, B and T are 10^3, 10^6, 10^9 and 10^12.";
    case NumberForm::kBytes:
      return "Please enter a size such as 512 MB or 1.5 GB; K to E are 2^10 to 2^60.";
  }
  return "";
}

}  // namespace

Number parse_number(std::string_view text, NumberForm form) { return NumberReader(text).number(form); }

std::string number_refusal(const Number& number, NumberForm form) {
  std::string text;
  if (number.read.empty())
    text = "\"" + std::string(number.rest) + "\" is not a number.";
  else
    text = "\"" + std::string(number.read) + "\" was read, but not the \"" + std::string(number.rest) +
           "\" behind it.";
  return text + "\n" + how_to_write(form);
}

WholeNumber parse_whole_number(std::string_view text) {
  const Number number = parse_number(text, NumberForm::kInteger);
  if (!number.is_whole()) return {0, WholeNumber::kNone};
  return {number.value, number.too_large ? WholeNumber::kTooLarge : WholeNumber::kExact};
}

}  // namespace orl
