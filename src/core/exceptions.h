// The one failure channel: every failure travels as an object of the family under orl::Exception.
//
// An exception prints itself in colour, copies itself, throws a copy of itself, and writes itself into a blob
// from which throw_from_blob() rebuilds it by its type's name. Every function that fails gives its own name
// as text.
//
// Blob     the type's name and its NUL, then the fields: strings NUL-terminated, numbers little-endian. A
//          class without fields of its own writes itself as "StringException"; its type is lost on the trip,
//          its text is not.
// Threads  register_exceptions() runs once, from main or a test main; everything else only reads.
#pragma once

#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/ending.h"
#include "core/types.h"

namespace orl {

/// Text of an exception: from a C string (null means empty) or a string that is moved in.
struct ExceptionText {
  /// Implicit, so that every exception takes any form of text.
  ExceptionText(const char* text) : value(text ? text : "") {}
  ExceptionText(std::string text) : value(std::move(text)) {}
  ExceptionText(std::string_view text) : value(text) {}
  std::string value;
};

/// A heap block with the way to free it.
class ExceptionBlob {
 public:
  using Deleter = void (*)(char*);

  ExceptionBlob() = default;
  ExceptionBlob(char* data, u64 size, Deleter deleter) : size_(size), data_(data), deleter_(deleter) {}
  /// A copy of `bytes`.
  explicit ExceptionBlob(std::string_view bytes);
  ExceptionBlob(ExceptionBlob&& other) noexcept;
  ExceptionBlob& operator=(ExceptionBlob&& other) noexcept;
  ~ExceptionBlob();

  const char* data() const { return data_; }
  u64 size() const { return size_; }
  std::string_view bytes() const { return {data_, size_}; }

 private:
  u64 size_ = 0;
  char* data_ = nullptr;
  Deleter deleter_ = nullptr;
};

class BlobReader;

class Exception {
 public:
  virtual ~Exception();
  /// Throws an exception of the most derived type with the same fields.
  [[noreturn]] virtual void throw_copy() const = 0;
  /// Such as "ParseException", without namespaces.
  virtual const char* get_typename() const = 0;
  virtual std::unique_ptr<Exception> clone() const = 0;
  /// On the console, in colour.
  virtual void print() const;
  virtual ExceptionBlob serialize() const = 0;
  /// True when a check of the mathematics threw it, which a machine that works never lets happen.
  virtual bool is_wrong_result() const { return false; }

  /// Name of the reporting function; may be empty.
  const std::string& function() const { return function_; }
  const std::string& message() const { return message_; }

 protected:
  Exception(ExceptionText function, ExceptionText message)
      : function_(std::move(function.value)), message_(std::move(message.value)) {}
  Exception(const Exception&) = default;
  Exception& operator=(const Exception&) = default;

