#include "core/number_forms.h"

#include <gtest/gtest.h>

namespace orl {
namespace {

constexpr u64 kMax = ~u64{0};

struct Row {
  const char* text;
  u64 value;
  const char* rest = "";
};

void check(NumberForm form, std::initializer_list<Row> rows) {
  for (const Row& row : rows) {
    const Number number = parse_number(row.text, form);
    EXPECT_EQ(number.value, row.value) << row.text;
    EXPECT_EQ(number.rest, row.rest) << row.text;
    EXPECT_EQ(std::string(number.read) + std::string(number.rest), row.text);
  }
}

TEST(NumberForms, IntegersHaveSeparatorsAndAnExponent) {
  check(NumberForm::kInteger, {{"", 0, ""},
                               {"x", 0, "x"},
                               {"-5", 0, "-5"},
                               {" 5", 0, " 5"},
                               {"007", 7},
                               {"1,000,000", 1000000},
                               {"12,345", 12345},
                               {"1000,000", 1000, ",000"},
                               {"1,00", 1, ",00"},
                               {"1,0000", 1, ",0000"},
                               {"2,5", 2, ",5"},
                               {"1,000,", 1000, ","},
                               {"1,000_000", 1000, "_000"},
                               {"1_000_000", 1000000},
                               {"1__0", 1, "__0"},
                               {"1_", 1, "_"},
                               {"1e9", 1000000000},
                               {"25E+3", 25, "E+3"},
                               {"1_0e2", 1000},
                               {"0e99999999999999999999999", 0},
                               {"1e", 1, "e"},
                               {"1e1.5", 10, ".5"},
                               {"64k", 64, "k"},
                               {"18446744073709551615", kMax}});
  EXPECT_FALSE(parse_number("18446744073709551615", NumberForm::kInteger).too_large);
  for (const char* text : {"18446744073709551616", "1e20", "20e18", "99999999999999999999"}) {
    EXPECT_TRUE(parse_number(text, NumberForm::kInteger).too_large) << text;
    EXPECT_EQ(parse_whole_number(text).kind, WholeNumber::kTooLarge) << text;
  }
  EXPECT_EQ(parse_whole_number("12").value, 12u);
  for (const char* text : {"", "12k", "-1", " 1", "1 "})
    EXPECT_EQ(parse_whole_number(text).kind, WholeNumber::kNone) << text;
}

TEST(NumberForms, CountsTakeOneSuffix) {
  check(NumberForm::kCount, {{"10k", 10000},
                             {"10K", 10000},
                             {"3m", 3000000},
                             {"1B", 1000000000},
                             {"1,500m", 1500000000},
                             {"2t", 2000000000000},
                             {"1e3k", 1000, "k"},
                             {"2.5b", 2, ".5b"},
                             {"5x", 5, "x"},
                             {"5mm", 5000000, "m"},
                             {"5 m", 5, " m"},
                             {"99999999t", kMax}});
}

TEST(NumberForms, ByteSizesRoundTheFractionUpToAByte) {
  check(NumberForm::kBytes, {{"1.5", 1},
                             {"1.5G", 1610612736},
                             {"1.5 \t G", 1, " \t G"},
                             {"1.5   g", 1610612736},
                             {"3K", 3072},
                             {"1m", 1 << 20},
                             {"1,024K", 1 << 20},
                             {"1e3", 1000},
                             {"1E", u64{1} << 60},
                             {"1T", u64{1} << 40},
                             {"1P", u64{1} << 50},
                             {"15E", u64{15} << 60},
                             {"16E", kMax},
                             {"15.999999999999999999999999E", kMax},
                             {"1.0K", 1024},
                             {"1.001K", 1026},
                             {"0.00000000000000000000000000001K", 1},
                             {"0.999K", 1023},
                             {"0.9990234375K", 1023},
                             {"0.99902343750000000000000000001K", 1024},
                             {"256KB", 256 << 10},
                             {"1.5 GiB", u64{3} << 29},
                             {"512B", 512},
                             {"512 bytes", 512, "ytes"},
                             {"1.5GBs", u64{3} << 29, "s"},
                             {"1Gi", u64{1} << 30, "i"},
                             {"1.G", 1, ".G"},
                             {".5k", 0, ".5k"},
                             {"1.5.5K", 1, ".5K"}});
}

TEST(NumberForms, ARefusalNamesWhatWasRead) {
  const auto refusal = [](const char* text) {
    return number_refusal(parse_number(text, NumberForm::kCount), NumberForm::kCount);
  };
  EXPECT_EQ(refusal("250.5m").substr(0, 44), "\"250\" was read, but not the \".5m\" behind it.");
  EXPECT_EQ(refusal("ten").substr(0, 23), "\"ten\" is not a number.\n");
}

}  // namespace
}  // namespace orl
