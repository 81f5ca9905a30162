// F64: a vector of `lanes` doubles, and the shuffles that transforms need. Choice: lanes of either of two
// vectors. Every operation rounds as the scalar form does, so kernels written over F64 give the same bits in
// every instruction set.
namespace orl::simd::SIMD_ISA {

#if defined(SIMD_ISA_AVX512)

struct F64 {
  static constexpr int lanes = 8;
  /// Loads and stores ask for no alignment; all() has x in every lane.
  static F64 load(const double* p) { return {_mm512_loadu_pd(p)}; }
  /// lanes / 2 doubles, each in two neighbouring lanes.
  static F64 load_pairs(const double* p) {
    return {_mm512_permutexvar_pd(_mm512_set_epi64(3, 3, 2, 2, 1, 1, 0, 0),
                                  _mm512_castpd256_pd512(_mm256_loadu_pd(p)))};
  }
  static F64 all(double x) { return {_mm512_set1_pd(x)}; }
  void store(double* p) const { _mm512_storeu_pd(p, v); }

  __m512d v;
};
inline F64 operator+(F64 a, F64 b) { return {_mm512_add_pd(a.v, b.v)}; }
inline F64 operator-(F64 a, F64 b) { return {_mm512_sub_pd(a.v, b.v)}; }
inline F64 operator*(F64 a, F64 b) { return {_mm512_mul_pd(a.v, b.v)}; }
inline F64 operator/(F64 a, F64 b) { return {_mm512_div_pd(a.v, b.v)}; }
/// a b + c, a b - c, c - a b, each rounded once; the larger of two, the second when they compare neither way.
inline F64 fma(F64 a, F64 b, F64 c) { return {_mm512_fmadd_pd(a.v, b.v, c.v)}; }
inline F64 fms(F64 a, F64 b, F64 c) { return {_mm512_fmsub_pd(a.v, b.v, c.v)}; }
inline F64 fnma(F64 a, F64 b, F64 c) { return {_mm512_fnmadd_pd(a.v, b.v, c.v)}; }
inline F64 max(F64 a, F64 b) { return {_mm512_max_pd(a.v, b.v)}; }
/// Lanes, bit j for lane j, between two vectors.
struct Choice {
  /// `chosen` in the lanes of the bits that are set, `other` elsewhere.
  static Choice of(std::uint32_t bits) { return {static_cast<__mmask8>(bits)}; }
  F64 operator()(F64 chosen, F64 other) const { return {_mm512_mask_blend_pd(mask, other.v, chosen.v)}; }

  __mmask8 mask;
};
/// Without the sign.
inline F64 abs(F64 a) { return {_mm512_andnot_pd(_mm512_set1_pd(-0.0), a.v)}; }
/// The larger of |a| and |b|.
inline F64 max_abs(F64 a, F64 b) { return {_mm512_range_pd(a.v, b.v, 0xb)}; }
inline double largest_lane(F64 a) { return _mm512_reduce_max_pd(a.v); }
/// Keeps a loaded value in a register: compilers fold a load into each of its
/// uses, and then loads are the limit.
inline F64 in_register(F64 a) {
  asm("" : "+v"(a.v));
  return a;
}
/// Rows become columns.
inline void transpose(F64 (&r)[8]) {
  __m512d a[8], b[8];
  for (int i = 0; i < 8; i += 2) {
    a[i] = _mm512_unpacklo_pd(r[i].v, r[i + 1].v);
    a[i + 1] = _mm512_unpackhi_pd(r[i].v, r[i + 1].v);
  }
  for (int i = 0; i < 8; i += 4)
    for (int j = 0; j < 2; ++j) {
      b[i + j] = _mm512_shuffle_f64x2(a[i + j], a[i + j + 2], 0x88);
      b[i + j + 2] = _mm512_shuffle_f64x2(a[i + j], a[i + j + 2], 0xdd);
    }
  for (int j = 0; j < 4; ++j) {
    r[j].v = _mm512_shuffle_f64x2(b[j], b[j + 4], 0x88);
    r[j + 4].v = _mm512_shuffle_f64x2(b[j], b[j + 4], 0xdd);
  }
}

#elif defined(SIMD_ISA_AVX2)

struct F64 {
  static constexpr int lanes = 4;
  static F64 load(const double* p) { return {_mm256_loadu_pd(p)}; }
  static F64 load_pairs(const double* p) {
    return {_mm256_permute4x64_pd(_mm256_castpd128_pd256(_mm_loadu_pd(p)), 0x50)};
  }
  static F64 all(double x) { return {_mm256_set1_pd(x)}; }
  void store(double* p) const { _mm256_storeu_pd(p, v); }

