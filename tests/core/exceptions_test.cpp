#include "core/exceptions.h"

#include <gtest/gtest.h>

#include <memory>
#include <type_traits>

#include "core/output.h"
#include "core/settings.h"
#include "support/child.h"
#include "support/thrown.h"

namespace orl::test {
namespace {

void fill_factory() {
  static const bool filled = (register_exceptions(), true);
  static_cast<void>(filled);
}

/// Keeps what is said. With letters each piece has its colour before it: "[R]text".
class Recorder final : public Output {
 public:
  explicit Recorder(bool letters) : letters_(letters) { set_output(this); }
  ~Recorder() override { set_output(nullptr); }
  void print(std::string_view piece, char colour) override {
    set_colour(colour);
    text += piece;
  }
  void print_line(std::string_view line, char colour) override { print(std::string(line) + "\n", colour); }
  void set_colour(char colour) override {
    if (letters_ && colour != ' ') text += std::string("[") + colour + "]";
  }

  std::string text;

 private:
  bool letters_;
};

std::string printed(const Exception& exception, bool letters = false) {
  Recorder recorder(letters);
  exception.print();
  return recorder.text;
}

std::unique_ptr<Exception> through_blob(const ExceptionBlob& blob) {
  fill_factory();
  try {
    throw_from_blob(blob);
  } catch (const Exception& exception) {
    return exception.clone();
  }
}

/// One of each class that has fields of its own.
std::vector<std::unique_ptr<Exception>> exceptions_with_fields() {
  std::vector<std::unique_ptr<Exception>> all;
  const u64 large = 0xfedcba9876543210;
  const auto add = [&](const Exception& exception) { all.push_back(exception.clone()); };
  add(StdException("what"));
  add(SystemException("f()", "message", -5));
  add(BufferTooSmallException("BSR_BlockT::run()", large, 2));
  add(ExponentOverflowException("f()", -3, (s64{1} << 61) - 1));
  add(LimitExceededException("f()", 1, large));
  add(FileIO::FileException("RawFile::read()", "read() failed.\n\nHardware Error", "/a b/c", 5));
  add(R03::Raid03Exception("f()", "message", "path", 28));
  add(FarMemoryOutOfBoundsException("f()", 1, large, 3));
  add(ConvolutionTooSmallException("f()", "Convolution length is too small.", 1, large));
  add(ConvolutionFailedException("f()", "Coefficient is too large.", 1, 2, {3, large}));
  add(BSRModularCheckFailedException("f()", "Modular Redundancy Check Failed", 1, large, {5, 6, 7}));
  return all;
}

TEST(ExceptionBlob, BringsBackTypeAndFields) {
  for (const auto& exception : exceptions_with_fields()) {
    const std::unique_ptr<Exception> back = through_blob(exception->serialize());
    EXPECT_STREQ(back->get_typename(), exception->get_typename());
    EXPECT_EQ(printed(*back), printed(*exception));
    EXPECT_EQ(back->serialize().bytes(), exception->serialize().bytes());
  }
}

TEST(ExceptionBlob, LayoutIsNameThenFieldsLittleEndian) {
  using namespace std::string_literals;
  EXPECT_EQ(LimitExceededException("f", 0x0102, 3, "m").serialize().bytes(),
            "LimitExceededException\0f\0m\0\x02\x01\0\0\0\0\0\0\x03\0\0\0\0\0\0\0"s);
  EXPECT_EQ(FileIO::FileException("f", "m", "p", -2).serialize().bytes(),
            "FileException\0f\0m\0p\0\xfe\xff\xff\xff"s);
  EXPECT_EQ(BSRModularCheckFailedException("f", "m", 1, 2, {3}).serialize().bytes(),
            "BSRModularCheckFailedException\0f\0m\0\x01\0\0\0\0\0\0\0\x02\0\0\0\0\0\0\0"
            "\x01\0\0\0\0\0\0\0\x03\0\0\0\0\0\0\0"s);
}

TEST(ExceptionBlob, PlainTypeComesBackAsStringExceptionWithItsText) {
  const InvalidParametersException sent("f()", "Invalid Mode: x");
  const std::unique_ptr<Exception> back = through_blob(sent.serialize());
  EXPECT_STREQ(back->get_typename(), "StringException");
  EXPECT_EQ(back->function(), "f()");
  EXPECT_EQ(back->message(), "Invalid Mode: x");
  EXPECT_EQ(printed(*back),
            "\nException Encountered: StringException\nIn Function: f()\nInvalid Mode: x\n\n");
}

TEST(ExceptionBlob, FactoryRebuildsThePlainTypesThatItHoldsByName) {
  using namespace std::string_literals;
  const std::unique_ptr<Exception> back = through_blob(ExceptionBlob("ParseException\0f\0m\0"s));
  EXPECT_NE(dynamic_cast<ParseException*>(back.get()), nullptr);
  EXPECT_EQ(back->message(), "m");
}

TEST(ExceptionBlob, CutOrForeignBlobBecomesUnknownAndKeepsItsBytes) {
  for (const auto& exception : exceptions_with_fields()) {
    const ExceptionBlob whole = exception->serialize();
    for (u64 length = 0; length < whole.size(); length++) {
      const std::string_view part = whole.bytes().substr(0, length);
      const std::unique_ptr<Exception> back = through_blob(ExceptionBlob(part));
      ASSERT_STREQ(back->get_typename(), "UnknownException") << exception->get_typename() << " " << length;
      ASSERT_EQ(back->serialize().bytes(), part);
    }
  }
  using namespace std::string_literals;
  const std::unique_ptr<Exception> foreign = through_blob(ExceptionBlob("MartianException\0f\0"s));
  EXPECT_EQ(printed(*foreign), "\nException type unknown to this module. Unable to display.\n");
  // A count of hashes beyond all memory.
  const std::unique_ptr<Exception> endless = through_blob(ExceptionBlob(
      "BSRModularCheckFailedException\0f\0m\0"s + std::string(16, '\0') + std::string(8, '\xff')));
  EXPECT_STREQ(endless->get_typename(), "UnknownException");
}

TEST(ExceptionFactory, HoldsTheFamilyInOrder) {
  fill_factory();
  std::string names;
  for (const std::string& name : registered_exceptions()) names += name + " ";
  EXPECT_EQ(names,
            "StdException StringException SystemException ParseException EndOfStreamException "
            "KeyNotFoundException InvalidParametersException BufferTooSmallException ArithmeticException "
            "ExponentOverflowException LimitExceededException AlgorithmFailedException FileException "
            "FarMemoryException FarMemoryOutOfBoundsException Raid03Exception InvalidTransformException "
            "TransformTooSmallException ConvolutionTooSmallException ConvolutionFailedException "
            "UnsupportedValueException UnsupportedZeroException UnsupportedNegativeException "
            "BSRModularCheckFailedException ");
}

TEST(ExceptionFactory, SecondRegistrationOfANameEndsTheProgram) {
  const ChildResult result = run_child("", [] {
    settings().pause_on_fatal = false;
    fill_factory();
    register_exception("StdException", nullptr);
    return 0;
  });
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output, "Duplicate Exception Type\n");
}

template <class T>
class PlainException : public testing::Test {};
using PlainTypes =
    testing::Types<StringException, InvalidParametersException, ParseException, EndOfStreamException,
                   KeyNotFoundException, ArithmeticException, AlgorithmFailedException, FarMemoryException,
                   InvalidTransformException, TransformTooSmallException, UnsupportedValueException,
                   UnsupportedZeroException, UnsupportedNegativeException>;
TYPED_TEST_SUITE(PlainException, PlainTypes);

TYPED_TEST(PlainException, CopiesKeepTheMostDerivedType) {
  const TypeParam original("f()", "message");
  const Exception& base = original;
  EXPECT_THROW(base.throw_copy(), TypeParam);
  const std::unique_ptr<Exception> copy = base.clone();
  EXPECT_NE(dynamic_cast<TypeParam*>(copy.get()), nullptr);
  EXPECT_EQ(copy->message(), "message");
  EXPECT_NE(printed(*copy).find(TypeParam::kTypeName), std::string::npos);
  EXPECT_TRUE((std::is_base_of_v<StringException, TypeParam>));
}

TEST(ExceptionPrint, StandardFormHasItsColours) {
  EXPECT_EQ(printed(ParseException("f()", "text"), true),
            "\n[w]Exception Encountered: [R]ParseException\n[w]In Function: [Y]f()\ntext\n\n[w]");
  EXPECT_EQ(printed(ParseException(nullptr, "text")), "\nException Encountered: ParseException\ntext\n\n");
}

TEST(ExceptionPrint, FieldsStandUnderTheirLabels) {
  EXPECT_EQ(printed(BufferTooSmallException("set_mul()", 1000, 1002)),
            "\nBuffer is too small:\n    Function: set_mul()\n    Buffer Size: 1,000\n"
            "    Required Size: 1,002\n\n");
  EXPECT_EQ(printed(LimitExceededException("AlgorithmTable::get_algorithm()", 0, 12)),
            "\nLimit Exceeded:\n    Function: AlgorithmTable::get_algorithm()\n    Limit: Unknown\n"
            "    Attempted: 12\n\n");
  EXPECT_EQ(printed(BSRModularCheckFailedException("orc_Verify_BSR()", "Modular Redundancy Check Failed", 5,
                                                   1000, {0, 255})),
            "\nIn Function: orc_Verify_BSR()\nModular Redundancy Check Failed: 5 : 1000\n    a = 5\n"
            "    b = 1,000\n    hash[0] = 0x0000000000000000\n    hash[1] = 0x00000000000000ff\n\n");
}

TEST(ExceptionPrint, NumberOfTheSystemHasItsWordsOnce) {
  EXPECT_EQ(printed(SystemException("start_thread()", "No thread.", EAGAIN)),
            "\nSystem Exception Encountered\nIn Function: start_thread()\n\nNo thread.\n\nError Code: 11\n"
            "Reason: Resource temporarily unavailable\n\n");
  const auto failure =
      caught<FileIO::FileException>([] { FileIO::throw_file_error("f()", EMFILE, "m", "/p"); });
  EXPECT_EQ(printed(failure),
            "\nException Encountered\nIn Function: f()\n\nm\n\nUnknown C/C++ Error: Too many open files\n\n"
            "Error Code: 24\nPath: /p\n\n");
}

TEST(FileErrors, KnownNumbersHaveTheirTextBehindTheMessage) {
  const auto message = [](s32 code) {
    const auto failure = caught<FileIO::FileException>(
        [=] { FileIO::throw_file_error("RawFile()", code, "Unable to open file.", "/p"); });
    EXPECT_EQ(failure.code(), code);
    EXPECT_EQ(failure.path(), "/p");
    return failure.message();
  };
  EXPECT_EQ(message(2), "Unable to open file.\n\nPath does not exist.");
  EXPECT_EQ(message(5), "Unable to open file.\n\nHardware Error");
  EXPECT_EQ(message(12), "Unable to open file.\n\nNot Enough Memory");
  EXPECT_EQ(message(13), "Unable to open file.\n\nAccess Denied");
  EXPECT_EQ(message(28), "Unable to open file.\n\nDisk is Full");
  EXPECT_EQ(message(22), "Unable to open file.\n\nUnknown C/C++ Error: Invalid argument");
}

}  // namespace
}  // namespace orl::test
