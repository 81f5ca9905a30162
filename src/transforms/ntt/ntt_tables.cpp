#include "transforms/ntt/ntt_tables.h"

#include <algorithm>

namespace orl {

template <class R>
std::vector<u64> NttTables<R>::counts(std::span<const NttRow<R>> rows) {
  std::vector<u64> counts(ntt_primes<R>().size());
  for (const NttRow<R>& row : rows) {
    const NttSet<R>& set = *find_ntt_set<R>(row.P, row.k);
    for (u32 i = 0; i < set.P; ++i)
      counts[set.prime[i]] = std::max(counts[set.prime[i]], u64{1} << (row.n - (ntt_row_wraps(row) ? 3 : 4)));
  }
  return counts;
}

template <class R>
u64 NttTables<R>::bytes(std::span<const NttRow<R>> rows) {
  u64 sum = 0;
  for (u64 count : counts(rows))
    if (count) sum += LinearHeapBuffer::cut_bytes<NttFactor<R>>(count);
  return sum;
}

template <class R>
void NttTables<R>::grow(LinearHeapBuffer& memory, std::span<const NttRow<R>> rows) {
  const std::vector<u64> wanted = counts(rows);
  tables_.resize(wanted.size());
  for (u32 i = 0; i < wanted.size(); ++i) {
    Table& table = tables_[i];
    if (wanted[i] <= table.count) continue;
    const NttPrime<R>& prime = ntt_primes<R>()[i];
    table = {memory.cut<NttFactor<R>>(wanted[i]), wanted[i]};
    table.roots[0] = prime.factor(1);
    for (u32 l = 0; u64{1} << l < wanted[i]; ++l) {
      const u64 top = prime.two_root[l + 2];
      for (u64 r = 0; r < u64{1} << l; ++r)
        table.roots[(u64{1} << l) + r] = prime.factor(prime.multiply(top, table.roots[r].w));
    }
  }
}

template class NttTables<u64>;
template class NttTables<u32>;

}  // namespace orl