  std::string function_;
  std::string message_;
};

/// Supplies what depends on the most derived type `Self`, which has kTypeName.
template <class Self, class Base>
class ExceptionType : public Base {
 public:
  using Base::Base;
  [[noreturn]] void throw_copy() const override { throw Self(static_cast<const Self&>(*this)); }
  const char* get_typename() const override { return Self::kTypeName; }
  std::unique_ptr<Exception> clone() const override {
    return std::make_unique<Self>(static_cast<const Self&>(*this));
  }
};

/// A function's name and a message, and base of all classes that have no more than that.
class StringException : public ExceptionType<StringException, Exception> {
 public:
  static constexpr const char* kTypeName = "StringException";
  /// `function` is the name of the function that failed, such as "Division::run()".
  StringException(ExceptionText function, ExceptionText message)
      : ExceptionType(std::move(function), std::move(message)) {}
  ExceptionBlob serialize() const override;
};

/// A caller's mistake or a value that the user gave.
class InvalidParametersException : public ExceptionType<InvalidParametersException, StringException> {
 public:
  static constexpr const char* kTypeName = "InvalidParametersException";
  using ExceptionType::ExceptionType;
};
/// A text has not the form that it must have.
class ParseException : public ExceptionType<ParseException, StringException> {
 public:
  static constexpr const char* kTypeName = "ParseException";
  using ExceptionType::ExceptionType;
};
/// A text or a file ends too early.
class EndOfStreamException : public ExceptionType<EndOfStreamException, StringException> {
 public:
  static constexpr const char* kTypeName = "EndOfStreamException";
  using ExceptionType::ExceptionType;
};
/// An object of a configuration lacks a key.
class KeyNotFoundException : public ExceptionType<KeyNotFoundException, StringException> {
 public:
  static constexpr const char* kTypeName = "KeyNotFoundException";
  using ExceptionType::ExceptionType;
};
/// An operation without a result, such as a division by zero.
class ArithmeticException : public ExceptionType<ArithmeticException, StringException> {
 public:
  static constexpr const char* kTypeName = "ArithmeticException";
  using ExceptionType::ExceptionType;
};
/// A computation came to a result that cannot be right.
class AlgorithmFailedException : public ExceptionType<AlgorithmFailedException, StringException> {
 public:
  static constexpr const char* kTypeName = "AlgorithmFailedException";
  using ExceptionType::ExceptionType;
  bool is_wrong_result() const override { return true; }
};
/// Numbers on disks: a fault of the array.
class FarMemoryException : public ExceptionType<FarMemoryException, StringException> {
 public:
  static constexpr const char* kTypeName = "FarMemoryException";
  using ExceptionType::ExceptionType;
};
/// A transform was used for what it was not made for.
class InvalidTransformException : public ExceptionType<InvalidTransformException, StringException> {
 public:
  static constexpr const char* kTypeName = "InvalidTransformException";
  using ExceptionType::ExceptionType;
};
/// An operand does not fit a shape, or a shape offers no wrapped product of the length.
class TransformTooSmallException : public ExceptionType<TransformTooSmallException, StringException> {
 public:
  static constexpr const char* kTypeName = "TransformTooSmallException";
  using ExceptionType::ExceptionType;
};
/// An operand that a function was not made for.
class UnsupportedValueException : public ExceptionType<UnsupportedValueException, StringException> {
 public:
  static constexpr const char* kTypeName = "UnsupportedValueException";
  using ExceptionType::ExceptionType;
};
/// A zero that a function was not made for.
class UnsupportedZeroException : public ExceptionType<UnsupportedZeroException, StringException> {
 public:
  static constexpr const char* kTypeName = "UnsupportedZeroException";
  using ExceptionType::ExceptionType;
};
/// A negative value that a function was not made for.
class UnsupportedNegativeException : public ExceptionType<UnsupportedNegativeException, StringException> {
 public:
  static constexpr const char* kTypeName = "UnsupportedNegativeException";
  using ExceptionType::ExceptionType;
};

/// A std::exception's text, so that it can travel as a blob.
class StdException final : public ExceptionType<StdException, Exception> {
 public:
  static constexpr const char* kTypeName = "StdException";
  /// `what` is the text of the exception of the standard library.
  explicit StdException(ExceptionText what) : ExceptionType("", std::move(what)) {}
  const std::string& what() const { return message_; }
  void print() const override;
  ExceptionBlob serialize() const override;
};

/// A system call failed; `code` is its errno.
class SystemException final : public ExceptionType<SystemException, Exception> {
 public:
  static constexpr const char* kTypeName = "SystemException";
  /// `code` is errno, or what the call returned.
  SystemException(ExceptionText function, ExceptionText message, s32 code)
      : ExceptionType(std::move(function), std::move(message)), code_(code) {}
  s32 code() const { return code_; }
  void print() const override;
  ExceptionBlob serialize() const override;

 private:
  s32 code_;
};

/// Sizes in the unit of the function that is named: words for number objects, bytes for scratch.
class BufferTooSmallException final : public ExceptionType<BufferTooSmallException, Exception> {
 public:
  static constexpr const char* kTypeName = "BufferTooSmallException";
  /// Both sizes in the unit of the buffer, words or bytes.
  BufferTooSmallException(ExceptionText function, u64 buffer_size, u64 required_size)
      : ExceptionType(std::move(function), ""), buffer_size_(buffer_size), required_size_(required_size) {}
  u64 buffer_size() const { return buffer_size_; }
  u64 required_size() const { return required_size_; }
  void print() const override;
  ExceptionBlob serialize() const override;

