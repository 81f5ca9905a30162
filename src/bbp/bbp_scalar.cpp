// The reference, and the loops for the denominators that a vector kernel leaves: Montgomery's products in
// 64-bit words and the processor's division.
#include <algorithm>

#include "bbp/bbp_kernels.h"

namespace orl::scalar {
namespace {

// Powers made side by side: a product waits for the one before it.
constexpr u64 kChains = 4;

struct Modulus {
  u64 m, inverse;  // m * inverse = 1 modulo 2^64

  explicit Modulus(u64 modulus) : m(modulus), inverse(modulus) {
    // The modulus is right to 3 bits; each step doubles them (Hensel).
    for (int bits = 3; bits < 64; bits *= 2) inverse *= 2 - m * inverse;
  }
  /// x / 2^64 of a double word x < 2^64 m; below m.
  u64 reduce(u128 x) const {
    const u64 high = static_cast<u64>(x >> 64);
    const u64 multiple = static_cast<u64>(u128{static_cast<u64>(x) * inverse} * m >> 64);
    return high >= multiple ? high - multiple : high - multiple + m;
  }
  u64 square(u64 x) const { return reduce(u128{x} * x); }
  u64 doubled(u64 x) const { return 2 * x >= m ? 2 * x - m : 2 * x; }
};

// The quotient by m > remainder of remainder * 2^64 + low, whose rest becomes the new remainder.
u64 divide(u64& remainder, u64 low, u64 m) {
  u64 quotient;
  asm("divq %[m]" : "=a"(quotient), "=d"(remainder) : "0"(low), "1"(remainder), [m] "r"(m) : "cc");
  return quotient;
}

// The limbs of remainder / m below `limb`, the highest first.
void expand(u64 remainder, u64 m, u64* sums, u64 limb) {
  while (limb-- > 0) {
    const u64 low = remainder << kBbpLimbBits;
    remainder >>= 64 - kBbpLimbBits;
    sums[limb] += divide(remainder, low, m);
  }
}

void powers(const BbpTerm& term, u64 first, u64 last, u64* sums, u64 limb_count) {
  for (u64 k = first; k < last; k += kChains) {
    const u64 chains = std::min(kChains, last - k);
    Modulus mod[kChains] = {Modulus(1), Modulus(1), Modulus(1), Modulus(1)};
    u64 x[kChains] = {}, exponent[kChains] = {};
    for (u64 j = 0; j < chains; j++) {
      mod[j] = Modulus(term.a * (k + j) + term.b);
      exponent[j] = static_cast<u64>(term.c * static_cast<s64>(k + j) + term.d);
    }
    // The first six bits at once.
    const int bits = 64 - __builtin_clzll(exponent[0] | 1);
    int left = std::max(bits - 6, 0);
    for (u64 j = 0; j < chains; j++) {
      const u64 m = mod[j].m;
      const u128 start = u128{(u64{0} - m) % m} << (exponent[j] >> left);
      x[j] = static_cast<u64>(start >> 64);
      divide(x[j], static_cast<u64>(start), m);
    }
    while (left-- > 0) {
      for (u64 j = 0; j < kChains; j++) {
        const u64 square = mod[j].square(x[j]);
        x[j] = exponent[j] >> left & 1 ? mod[j].doubled(square) : square;
      }
    }
    for (u64 j = 0; j < chains; j++) expand(mod[j].reduce(x[j]), mod[j].m, sums, limb_count);
  }
}

void quotients(const BbpTerm& term, u64 first, u64 last, u64* sums, u64 limb_count) {
  for (u64 k = first; k < last; k++) {
    const u64 m = term.a * k + term.b;
    const u64 shift = u64{0} - static_cast<u64>(term.c * static_cast<s64>(k) + term.d);
    const u64 skipped = (shift - 1) / kBbpLimbBits;
    if (skipped >= limb_count) return;
    const u64 top = limb_count - 1 - skipped;
    u64 remainder = 0;
    sums[top] += divide(remainder, u64{1} << (kBbpLimbBits * (skipped + 1) - shift), m);
    expand(remainder, m, sums, top);
  }
}

}  // namespace

extern const BbpKernel bbp_kernel;
constinit const BbpKernel bbp_kernel{"scalar", 1, kChains, u64{1} << 63, &powers, &quotients};

}  // namespace orl::scalar
