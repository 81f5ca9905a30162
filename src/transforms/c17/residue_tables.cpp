#include "transforms/c17/residue_tables.h"

#include <bit>

namespace orl {
namespace {

constexpr u64 kOverread = 8;  // kernels read whole vectors

u64 value_of(const ResiduePrime& prime, double w) {
  return w < 0 ? prime.p - static_cast<u64>(-w) : static_cast<u64>(w);
}

// s[2^l + r] from s[2^l] and s[r].
u64 next_root(const ResiduePrime& prime, u64 index, double rest) {
  const u32 l = static_cast<u32>(std::bit_width(index)) - 1;
  return prime.multiply(prime.two_root[l + 2], value_of(prime, rest));
}

ResidueRoots make_low(LinearHeapBuffer& memory, const ResiduePrime& prime) {
  double* w = memory.cut<double>(kResidueLowRoots + kOverread);
  double* ratio = memory.cut<double>(kResidueLowRoots + kOverread);
  double* inverse = memory.cut<double>(kResidueLowRoots + kOverread);
  for (u64 j = 0; j < kResidueLowRoots; ++j) {
    const u64 value = j ? next_root(prime, j, w[j ^ std::bit_floor(j)]) : 1;
    const ResidueFactor f = prime.factor(value);
    w[j] = f.w;
    ratio[j] = f.ratio;
    inverse[j] = prime.factor(prime.inverse(value)).w;
  }
  for (double* table : {w, ratio, inverse}) std::fill_n(table + kResidueLowRoots, kOverread, 0.0);
  return {w, ratio, inverse, nullptr, nullptr, 0};
}

// How many s[] tables up to one level give, and how many entries they have for the first `count` of s[].
constexpr u64 kMiddleStep = kResidueLowRoots, kTopStep = kResidueLowRoots * kResidueMiddleRoots;
u64 middle_count(u64 count) { return std::min(count, kTopStep) / kMiddleStep; }
u64 top_count(u64 count) { return count > kTopStep ? count / kTopStep : 0; }

// s[i step] for i < count; null for none.
ResidueFactor* make_level(LinearHeapBuffer& memory, const ResiduePrime& prime, u64 count, u64 step) {
  if (count == 0) return nullptr;
  ResidueFactor* level = memory.cut<ResidueFactor>(count);
  level[0] = prime.factor(1);
  for (u64 i = 1; i < count; ++i)
    level[i] = prime.factor(next_root(prime, i * step, level[i ^ std::bit_floor(i)].w));
  return level;
}

u64 bytes_of(u64 count) {
  u64 bytes = 3 * LinearHeapBuffer::cut_bytes<double>(kResidueLowRoots + kOverread);
  for (u64 entries : {middle_count(count), top_count(count)})
    if (entries) bytes += LinearHeapBuffer::cut_bytes<ResidueFactor>(entries);
  return bytes;
}

}  // namespace

std::vector<u64> ResidueTables::counts(std::span<const ResidueRow> rows) {
  return largest_by_prime(rows, [](const ResidueRow& row) { return count_of(row.n); });
}

u64 ResidueTables::bytes(std::span<const ResidueRow> rows) {
  u64 sum = 0;
  for (u64 count : counts(rows))
    if (count) sum += bytes_of(count);
  return sum;
}

void ResidueTables::grow(LinearHeapBuffer& memory, std::span<const ResidueRow> rows) {
  const std::vector<u64> wanted = counts(rows);
  roots_.resize(wanted.size());
  for (u32 i = 0; i < wanted.size(); ++i) {
    ResidueRoots& roots = roots_[i];
    if (wanted[i] <= roots.count) continue;
    const ResiduePrime& prime = residue_primes()[i];
    if (roots.count == 0) roots = make_low(memory, prime);
    if (middle_count(wanted[i]) > middle_count(roots.count))
      roots.middle = make_level(memory, prime, middle_count(wanted[i]), kMiddleStep);
    if (top_count(wanted[i]) > top_count(roots.count))
      roots.top = make_level(memory, prime, top_count(wanted[i]), kTopStep);
    roots.count = wanted[i];
  }
}

}  // namespace orl
