#include "core/exceptions.h"

#include <algorithm>
#include <cerrno>
#include <concepts>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <utility>

#include "core/format.h"
#include "core/name_table.h"
#include "core/output.h"

namespace orl {

namespace {

constexpr const char* kUnknownError = "Unknown C/C++ Error";
constexpr const char* kUnknownText = "\nException type unknown to this module. Unable to display.\n";

/// Appends fields in the blob's form.
class BlobWriter {
 public:
  // Up to the first NUL, which ends a string in a blob.
  void put(const std::string& text) { bytes_.append(text.c_str(), std::strlen(text.c_str()) + 1); }
  template <std::integral T>
  void put(T value) {
    for (u32 i = 0; i < sizeof value; i++) bytes_.push_back(static_cast<char>(value >> (8 * i) & 0xff));
  }
  void put(const std::vector<u64>& values) {
    put(u64{values.size()});
    for (const u64 value : values) put(value);
  }
  ExceptionBlob blob() const { return ExceptionBlob(std::string_view(bytes_)); }

 private:
  std::string bytes_;
};

template <class... Fields>
ExceptionBlob blob_of(const char* type_name, const Fields&... fields) {
  BlobWriter out;
  out.put(std::string(type_name));
  (out.put(fields), ...);
  return out.blob();
}

std::string hexadecimal(u64 value) {
  static constexpr const char* digits = "0123456789abcdef";
  std::string text = "0x";
  for (int shift = 60; shift >= 0; shift -= 4) text.push_back(digits[value >> shift & 15]);
  return text;
}

void print_field(std::string_view label, std::string_view value, char colour = 'Y') {
  notice_value(label, value, colour);
  notice("\n", ' ');
}

void print_count(std::string_view label, u64 value) { print_field(label, format_with_commas(value)); }

void print_function(const std::string& function) {
  if (!function.empty()) print_field("In Function: ", function);
}

void print_title(std::string_view title) {
  notice("\n", ' ');
  notice_line(title, 'R');
}

void print_end() {
  notice("\n", ' ');
  output().set_colour('w');
}

/// How a check that found something begins.
void print_found(const std::string& function, std::string_view what) {
  notice("\n", ' ');
  print_function(function);
  notice_line(what, 'R');
}

void print_hashes(const std::vector<u64>& hashes) {
  for (u64 i = 0; i < hashes.size(); i++) {
    print_field("    hash[" + std::to_string(i) + "] = ", hexadecimal(hashes[i]));
  }
}

/// The first part of what says an error code.
void print_coded(std::string_view title, const Exception& fault, s32 code) {
  print_title(title);
  print_function(fault.function());
  notice("\n", ' ');
  notice_line(fault.message(), ' ');
  notice("\n", ' ');
  print_field("Error Code: ", std::to_string(code));
  const std::string reason = FileIO::errno_text(code);
  if (code > 0 && fault.message().find(reason) == std::string::npos)
    print_field("Reason: ", std::strerror(code));
}

}  // namespace

/// Reads fields in order. After a field that is cut short everything reads as empty or zero, and failed() is
/// true.
class BlobReader {
 public:
  explicit BlobReader(std::string_view bytes) : rest_(bytes) {}

  /// The next field, of one of the types that a BlobWriter takes.
  template <class Field>
  Field next() {
    Field field;
    take(field);
    return field;
  }
  bool failed() const { return failed_; }

 private:
  void fail() {
    failed_ = true;
    rest_ = {};
  }
  void take(std::string& text) {
    const std::size_t end = rest_.find('\0');
    if (end == std::string_view::npos) return fail();
    text = rest_.substr(0, end);
    rest_.remove_prefix(end + 1);
  }
  template <std::integral T>
  void take(T& value) {
    value = 0;
    if (rest_.size() < sizeof value) return fail();
    u64 bits = 0;
    for (u32 i = 0; i < sizeof value; i++) bits |= u64{static_cast<u8>(rest_[i])} << (8 * i);
    value = static_cast<T>(bits);
    rest_.remove_prefix(sizeof value);
  }
  void take(std::vector<u64>& values) {
    const u64 count = next<u64>();
    if (count > rest_.size() / 8) return fail();
    values.resize(count);
    for (u64& value : values) take(value);
  }

