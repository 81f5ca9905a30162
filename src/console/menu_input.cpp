#include "console/menu_input.h"

#include <algorithm>

#include "console/console.h"
#include "core/number_forms.h"

namespace orl {

namespace {

constexpr std::string_view kBlanks = " \t";

std::string_view trimmed(std::string_view text) {
  const u64 begin = std::min(text.find_first_not_of(kBlanks), text.size());
  return text.substr(begin, text.find_last_not_of(kBlanks) + 1 - begin);
}

u64 ask(std::string_view prompt, u64 current, NumberForm form) {
  for (;;) {
    const std::string line = console::read_line(prompt);
    const std::string_view answer = trimmed(line);
    if (answer.empty()) return current;
    const Number number = parse_number(answer, form);
    if (number.is_whole()) return number.value;
    console::println(number_refusal(number, form), 'R');
  }
}

}  // namespace

u64 ask_decimal_count(std::string_view prompt, u64 current) {
  return ask(prompt, current, NumberForm::kCount);
}

u64 ask_byte_size(std::string_view prompt, u64 current) { return ask(prompt, current, NumberForm::kBytes); }

}  // namespace orl
