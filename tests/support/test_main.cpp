// main() of the tests that need the registries: the same explicit calls as the program's.
#include <gtest/gtest.h>

#include "console/console.h"
#include "core/exceptions.h"
#include "memory/allocators.h"
#include "threads/frameworks.h"
#include "transforms/registration.h"

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  orl::console::install();
  orl::register_exceptions();
  orl::register_frameworks();
  orl::register_allocators();
  orl::register_multiplication();
  return RUN_ALL_TESTS();
}
