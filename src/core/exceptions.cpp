#include "core/exceptions.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <map>
#include <utility>

#include "core/format.h"
#include "core/name_table.h"
#include "core/output.h"

namespace orl {

namespace {

constexpr const char* kUnknownText = "\nException type unknown to this module. Unable to display.\n";

/// Appends a type's name and fields in the blob's form.
class BlobWriter {
 public:
  explicit BlobWriter(const char* type_name) { string(type_name); }

  // Up to the first NUL, which ends a string in a blob.
  BlobWriter& string(const std::string& text) {
    bytes_.append(text.c_str(), std::strlen(text.c_str()) + 1);
    return *this;
  }
  BlobWriter& number(u64 value) { return append(value, 8); }
  BlobWriter& code(s32 value) { return append(static_cast<u32>(value), 4); }
  BlobWriter& numbers(const std::vector<u64>& values) {
    number(values.size());
    for (const u64 value : values) number(value);
    return *this;
  }
  ExceptionBlob blob() const { return ExceptionBlob(std::string_view(bytes_)); }

 private:
  BlobWriter& append(u64 value, u32 bytes) {
    for (u32 i = 0; i < bytes; i++) bytes_.push_back(static_cast<char>(value >> (8 * i) & 0xff));
    return *this;
  }

  std::string bytes_;
};

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

void print_hashes(const std::vector<u64>& hashes) {
  for (u64 i = 0; i < hashes.size(); i++) {
    print_field("    hash[" + std::to_string(i) + "] = ", hexadecimal(hashes[i]));
  }
}

/// The form of the two exceptions that concern a file.
void print_file_fault(std::string_view title, const Exception& fault, s32 code, const std::string& path) {
  print_title(title);
  print_function(fault.function());
  notice("\n", ' ');
  notice_line(fault.message(), ' ');
  notice("\n", ' ');
  print_field("Error Code: ", std::to_string(code));
  print_field("Path: ", path);
  print_end();
}

}  // namespace

/// Reads fields in order. After a field that is cut short everything reads as empty or zero, and failed() is
/// true.
class BlobReader {
 public:
  explicit BlobReader(std::string_view bytes) : rest_(bytes) {}

  std::string string() {
    const std::size_t end = rest_.find('\0');
    if (end == std::string_view::npos) return fail();
    std::string text(rest_.substr(0, end));
    rest_.remove_prefix(end + 1);
    return text;
  }
  u64 number() { return take(8); }
  s64 signed_number() { return static_cast<s64>(take(8)); }
  s32 code() { return static_cast<s32>(take(4)); }
  std::vector<u64> numbers() {
    const u64 count = number();
    if (count > rest_.size() / 8) {
      fail();
      return {};
    }
    std::vector<u64> values(count);
    for (u64& value : values) value = number();
    return values;
  }
  bool failed() const { return failed_; }

