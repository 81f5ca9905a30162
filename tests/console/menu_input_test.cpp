#include "console/menu_input.h"

#include <gtest/gtest.h>

#include "support/child.h"

namespace orl::test {
namespace {

TEST(MenuInput, AsksAgainAndKeepsTheValueWithoutAnAnswer) {
  const auto counted =
      run_child("ten\n2.5b\n\n", [] { return ask_decimal_count("Count: ", 42) == 42 ? 0 : 2; });
  EXPECT_EQ(counted.status, 0) << counted.output;
  const std::string wanted =
      "Please enter a whole number; K, M, B and T are 10^3, 10^6, 10^9 and 10^12.\nCount: ";
  EXPECT_EQ(counted.output, "Count: \"ten\" is not a number.\n" + wanted +
                                "\"2\" was read, but not the \".5b\" behind it.\n" + wanted);
  EXPECT_EQ(run_child(" 1,000k \n", [] { return ask_decimal_count("", 0) == 1000000 ? 0 : 2; }).status, 0);
  EXPECT_EQ(run_child("x\n", [] { return ask_byte_size("Size: ", 1) == 1 ? 0 : 2; }).status, 1);
}

}  // namespace
}  // namespace orl::test
