// main() of the tests of what the user sees: the console stands behind the libraries, as in the program.
#include <gtest/gtest.h>

#include "console/console.h"

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  orl::console::install();
  return RUN_ALL_TESTS();
}