 private:
  std::string fail() {
    failed_ = true;
    rest_ = {};
    return {};
  }
  u64 take(u32 bytes) {
    if (rest_.size() < bytes) {
      fail();
      return 0;
    }
    u64 value = 0;
    for (u32 i = 0; i < bytes; i++) value |= u64{static_cast<u8>(rest_[i])} << (8 * i);
    rest_.remove_prefix(bytes);
    return value;
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
  notice_line(message_, ' ');
  print_end();
}

ExceptionBlob StringException::serialize() const {
  return BlobWriter(kTypeName).string(function_).string(message_).blob();
}

void StdException::print() const {
  notice("\n", ' ');
  print_field("Exception Encountered: ", kTypeName, 'R');
  notice_line(message_, ' ');
  print_end();
}

ExceptionBlob StdException::serialize() const { return BlobWriter(kTypeName).string(message_).blob(); }

void SystemException::print() const {
  print_title("System Exception Encountered");
  print_function(function_);
  notice("\n", ' ');
  notice_line(message_, ' ');
  notice("\n", ' ');
  print_field("Error Code: ", std::to_string(code_));
  print_end();
}

ExceptionBlob SystemException::serialize() const {
  return BlobWriter(kTypeName).string(function_).string(message_).code(code_).blob();
}

void BufferTooSmallException::print() const {
  print_title("Buffer is too small:");
  print_field("    Function: ", function_);
  print_count("    Buffer Size: ", buffer_size_);
  print_count("    Required Size: ", required_size_);
  print_end();
}

ExceptionBlob BufferTooSmallException::serialize() const {
  return BlobWriter(kTypeName).string(function_).number(buffer_size_).number(required_size_).blob();
}

void ExponentOverflowException::print() const {
  print_title("Floating-point exponent has exceeded internal limit:");
  print_field("    Function: ", function_);
  print_field("    Value: ", std::to_string(value_));
  print_field("    Limit: ", std::to_string(limit_));
  print_end();
}

ExceptionBlob ExponentOverflowException::serialize() const {
  return BlobWriter(kTypeName)
      .string(function_)
      .number(static_cast<u64>(value_))
      .number(static_cast<u64>(limit_))
      .blob();
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
  return BlobWriter(kTypeName).string(function_).string(message_).number(limit_).number(attempted_).blob();
}

void FileIO::FileException::print() const { print_file_fault("Exception Encountered", *this, code_, path_); }

ExceptionBlob FileIO::FileException::serialize() const {
  return BlobWriter(kTypeName).string(function_).string(message_).string(path_).code(code_).blob();
}

const char* FileIO::errno_text(s32 code) {
  static constexpr Named<s32> kTexts[] = {{ENOENT, "Path does not exist."},
                                          {EIO, "Hardware Error"},
                                          {ENOMEM, "Not Enough Memory"},
                                          {EACCES, "Access Denied"},
                                          {ENOSPC, "Disk is Full"}};
  return name_of(kTexts, code, "Unknown C/C++ Error");
}

void FileIO::throw_file_error(ExceptionText function, s32 code, ExceptionText message, ExceptionText path) {
  throw FileException(std::move(function), message.value + "\n\n" + errno_text(code), std::move(path), code);
}

void FileIO::throw_file_error(s32 code, ExceptionText message, ExceptionText path) {
  throw_file_error("", code, std::move(message), std::move(path));
}

void R03::Raid03Exception::print() const {
  print_file_fault("Raid03 Exception Encountered", *this, code_, path_);
}

ExceptionBlob R03::Raid03Exception::serialize() const {
  return BlobWriter(kTypeName).string(function_).string(message_).string(path_).code(code_).blob();
}

void FarMemoryOutOfBoundsException::print() const {
  print_title("Out-of-Bounds Access on FarMemory object:");
  print_field("    Function: ", function_);
  print_count("    Object Size: ", object_size_);
  print_count("    Access Offset: ", offset_);
  print_count("    Access Length: ", length_);
  print_end();
}

ExceptionBlob FarMemoryOutOfBoundsException::serialize() const {
  return BlobWriter(kTypeName).string(function_).number(object_size_).number(offset_).number(length_).blob();
}

void ConvolutionTooSmallException::print() const {
  notice("\n", ' ');
  print_function(function_);
  notice_line("Limit Exceeded:", 'R');
  print_field("    Message: ", message_);
  print_count("    Convolution Size: ", convolution_size_);
  print_count("    Requested Size: ", requested_size_);
  print_end();
}

ExceptionBlob ConvolutionTooSmallException::serialize() const {
  return BlobWriter(kTypeName)
      .string(function_)
      .string(message_)
      .number(convolution_size_)
      .number(requested_size_)
      .blob();
}

void ConvolutionFailedException::print() const {
  notice("\n", ' ');
  print_function(function_);
  notice_line(message_, 'R');
  print_count("    Convolution Size: ", convolution_size_);
  print_count("    Requested Size: ", requested_size_);
  print_hashes(hashes_);
  print_end();
}

ExceptionBlob ConvolutionFailedException::serialize() const {
  return BlobWriter(kTypeName)
      .string(function_)
      .string(message_)
      .number(convolution_size_)
      .number(requested_size_)
      .numbers(hashes_)
      .blob();
}

void BSRModularCheckFailedException::print() const {
  notice("\n", ' ');
  print_function(function_);
  notice_line(message_ + ": " + std::to_string(a_) + " : " + std::to_string(b_), 'R');
  print_count("    a = ", a_);
  print_count("    b = ", b_);
  print_hashes(hashes_);
  print_end();
}

ExceptionBlob BSRModularCheckFailedException::serialize() const {
  return BlobWriter(kTypeName)
      .string(function_)
      .string(message_)
      .number(a_)
      .number(b_)
      .numbers(hashes_)
      .blob();
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

// Braces: their elements are read in the order in which they stand.
template <class T>
void register_plain() {
  register_exception(T::kTypeName, [](BlobReader& in) -> std::unique_ptr<Exception> {
    return std::make_unique<T>(T{in.string(), in.string()});
  });
}

template <class T>
void register_file_fault() {
  register_exception(T::kTypeName, [](BlobReader& in) -> std::unique_ptr<Exception> {
    return std::make_unique<T>(T{in.string(), in.string(), in.string(), in.code()});
  });
}

std::unique_ptr<Exception> rebuild_std(BlobReader& in) { return std::make_unique<StdException>(in.string()); }

std::unique_ptr<Exception> rebuild_system(BlobReader& in) {
  return std::make_unique<SystemException>(SystemException{in.string(), in.string(), in.code()});
}

std::unique_ptr<Exception> rebuild_buffer_too_small(BlobReader& in) {
  return std::make_unique<BufferTooSmallException>(
      BufferTooSmallException{in.string(), in.number(), in.number()});
}

std::unique_ptr<Exception> rebuild_exponent_overflow(BlobReader& in) {
  return std::make_unique<ExponentOverflowException>(
      ExponentOverflowException{in.string(), in.signed_number(), in.signed_number()});
}

std::unique_ptr<Exception> rebuild_limit_exceeded(BlobReader& in) {
  std::string function = in.string();
  std::string message = in.string();
  return std::make_unique<LimitExceededException>(
      LimitExceededException{std::move(function), in.number(), in.number(), std::move(message)});
}

std::unique_ptr<Exception> rebuild_out_of_bounds(BlobReader& in) {
  return std::make_unique<FarMemoryOutOfBoundsException>(
      FarMemoryOutOfBoundsException{in.string(), in.number(), in.number(), in.number()});
}

std::unique_ptr<Exception> rebuild_convolution_too_small(BlobReader& in) {
  return std::make_unique<ConvolutionTooSmallException>(
      ConvolutionTooSmallException{in.string(), in.string(), in.number(), in.number()});
}

template <class T>
void register_hash_fault() {
  register_exception(T::kTypeName, [](BlobReader& in) -> std::unique_ptr<Exception> {
    return std::make_unique<T>(T{in.string(), in.string(), in.number(), in.number(), in.numbers()});
  });
}

}  // namespace

void register_exception(const char* type_name, ExceptionRebuilder rebuild) {
  if (!factory().rebuilders.emplace(type_name, rebuild).second) fatal_error("Duplicate Exception Type");
  factory().order.emplace_back(type_name);
}

void register_exceptions() {
  register_exception(StdException::kTypeName, rebuild_std);
  register_plain<StringException>();
  register_exception(SystemException::kTypeName, rebuild_system);
  register_plain<ParseException>();
  register_plain<EndOfStreamException>();
  register_plain<KeyNotFoundException>();
  register_plain<InvalidParametersException>();
  register_exception(BufferTooSmallException::kTypeName, rebuild_buffer_too_small);
  register_plain<ArithmeticException>();
  register_exception(ExponentOverflowException::kTypeName, rebuild_exponent_overflow);
  register_exception(LimitExceededException::kTypeName, rebuild_limit_exceeded);
  register_plain<AlgorithmFailedException>();
  register_file_fault<FileIO::FileException>();
  register_plain<FarMemoryException>();
  register_exception(FarMemoryOutOfBoundsException::kTypeName, rebuild_out_of_bounds);
  register_file_fault<R03::Raid03Exception>();
  register_plain<InvalidTransformException>();
  register_plain<TransformTooSmallException>();
  register_exception(ConvolutionTooSmallException::kTypeName, rebuild_convolution_too_small);
  register_hash_fault<ConvolutionFailedException>();
  register_plain<UnsupportedValueException>();
  register_plain<UnsupportedZeroException>();
  register_plain<UnsupportedNegativeException>();
  register_hash_fault<BSRModularCheckFailedException>();
}

std::vector<std::string> registered_exceptions() { return factory().order; }

void throw_from_blob(const ExceptionBlob& blob) {
  BlobReader in(blob.bytes());
  const auto entry = factory().rebuilders.find(in.string());
  if (entry == factory().rebuilders.end()) throw UnknownException(blob.bytes());
  const std::unique_ptr<Exception> rebuilt = entry->second(in);
  if (in.failed()) throw UnknownException(blob.bytes());
  rebuilt->throw_copy();
  __builtin_unreachable();  // g++ 12 does not see the attribute of a virtual function
}

}  // namespace orl