 private:
  u64 buffer_size_;
  u64 required_size_;
};

/// An exponent does not fit its range.
class ExponentOverflowException final : public ExceptionType<ExponentOverflowException, Exception> {
 public:
  static constexpr const char* kTypeName = "ExponentOverflowException";
  /// `value` lies beyond `limit`.
  ExponentOverflowException(ExceptionText function, s64 value, s64 limit)
      : ExceptionType(std::move(function), ""), value_(value), limit_(limit) {}
  s64 value() const { return value_; }
  s64 limit() const { return limit_; }
  void print() const override;
  ExceptionBlob serialize() const override;

 private:
  s64 value_;
  s64 limit_;
};

/// A limit of 0 is one that is not known.
class LimitExceededException final : public ExceptionType<LimitExceededException, Exception> {
 public:
  static constexpr const char* kTypeName = "LimitExceededException";
  /// In the unit of the function that throws; a `limit` of 0 is not told.
  LimitExceededException(ExceptionText function, u64 limit, u64 attempted, ExceptionText message = "")
      : ExceptionType(std::move(function), std::move(message)), limit_(limit), attempted_(attempted) {}
  u64 limit() const { return limit_; }
  u64 attempted() const { return attempted_; }
  void print() const override;
  ExceptionBlob serialize() const override;

 private:
  u64 limit_;
  u64 attempted_;
};

/// What a failed call about a path on a disk has to say.
class PathFault : public Exception {
 public:
  /// `code` is errno; 0 where no call set it.
  PathFault(ExceptionText function, ExceptionText message, ExceptionText path, s32 code)
      : Exception(std::move(function), std::move(message)), path_(std::move(path.value)), code_(code) {}
  const std::string& path() const { return path_; }
  s32 code() const { return code_; }  ///< errno
  ExceptionBlob serialize() const override;

 protected:
  void print_titled(std::string_view title) const;

 private:
  std::string path_;
  s32 code_;
};

namespace FileIO {

/// A call about a file or a folder failed.
class FileException final : public ExceptionType<FileException, PathFault> {
 public:
  static constexpr const char* kTypeName = "FileException";
  using ExceptionType::ExceptionType;
  void print() const override;
};

/// "Access Denied" and the like for those that have a text here; "Unknown C/C++ Error: " and the system's own words for
/// every other.
std::string errno_text(s32 code);

/// Throws a FileException whose message is `message`, two newlines and errno_text(code).
[[noreturn]] void throw_file_error(ExceptionText function, s32 code, ExceptionText message,
                                   ExceptionText path);
[[noreturn]] void throw_file_error(s32 code, ExceptionText message, ExceptionText path);

/// Throws FileException, with `message` and what it is, where `path` is a folder, a pipe or a device that gives
/// characters: to read one may never end. What is not there is left to the call that opens it.
void require_file(ExceptionText function, ExceptionText message, const std::string& path);

}  // namespace FileIO

namespace R03 {

/// A failure of a disk array.
class Raid03Exception final : public ExceptionType<Raid03Exception, PathFault> {
 public:
  static constexpr const char* kTypeName = "Raid03Exception";
  using ExceptionType::ExceptionType;
  void print() const override;
};

}  // namespace R03

/// Sizes in bytes.
class FarMemoryOutOfBoundsException final : public ExceptionType<FarMemoryOutOfBoundsException, Exception> {
 public:
  static constexpr const char* kTypeName = "FarMemoryOutOfBoundsException";
  /// Bytes [offset, offset + length) of an object of `object_size`.
  FarMemoryOutOfBoundsException(ExceptionText function, u64 object_size, u64 offset, u64 length)
      : ExceptionType(std::move(function), ""), object_size_(object_size), offset_(offset), length_(length) {}
  u64 object_size() const { return object_size_; }
  u64 offset() const { return offset_; }
  u64 length() const { return length_; }
  void print() const override;
  ExceptionBlob serialize() const override;