  __m256d v;
};
inline F64 operator+(F64 a, F64 b) { return {_mm256_add_pd(a.v, b.v)}; }
inline F64 operator-(F64 a, F64 b) { return {_mm256_sub_pd(a.v, b.v)}; }
inline F64 operator*(F64 a, F64 b) { return {_mm256_mul_pd(a.v, b.v)}; }
inline F64 operator/(F64 a, F64 b) { return {_mm256_div_pd(a.v, b.v)}; }
inline F64 fma(F64 a, F64 b, F64 c) { return {_mm256_fmadd_pd(a.v, b.v, c.v)}; }
inline F64 fms(F64 a, F64 b, F64 c) { return {_mm256_fmsub_pd(a.v, b.v, c.v)}; }
inline F64 fnma(F64 a, F64 b, F64 c) { return {_mm256_fnmadd_pd(a.v, b.v, c.v)}; }
inline F64 max(F64 a, F64 b) { return {_mm256_max_pd(a.v, b.v)}; }
struct Choice {
  static Choice of(std::uint32_t bits) {
    const __m256i lane = _mm256_set_epi64x(8, 4, 2, 1);
    return {_mm256_castsi256_pd(_mm256_cmpeq_epi64(_mm256_and_si256(_mm256_set1_epi64x(bits), lane), lane))};
  }
  F64 operator()(F64 chosen, F64 other) const { return {_mm256_blendv_pd(other.v, chosen.v, mask)}; }

  __m256d mask;
};
inline F64 abs(F64 a) { return {_mm256_andnot_pd(_mm256_set1_pd(-0.0), a.v)}; }
inline F64 max_abs(F64 a, F64 b) { return max(abs(a), abs(b)); }
inline double largest_lane(F64 a) {
  const __m128d half = _mm_max_pd(_mm256_castpd256_pd128(a.v), _mm256_extractf128_pd(a.v, 1));
  return _mm_cvtsd_f64(_mm_max_sd(half, _mm_unpackhi_pd(half, half)));
}
/// Keeps a loaded value in a register: compilers fold a load into each of its
/// uses, and then loads are the limit.
inline F64 in_register(F64 a) {
  asm("" : "+x"(a.v));
  return a;
}
/// Rows become columns.
inline void transpose(F64 (&r)[4]) {
  const __m256d a0 = _mm256_unpacklo_pd(r[0].v, r[1].v), a1 = _mm256_unpackhi_pd(r[0].v, r[1].v);
  const __m256d a2 = _mm256_unpacklo_pd(r[2].v, r[3].v), a3 = _mm256_unpackhi_pd(r[2].v, r[3].v);
  r[0].v = _mm256_permute2f128_pd(a0, a2, 0x20);
  r[1].v = _mm256_permute2f128_pd(a1, a3, 0x20);
  r[2].v = _mm256_permute2f128_pd(a0, a2, 0x31);
  r[3].v = _mm256_permute2f128_pd(a1, a3, 0x31);
}

#else

struct F64 {
  static constexpr int lanes = 1;
  static F64 load(const double* p) { return {*p}; }
  static F64 load_pairs(const double* p) { return {*p}; }
  static F64 all(double x) { return {x}; }
  void store(double* p) const { *p = v; }

  double v;
};
inline F64 operator+(F64 a, F64 b) { return {a.v + b.v}; }
inline F64 operator-(F64 a, F64 b) { return {a.v - b.v}; }
inline F64 operator*(F64 a, F64 b) { return {a.v * b.v}; }
inline F64 operator/(F64 a, F64 b) { return {a.v / b.v}; }
inline F64 fma(F64 a, F64 b, F64 c) { return {__builtin_fma(a.v, b.v, c.v)}; }
inline F64 fms(F64 a, F64 b, F64 c) { return {__builtin_fma(a.v, b.v, -c.v)}; }
inline F64 fnma(F64 a, F64 b, F64 c) { return {__builtin_fma(-a.v, b.v, c.v)}; }
inline F64 max(F64 a, F64 b) { return {a.v > b.v ? a.v : b.v}; }
struct Choice {
  static Choice of(std::uint32_t bits) { return {(bits & 1) != 0}; }
  F64 operator()(F64 chosen, F64 other) const { return mask ? chosen : other; }

  bool mask;
};
inline F64 abs(F64 a) { return {__builtin_fabs(a.v)}; }
inline F64 max_abs(F64 a, F64 b) { return max(abs(a), abs(b)); }
inline double largest_lane(F64 a) { return a.v; }
inline F64 in_register(F64 a) { return a; }
inline void transpose(F64 (&)[1]) {}

#endif

}  // namespace orl::simd::SIMD_ISA
