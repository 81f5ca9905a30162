#include "transforms/residue_tables.h"

#include <algorithm>

namespace orl {

std::vector<u64> ResidueTables::counts(std::span<const ResidueRow> rows) {
  std::vector<u64> counts(residue_primes().size());
  for (const ResidueRow& row : rows) {
    const ResidueSet& set = residue_set(row.P, row.k);
    for (u32 i = 0; i < set.P; ++i)
      counts[set.prime[i]] = std::max(counts[set.prime[i]], u64{1} << (row.n - 4));
  }
  return counts;
}

u64 ResidueTables::bytes(std::span<const ResidueRow> rows) {
  u64 sum = 0;
  for (u64 count : counts(rows))
    if (count) sum += LinearHeapBuffer::cut_bytes<ResidueFactor>(count);
  return sum;
}

void ResidueTables::grow(LinearHeapBuffer& memory, std::span<const ResidueRow> rows) {
  const std::vector<u64> wanted = counts(rows);
  tables_.resize(wanted.size());
  for (u32 i = 0; i < wanted.size(); ++i) {
    Table& table = tables_[i];
    if (wanted[i] <= table.count) continue;
    const ResiduePrime& prime = residue_primes()[i];
    table = {memory.cut<ResidueFactor>(wanted[i]), wanted[i]};
    table.roots[0] = prime.factor(1);
    for (u32 l = 0; u64{1} << l < wanted[i]; ++l) {
      const u64 top = prime.two_root[l + 2];
      for (u64 r = 0; r < u64{1} << l; ++r) {
        const double w = table.roots[r].w;
        const u64 value = w < 0 ? prime.p - static_cast<u64>(-w) : static_cast<u64>(w);
        table.roots[(u64{1} << l) + r] = prime.factor(prime.multiply(top, value));
      }
    }
  }
}

}  // namespace orl
