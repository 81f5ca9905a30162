#include "app/constants_menu.h"

#include <gtest/gtest.h>

#include "support/child.h"

namespace orvane {
namespace {

using orl::test::run_child;

TEST(Menus, AskUntilTheAnswerIsAChoice) {
  const auto constants =
      run_child("11\n0\n16\n1\n5\n", [] { return constants_menu()->name() == "Sqrt(5)" ? 0 : 2; });
  EXPECT_EQ(constants.status, 0) << constants.output;
  EXPECT_NE(constants.output.find("\nCompute a Constant: (in ascending order of difficulty to compute)\n"),
            std::string::npos);
  EXPECT_NE(constants.output.find(
                "  #         Constant                      Value        Approximate Difficulty*\n"),
            std::string::npos);
  // The index in 3 columns, 9 blanks, the name in 28, 2 blanks, the value in 16.
  EXPECT_NE(
      constants.output.find("\n  3         Pi                            3.141592...       13.2 / 19.9\n"),
      std::string::npos);
  EXPECT_NE(constants.output.find("16 is a perfect square."), std::string::npos);
  EXPECT_NE(constants.output.find("Argument must be greater than 1."), std::string::npos);

  const auto algorithms = run_child("2\n1\n", [] {
    const auto pi = make_constant(constant_index("pi"));
    algorithm_menu(*pi);
    return pi->algorithm_key() == "ramanujan" ? 0 : 2;
  });
  EXPECT_EQ(algorithms.status, 0) << algorithms.output;
  EXPECT_EQ(algorithms.output.find("reduced"), std::string::npos);
  EXPECT_NE(algorithms.output.find("Ramanujan (1910)     (~40% slower)\n"), std::string::npos);
  EXPECT_EQ(run_child("", [] { return constants_menu() ? 0 : 2; }).status, 1) << "end of input";
}

}  // namespace
}  // namespace orvane
