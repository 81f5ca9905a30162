#include "transforms/vst/vst_tables.h"

#include <algorithm>

namespace orl {
namespace {

u64 high_count(u64 n) { return n > kVstLowLevels + 2 ? u64{1} << (n - 2 - kVstLowLevels) : 1; }

/// values[j] = the product over the bits l of j of the root of order 2^(l + order), or of its inverse.
void fill(const ResiduePrime& prime, double* values, u64 count, u32 order, bool inverse) {
  values[0] = 1;
  for (u32 l = 0; u64{1} << l < count; ++l) {
    const u64 root = prime.two_root[l + order], top = inverse ? prime.inverse(root) : root;
    for (u64 r = 0; r < u64{1} << l; ++r) {
      const double w = values[r];
      const u64 value = w < 0 ? prime.p - static_cast<u64>(-w) : static_cast<u64>(w);
      values[(u64{1} << l) + r] = prime.factor(prime.multiply(top, value)).w;
    }
  }
}

}  // namespace

std::vector<u64> VstTables::lengths(std::span<const VstRow> rows) {
  return largest_by_prime(rows, [](const VstRow& row) { return row.n; });
}

u64 VstTables::bytes(std::span<const VstRow> rows) {
  u64 sum = 0;
  for (u64 n : lengths(rows))
    if (n)
      sum += 2 * (LinearHeapBuffer::cut_bytes<double>(kVstLow + kVstRow) +
                  LinearHeapBuffer::cut_bytes<double>(high_count(n)));
  return sum;
}

void VstTables::grow(LinearHeapBuffer& memory, std::span<const VstRow> rows) {
  const std::vector<u64> wanted = lengths(rows);
  tables_.resize(wanted.size());
  for (u32 i = 0; i < wanted.size(); ++i) {
    Table& table = tables_[i];
    if (wanted[i] <= table.n) continue;
    const ResiduePrime& prime = residue_primes()[i];
    VstRoots& roots = table.roots;
    if (!table.n)
      for (const bool inverse : {false, true}) {
        double*& low = inverse ? roots.low_inverse : roots.low;
        low = memory.cut<double>(kVstLow + kVstRow);
        fill(prime, low, kVstLow, 2, inverse);
        std::fill_n(low + kVstLow, kVstRow, 0.0);
      }
    if (!table.n || high_count(wanted[i]) > high_count(table.n))
      for (const bool inverse : {false, true}) {
        double*& high = inverse ? roots.high_inverse : roots.high;
        high = memory.cut<double>(high_count(wanted[i]));
        fill(prime, high, high_count(wanted[i]), 2 + kVstLowLevels, inverse);
      }
    table.n = wanted[i];
  }
}

}  // namespace orl
