#include "config/parser.h"

#include <cerrno>
#include <fstream>
#include <iterator>

#include "core/exceptions.h"
#include "core/number_forms.h"

namespace orl {

namespace {

enum class Form { kPrimary, kJson };

/// One pass over a text. `at_` never goes past the end, which reads as a byte of zero.
class Parser {
 public:
  Parser(std::string_view text, Form form) : text_(text.substr(0, text.find('\0'))), form_(form) {}

  std::unique_ptr<Value> root() {
    std::unique_ptr<Value> value = parse_value();
    skip_blanks();
    if (peek() != '\0') fail("Unexpected text behind the end.");
    return value;
  }

 private:
  bool json() const { return form_ == Form::kJson; }
  char peek(u64 ahead = 0) const { return at_ + ahead < text_.size() ? text_[at_ + ahead] : '\0'; }

  const char* function() const { return json() ? "parse_json()" : "parse_text()"; }
  [[noreturn]] void fail(const std::string& message) const {
    throw ParseException(function(), "Line " + std::to_string(line_ + 1) + ": " + message);
  }
  [[noreturn]] void fail_at_end() const {
    throw EndOfStreamException(std::string(function()) + ", line " + std::to_string(line_ + 1),
                               "Unexpected end of stream.");
  }

  /// A byte of the text, past which it steps.
  char take() {
    const char c = peek();
    if (c == '\0') fail_at_end();
    if (c == '\n') line_++;
    at_++;
    return c;
  }

  void skip_comment() {
    while (peek() != '\0' && peek() != '\n') at_++;
  }

  /// Whitespace and comments.
  void skip_blanks() {
    for (;;) {
      const char c = peek();
      if (c == ' ' || c == '\t' || c == '\r' || c == '\n') {
        take();
      } else if (c == '/' && peek(1) == '/') {
        skip_comment();
      } else {
        return;
      }
    }
  }

  /// The next significant byte, which stays in place.
  char next() {
    skip_blanks();
    if (peek() == '\0') fail_at_end();
    return peek();
  }

  void enter() {
    take();
    if (++depth_ > kMaxNesting) fail("Nesting is too deep.");
  }
  void leave() {
    take();
    depth_--;
  }

  std::unique_ptr<Value> parse_value() {
    next();
    const u64 line = line_ + 1;
    std::unique_ptr<Value> value = parse_value_here();
    value->line = line;
    return value;
  }

  std::unique_ptr<Value> parse_value_here() {
    switch (peek()) {
      case '"':
        return std::make_unique<String>(parse_string());
      case '[':
        return json() ? parse_json_array() : parse_array();
      case '{':
        return json() ? parse_json_object() : parse_object();
      case ',':
        refuse_comma();
      case '}':
        fail("Unexpected '}'.");
      case ']':
        fail("Unexpected ']'.");
      case 't':
        if (json()) return parse_truth("true");
        break;
      case 'f':
        if (json()) return parse_truth("false");
        break;
    }
    return std::make_unique<Integer>(parse_integer());
  }

  std::unique_ptr<Value> parse_truth(std::string_view word) {
    for (const char c : word)
      if (take() != c) fail("Expected true or false.");
    return std::make_unique<String>(std::string(word), true);
  }

  [[noreturn]] void refuse_comma() const {
    fail(json() ? "Unexpected ','." : "Don't use commas to separate elements.");
  }

  /// The elements of a JSON list, which parse_element() reads one by one, up to the byte that closes it.
  template <class Element>
  void parse_json_list(char close, const char* no_comma, Element&& parse_element) {
    enter();
    for (bool first = true; next() != close; first = false) {
      if (first == (peek() == ',')) first ? refuse_comma() : fail(no_comma);
      if (!first) take();
      parse_element();
    }
    leave();
  }

  std::unique_ptr<Value> parse_object() {
    auto object = std::make_unique<Object>();
    enter();
    while (next() != '}') {
      if (peek() == ',') refuse_comma();
      std::string name = parse_name();
      if (name.empty()) fail("Expected identifier.");
      parse_member(*object, std::move(name), "Expected colon after identifier.");
    }
    leave();
    return object;
  }

