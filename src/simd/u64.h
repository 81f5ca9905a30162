// U64: a vector of 64-bit words; `lanes` of them. Loads and stores ask for no alignment.
namespace orl::simd::SIMD_ISA {

/// Eight bytes at any address.
inline long long load_word(const std::uint8_t* p) {
  long long word;
  __builtin_memcpy(&word, p, sizeof word);
  return word;
}

#if defined(SIMD_ISA_AVX512)

struct U64 {
  static constexpr int lanes = 8;
  using Mask = std::uint32_t;  // bit j stands for lane j

  /// All lanes from memory; x in every lane.
  static U64 load(const void* p) { return {_mm512_loadu_si512(p)}; }
  static U64 all(std::uint64_t x) { return {_mm512_set1_epi64(static_cast<long long>(x))}; }
  /// Words `stride` bytes apart.
  static U64 load_strided(const std::uint8_t* p, std::uint64_t stride) {
    const auto at = [&](std::uint64_t i) { return load_word(p + i * stride); };
    return {_mm512_set_epi64(at(7), at(6), at(5), at(4), at(3), at(2), at(1), at(0))};
  }
  /// x in lane 0, zero above.
  static U64 low(std::uint64_t x) {
    return {_mm512_zextsi128_si512(_mm_cvtsi64_si128(static_cast<long long>(x)))};
  }
  /// 0, step, 2 * step, ...
  static U64 ramp(long long step) {
    return {_mm512_mullo_epi64(_mm512_set_epi64(7, 6, 5, 4, 3, 2, 1, 0), _mm512_set1_epi64(step))};
  }
  void store(void* p) const { _mm512_storeu_si512(p, v); }

  /// All lanes by one count below 64.
  U64 shl(unsigned n) const { return {_mm512_maskz_slli_epi64(kAll, v, n)}; }
  U64 shr(unsigned n) const { return {_mm512_maskz_srli_epi64(kAll, v, n)}; }
  /// Each lane by its own count; 64 and more give 0.
  U64 shl(U64 n) const { return {_mm512_maskz_sllv_epi64(kAll, v, n.v)}; }
  U64 shr(U64 n) const { return {_mm512_maskz_srlv_epi64(kAll, v, n.v)}; }

  /// Lanes of a equal to, or unsigned below, those of b.
  static Mask equal(U64 a, U64 b) { return _mm512_cmpeq_epu64_mask(a.v, b.v); }
  static Mask less(U64 a, U64 b) { return _mm512_cmplt_epu64_mask(a.v, b.v); }
  /// a - b in the lanes of the mask's low bits, a elsewhere.
  static U64 sub_where(Mask mask, U64 a, U64 b) {
    return {_mm512_mask_sub_epi64(a.v, static_cast<__mmask8>(mask), a.v, b.v)};
  }

  /// Lanes one up: the last lane of `before`, then all but the last of a.
  static U64 next(U64 before, U64 a) { return {_mm512_maskz_alignr_epi64(kAll, a.v, before.v, 7)}; }
  /// Words below 2^32 from and to memory; store_low drops the upper halves.
  static U64 load_low(const std::uint32_t* p) {
    return {_mm512_maskz_cvtepu32_epi64(kAll, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)))};
  }
  void store_low(std::uint32_t* p) const {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), _mm512_maskz_cvtepi64_epi32(kAll, v));
  }
  /// Products of the low halves.
  static U64 mul_low(U64 a, U64 b) { return {_mm512_maskz_mul_epu32(kAll, a.v, b.v)}; }
  /// The lesser of a and b in each 32-bit half, unsigned.
  static U64 min_halves(U64 a, U64 b) { return {_mm512_maskz_min_epu32(0xffff, a.v, b.v)}; }
  static U64 min(U64 a, U64 b) { return {_mm512_maskz_min_epu64(kAll, a.v, b.v)}; }
  /// The low words of the products; mul_high has the high words.
  static U64 mul(U64 a, U64 b) { return {_mm512_mullo_epi64(a.v, b.v)}; }

  // g++ 12 takes the undefined pass-through of the unmasked shifts for a use of an uninitialised value.
  static constexpr __mmask8 kAll = 0xff;

  __m512i v;
};
inline U64 operator+(U64 a, U64 b) { return {_mm512_add_epi64(a.v, b.v)}; }
inline U64 operator-(U64 a, U64 b) { return {_mm512_sub_epi64(a.v, b.v)}; }
inline U64 operator&(U64 a, U64 b) { return {_mm512_and_si512(a.v, b.v)}; }
inline U64 operator|(U64 a, U64 b) { return {_mm512_or_si512(a.v, b.v)}; }
/// All lanes or-ed.
inline std::uint64_t or_of_lanes(U64 a) { return static_cast<std::uint64_t>(_mm512_reduce_or_epi64(a.v)); }
/// The high words of the products, unsigned.
inline U64 mul_high(U64 a, U64 b) {
  const U64 a1 = a.shr(32), b1 = b.shr(32);
  const U64 middle = U64::mul_low(a1, b) + U64::mul_low(a, b).shr(32);
  const U64 other = U64::mul_low(a, b1) + (middle & U64::all(0xffffffff));
  return U64::mul_low(a1, b1) + middle.shr(32) + other.shr(32);
}

