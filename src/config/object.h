// The tree of values in which every structured file is held: configuration files, the environment file,
// checkpoint metadata, formulas.
//
// Four kinds: Integer, String, Array, Object. A boolean is the string "true" or "false". Ownership is by a
// single owner all the way down; a parsed file is one owning pointer to its root. A tree belongs to one
// thread at a time.
//
// Comments go out with the text form and are skipped when it is read: a node's comment stands on lines of its
// own before it, a value's own comment behind it (of an array or object: behind its opening bracket).
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/types.h"

namespace orl {

/// The four kinds; kind_name() has their names.
enum class ValueKind : int { kInteger = 0, kString = 1, kArray = 2, kObject = 3 };

/// "Integer", "String", "Array" or "Object"; "invalid type" for any other number.
const char* kind_name(ValueKind kind);

class Integer;
class String;
class Array;
class Object;

/// A node of the tree: what every kind has.
class Value {
 public:
  /// Called by the four kinds.
  explicit Value(ValueKind kind) : kind_(kind) {}
  virtual ~Value() = default;
  ValueKind kind() const { return kind_; }

  /// This value as the kind asked for. Throws InvalidParametersException "name: Expected Object, got String."
  /// on another kind; without "name: " when the name is empty, as for the root of a file.
  const Integer& as_integer(std::string_view name) const;
  const String& as_string(std::string_view name) const;
  const Array& as_array(std::string_view name) const;
  const Object& as_object(std::string_view name) const;
  Array& as_array(std::string_view name);
  Object& as_object(std::string_view name);

  std::string comment;
  u64 line = 0;  ///< of the text that it was read from, where it begins; 0: made by the program

 protected:
  Value(Value&&) = default;
  Value& operator=(Value&&) = default;

 private:
  void check_kind(std::string_view name, ValueKind wanted) const;
  template <class Kind>
  const Kind& as(ValueKind kind, std::string_view name) const;

  ValueKind kind_;
};

class Integer final : public Value {
 public:
  /// Any 64-bit value.
  explicit Integer(s64 integer, char letter = '\0')
      : Value(ValueKind::kInteger), value(integer), unit(letter) {}
  s64 value;
  char unit;  ///< the K, M, B or T that the value was written with; 0: none
};

class String final : public Value {
 public:
  /// Any bytes; the text form refuses a byte of zero when it is written.
  explicit String(std::string text, bool is_truth = false)
      : Value(ValueKind::kString), value(std::move(text)), truth(is_truth) {}
  std::string value;
  bool truth;  ///< "true" or "false" as a boolean, which JSON writes bare
};

class Array final : public Value {
 public:
  Array() : Value(ValueKind::kArray) {}

  /// Each appends a value, which the array owns from then on.
  void add_integer(s64 value);
  void add_string(std::string value);
  void add_array(std::unique_ptr<Array> array);
  void add_array(Array array);
  void add_object(std::unique_ptr<Object> object);
  void add_object(Object object);
  void add(std::unique_ptr<Value> value);

  u64 size() const { return values_.size(); }
  /// Element `index`, which must be below size().
  const Value& operator[](u64 index) const { return *values_[index]; }

 private:
  std::vector<std::unique_ptr<Value>> values_;
};

/// Nodes in the order in which they were added; lookup by key in O(log n).
class Object final : public Value {
 public:
  /// A value, its key and the comment that stands before it.
  struct Node {
    std::string key;
    std::unique_ptr<Value> value;
    std::string comment;
  };

  Object() : Value(ValueKind::kObject) {}

  // Each throws InvalidParametersException "Attempted to add an existing key." under its own name, and leaves
  // the object as it was.
  void add_integer(std::string key, s64 value, std::string node_comment = {});
  void add_string(std::string key, std::string value, std::string node_comment = {});
  void add_bool(std::string key, bool value, std::string node_comment = {});
  void add_array(std::string key, std::unique_ptr<Array> array, std::string node_comment = {});
  void add_array(std::string key, Array array, std::string node_comment = {});
  void add_object(std::string key, std::unique_ptr<Object> object, std::string node_comment = {});
  void add_object(std::string key, Object object, std::string node_comment = {});
  void add_node(std::string key, std::unique_ptr<Value> value, std::string node_comment = {});

  /// Throws KeyNotFoundException with the key in its text.
  const Value& get(std::string_view key) const;
  /// Null when the key is not there.
  const Value* find(std::string_view key) const;
  bool contains(std::string_view key) const { return find(key) != nullptr; }

  // get(), then the type check with the key as the name.
  /// A number that was written with a unit of digits throws InvalidParametersException: among bytes it would
  /// mean something else.
  s64 get_integer(std::string_view key) const;
  /// A number of digits, which may have a unit.
  s64 get_count(std::string_view key) const;
  const std::string& get_string(std::string_view key) const;
  const Array& get_array(std::string_view key) const;
  const Object& get_object(std::string_view key) const;
  /// The string "true" or "false"; any other text throws ParseException "Expected true or false."
  bool get_bool(std::string_view key) const;

  const std::vector<Node>& nodes() const { return nodes_; }

 private:
  void insert(const char* function, std::string key, std::unique_ptr<Value> value, std::string node_comment);

  std::vector<Node> nodes_;
  std::map<std::string, u64, std::less<>> index_;  ///< key to place in nodes_
};

/// as_object("").
const Object& root_object(const Value& root);

/// Same kinds, numbers, texts, keys and order; comments do not count.
bool same_content(const Value& a, const Value& b);
/// A tree of its own with the same content.
std::unique_ptr<Value> copy_of(const Value& value);
Object copy_of(const Object& object);

}  // namespace orl
