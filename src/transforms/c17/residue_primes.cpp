#include "transforms/c17/residue_primes.h"

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <vector>

#include "core/exceptions.h"

namespace orl {
namespace {

struct SetRecord {
  u32 P, k, e;
  u64 primes[kMaxResiduePrimes];
};
constexpr SetRecord kRecords[] = {
#include "transforms/c17/residue_sets.inc"
};
constexpr ResidueRow kRows[] = {
#include "transforms/c17/residue_rows.inc"
};

u64 bits_at(const u64 (&a)[8], u32 at, u32 count) {
  const u32 word = at / 64, shift = at % 64;
  u128 pair = a[word];
  if (word + 1 < 8) pair |= static_cast<u128>(a[word + 1]) << 64;
  return static_cast<u64>(pair >> shift) & ((u64{1} << count) - 1);
}

void make_dft(const ResiduePrime& prime, u32 k, u64 root, ResidueFactor* dft) {
  if (k == 1) return;
  const auto subtract = [&](u64 a, u64 b) { return a >= b ? a - b : a + prime.p - b; };
  const u64 inverse = prime.inverse(root), half = prime.half[1];
  u64 c[4], s[4];
  for (u32 j = 1; j < 4; ++j) {
    const u64 power = prime.power(root, j), back = prime.power(inverse, j);
    c[j] = prime.multiply(half, (power + back) % prime.p);
    s[j] = prime.multiply(half, subtract(power, back));
  }
  const auto put = [&](std::initializer_list<u64> values) {
    for (const u64 value : values) *dft++ = prime.factor(value);
  };
  if (k == 3) put({root});
  if (k == 5)
    put({prime.p - prime.half[2], prime.multiply(half, subtract(c[1], c[2])), s[1], subtract(s[2], s[1]),
         (s[1] + s[2]) % prime.p});
  if (k == 7) put({c[1], c[2], c[3], s[1], s[2], s[3]});
}

struct Tables {
  std::vector<ResiduePrime> primes;
  ResidueSet sets[6][4][2] = {};  // by P, k and whether it is the one of larger shapes

  Tables() {
    for (const SetRecord& record : kRecords) {
      auto& both = sets[record.P - 4][record.k >> 1];
      ResidueSet& set = both[both[0].P != 0];  // the smaller e comes first
      set.P = record.P;
      set.k = record.k;
      set.e = record.e;
      set.words = 1;
      set.modulus[0] = 1;
      set.modulus_log2 = 0;
      for (u32 i = 0; i < set.P; ++i) {
        const u64 p = record.primes[i];
        auto found =
            std::find_if(primes.begin(), primes.end(), [&](const ResiduePrime& q) { return q.p == p; });
        if (found == primes.end()) found = primes.insert(found, ResiduePrime(p));
        set.prime[i] = static_cast<u32>(found - primes.begin());
        set.words = multiply_small(set.modulus, set.words, p);
        set.modulus_log2 += std::log2(static_cast<double>(p));
      }
      const u32 limbs = 2 * join_limbs(set.P), bits = join_limb_bits(set.P);
      s64 carry = 0;
      for (u32 j = 0; j < limbs; ++j) {
        const s64 limb = static_cast<s64>(bits_at(set.modulus, bits * j, bits)) + carry;
        carry = (limb + (s64{1} << (bits - 1))) >> bits;
        set.modulus_limb[j] = static_cast<double>(limb - carry * (s64{1} << bits));
      }
      set.modulus_limb[limbs] =
          static_cast<double>(static_cast<s64>(bits_at(set.modulus, bits * limbs, 48)) + carry);
      for (u32 i = 0; i < set.P; ++i) {
        const ResiduePrime& prime = primes[set.prime[i]];
        u32 words = 1;
        u64 rest = 1;
        u64 cofactor[8] = {1};
        for (u32 j = 0; j < set.P; ++j)
          if (j != i) {
            words = multiply_small(cofactor, words, record.primes[j]);
            rest = prime.multiply(rest, record.primes[j] % prime.p);
          }
        for (u32 j = 0; j < limbs; ++j)
          set.cofactor[i][j] = static_cast<double>(bits_at(cofactor, bits * j, bits));
        set.scale[i] = prime.inverse(prime.multiply(rest, set.k));
        const u64 root = prime.root_of_order(set.k);
        u64 power = 1;
        for (u32 j = 0; j < set.k; ++j, power = prime.multiply(power, root))
          set.odd[i][j] = prime.factor(power);
        make_dft(prime, set.k, root, set.dft[i]);
        for (u32 j = 0; j < 4; ++j) set.limb[i][j] = prime.factor(prime.power(2, 48 * j));
      }
    }
  }
};

const Tables& tables() {
  static const Tables built;
  return built;
}

}  // namespace

ResiduePrime::ResiduePrime(u64 prime) : PrimeField(prime) {
  half[0] = 1;
  for (u32 i = 1; i < 48; ++i) half[i] = multiply(half[i - 1], (p + 1) / 2);
}

ResidueFactor ResiduePrime::factor(u64 value) const {
  const double w = value > p / 2 ? -static_cast<double>(p - value) : static_cast<double>(value);
  return {w, w / static_cast<double>(p)};
}

std::span<const ResiduePrime> residue_primes() { return tables().primes; }
const ResidueSet& residue_set(const ResidueRow& row) {
  const auto& both = tables().sets[row.P - 4][row.k >> 1];
  return both[row.n > both[0].e];
}
std::span<const ResidueRow> residue_rows() { return kRows; }

}  // namespace orl
