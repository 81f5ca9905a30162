// Tables of an enum's values and their texts, read in both directions.
//
//   constexpr Named<Mode> kModes[] = {{Mode::disabled, "disable"}, {Mode::forced, "forced"}};
//   name_of(kModes, mode);          // a text, or null
//   value_named(kModes, "forced");  // a value, or none
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>
#include <type_traits>

namespace orl {

/// One row of a table.
template <class Value>
struct Named {
  Value value;
  const char* name;
};

/// The text of `value`; `otherwise` where no row has it.
template <class Value, std::size_t kRows>
constexpr const char* name_of(const Named<Value> (&table)[kRows], std::type_identity_t<Value> value,
                              const char* otherwise = nullptr) {
  for (const Named<Value>& row : table)
    if (row.value == value) return row.name;
  return otherwise;
}

/// The value whose text is `name`.
template <class Value, std::size_t kRows>
constexpr std::optional<Value> value_named(const Named<Value> (&table)[kRows], std::string_view name) {
  for (const Named<Value>& row : table)
    if (row.name == name) return row.value;
  return std::nullopt;
}

}  // namespace orl
