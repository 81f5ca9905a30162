// BitFields: reads packed bit fields as doubles.
namespace orl::simd::SIMD_ISA {

/// Where the eight fields of a group lie: in which pair of 32-bit words, and how far up.
struct FieldPositions {
  static constexpr unsigned kMinWidth = 9, kMaxWidth = 21;
  /// For one width.
  struct Row {
    alignas(64) std::uint32_t index[16];
    std::uint64_t shift[8];
  };
  Row rows[kMaxWidth - kMinWidth + 1];

  constexpr FieldPositions() : rows() {
    for (unsigned w = kMinWidth; w <= kMaxWidth; ++w)
      for (unsigned i = 0; i < 8; ++i) {
        rows[w - kMinWidth].index[2 * i] = i * w / 32;
        rows[w - kMinWidth].index[2 * i + 1] = i * w / 32 + 1;
        rows[w - kMinWidth].shift[i] = i * w % 32;
      }
  }
};
inline constexpr FieldPositions kFieldPositions;

/// Reads eight neighbouring w-bit fields (9 <= w <= 21) as doubles. Eight fields begin at a byte, so a group
/// is addressed by bytes; read() touches the 32 bytes from `p`.
class BitFields {
 public:
  /// For fields of w bits, kMinWidth <= w <= kMaxWidth.
  explicit BitFields(unsigned w) {
    [[maybe_unused]] const FieldPositions::Row& row = kFieldPositions.rows[w - FieldPositions::kMinWidth];
#if defined(SIMD_ISA_AVX512)
    index_ = U64::load(row.index);
    shift_ = U64::load(row.shift);
    mask_ = U64::all((std::uint64_t{1} << w) - 1);
#elif defined(SIMD_ISA_AVX2)
    for (int half = 0; half < 2; ++half) {
      index_[half] = U64::load(row.index + 8 * half);
      shift_[half] = U64::load(row.shift + 4 * half);
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

/// Stores lane l's words q[0], q[1] (and q[2] when kWords is 3) at out[l] + offset: 16 bytes per lane, or 32
/// of which the last eight are 0.
template <int kWords>
inline void store_fields(std::uint8_t* const (&out)[U64::lanes], std::uint64_t offset, const U64 (&q)[3]) {
  static_assert(kWords == 2 || kWords == 3);
#if defined(SIMD_ISA_AVX512)
  const __m512i even = _mm512_unpacklo_epi64(q[0].v, q[1].v), odd = _mm512_unpackhi_epi64(q[0].v, q[1].v);
  const auto store128 = [&](int lane, __m128i x) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out[lane] + offset), x);
  };
  const auto store256 = [&](int lane, __m256i x) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out[lane] + offset), x);
  };
  if constexpr (kWords == 2) {
    store128(0, _mm512_castsi512_si128(even));
    store128(1, _mm512_castsi512_si128(odd));
    store128(2, _mm512_extracti64x2_epi64(even, 1));
    store128(3, _mm512_extracti64x2_epi64(odd, 1));
    store128(4, _mm512_extracti64x2_epi64(even, 2));
    store128(5, _mm512_extracti64x2_epi64(odd, 2));
    store128(6, _mm512_extracti64x2_epi64(even, 3));
    store128(7, _mm512_extracti64x2_epi64(odd, 3));
  } else {
    const __m512i zero = _mm512_setzero_si512();
    const __m512i even2 = _mm512_unpacklo_epi64(q[2].v, zero), odd2 = _mm512_unpackhi_epi64(q[2].v, zero);
    const __m512i low = _mm512_set_epi64(11, 10, 3, 2, 9, 8, 1, 0),
                  high = _mm512_set_epi64(15, 14, 7, 6, 13, 12, 5, 4);
    const __m512i even_low = _mm512_permutex2var_epi64(even, low, even2);
    const __m512i odd_low = _mm512_permutex2var_epi64(odd, low, odd2);
    const __m512i even_high = _mm512_permutex2var_epi64(even, high, even2);
    const __m512i odd_high = _mm512_permutex2var_epi64(odd, high, odd2);
    store256(0, _mm512_castsi512_si256(even_low));
    store256(1, _mm512_castsi512_si256(odd_low));
    store256(2, _mm512_extracti64x4_epi64(even_low, 1));
    store256(3, _mm512_extracti64x4_epi64(odd_low, 1));
    store256(4, _mm512_castsi512_si256(even_high));
    store256(5, _mm512_castsi512_si256(odd_high));
    store256(6, _mm512_extracti64x4_epi64(even_high, 1));
    store256(7, _mm512_extracti64x4_epi64(odd_high, 1));
  }
#elif defined(SIMD_ISA_AVX2)
  const __m256i even = _mm256_unpacklo_epi64(q[0].v, q[1].v), odd = _mm256_unpackhi_epi64(q[0].v, q[1].v);
  if constexpr (kWords == 2) {
    const auto store128 = [&](int lane, __m128i x) {
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out[lane] + offset), x);
    };
    store128(0, _mm256_castsi256_si128(even));
    store128(1, _mm256_castsi256_si128(odd));
    store128(2, _mm256_extracti128_si256(even, 1));
    store128(3, _mm256_extracti128_si256(odd, 1));
  } else {
    const __m256i zero = _mm256_setzero_si256();
    const __m256i even2 = _mm256_unpacklo_epi64(q[2].v, zero), odd2 = _mm256_unpackhi_epi64(q[2].v, zero);
    const auto store256 = [&](int lane, __m256i x) {
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(out[lane] + offset), x);
    };
    store256(0, _mm256_permute2x128_si256(even, even2, 0x20));
    store256(1, _mm256_permute2x128_si256(odd, odd2, 0x20));
    store256(2, _mm256_permute2x128_si256(even, even2, 0x31));
    store256(3, _mm256_permute2x128_si256(odd, odd2, 0x31));
  }
#else
  const std::uint64_t word[4] = {q[0].v, q[1].v, q[2].v, 0};
  __builtin_memcpy(out[0] + offset, word, kWords == 2 ? 16 : 32);
#endif
}

}  // namespace orl::simd::SIMD_ISA