#elif defined(SIMD_ISA_AVX2)

struct U64 {
  static constexpr int lanes = 4;
  using Mask = std::uint32_t;

  static U64 load(const void* p) { return {_mm256_loadu_si256(static_cast<const __m256i*>(p))}; }
  static U64 all(std::uint64_t x) { return {_mm256_set1_epi64x(static_cast<long long>(x))}; }
  static U64 load_strided(const std::uint8_t* p, std::uint64_t stride) {
    const auto at = [&](std::uint64_t i) { return load_word(p + i * stride); };
    return {_mm256_set_epi64x(at(3), at(2), at(1), at(0))};
  }
  static U64 low(std::uint64_t x) {
    return {_mm256_zextsi128_si256(_mm_cvtsi64_si128(static_cast<long long>(x)))};
  }
  static U64 ramp(long long step) { return {_mm256_set_epi64x(3 * step, 2 * step, step, 0)}; }
  void store(void* p) const { _mm256_storeu_si256(static_cast<__m256i*>(p), v); }

  U64 shl(unsigned n) const { return {_mm256_slli_epi64(v, static_cast<int>(n))}; }
  U64 shr(unsigned n) const { return {_mm256_srli_epi64(v, static_cast<int>(n))}; }
  U64 shl(U64 n) const { return {_mm256_sllv_epi64(v, n.v)}; }
  U64 shr(U64 n) const { return {_mm256_srlv_epi64(v, n.v)}; }

  static Mask equal(U64 a, U64 b) { return lane_mask(_mm256_cmpeq_epi64(a.v, b.v)); }
  static Mask less(U64 a, U64 b) {
    const __m256i flip = _mm256_set1_epi64x(static_cast<long long>(std::uint64_t{1} << 63));
    return lane_mask(_mm256_cmpgt_epi64(_mm256_xor_si256(b.v, flip), _mm256_xor_si256(a.v, flip)));
  }
  static U64 sub_where(Mask mask, U64 a, U64 b) {
    const __m256i bits = _mm256_set_epi64x(8, 4, 2, 1);
    const __m256i chosen = _mm256_and_si256(_mm256_set1_epi64x(mask), bits);
    return {_mm256_sub_epi64(a.v, _mm256_and_si256(b.v, _mm256_cmpeq_epi64(chosen, bits)))};
  }
  static U64 next(U64 before, U64 a) {
    return {_mm256_alignr_epi8(a.v, _mm256_permute2x128_si256(before.v, a.v, 0x21), 8)};
  }
  static U64 load_low(const std::uint32_t* p) {
    return {_mm256_cvtepu32_epi64(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)))};
  }
  void store_low(std::uint32_t* p) const {
    const __m256i low = _mm256_permutevar8x32_epi32(v, _mm256_set_epi32(0, 0, 0, 0, 6, 4, 2, 0));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p), _mm256_castsi256_si128(low));
  }
  static U64 mul_low(U64 a, U64 b) { return {_mm256_mul_epu32(a.v, b.v)}; }
  static U64 min_halves(U64 a, U64 b) { return {_mm256_min_epu32(a.v, b.v)}; }

  /// The top bit of each lane.
  static Mask lane_mask(__m256i m) { return static_cast<Mask>(_mm256_movemask_pd(_mm256_castsi256_pd(m))); }

  __m256i v;
};
inline U64 operator+(U64 a, U64 b) { return {_mm256_add_epi64(a.v, b.v)}; }
inline U64 operator-(U64 a, U64 b) { return {_mm256_sub_epi64(a.v, b.v)}; }
inline U64 operator&(U64 a, U64 b) { return {_mm256_and_si256(a.v, b.v)}; }
inline U64 operator|(U64 a, U64 b) { return {_mm256_or_si256(a.v, b.v)}; }
inline std::uint64_t or_of_lanes(U64 a) {
  const __m128i half = _mm_or_si128(_mm256_castsi256_si128(a.v), _mm256_extracti128_si256(a.v, 1));
  return static_cast<std::uint64_t>(_mm_cvtsi128_si64(_mm_or_si128(half, _mm_unpackhi_epi64(half, half))));
}

