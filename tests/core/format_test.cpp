#include "core/format.h"

#include <gtest/gtest.h>

#include <limits>

namespace orl {
namespace {

TEST(Formats, CommasStandAtEveryThirdDigit) {
  EXPECT_EQ(format_with_commas(0), "0");
  EXPECT_EQ(format_with_commas(999), "999");
  EXPECT_EQ(format_with_commas(1000), "1,000");
  EXPECT_EQ(format_with_commas(123456), "123,456");
  EXPECT_EQ(format_with_commas(std::numeric_limits<u64>::max()), "18,446,744,073,709,551,615");
}

TEST(Formats, BytesKeepThreeDigitsAndRoundIntoTheNextUnit) {
  EXPECT_EQ(format_bytes(0), "0 (0 bytes)");
  EXPECT_EQ(format_bytes(1023), "1,023 (1023 bytes)");
  EXPECT_EQ(format_bytes(1024), "1,024 (1.00 KiB)");
  EXPECT_EQ(format_bytes(1234567), "1,234,567 (1.18 MiB)");
  EXPECT_EQ(format_bytes(u64{999} << 30), "1,072,668,082,176 (999 GiB)");
  EXPECT_EQ(format_bytes((u64{1} << 30) - 1), "1,073,741,823 (1.00 GiB)");
  EXPECT_EQ(format_bytes(std::numeric_limits<u64>::max()), "18,446,744,073,709,551,615 (16.0 EiB)");
}

TEST(Formats, FloatsKeepTheirSignificantDigits) {
  EXPECT_EQ(format_float(0, 3), "0.00");
  EXPECT_EQ(format_float(12.345, 3), "12.3");
  EXPECT_EQ(format_float(9.996, 3), "10.0");
  EXPECT_EQ(format_float(99.96, 3), "100");
  EXPECT_EQ(format_float(123456, 3), "123456");
  EXPECT_EQ(format_float(0.0012345, 3), "0.00123");
  EXPECT_EQ(format_float(-1.5, 1), "-2");
  EXPECT_EQ(format_float(std::numeric_limits<double>::infinity(), 3), "inf");
}

TEST(Format, WrappedTextFitsTheScreenAndKeepsPaths) {
  const std::string word = std::string(38, 'x');
  EXPECT_EQ(wrapped(word + " " + word + " yy z"), word + " " + word + "\nyy z");
  EXPECT_EQ(wrapped(word + " " + word + "\ny", 3), word + "\n   " + word + "\n   y");
  const std::string path = "Path: /a " + word + " " + word + " b";
  EXPECT_EQ(wrapped("x\n" + path), "x\n" + path);
  EXPECT_EQ(wrapped(std::string(90, 'x')), std::string(90, 'x'));
}

}  // namespace
}  // namespace orl
