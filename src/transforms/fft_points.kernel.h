// Between words and complex points: unpacking of bit fields, and scaling,
// rounding, carrying and packing. Needs fft_pass.kernel.h.
namespace orl::SIMD_ISA {
namespace {

using simd::SIMD_ISA::U64;

/// Points of `w` bits from the packed fields into complex points: the low half
/// are real parts.
void unpack_points(const FftPlan& plan, double* x, const u8* fields) {
  const simd::SIMD_ISA::BitFields reader(plan.w);
  const u64 half_bytes = plan.field_bytes() / 2;
  for (u64 i = 0; i < plan.complex_points() / 8; ++i) {
    F64 re[8 / L], im[8 / L];
    reader.read(fields + i * plan.w, re);
    reader.read(fields + half_bytes + i * plan.w, im);
    for (u32 c = 0; c < 8 / L; ++c) store(x + 16 * i + c * kGroup, {re[c], im[c]});
  }
}

// Carrying runs along eight segments of consecutive points, L of them side by
// side in the lanes, eight points a step. A step's 8 w bits begin at a byte,
// and are stored as whole 64-bit words: what is too much is overwritten by the
// next step. The first step of a segment is kept back until all segments have
// run, for it receives the carry of the segment before, and the end of that
// segment has clobbered its place.

constexpr u32 kSegments = 8;
constexpr double kRound = 6755399441055744.0;  // 1.5 * 2^52: adding it rounds to
                                               // an integer in the low 51 bits
constexpr u64 kRoundMask = (u64{1} << 51) - 1;

struct FirstStep {
  u64 word[3];
};

/// Eight points of L segments: scaled, rounded and with carries taken into
/// account; 0 <= d[b] < 2^w.
FFT_INLINE void carry_step(const double* const (&segment)[L], u64 offset, F64 scale, u32 w, U64 mask,
                           U64& carry, U64 (&d)[8]) {
  for (u32 c = 0; c < 8 / L; ++c) {
    F64 row[L];
    for (u32 l = 0; l < L; ++l) row[l] = F64::load(segment[l] + offset + c * kGroup);
    transpose(row);
    for (u32 i = 0; i < L; ++i) {
      const U64 sum = (bits_of(fma(row[i], scale, F64::all(kRound))) & U64::all(kRoundMask)) + carry;
      d[c * L + i] = sum & mask;
      carry = sum.shr(w);
    }
  }
}

/// Eight fields of w bits a lane as three words a lane.
FFT_INLINE void pack_step(const U64 (&d)[8], u32 w, U64 (&q)[3]) {
  U64 pair[4];
  for (u32 m = 0; m < 4; ++m) pair[m] = d[2 * m] | d[2 * m + 1].shl(w);
  if (w < 16) {
    const U64 low = pair[0] | pair[1].shl(2 * w), high = pair[2] | pair[3].shl(2 * w);
    q[0] = low | high.shl(4 * w);
    q[1] = high.shr(64 - 4 * w);
    q[2] = U64::all(0);
  } else if (w == 16) {
    q[0] = pair[0] | pair[1].shl(32);
    q[1] = pair[2] | pair[3].shl(32);
    q[2] = U64::all(0);
  } else {
    const U64 low = pair[0] | pair[1].shl(2 * w), high = pair[2] | pair[3].shl(2 * w);
    q[0] = low;
    q[1] = pair[1].shr(64 - 2 * w) | high.shl(4 * w - 64);
    q[2] = high.shr(128 - 4 * w) | pair[3].shr(64 - 2 * w).shl(4 * w - 64);
  }
}

/// Adds a segment's incoming carry to its first step and writes that; returns
/// what leaves the segment.
u64 finish_segment(u8* out, u64 bytes, u32 w, const FirstStep& first, u64 carry) {
  u64 word[3];
  u128 sum = carry;
  for (u32 i = 0; i < 3; ++i) {
    sum += first.word[i];
    word[i] = static_cast<u64>(sum);
    sum >>= 64;
  }
  const u32 top = w / 8, bit = w % 8 * 8;  // 8 w bits end here
  u64 leaving = top < 3 ? word[top] >> bit : 0;
  __builtin_memcpy(out, word, w);
  for (u64 i = w; leaving && i < bytes; ++i) {
    leaving += out[i];
    out[i] = static_cast<u8>(leaving);
    leaving >>= 8;
  }
  return leaving;
}

u64 pack_points(const FftPlan& plan, const double* x, u8* fields) {
  const u32 w = plan.w;
  const u64 steps = plan.points() / (8 * kSegments), bytes = steps * w;
  const F64 scale = F64::all(1.0 / static_cast<double>(plan.complex_points()));
  const U64 mask = U64::all((u64{1} << w) - 1);
  FirstStep first[kSegments];
  u64 leaving[kSegments];
  for (u32 s = 0; s < kSegments; s += L) {
    // Segments 0 to 3 are real parts, 4 to 7 imaginary parts.
    const double* segment[L];
    for (u32 l = 0; l < L; ++l) segment[l] = x + (s + l) % 4 * steps * 16 + (s + l) / 4 * L;
    U64 carry = U64::all(0);
    for (u64 i = 0; i < steps; ++i) {
      U64 d[8], q[3];
      carry_step(segment, 16 * i, scale, w, mask, carry, d);
      pack_step(d, w, q);
      alignas(64) u64 lane[3][L];
      for (u32 j = 0; j < 3; ++j) q[j].store(lane[j]);
      for (u32 l = 0; l < L; ++l) {
        if (i == 0) {
          for (u32 j = 0; j < 3; ++j) first[s + l].word[j] = lane[j][l];
        } else {
          u8* out = fields + (s + l) * bytes + i * w;
          __builtin_memcpy(out, &lane[0][l], 8);
          __builtin_memcpy(out + 8, &lane[1][l], 8);
          if (w > 16) __builtin_memcpy(out + 16, &lane[2][l], 8);
        }
      }
    }
    alignas(64) u64 last[L];
    carry.store(last);
    for (u32 l = 0; l < L; ++l) leaving[s + l] = last[l];
  }
  u64 carry = 0;
  for (u32 s = 0; s < kSegments; ++s)
    carry = leaving[s] + finish_segment(fields + s * bytes, bytes, w, first[s], carry);
  return carry;
}

double rounding_error(const FftPlan& plan, const double* x) {
  const F64 scale = F64::all(1.0 / static_cast<double>(plan.complex_points()));
  F64 largest = F64::all(0.0);
  for (u64 i = 0; i < plan.points(); i += L) {
    const F64 value = F64::load(x + i);
    const F64 rounded = fma(value, scale, F64::all(kRound)) - F64::all(kRound);
    largest = max(largest, abs(fms(value, scale, rounded)));
  }
  alignas(64) double lane[L];
  largest.store(lane);
  double result = 0;
  for (double e : lane) result = e > result ? e : result;
  return result;
}

}  // namespace
}  // namespace orl::SIMD_ISA