#else

struct U64 {
  static constexpr int lanes = 1;
  using Mask = std::uint32_t;

  static U64 load(const void* p) {
    U64 x;
    __builtin_memcpy(&x.v, p, sizeof x.v);
    return x;
  }
  static U64 all(std::uint64_t x) { return {x}; }
  static U64 load_strided(const std::uint8_t* p, std::uint64_t) { return load(p); }
  static U64 low(std::uint64_t x) { return {x}; }
  static U64 ramp(long long) { return {0}; }
  void store(void* p) const { __builtin_memcpy(p, &v, sizeof v); }

  U64 shl(unsigned n) const { return {v << n}; }
  U64 shr(unsigned n) const { return {v >> n}; }
  U64 shl(U64 n) const { return {n.v < 64 ? v << n.v : 0}; }
  U64 shr(U64 n) const { return {n.v < 64 ? v >> n.v : 0}; }

  static Mask equal(U64 a, U64 b) { return a.v == b.v; }
  static Mask less(U64 a, U64 b) { return a.v < b.v; }
  static U64 sub_where(Mask mask, U64 a, U64 b) { return {mask & 1 ? a.v - b.v : a.v}; }
  static U64 next(U64 before, U64) { return before; }

  static U64 load_low(const std::uint32_t* p) { return {*p}; }
  void store_low(std::uint32_t* p) const { *p = static_cast<std::uint32_t>(v); }
  static U64 mul_low(U64 a, U64 b) { return {(a.v & 0xffffffff) * (b.v & 0xffffffff)}; }
  static U64 min_halves(U64 a, U64 b) {
    const std::uint64_t top = ~std::uint64_t{0} << 32, a1 = a.v & top, b1 = b.v & top;
    const std::uint64_t a0 = a.v & ~top, b0 = b.v & ~top;
    return {(a1 < b1 ? a1 : b1) | (a0 < b0 ? a0 : b0)};
  }
  static U64 min(U64 a, U64 b) { return {a.v < b.v ? a.v : b.v}; }
  static U64 mul(U64 a, U64 b) { return {a.v * b.v}; }

  std::uint64_t v;
};
inline U64 operator+(U64 a, U64 b) { return {a.v + b.v}; }
inline U64 operator-(U64 a, U64 b) { return {a.v - b.v}; }
inline U64 operator&(U64 a, U64 b) { return {a.v & b.v}; }
inline U64 operator|(U64 a, U64 b) { return {a.v | b.v}; }
inline std::uint64_t or_of_lanes(U64 a) { return a.v; }
inline U64 mul_high(U64 a, U64 b) {
  __extension__ using Wide = unsigned __int128;
  return {static_cast<std::uint64_t>(static_cast<Wide>(a.v) * b.v >> 64)};
}

#endif

/// The bits of the doubles, lane by lane, and back.
inline U64 as_bits(F64 a) { return {__builtin_bit_cast(decltype(U64::v), a.v)}; }
inline F64 as_doubles(U64 a) { return {__builtin_bit_cast(decltype(F64::v), a.v)}; }

/// Rows become columns.
inline void transpose(U64 (&rows)[U64::lanes]) {
  F64 r[U64::lanes];
  for (int i = 0; i < U64::lanes; ++i) r[i] = as_doubles(rows[i]);
  transpose(r);
  for (int i = 0; i < U64::lanes; ++i) rows[i] = as_bits(r[i]);
}

}  // namespace orl::simd::SIMD_ISA
