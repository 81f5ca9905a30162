// Operands as limbs, the same for every transform modulo primes below 2^48: a point carries 24 (P - 1) bits.
namespace orl::SIMD_ISA {
namespace {

constexpr u64 kLimbMask = (u64{1} << 48) - 1;

// The 48-bit limbs of eight points from point i on, limb by limb; the last of an odd number has 24 bits.
RESIDUE_INLINE void read_limbs(OperandBytes a, u32 P, u64 i, double (*limbs)[8]) {
  const u64 bytes = 3 * (P - 1), at = i * bytes;
  alignas(8) u8 local[8 * 3 * 8 + 16];
  const u8* from = a.data + at;
  if (at + 8 * bytes + 8 > a.bytes) {
    const u64 have = at < a.bytes ? (a.bytes - at < 8 * bytes ? a.bytes - at : 8 * bytes) : 0;
    __builtin_memset(local, 0, sizeof(local));
    if (have) __builtin_memcpy(local, from, have);
    from = local;
  }
  const u32 count = P / 2;
  const F64 two52 = F64::all(0x1p52);
  for (u32 j = 0; j < count; ++j) {
    const U64 mask = U64::all(6 * j + 6 <= bytes ? kLimbMask : kLimbMask >> 24);
    for (u32 h = 0; h < 8; h += L) {
      const U64 word = U64::load_strided(from + h * bytes + 6 * j, bytes) & mask;
      (as_doubles(word | as_bits(two52)) - two52).store(limbs[j] + h);
    }
  }
}

}  // namespace
}  // namespace orl::SIMD_ISA
