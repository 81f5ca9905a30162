#include "transforms/common/prime_field.h"

#include <bit>

namespace orl {

PrimeField::PrimeField(u64 prime) : p(prime), e(static_cast<u32>(std::countr_zero(prime - 1))) {
  // A quadratic non-residue raised to the odd part has order 2^e.
  u64 g = 2;
  while (power(g, (p - 1) / 2) != p - 1) ++g;
  u64 root = power(g, (p - 1) >> e);
  for (u32 i = e + 1; i-- > 0;) {
    two_root[i] = root;
    root = multiply(root, root);
  }
}

u64 PrimeField::power(u64 base, u64 exponent) const {
  u64 result = 1;
  for (; exponent; exponent >>= 1, base = multiply(base, base))
    if (exponent & 1) result = multiply(result, base);
  return result;
}

u64 PrimeField::root_of_order(u64 order) const {
  u64 root = 1;
  for (u64 g = 2; root == 1 && order > 1; ++g) root = power(g, (p - 1) / order);
  return root;
}

u32 multiply_small(u64* a, u32 words, u64 b) {
  u64 carry = 0;
  for (u32 i = 0; i < words; ++i) {
    const u128 t = static_cast<u128>(a[i]) * b + carry;
    a[i] = static_cast<u64>(t);
    carry = static_cast<u64>(t >> 64);
  }
  if (carry) a[words++] = carry;
  return words;
}

}  // namespace orl
