// BitFields: reads packed bit fields as doubles. Casts between vectors of doubles and of words.
namespace orl::simd::SIMD_ISA {

/// The bits of the doubles, lane by lane, and back.
inline U64 bits_of(F64 a) {
#if defined(SIMD_ISA_AVX512)
  return {_mm512_castpd_si512(a.v)};
#elif defined(SIMD_ISA_AVX2)
  return {_mm256_castpd_si256(a.v)};
#else
  U64 r;
  __builtin_memcpy(&r.v, &a.v, 8);
  return r;
#endif
}
inline F64 from_bits(U64 a) {
#if defined(SIMD_ISA_AVX512)
  return {_mm512_castsi512_pd(a.v)};
#elif defined(SIMD_ISA_AVX2)
  return {_mm256_castsi256_pd(a.v)};
#else
  F64 r;
  __builtin_memcpy(&r.v, &a.v, 8);
  return r;
#endif
}

/// Reads eight neighbouring w-bit fields (9 <= w <= 21) as doubles. Eight fields begin at a byte, so a group
/// is addressed by bytes; read() touches the 32 bytes from `p`.
class BitFields {
 public:
  explicit BitFields(unsigned w) {
#if defined(SIMD_ISA_AVX512)
    alignas(64) std::uint32_t index[16];
    alignas(64) std::uint64_t shift[8];
    for (unsigned i = 0; i < 8; ++i) {
      index[2 * i] = i * w / 32;
      index[2 * i + 1] = i * w / 32 + 1;
      shift[i] = i * w % 32;
    }
    index_.v = _mm512_load_si512(index);
    shift_.v = _mm512_load_si512(shift);
    mask_ = U64::all((std::uint64_t{1} << w) - 1);
#elif defined(SIMD_ISA_AVX2)
    alignas(32) std::uint32_t index[8];
    alignas(32) std::uint64_t shift[4];
    for (unsigned half = 0; half < 2; ++half) {
      for (unsigned i = 0; i < 4; ++i) {
        const unsigned bit = (4 * half + i) * w;
        index[2 * i] = bit / 32;
        index[2 * i + 1] = bit / 32 + 1;
        shift[i] = bit % 32;
      }
      index_[half].v = _mm256_load_si256(reinterpret_cast<const __m256i*>(index));
      shift_[half].v = _mm256_load_si256(reinterpret_cast<const __m256i*>(shift));
    }
    mask_ = U64::all((std::uint64_t{1} << w) - 1);
#else
    w_ = w;
#endif
  }

  void read(const std::uint8_t* p, F64 (&out)[8 / F64::lanes]) const {
#if defined(SIMD_ISA_AVX512)
    const __m512i bytes = _mm512_castsi256_si512(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)));
    const __m512i fields = _mm512_srlv_epi64(_mm512_permutexvar_epi32(index_.v, bytes), shift_.v);
    out[0].v = _mm512_cvtepi64_pd(_mm512_and_si512(fields, mask_.v));
#elif defined(SIMD_ISA_AVX2)
    // 2^52 + field, exact, by setting the exponent.
    const __m256d two52 = _mm256_set1_pd(4503599627370496.0);
    const __m256i bytes = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
    for (int half = 0; half < 2; ++half) {
      const __m256i fields =
          _mm256_srlv_epi64(_mm256_permutevar8x32_epi32(bytes, index_[half].v), shift_[half].v);
      const __m256i with_exponent =
          _mm256_or_si256(_mm256_and_si256(fields, mask_.v), _mm256_castpd_si256(two52));
      out[half].v = _mm256_sub_pd(_mm256_castsi256_pd(with_exponent), two52);
    }
#else
    for (unsigned i = 0; i < 8; ++i) {
      std::uint32_t pair;
      __builtin_memcpy(&pair, p + i * w_ / 8, 4);
      out[i].v = static_cast<double>(pair >> (i * w_ % 8) & ((1u << w_) - 1));
    }
#endif
  }

 private:
#if defined(SIMD_ISA_AVX512)
  U64 index_, shift_, mask_;
#elif defined(SIMD_ISA_AVX2)
  U64 index_[2], shift_[2], mask_;
#else
  unsigned w_;
#endif
};

}  // namespace orl::simd::SIMD_ISA
