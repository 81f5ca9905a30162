// Which family of transforms multiplies numbers on disks of which size: a table for each word type.
//
// Rows are those of the tables of products in memory (multiply/algorithm_table.h): a threshold in words, and who makes the
// products up to there. An algorithm without transforms for disks is left out, with a warning.
#pragma once

#include "multiply/algorithm_table.h"
#include "outofcore/swap_plan.h"

namespace orl {

/// See the head of this file. W is u32 or u64.
template <class W>
class SwapTable {
 public:
  /// A row; the largest product in words.
  struct Entry {
    u64 threshold;
    const FarFamily* family;
  };

  /// Without rows; `name` is for warnings.
  explicit SwapTable(std::string name) : name_(std::move(name)) {}

  const std::string& name() const { return name_; }
  const std::vector<Entry>& entries() const { return entries_; }
  /// Adds rows by id. Throws StringException "Thresholds must be increasing." or "Thresholds is larger than maximum size.".
  /// Ids that are unknown or have no object for this word type are left out; returns a warning for each.
  std::vector<std::string> add_list(const AlgorithmRegistry& registry, std::span<const AlgorithmRow> rows);

  /// The family of a product of `words` words. Throws LimitExceededException past the last row.
  const FarFamily& get_family(u64 words) const;
  /// The plan of a product whose lengths `request` states in words of this type.
  SwapPlan plan(const SwapRequest& request, const SwapBudget& budget) const;

 private:
  std::string name_;
  std::vector<Entry> entries_;
};

/// A request in 32-bit words, from one in words of type W.
template <class W>
SwapRequest in_u32_words(SwapRequest request) {
  for (u64* length : {&request.a_words, &request.b_words, &request.skip, &request.len})
    *length *= sizeof(W) / sizeof(u32);
  return request;
}

/// "Swap: 32-bit Word" and "Swap: 64-bit Word", with the default rows of the registered algorithms.
template <class W>
const SwapTable<W>& swap_table();

}  // namespace orl