 private:
  u64 object_size_;
  u64 offset_;
  u64 length_;
};

/// What two sizes of a convolution have to say about its failure.
class ConvolutionFault : public Exception {
 public:
  /// Sizes in bits.
  ConvolutionFault(ExceptionText function, ExceptionText message, u64 convolution_size, u64 requested_size)
      : Exception(std::move(function), std::move(message)),
        convolution_size_(convolution_size),
        requested_size_(requested_size) {}
  u64 convolution_size() const { return convolution_size_; }
  u64 requested_size() const { return requested_size_; }

 protected:
  void print_sizes() const;

 private:
  u64 convolution_size_;
  u64 requested_size_;
};

/// A product does not fit the transform that was given. Both sizes in bits: what the shape holds, what was asked
/// for.
class ConvolutionTooSmallException final
    : public ExceptionType<ConvolutionTooSmallException, ConvolutionFault> {
 public:
  static constexpr const char* kTypeName = "ConvolutionTooSmallException";
  using ExceptionType::ExceptionType;
  void print() const override;
  ExceptionBlob serialize() const override;
};

/// A transform found its own result wrong. The two sizes are what the check compared (the limit and what was
/// found); `hashes` are the numbers of a failed hash check, if it was one.
class ConvolutionFailedException final : public ExceptionType<ConvolutionFailedException, ConvolutionFault> {
 public:
  static constexpr const char* kTypeName = "ConvolutionFailedException";
  /// Bits that a coefficient may have, and bits that it has; `hashes` where the check compares some.
  ConvolutionFailedException(ExceptionText function, ExceptionText message, u64 convolution_size,
                             u64 requested_size, std::vector<u64> hashes = {})
      : ExceptionType(std::move(function), std::move(message), convolution_size, requested_size),
        hashes_(std::move(hashes)) {}
  const std::vector<u64>& hashes() const { return hashes_; }
  bool is_wrong_result() const override { return true; }
  void print() const override;
  ExceptionBlob serialize() const override;

 private:
  std::vector<u64> hashes_;
};

/// The hashes of a merge over the terms [a, b) do not agree; `hashes` are the differences.
class BSRModularCheckFailedException final : public ExceptionType<BSRModularCheckFailedException, Exception> {
 public:
  static constexpr const char* kTypeName = "BSRModularCheckFailedException";
  /// The node (a, b], and how far each hash is off.
  BSRModularCheckFailedException(ExceptionText function, ExceptionText message, u64 a, u64 b,
                                 std::vector<u64> hashes)
      : ExceptionType(std::move(function), std::move(message)), a_(a), b_(b), hashes_(std::move(hashes)) {}
  u64 a() const { return a_; }
  u64 b() const { return b_; }
  const std::vector<u64>& hashes() const { return hashes_; }
  bool is_wrong_result() const override { return true; }
  void print() const override;
  ExceptionBlob serialize() const override;

 private:
  u64 a_;
  u64 b_;
  std::vector<u64> hashes_;
};

/// What a blob becomes whose type nobody registered, or whose fields are cut short. It keeps the blob.
class UnknownException final : public ExceptionType<UnknownException, Exception> {
 public:
  static constexpr const char* kTypeName = "UnknownException";
  /// `blob` is what a type without a factory wrote.
  explicit UnknownException(std::string_view blob) : ExceptionType("", ""), blob_(blob) {}
  void print() const override;
  ExceptionBlob serialize() const override;

 private:
  std::string blob_;
};

using ExceptionRebuilder = std::unique_ptr<Exception> (*)(BlobReader& fields);

/// Enters one type into the factory. A name that is already there prints "Duplicate Exception Type" and ends
/// the program.
void register_exception(const char* type_name, ExceptionRebuilder rebuild);
/// Enters the whole family, in its fixed order. Call once.
void register_exceptions();
/// Names in the order in which they were registered.
std::vector<std::string> registered_exceptions();
/// Throws the exception that the blob describes, or UnknownException.
[[noreturn]] void throw_from_blob(const ExceptionBlob& blob);

}  // namespace orl