  std::unique_ptr<Value> parse_json_object() {
    auto object = std::make_unique<Object>();
    parse_json_list('}', "Expected ',' before object key string.", [&] {
      if (next() == ',') refuse_comma();
      if (peek() != '"') fail("Expected object key string.");
      parse_member(*object, parse_string(), "Expected colon after object key string.");
    });
    return object;
  }

  /// What follows a name: the colon and the value.
  void parse_member(Object& object, std::string name, const char* no_colon) {
    if (object.contains(name)) fail("Duplicate key in object.");
    if (next() != ':') fail(no_colon);
    take();
    object.add_node(std::move(name), parse_value());
  }

  std::unique_ptr<Value> parse_array() {
    auto array = std::make_unique<Array>();
    enter();
    while (next() != ']') array->add(parse_value());
    leave();
    return array;
  }

  std::unique_ptr<Value> parse_json_array() {
    auto array = std::make_unique<Array>();
    parse_json_list(']', "Expected ',' before identifier.", [&] { array->add(parse_value()); });
    return array;
  }

  std::string parse_name() {
    std::string name;
    for (;;) {
      const char c = peek();
      if (c == '\0') fail_at_end();
      if (c == ' ' || c == '\t' || c == ':' || c == '"' || (c == '/' && peek(1) == '/')) return name;
      if (static_cast<unsigned char>(c) < ' ') fail("Invalid character in identifier.");
      if (c == '\\') at_++;
      name.push_back(take());
    }
  }

  std::string parse_string() {
    std::string text;
    take();
    for (;;) {
      char c = take();
      if (c == '"') return text;
      if (c == '\\') {
        c = take();
        if (c != '"' && c != '\\') fail(std::string("Invalid escape character: ") + c);
      }
      text.push_back(c);
    }
  }

  Integer parse_integer() {
    const bool negative = peek() == '-';
    if (negative) at_++;
    // A comma is never part of a number here: it separates nothing either.
    const std::string_view rest = text_.substr(at_);
    const std::string_view literal = rest.substr(0, rest.find_first_of(" \t\r\n,:\"/[]{}"));
    const Number number = parse_number(literal, json() ? NumberForm::kInteger : NumberForm::kCount);
    const u64 limit = (u64{1} << 63) - (negative ? 0 : 1);
    const bool plain = number.read.find_first_not_of("0123456789") == std::string_view::npos;
    if (number.read.empty() || number.too_large || number.value > limit || (json() && !plain))
      fail("Invalid integer literal.");
    if (!number.is_whole()) fail("Invalid integer literal. " + number_refusal(number, NumberForm::kCount));
    at_ += literal.size();
    const char last = literal.back();
    const char unit = last >= '0' && last <= '9' ? '\0' : last;
    return Integer(static_cast<s64>(negative ? 0 - number.value : number.value), unit);
  }

  std::string_view text_;
  Form form_;
  u64 at_ = 0;
  u64 line_ = 0;
  u32 depth_ = 0;
};

std::string read_file(const char* function, const std::string& path) {
  constexpr u64 kMostBytes = u64{1} << 24;  // no file of settings is near it
  constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";
  FileIO::require_file(function, "Unable to open file.", path);
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  if (!file) FileIO::throw_file_error(function, errno, "Unable to open file.", path);
  std::string text;
  char block[4096];
  while (text.size() <= kMostBytes && (file.read(block, sizeof block) || file.gcount() != 0))
    text.append(block, static_cast<u64>(file.gcount()));
  if (file.bad()) FileIO::throw_file_error(function, errno, "Unable to read file.", path);
  if (text.size() > kMostBytes) FileIO::throw_file_error(function, EFBIG, "Unable to read file.", path);
  // Editors of other systems leave one.
  if (text.starts_with(kByteOrderMark)) text.erase(0, kByteOrderMark.size());
  return text;
}

}  // namespace

std::unique_ptr<Value> parse_text(std::string_view text) { return Parser(text, Form::kPrimary).root(); }

std::unique_ptr<Value> parse_json(std::string_view text) { return Parser(text, Form::kJson).root(); }

std::unique_ptr<Value> load_file(const std::string& path) {
  return parse_text(read_file("load_file()", path));
}

std::unique_ptr<Value> load_json_file(const std::string& path) {
  return parse_json(read_file("load_json_file()", path));
}

}  // namespace orl
