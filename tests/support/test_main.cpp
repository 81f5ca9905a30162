// main() of the tests that need the registries: the same explicit calls as the program's.
#include <gtest/gtest.h>

#include "frame/exceptions.h"
#include "numbers/algorithm_table.h"
#include "numbers/basecase_algorithm.h"
#include "parallel/allocators.h"
#include "parallel/frameworks.h"
#include "transforms/fft.h"
#include "transforms/hnt.h"
#include "transforms/residue.h"
#include "transforms/vst.h"

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  orl::register_exceptions();
  orl::register_frameworks();
  orl::register_allocators();
  orl::AlgorithmRegistry algorithms;
  orl::register_basecase(algorithms);
  orl::register_fft(algorithms);
  orl::register_c17(algorithms);
  orl::register_vst(algorithms);
  orl::register_hnt(algorithms);
  orl::initialize_multiplication(std::move(algorithms));
  return RUN_ALL_TESTS();
}