  std::string_view rest_;
  bool failed_ = false;
};

ExceptionBlob::ExceptionBlob(std::string_view bytes)
    : size_(bytes.size()), data_(new char[bytes.size()]), deleter_([](char* data) { delete[] data; }) {
  std::copy(bytes.begin(), bytes.end(), data_);
}

ExceptionBlob::ExceptionBlob(ExceptionBlob&& other) noexcept { *this = std::move(other); }

ExceptionBlob& ExceptionBlob::operator=(ExceptionBlob&& other) noexcept {
  std::swap(size_, other.size_);
  std::swap(data_, other.data_);
  std::swap(deleter_, other.deleter_);
  return *this;
}

ExceptionBlob::~ExceptionBlob() {
  if (deleter_) deleter_(data_);
}

Exception::~Exception() = default;

void Exception::print() const {
  notice("\n", ' ');
  print_field("Exception Encountered: ", get_typename(), 'R');
  print_function(function_);
  notice_line(wrapped(message_), ' ');
  print_end();
}

ExceptionBlob StringException::serialize() const { return blob_of(kTypeName, function_, message_); }

void StdException::print() const {
  notice("\n", ' ');
  print_field("Exception Encountered: ", kTypeName, 'R');
  notice_line(message_, ' ');
  print_end();
}

ExceptionBlob StdException::serialize() const { return blob_of(kTypeName, message_); }

void SystemException::print() const {
  print_coded("System Exception Encountered", *this, code_);
  print_end();
}

ExceptionBlob SystemException::serialize() const { return blob_of(kTypeName, function_, message_, code_); }

void BufferTooSmallException::print() const {
  print_title("Buffer is too small:");
  print_field("    Function: ", function_);
  print_count("    Buffer Size: ", buffer_size_);
  print_count("    Required Size: ", required_size_);
  print_end();
}

ExceptionBlob BufferTooSmallException::serialize() const {
  return blob_of(kTypeName, function_, buffer_size_, required_size_);
}

void ExponentOverflowException::print() const {
  print_title("Floating-point exponent has exceeded internal limit:");
  print_field("    Function: ", function_);
  print_field("    Value: ", std::to_string(value_));
  print_field("    Limit: ", std::to_string(limit_));
  print_end();
}

ExceptionBlob ExponentOverflowException::serialize() const {
  return blob_of(kTypeName, function_, value_, limit_);
}

void LimitExceededException::print() const {
  print_title("Limit Exceeded:");
  if (!message_.empty()) print_field("    Message: ", message_);
  print_field("    Function: ", function_);
  print_field("    Limit: ", limit_ == 0 ? "Unknown" : format_with_commas(limit_));
  print_count("    Attempted: ", attempted_);
  print_end();
}

ExceptionBlob LimitExceededException::serialize() const {
  return blob_of(kTypeName, function_, message_, limit_, attempted_);
}

void PathFault::print_titled(std::string_view title) const {
  print_coded(title, *this, code_);
  print_field("Path: ", path_);
  print_end();
}

ExceptionBlob PathFault::serialize() const {
  return blob_of(get_typename(), function_, message_, path_, code_);
}

void FileIO::FileException::print() const { print_titled("Exception Encountered"); }

std::string FileIO::errno_text(s32 code) {
  static constexpr Named<s32> kTexts[] = {{ENOENT, "Path does not exist."},
                                          {EIO, "Hardware Error"},
                                          {ENOMEM, "Not Enough Memory"},
                                          {EACCES, "Access Denied"},
                                          {ENOSPC, "Disk is Full"}};
  const char* const text = name_of(kTexts, code);
  return text ? text : std::string(kUnknownError) + ": " + std::strerror(code);
}

void FileIO::throw_file_error(ExceptionText function, s32 code, ExceptionText message, ExceptionText path) {
  throw FileException(std::move(function), message.value + "\n\n" + errno_text(code), std::move(path), code);
}

void FileIO::throw_file_error(s32 code, ExceptionText message, ExceptionText path) {
  throw_file_error("", code, std::move(message), std::move(path));
}

void FileIO::require_file(ExceptionText function, ExceptionText message, const std::string& path) {
  using std::filesystem::file_type;
  static constexpr Named<file_type> kOthers[] = {{file_type::directory, "A folder has this name."},
                                                 {file_type::fifo, "It is a pipe."},
                                                 {file_type::socket, "It is a socket."},
                                                 {file_type::character, "It is a device."}};
  std::error_code ignored;
  const file_type type = std::filesystem::status(path, ignored).type();
  const char* const what = name_of(kOthers, type);
  if (what == nullptr) return;
  message.value += std::string(" ") + what;
  if (type == file_type::directory) throw_file_error(std::move(function), EISDIR, std::move(message), path);
  throw FileException(std::move(function), std::move(message), path, 0);
}

void R03::Raid03Exception::print() const { print_titled("Raid03 Exception Encountered"); }

void FarMemoryOutOfBoundsException::print() const {
  print_title("Out-of-Bounds Access on FarMemory object:");
  print_field("    Function: ", function_);
  print_count("    Object Size: ", object_size_);
  print_count("    Access Offset: ", offset_);
  print_count("    Access Length: ", length_);
  print_end();
}

ExceptionBlob FarMemoryOutOfBoundsException::serialize() const {
  return blob_of(kTypeName, function_, object_size_, offset_, length_);
}

void ConvolutionFault::print_sizes() const {
  print_count("    Convolution Size: ", convolution_size_);
  print_count("    Requested Size: ", requested_size_);
}

void ConvolutionTooSmallException::print() const {
  print_found(function_, "Limit Exceeded:");
  print_field("    Message: ", message_);
  print_sizes();
  print_end();
}

ExceptionBlob ConvolutionTooSmallException::serialize() const {
  return blob_of(kTypeName, function_, message_, convolution_size(), requested_size());
}

void ConvolutionFailedException::print() const {
  print_found(function_, message_);
  print_sizes();
  print_hashes(hashes_);
  print_end();
}

ExceptionBlob ConvolutionFailedException::serialize() const {
  return blob_of(kTypeName, function_, message_, convolution_size(), requested_size(), hashes_);
}

void BSRModularCheckFailedException::print() const {
  print_found(function_, message_ + ": " + std::to_string(a_) + " : " + std::to_string(b_));
  print_count("    a = ", a_);
  print_count("    b = ", b_);
  print_hashes(hashes_);
  print_end();
}

ExceptionBlob BSRModularCheckFailedException::serialize() const {
  return blob_of(kTypeName, function_, message_, a_, b_, hashes_);
}

void UnknownException::print() const { notice(kUnknownText, 'R'); }

ExceptionBlob UnknownException::serialize() const { return ExceptionBlob(std::string_view(blob_)); }

namespace {

struct Factory {
  std::map<std::string, ExceptionRebuilder, std::less<>> rebuilders;
  std::vector<std::string> order;
};

Factory& factory() {
  static Factory* const table = new Factory;
  return *table;
}

// Registers a type that is rebuilt from its fields, which its constructor takes in the order of the blob. Braces:
// their elements are read in the order in which they stand.
template <class T, class... Fields>
void register_type() {
  register_exception(T::kTypeName, [](BlobReader& in) -> std::unique_ptr<Exception> {
    return std::make_unique<T>(T{in.next<Fields>()...});
  });
}

// Function and message are all that it has.
template <class T>
void register_plain() {
  register_type<T, std::string, std::string>();
}

std::unique_ptr<Exception> rebuild_limit_exceeded(BlobReader& in) {
  std::string function = in.next<std::string>();
  std::string message = in.next<std::string>();
  return std::make_unique<LimitExceededException>(
      LimitExceededException{std::move(function), in.next<u64>(), in.next<u64>(), std::move(message)});
}

}  // namespace

void register_exception(const char* type_name, ExceptionRebuilder rebuild) {
  if (!factory().rebuilders.emplace(type_name, rebuild).second) fatal_error("Duplicate Exception Type");
  factory().order.emplace_back(type_name);
}

void register_exceptions() {
  using Text = std::string;
  using Hashes = std::vector<u64>;
  register_type<StdException, Text>();
  register_plain<StringException>();
  register_type<SystemException, Text, Text, s32>();
  register_plain<ParseException>();
  register_plain<EndOfStreamException>();
  register_plain<KeyNotFoundException>();
  register_plain<InvalidParametersException>();
  register_type<BufferTooSmallException, Text, u64, u64>();
  register_plain<ArithmeticException>();
  register_type<ExponentOverflowException, Text, s64, s64>();
  register_exception(LimitExceededException::kTypeName, rebuild_limit_exceeded);
  register_plain<AlgorithmFailedException>();
  register_type<FileIO::FileException, Text, Text, Text, s32>();
  register_plain<FarMemoryException>();
  register_type<FarMemoryOutOfBoundsException, Text, u64, u64, u64>();
  register_type<R03::Raid03Exception, Text, Text, Text, s32>();
  register_plain<InvalidTransformException>();
  register_plain<TransformTooSmallException>();
  register_type<ConvolutionTooSmallException, Text, Text, u64, u64>();
  register_type<ConvolutionFailedException, Text, Text, u64, u64, Hashes>();
  register_plain<UnsupportedValueException>();
  register_plain<UnsupportedZeroException>();
  register_plain<UnsupportedNegativeException>();
  register_type<BSRModularCheckFailedException, Text, Text, u64, u64, Hashes>();
}

std::vector<std::string> registered_exceptions() { return factory().order; }

void throw_from_blob(const ExceptionBlob& blob) {
  BlobReader in(blob.bytes());
  const auto entry = factory().rebuilders.find(in.next<std::string>());
  if (entry == factory().rebuilders.end()) throw UnknownException(blob.bytes());
  const std::unique_ptr<Exception> rebuilt = entry->second(in);
  if (in.failed()) throw UnknownException(blob.bytes());
  rebuilt->throw_copy();
  __builtin_unreachable();  // g++ 12 does not see the attribute of a virtual function
}

}  // namespace orl
