#include "outofcore/swap_table.h"

#include "core/exceptions.h"

namespace orl {

template <class W>
std::vector<std::string> SwapTable<W>::add_list(const AlgorithmRegistry& registry,
                                                std::span<const AlgorithmRow> rows) {
  std::vector<std::string> warnings;
  for (const AlgorithmRow& row : rows) {
    const std::string id(row.id);
    const AlgorithmInstances* const instances = registry.find(id);
    const FarFamily* const family = instances ? instances->swap<W>() : nullptr;
    if (family == nullptr) {
      warnings.push_back(instances ? "Warning: " + id + " does not support: \"" + name_ + "\""
                                   : "Skipping unknown algorithm: " + id);
      continue;
    }
    if (!entries_.empty() && entries_.back().threshold >= row.threshold_bits / (8 * sizeof(W)))
      throw StringException("SwapTable::add_list()", "Thresholds must be increasing.");
    if (row.threshold_bits > family->max_bits())
      throw StringException("SwapTable::add_list()", "Thresholds is larger than maximum size.");
    entries_.push_back({row.threshold_bits / (8 * sizeof(W)), family});
  }
  return warnings;
}

template <class W>
const FarFamily& SwapTable<W>::get_family(u64 words) const {
  for (const Entry& entry : entries_)
    if (entry.threshold >= words) return *entry.family;
  throw LimitExceededException("SwapTable::get_family()", entries_.empty() ? 0 : entries_.back().threshold,
                               words);
}

template <class W>
SwapPlan SwapTable<W>::plan(const SwapRequest& request, const SwapBudget& budget) const {
  return plan_swap_product(&get_family(request.product_words()), in_u32_words<W>(request), budget);
}

template <class W>
const SwapTable<W>& swap_table() {
  static const SwapTable<W> table = [] {
    SwapTable<W> made(sizeof(W) == 4 ? "Swap: 32-bit Word" : "Swap: 64-bit Word");
    made.add_list(algorithm_registry(), default_swap_rows());
    return made;
  }();
  return table;
}

template class SwapTable<u32>;
template class SwapTable<u64>;
template const SwapTable<u32>& swap_table<u32>();
template const SwapTable<u64>& swap_table<u64>();

}  // namespace orl
