#include "config/writer.h"

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <limits>

#include "core/exceptions.h"

namespace orl {

namespace {

constexpr const char* kLineEnd = "\r\n";

enum class Form { kPrimary, kJson };

void check_text(const std::string& text, const char* what) {
  if (text.find('\0') == std::string::npos) return;
  throw InvalidParametersException("to_string()", std::string(what) + " holds a byte of zero.");
}

std::string quoted(const std::string& text) {
  check_text(text, "String");
  std::string result = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') result.push_back('\\');
    result.push_back(c);
  }
  return result + '"';
}

/// Whether a bare name may not hold the byte at `i` as it stands.
bool needs_escape(const std::string& key, u64 i) {
  const char c = key[i];
  if (static_cast<unsigned char>(c) <= ' ' || c == ':' || c == '"' || c == '\\') return true;
  if (c == '/') return i + 1 < key.size() && key[i + 1] == '/';
  // These would not begin a name.
  return i == 0 && (c == '}' || c == ',');
}

std::string bare_name(const std::string& key) {
  check_text(key, "Key");
  if (key.empty()) throw InvalidParametersException("to_string()", "A key cannot be empty.");
  std::string result;
  for (u64 i = 0; i < key.size(); i++) {
    if (needs_escape(key, i)) result.push_back('\\');
    result.push_back(key[i]);
  }
  return result;
}

class Writer {
 public:
  explicit Writer(Form form) : json_(form == Form::kJson) {}

  /// The value without a line end behind it.
  void value(const Value& value, u32 indent) {
    switch (value.kind()) {
      case ValueKind::kInteger:
        text_ += std::to_string(value.as_integer("").value);
        side_comment(value.comment, indent);
        return;
      case ValueKind::kString:
        text_ += json_ && value.as_string("").truth ? value.as_string("").value
                                                    : quoted(value.as_string("").value);
        side_comment(value.comment, indent);
        return;
      case ValueKind::kArray:
        return array(value.as_array(""), indent);
      case ValueKind::kObject:
        return object(value.as_object(""), indent);
    }
    throw InvalidParametersException(
        "to_string()", "Invalid object type: " + std::to_string(static_cast<int>(value.kind())));
  }

  std::string take(const Value& root) {
    const bool closed = !text_.empty() && (root.kind() == ValueKind::kArray || text_ != "{}") &&
                        root.kind() >= ValueKind::kArray;
    if (closed) text_ += kLineEnd;
    return std::move(text_);
  }

 private:
  void start_line(u32 indent) { text_.append(u64{4} * indent, ' '); }

  /// Lines of a comment, each without its end, handed to `line` with their number.
  template <class Line>
  static void each_line(const std::string& comment, Line line) {
    u64 start = 0;
    for (u64 number = 0; start <= comment.size(); number++) {
      const u64 end = std::min(comment.find('\n', start), comment.size());
      u64 length = end - start;
      if (length != 0 && comment[start + length - 1] == '\r') length--;
      line(number, comment.substr(start, length));
      start = end + 1;
    }
  }

  /// Behind what stands on this line; further lines of the comment follow on their own, indented.
  void side_comment(const std::string& comment, u32 indent) {
    if (json_ || comment.empty()) return;
    check_text(comment, "Comment");
    each_line(comment, [&](u64 number, const std::string& line) {
      if (number == 0) {
        text_ += "   //  " + line;
        return;
      }
      text_ += kLineEnd;
      start_line(indent);
      text_ += "//  " + line;
    });
  }

  void comment_lines(const std::string& comment, u32 indent) {
    if (json_ || comment.empty()) return;
    check_text(comment, "Comment");
    each_line(comment, [&](u64, const std::string& line) {
      start_line(indent);
      text_ += "//  " + line + kLineEnd;
    });
  }

  void array(const Array& array, u32 indent) {
    text_ += '[';
    side_comment(array.comment, indent + 1);
    text_ += kLineEnd;
    for (u64 i = 0; i < array.size(); i++) {
      start_line(indent + 1);
      value(array[i], indent + 1);
      end_element(i + 1 < array.size());
    }
    start_line(indent);
    text_ += ']';
  }

  void object(const Object& object, u32 indent) {
    if (object.nodes().empty()) {
      text_ += "{}";
      return;
    }
    text_ += '{';
    side_comment(object.comment, indent + 1);
    text_ += kLineEnd;
    for (const Object::Node& node : object.nodes()) {
      comment_lines(node.comment, indent + 1);
      start_line(indent + 1);
      text_ += json_ ? quoted(node.key) + ": " : bare_name(node.key) + " : ";
      value(*node.value, indent + 1);
      end_element(&node != &object.nodes().back());
    }
    start_line(indent);
    text_ += '}';
  }

  void end_element(bool more) {
    if (json_ && more) text_ += ',';
    text_ += kLineEnd;
  }

  bool json_;
  std::string text_;
};

std::string write(const Value& root, u32 indent, Form form) {
  Writer writer(form);
  writer.value(root, indent);
  return writer.take(root);
}

}  // namespace

std::string to_string(const Value& value, u32 indent) { return write(value, indent, Form::kPrimary); }

std::string to_json(const Value& value, u32 indent) { return write(value, indent, Form::kJson); }

void save_file(const std::string& path, const std::string& text) {
  errno = 0;
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  if (!file) FileIO::throw_file_error("save_file()", errno, "Unable to create file.", path);
  file.write(text.data(), static_cast<std::streamsize>(text.size()));
  file.close();
  if (!file) FileIO::throw_file_error("save_file()", errno, "Unable to write file.", path);
}

}  // namespace orl
