#include "transforms/ntt/ntt_primes.h"

#include <algorithm>
#include <bit>
#include <vector>

namespace orl {
namespace {

template <class R>
struct SetRecord {
  u32 P, k, e;
  R primes[kMaxNttPrimes];
};
constexpr SetRecord<u64> kRecords64[] = {
#include "transforms/ntt/ntt64_sets.inc"
};
constexpr NttRow<u64> kRows64[] = {
#include "transforms/ntt/ntt64_rows.inc"
};
constexpr SetRecord<u32> kRecords32[] = {
#include "transforms/ntt/ntt32_sets.inc"
};
constexpr NttRow<u32> kRows32[] = {
#include "transforms/ntt/ntt32_rows.inc"
};

template <class R>
std::span<const SetRecord<R>> records() {
  if constexpr (sizeof(R) == 8)
    return kRecords64;
  else
    return kRecords32;
}

template <class R>
void fill_constants(NttSet<R>& set, u32 i, const NttPrime<R>& prime, const R* primes) {
  u32 words = 1;
  u64 rest = set.k;
  set.cofactor[i][0] = 1;
  for (u32 j = 0; j < set.P; ++j)
    if (j != i) {
      words = multiply_small(set.cofactor[i], words, primes[j]);
      rest = prime.multiply(rest, primes[j] % prime.p);
    }
  const u64 word = prime.power(2, prime.kBits), half = (prime.p + 1) / 2;
  set.scale[i] = prime.multiply(word, prime.inverse(rest));
  for (u32 j = 0; j < 4; ++j) set.limb[i][j] = prime.factor(prime.power(word, j));
  const u64 root = prime.root_of_order(set.k);
  for (u32 j = 0; j < set.k; ++j) {
    const u64 up = prime.power(root, j), down = prime.power(root, (set.k - j) % set.k);
    set.cosine[i][j] = prime.factor(prime.multiply(half, (up + down) % prime.p));
    set.sine[i][j] = prime.factor(prime.multiply(half, (up + prime.p - down) % prime.p));
  }
}

template <class R>
struct Tables {
  std::vector<NttPrime<R>> primes;
  std::vector<NttSet<R>> sets;

  Tables() {
    for (const SetRecord<R>& record : records<R>()) {
      NttSet<R>& set = sets.emplace_back();
      set.P = record.P;
      set.k = record.k;
      set.e = record.e;
      set.words = 1;
      set.modulus[0] = 1;
      for (u32 i = 0; i < set.P; ++i) {
        set.prime[i] = index_of(record.primes[i]);
        set.words = multiply_small(set.modulus, set.words, record.primes[i]);
      }
      set.modulus_bits = 64 * set.words - 1 - static_cast<u32>(std::countl_zero(set.modulus[set.words - 1]));
      for (u32 i = 0; i < set.P; ++i) fill_constants(set, i, primes[set.prime[i]], record.primes);
    }
  }

  u32 index_of(u64 p) {
    auto found = std::find_if(primes.begin(), primes.end(), [&](const NttPrime<R>& q) { return q.p == p; });
    if (found == primes.end()) found = primes.insert(found, NttPrime<R>(p));
    return static_cast<u32>(found - primes.begin());
  }
};

template <class R>
const Tables<R>& tables() {
  static const Tables<R> built;
  return built;
}

template <class R>
bool holds(const NttRow<R>& row, u64 terms, u32 spare_bits, u32 levels) {
  const NttSet<R>* set = find_ntt_set<R>(row.P, row.k);
  return set && row.n >= kSmallestNttLevel && row.n <= set->e + levels &&
         ntt_coefficient_bits(row, terms) + spare_bits <= set->modulus_bits;
}

}  // namespace

template <class R>
NttPrime<R>::NttPrime(u64 prime) : PrimeField(prime), word_inverse(prime) {
  // The prime is its own inverse to three bits; each step doubles them.
  for (u32 i = 0; i < 5; ++i) word_inverse *= 2 - p * word_inverse;
}

template <class R>
std::span<const NttPrime<R>> ntt_primes() {
  return tables<R>().primes;
}

template <class R>
const NttSet<R>* find_ntt_set(u32 P, u32 k) {
  for (const NttSet<R>& set : tables<R>().sets)
    if (set.P == P && set.k == k) return &set;
  return nullptr;
}

template <>
std::span<const NttRow<u64>> ntt_rows() {
  return kRows64;
}
template <>
std::span<const NttRow<u32>> ntt_rows() {
  return kRows32;
}

template <class R>
u32 ntt_coefficient_bits(const NttRow<R>& row, u64 terms) {
  return static_cast<u32>(2 * row.point_bits() + static_cast<u64>(std::bit_width(terms - 1)));
}

template <class R>
bool ntt_row_is_sound(const NttRow<R>& row) {
  return holds(row, row.points() / 2, 1, 3);
}
template <class R>
bool ntt_row_wraps(const NttRow<R>& row) {
  return holds(row, row.points(), 2, 2);
}

template struct NttPrime<u64>;
template struct NttPrime<u32>;
template std::span<const NttPrime<u64>> ntt_primes();
template std::span<const NttPrime<u32>> ntt_primes();
template const NttSet<u64>* find_ntt_set(u32, u32);
template const NttSet<u32>* find_ntt_set(u32, u32);
template u32 ntt_coefficient_bits(const NttRow<u64>&, u64);
template u32 ntt_coefficient_bits(const NttRow<u32>&, u64);
template bool ntt_row_is_sound(const NttRow<u64>&);
template bool ntt_row_is_sound(const NttRow<u32>&);
template bool ntt_row_wraps(const NttRow<u64>&);
template bool ntt_row_wraps(const NttRow<u32>&);

}  // namespace orl
