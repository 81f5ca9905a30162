#include "console/menu_input.h"

#include <gtest/gtest.h>

#include "support/child.h"

namespace orl {
namespace {

TEST(MenuInput, TakesWholeNumbersOnly) {
  EXPECT_EQ(exact_decimal_count(" 1,000,000 "), 1000000u);
  EXPECT_EQ(exact_decimal_count("25m"), 25000000u);
  for (const char* text : {"", "m", "2.5b", "25mb", "1 2", "-1", "ten"})
    EXPECT_EQ(exact_decimal_count(text), std::nullopt) << text;
  EXPECT_EQ(exact_byte_size("256KB"), 256u << 10);
  EXPECT_EQ(exact_byte_size("1.5 GiB"), 3u << 29);
  EXPECT_EQ(exact_byte_size("2m"), 2u << 20);
  EXPECT_EQ(exact_byte_size("512 bytes"), std::nullopt);
  EXPECT_EQ(exact_byte_size("512B"), 512u);
  for (const char* text : {"", "GB", "1.G", "1.5GBs", "-1K", ".5G"})
    EXPECT_EQ(exact_byte_size(text), std::nullopt) << text;
}

TEST(MenuInput, AsksAgainAndKeepsTheValueWithoutAnAnswer) {
  const auto counted =
      test::run_child("ten\n\n", [] { return ask_decimal_count("Count: ", 42) == 42 ? 0 : 2; });
  EXPECT_EQ(counted.status, 0) << counted.output;
  EXPECT_EQ(counted.output,
            "Count: Please enter a whole number, with K, M, B or T behind it for 10^3, 10^6, 10^9 or 10^12.\n"
            "Count: ");
  EXPECT_EQ(test::run_child("x\n", [] { return ask_byte_size("Size: ", 1) == 1 ? 0 : 2; }).status, 1);
}

}  // namespace
}  // namespace orl
