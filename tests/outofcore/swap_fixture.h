// Products of numbers on disks as tests make them: words in, words out, everything between as a plan says.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "arrays/array_fixture.h"
#include "outofcore/swap_product.h"
#include "support/gmp_oracle.h"
#include "support/multiplication.h"
#include "threads/simple_frameworks.h"

namespace orl::test {

/// An array for one product after the other, on folders that cost no disk.
struct SwapPlace {
  explicit SwapPlace(const std::vector<std::string>& lanes = {"1"}) : folders(lanes, R03::memory_folder()) {}

  SwapBudget budget(u64 memory_bytes, u64 tds = 1) const {
    return {memory_bytes, 4096, geometry_of(folders.descriptor, 0).row_bytes, tds};
  }

  R03::Folders folders;
};

/// A number with these words, and their hash.
inline SwapNumber swap_number(SwapDescriptor& disk, Parallelizer& framework, const std::vector<u32>& words) {
  SwapNumber number(disk, words.size());
  const GuardedBlock memory(NumberSink::bytes(65536));
  NumberSink sink(number, 0, 65536, memory.buffer());
  sink.take({words.data(), words.size()}, {framework, 1});
  sink.finish();
  return number;
}

/// The words of a number, which must have the hash that it says.
inline std::vector<u32> words_of(const SwapNumber& number, Parallelizer& framework) {
  std::vector<u32> words;
  const GuardedBlock memory(WordReader::bytes(16384));
  LinearHeapBuffer buffer = memory.buffer();
  WordReader reader(number, 16384, buffer, "words_of()");
  while (true) {
    const Words<u32> block = reader.next({framework, 1});
    if (block.count == 0) return words;
    words.insert(words.end(), block.ptr, block.ptr + block.count);
  }
}

/// What a product came to.
struct SwapOutcome {
  std::vector<u32> words;
  bool top = false;
};

/// Makes a planned product in exactly its memory. What lies on the array besides operands and product, and what the array
/// moves, are what the plan says.
inline SwapOutcome make_product(SwapPlace& place, Parallelizer& framework, const SwapPlan& plan,
                                const FarFamily* family, const std::vector<u32>& A,
                                const std::vector<u32>& B) {
  SwapDescriptor disk(place.folders.descriptor);
  const SwapNumber a = swap_number(disk, framework, A);
  const SwapNumber b = B.empty() ? SwapNumber() : swap_number(disk, framework, B);
  SwapNumber product(disk, plan.wanted_words());
  const u64 used = disk.usage().current();
  const GuardedBlock memory(plan.memory_bytes);
  const SwapRun run{{framework, plan.tds}, disk, memory.buffer(), silent_status()};
  SwapOutcome outcome;
  outcome.top = swap_multiply(plan, family, run, {a, B.empty() ? nullptr : &b}, product);
  EXPECT_TRUE(memory.intact());
  EXPECT_EQ(disk.usage().peak(), used + plan.disk_bytes);
  EXPECT_EQ(disk.usage().current(), used);
  outcome.words = words_of(product, framework);
  return outcome;
}

}  // namespace orl::test
