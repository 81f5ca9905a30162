#include "console/number_forms.h"

#include <gtest/gtest.h>

namespace orl {
namespace {

constexpr u64 kMax = ~u64{0};

TEST(NumberForms, DecimalCountsTakeOneSuffix) {
  const struct {
    const char* text;
    u64 value;
  } rows[] = {{"", 0},
              {"x", 0},
              {"-5", 0},
              {"7", 7},
              {"007", 7},
              {"10k", 10000},
              {"10K", 10000},
              {"3m", 3000000},
              {"1B", 1000000000},
              {"2t", 2000000000000},
              {"2.5b", 2},
              {"5x", 5},
              {"5mm", 5000000},
              {"5 m", 5},
              {"1e9", 1},
              {"18446744073709551615", kMax},
              {"18446744073709551616", kMax},
              {"99999999t", kMax}};
  for (const auto& row : rows) {
    EXPECT_EQ(parse_decimal_count(row.text), row.value) << row.text;
    EXPECT_EQ(parse_signed_count(row.text),
              row.text[0] == '-' ? -5 : static_cast<s64>(std::min(row.value, kMax >> 1)))
        << row.text;
  }
  EXPECT_EQ(parse_signed_count("-2k"), -2000);
  EXPECT_EQ(parse_signed_count("-"), 0);
  EXPECT_EQ(parse_signed_count("--1"), 0);
  EXPECT_EQ(static_cast<u64>(parse_signed_count("-1")), kMax);
}

TEST(NumberForms, ByteSizesRoundTheFractionUpToAByte) {
  const struct {
    const char* text;
    u64 value;
  } rows[] = {{"", 0},
              {"1.5", 1},
              {"1.5G", 1610612736},
              {"1.5 \t G", 1},
              {"1.5   g", 1610612736},
              {"3K", 3072},
              {"1m", 1 << 20},
              {"1T", u64{1} << 40},
              {"1P", u64{1} << 50},
              {"15E", u64{15} << 60},
              {"16E", kMax},
              {"15.999999999999999999999999E", kMax},
              {".5k", 512},
              {"1.0K", 1024},
              {"1.001K", 1026},
              {"0.00000000000000000000000000001K", 1},
              {"0.999K", 1023},
              {"0.9990234375K", 1023},
              {"0.99902343750000000000000000001K", 1024},
              {"1.5.5K", 1}};
  for (const auto& row : rows) EXPECT_EQ(parse_byte_size(row.text), row.value) << row.text;
}

TEST(NumberForms, WholeNumbersAreNothingElse) {
  EXPECT_EQ(parse_plain_integer("64k"), 64u);
  EXPECT_EQ(parse_whole_number("12").value, 12u);
  EXPECT_EQ(parse_whole_number("18446744073709551615").kind, WholeNumber::kExact);
  EXPECT_EQ(parse_whole_number("18446744073709551616").kind, WholeNumber::kTooLarge);
  for (const char* text : {"", "12k", "-1", " 1", "1 "})
    EXPECT_EQ(parse_whole_number(text).kind, WholeNumber::kNone) << text;
}

}  // namespace
}  // namespace orl
