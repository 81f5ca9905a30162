// Vector operations as functions over arrays, so that a test can run those of every instruction set.
#pragma once

#include <cstdint>
#include <span>

namespace orl::test {

/// One operation: reads 8 values of each operand, writes 8. Vectors are taken in turn.
template <class T>
struct LaneOperation {
  const char* name;
  void (*run)(const T* a, const T* b, const T* c, T* out);
};

/// What one instruction set offers.
struct LaneOperations {
  std::span<const LaneOperation<double>> doubles;
  std::span<const LaneOperation<std::uint64_t>> words;
};

}  // namespace orl::test
