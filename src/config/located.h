// Failures of a file's content with the place where they arose.
//
// The parser names the line of a fault of form. What reads the tree behind it names line and key of a value
// that cannot be used, by running each step inside read_key().
#pragma once

#include <string>

#include "config/object.h"
#include "core/exceptions.h"

namespace orl {

/// "Line 6: ComputeSize.DecimalDigits: " and what is wrong; without the line when the tree is none of a file.
class ConfigException final : public ExceptionType<ConfigException, InvalidParametersException> {
 public:
  static constexpr const char* kTypeName = "ConfigException";
  /// `line` 0: the tree is none of a file. `key` is the way from the root; it may be empty.
  ConfigException(u64 line, std::string key, std::string reason);

  u64 line() const { return line_; }
  /// The way from the root, such as "ComputeSize.DecimalDigits".
  const std::string& key() const { return key_; }
  const std::string& reason() const { return reason_; }

 private:
  u64 line_;
  std::string key_, reason_;
};

/// What `e` says, placed at `key` of `object`, and at the object itself where it lacks the key.
ConfigException located(const Object& object, const std::string& key, const Exception& e);

/// Runs `body`, which reads the value of `key`; a failure is thrown as a ConfigException.
template <class Body>
void read_key(const Object& object, const std::string& key, Body&& body) {
  try {
    body();
  } catch (const Exception& e) {
    throw located(object, key, e);
  }
}

/// Runs `body`, which reads the element; a failure names the element's own line, and "[index]" behind the
/// key.
template <class Body>
void read_element(const Array& array, u64 index, Body&& body) {
  try {
    body(array[index]);
  } catch (const Exception& e) {
    throw ConfigException(array[index].line, "[" + std::to_string(index) + "]", e.message());
  }
}

/// As read_key(), only where the key is there.
template <class Body>
void read_optional_key(const Object& object, const std::string& key, Body&& body) {
  if (object.contains(key)) read_key(object, key, std::forward<Body>(body));
}

/// Throws a ConfigException at the first key of `object`, at any depth, that `known` does not have in the
/// same place. DisplayText is written for people and is known everywhere.
void refuse_unknown_keys(const Object& object, const Object& known);

}  // namespace orl
