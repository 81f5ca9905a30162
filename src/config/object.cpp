#include "config/object.h"

#include <utility>

#include "core/exceptions.h"
#include "core/name_table.h"

namespace orl {
namespace {

constexpr Named<ValueKind> kKindNames[] = {
    {ValueKind::kInteger, "Integer"},
    {ValueKind::kString, "String"},
    {ValueKind::kArray, "Array"},
    {ValueKind::kObject, "Object"},
};

}  // namespace

const char* kind_name(ValueKind kind) { return name_of(kKindNames, kind, "invalid type"); }

void Value::check_kind(std::string_view name, ValueKind wanted) const {
  if (kind_ == wanted) return;
  std::string text(name);
  if (!text.empty()) text += ": ";
  throw InvalidParametersException(
      "Value::check_kind()", text + "Expected " + kind_name(wanted) + ", got " + kind_name(kind_) + ".");
}

template <class Kind>
const Kind& Value::as(ValueKind kind, std::string_view name) const {
  check_kind(name, kind);
  return static_cast<const Kind&>(*this);
}

const Integer& Value::as_integer(std::string_view name) const {
  return as<Integer>(ValueKind::kInteger, name);
}
const String& Value::as_string(std::string_view name) const { return as<String>(ValueKind::kString, name); }
const Array& Value::as_array(std::string_view name) const { return as<Array>(ValueKind::kArray, name); }
const Object& Value::as_object(std::string_view name) const { return as<Object>(ValueKind::kObject, name); }

Array& Value::as_array(std::string_view name) {
  return const_cast<Array&>(std::as_const(*this).as_array(name));
}

Object& Value::as_object(std::string_view name) {
  return const_cast<Object&>(std::as_const(*this).as_object(name));
}

void Array::add_integer(s64 value) { add(std::make_unique<Integer>(value)); }
void Array::add_string(std::string value) { add(std::make_unique<String>(std::move(value))); }
void Array::add_array(std::unique_ptr<Array> array) { add(std::move(array)); }
void Array::add_array(Array array) { add(std::make_unique<Array>(std::move(array))); }
void Array::add_object(std::unique_ptr<Object> object) { add(std::move(object)); }
void Array::add_object(Object object) { add(std::make_unique<Object>(std::move(object))); }
void Array::add(std::unique_ptr<Value> value) { values_.push_back(std::move(value)); }

void Object::insert(const char* function, std::string key, std::unique_ptr<Value> value,
                    std::string node_comment) {
  if (!index_.emplace(key, nodes_.size()).second) {
    throw InvalidParametersException(function, "Attempted to add an existing key.");
  }
  nodes_.push_back({std::move(key), std::move(value), std::move(node_comment)});
}

void Object::add_integer(std::string key, s64 value, std::string node_comment) {
  insert("Object::add_integer()", std::move(key), std::make_unique<Integer>(value), std::move(node_comment));
}

void Object::add_string(std::string key, std::string value, std::string node_comment) {
  insert("Object::add_string()", std::move(key), std::make_unique<String>(std::move(value)),
         std::move(node_comment));
}

void Object::add_bool(std::string key, bool value, std::string node_comment) {
  insert("Object::add_bool()", std::move(key), std::make_unique<String>(value ? "true" : "false", true),
         std::move(node_comment));
}

void Object::add_array(std::string key, std::unique_ptr<Array> array, std::string node_comment) {
  insert("Object::add_array()", std::move(key), std::move(array), std::move(node_comment));
}

void Object::add_array(std::string key, Array array, std::string node_comment) {
  add_array(std::move(key), std::make_unique<Array>(std::move(array)), std::move(node_comment));
}

void Object::add_object(std::string key, std::unique_ptr<Object> object, std::string node_comment) {
  insert("Object::add_object()", std::move(key), std::move(object), std::move(node_comment));
}

void Object::add_object(std::string key, Object object, std::string node_comment) {
  add_object(std::move(key), std::make_unique<Object>(std::move(object)), std::move(node_comment));
}

void Object::add_node(std::string key, std::unique_ptr<Value> value, std::string node_comment) {
  insert("Object::add_node()", std::move(key), std::move(value), std::move(node_comment));
}

const Value* Object::find(std::string_view key) const {
  const auto entry = index_.find(key);
  return entry == index_.end() ? nullptr : nodes_[entry->second].value.get();
}

const Value& Object::get(std::string_view key) const {
  const Value* value = find(key);
  if (!value) throw KeyNotFoundException("Object::get()", "Key not found: " + std::string(key));
  return *value;
}

s64 Object::get_integer(std::string_view key) const {
  const Integer& integer = get(key).as_integer(key);
  if (integer.unit != '\0')
    throw InvalidParametersException("Object::get_integer()",
                                     std::string("\"") + integer.unit +
                                         "\" is for numbers of digits. Please write this number in full: " +
                                         std::to_string(integer.value));
  return integer.value;
}
s64 Object::get_count(std::string_view key) const { return get(key).as_integer(key).value; }
const std::string& Object::get_string(std::string_view key) const { return get(key).as_string(key).value; }
const Array& Object::get_array(std::string_view key) const { return get(key).as_array(key); }
const Object& Object::get_object(std::string_view key) const { return get(key).as_object(key); }

bool Object::get_bool(std::string_view key) const {
  const std::string& text = get_string(key);
  if (text != "true" && text != "false")
    throw ParseException("Object::get_bool()", "Expected true or false.");
  return text == "true";
}

const Object& root_object(const Value& root) { return root.as_object(""); }

namespace {

bool same_arrays(const Array& a, const Array& b) {
  if (a.size() != b.size()) return false;
  for (u64 i = 0; i < a.size(); i++) {
    if (!same_content(a[i], b[i])) return false;
  }
  return true;
}

bool same_objects(const Object& a, const Object& b) {
  if (a.nodes().size() != b.nodes().size()) return false;
  for (u64 i = 0; i < a.nodes().size(); i++) {
    const Object::Node& left = a.nodes()[i];
    const Object::Node& right = b.nodes()[i];
    if (left.key != right.key || !same_content(*left.value, *right.value)) return false;
  }
  return true;
}

}  // namespace

bool same_content(const Value& a, const Value& b) {
  if (a.kind() != b.kind()) return false;
  switch (a.kind()) {
    case ValueKind::kInteger:
      return a.as_integer("").value == b.as_integer("").value;
    case ValueKind::kString:
      return a.as_string("").value == b.as_string("").value;
    case ValueKind::kArray:
      return same_arrays(a.as_array(""), b.as_array(""));
    case ValueKind::kObject:
      return same_objects(a.as_object(""), b.as_object(""));
  }
  return false;
}

std::unique_ptr<Value> copy_of(const Value& value) {
  std::unique_ptr<Value> copy;
  switch (value.kind()) {
    case ValueKind::kInteger:
      copy = std::make_unique<Integer>(value.as_integer("").value, value.as_integer("").unit);
      break;
    case ValueKind::kString:
      copy = std::make_unique<String>(value.as_string("").value, value.as_string("").truth);
      break;
    case ValueKind::kArray: {
      auto array = std::make_unique<Array>();
      for (u64 i = 0; i < value.as_array("").size(); i++) array->add(copy_of(value.as_array("")[i]));
      copy = std::move(array);
      break;
    }
    case ValueKind::kObject:
      copy = std::make_unique<Object>(copy_of(value.as_object("")));
  }
  copy->line = value.line;
  return copy;
}

Object copy_of(const Object& object) {
  Object copy;
  for (const Object::Node& node : object.nodes()) copy.add_node(node.key, copy_of(*node.value));
  copy.line = object.line;
  return copy;
}

}  // namespace orl
