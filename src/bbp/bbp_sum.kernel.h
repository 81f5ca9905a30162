// Powers of 2 modulo many m at once, and the quotients by m, in doubles. Included once per instruction set;
// no include guard.
//
// Residues x are integers, |x| <= 2/3 m. A product of x and y = 2^j x is the double h nearest to it and the
// rest l = x y - h; q is the integer nearest to h / m as the machine finds it; (h - q m) + l is the new
// residue.
//
// Bound. j is at most J, and m 2^J <= 2^50. |x y / m| <= 4/9 * 2^50 then, so adding 1.5 * 2^52 rounds it to
// an integer. h is off by 2^-53 of itself and the inverse of m by 2^-52, hence q by at most 1/2 + 4/9 * 2^50
// * 3 * 2^-53 = 2/3: the new residue is in the interval again. h, q m and l are integers, and h - q m as well
// as its sum with l are below m, so both come out exactly. A power 2^t <= 2^49 m leaves a residue below 5/8
// m. A quotient of 2^48 x by m leaves 0.55 m.
namespace orl::SIMD_ISA {
namespace {

using F64 = simd::SIMD_ISA::F64;
using U64 = simd::SIMD_ISA::U64;
using simd::SIMD_ISA::Choice;

#define BBP_INLINE inline __attribute__((always_inline))

// A step takes about 20 cycles from residue to residue and 3.5 cycles of the units: six keep them busy.
constexpr u64 kChains = 6;
constexpr u64 kLanes = F64::lanes;
constexpr u64 kBatch = kChains * kLanes;
constexpr double kRound = 6755399441055744.0;  // 1.5 * 2^52
constexpr double kLimb = 281474976710656.0;    // 2^48
constexpr double kProductLimit = 4 * kLimb;    // of m 2^J
// Newton's step makes a batch's inverses from those before it: twice, while m grows by less than 2^-14.
constexpr u64 kNewtonIndex = kBatch << 14;

BBP_INLINE F64 rounded(F64 a, F64 b) { return fma(a, b, F64::all(kRound)) - F64::all(kRound); }
BBP_INLINE F64 power_of_2(U64 exponent) { return as_doubles((exponent + U64::all(1023)).shl(52)); }
BBP_INLINE U64 shifted_right(U64 a, u64 count) { return a.shr(U64::all(count)); }

// The indices k, k + 1, ... of a batch, an index a lane; lane i of chain c has the index k + c * kLanes + i.
struct Batch {
  F64 m[kChains], inverse[kChains], x[kChains];
  F64 ramp_m[kChains];
  U64 ramp_e[kChains];  // how far the exponents are below that of k

  explicit Batch(const BbpTerm& term) {
    double m_steps[kBatch];
    u64 e_steps[kBatch];
    for (u64 i = 0; i < kBatch; ++i) {
      m_steps[i] = static_cast<double>(term.a * i);
      e_steps[i] = static_cast<u64>(-term.c) * i;
    }
    for (u64 c = 0; c < kChains; ++c) {
      ramp_m[c] = F64::load(m_steps + c * kLanes);
      ramp_e[c] = U64::load(e_steps + c * kLanes);
      inverse[c] = F64::all(0);
    }
  }

  BBP_INLINE void set_moduli(double m0, bool near_those_before) {
    for (u64 c = 0; c < kChains; ++c) {
      m[c] = F64::all(m0) + ramp_m[c];
      if (near_those_before) {
        for (int step = 0; step < 2; ++step)
          inverse[c] = fma(inverse[c], fnma(m[c], inverse[c], F64::all(1)), inverse[c]);
      } else {
        inverse[c] = F64::all(1) / m[c];
      }
    }
  }

  BBP_INLINE void start(u64 c, F64 power) { x[c] = fnma(rounded(power, inverse[c]), m[c], power); }
  BBP_INLINE void square(u64 c, F64 y) {
    const F64 h = x[c] * y, l = fms(x[c], y, h);
    x[c] = fnma(rounded(h, inverse[c]), m[c], h) + l;
  }
  // The lanes beyond the first `valid` become 0.
  BBP_INLINE void drop_beyond(u64 valid) {
    for (u64 c = 0; c < kChains; ++c) {
      const u64 kept = valid > c * kLanes ? valid - c * kLanes : 0;
      if (kept < kLanes) x[c] = Choice::of((1u << kept) - 1)(x[c], F64::all(0));
    }
  }
  // Adds the limbs of x / m below `limb`, cut off after the last one.
  BBP_INLINE void expand(u64* sums, u64 limb) {
    const U64 bias = as_bits(F64::all(kRound));
    while (limb-- > 0) {
      U64 sum = U64::load(sums + kLanes * limb);
      for (u64 c = 0; c < kChains; ++c) {
        const F64 h = x[c] * F64::all(kLimb);
        const F64 q = fma(h, inverse[c], F64::all(kRound));
        x[c] = fnma(q - F64::all(kRound), m[c], h);
        sum = sum + (as_bits(q) - bias);
      }
      sum.store(sums + kLanes * limb);
    }
    // What is left below 0 has been rounded up.
    U64 last = U64::load(sums);
    for (u64 c = 0; c < kChains; ++c) last = last - as_bits(x[c]).shr(63);
    last.store(sums);
  }
};

// How the exponents of a batch are cut: windows of `width` bits from the top, of which the uppermost, `top`,
// is the start's. Exponents of a batch differ by less than 2^low, so above bit `low` they are those of the
// smallest one, plus perhaps 1.
struct Windows {
  u64 width, count, low;

  Windows(double largest_m, double smallest_m, u64 largest_exponent, u64 span) {
    width = 1;  // J = 2^width: a digit of the window, plus 1
    while (width < 4 && largest_m * static_cast<double>(u64{1} << (u64{2} << width)) <= kProductLimit)
      ++width;
    u64 top_limit = 49;
    while (smallest_m >= 2) {
      smallest_m /= 2;
      ++top_limit;
    }
    count = 0;
    while ((largest_exponent >> (width * count)) > top_limit) ++count;
    low = 0;
    while (span >> low) low += width;
  }
};

// x = 2^(exponent of each lane) mod m; the lanes' exponents are largest - ramp_e.
BBP_INLINE void raise(Batch& batch, const Windows& windows, u64 largest, u64 smallest) {
  const u64 width = windows.width, low = windows.low, top = width * windows.count;
  const u64 shared = smallest >> low;
  for (u64 c = 0; c < kChains; ++c) {
    const U64 lanes = shifted_right(U64::all(largest) - batch.ramp_e[c], top);
    batch.start(c, power_of_2(top > low ? U64::all(shared >> (top - low)) : lanes));
  }
  for (u64 bit = top; bit > 0;) {
    bit -= width;
    for (u64 i = 1; i < width; ++i)
      for (u64 c = 0; c < kChains; ++c) batch.square(c, batch.x[c]);
    if (bit > low) {
      const U64 digit = U64::all(shared >> (bit - low) & ((u64{1} << width) - 1));
      const F64 factor = power_of_2(digit);
      for (u64 c = 0; c < kChains; ++c) batch.square(c, batch.x[c] * factor);
    } else {
      // At bit `low` what the lanes have above the shared bits is the digit, plus perhaps 1.
      const U64 above = U64::all(bit == low ? shared >> width << width : 0);
      const U64 mask = U64::all(bit == low ? ~u64{0} : (u64{1} << width) - 1);
      for (u64 c = 0; c < kChains; ++c) {
        const U64 lanes = shifted_right(U64::all(largest) - batch.ramp_e[c], bit);
        batch.square(c, batch.x[c] * power_of_2((lanes - above) & mask));
      }
    }
  }
}

void powers(const BbpTerm& term, u64 first, u64 last, u64* sums, u64 limb_count) {
  const auto exponent_of = [&](u64 k) { return static_cast<u64>(term.c * static_cast<s64>(k) + term.d); };
  const auto modulus_of = [&](u64 k) { return static_cast<double>(term.a * k + term.b); };
  Batch batch(term);
  const Windows windows(modulus_of(last), modulus_of(first), exponent_of(first),
                        (kBatch - 1) * static_cast<u64>(-term.c));
  for (u64 k = first; k < last; k += kBatch) {
    const u64 valid = last - k < kBatch ? last - k : kBatch;
    batch.set_moduli(modulus_of(k), k > first && k >= kNewtonIndex);
    raise(batch, windows, exponent_of(k), exponent_of(k + valid - 1));
    if (valid < kBatch) batch.drop_beyond(valid);
    batch.expand(sums, limb_count);
  }
}

void quotients(const BbpTerm& term, u64 first, u64 last, u64* sums, u64 limb_count) {
  Batch batch(term);
  for (u64 k = first; k < last; k += kBatch) {
    const u64 shift = u64{0} - static_cast<u64>(term.c * static_cast<s64>(k) + term.d);
    const u64 skipped = (shift - 1) / kBbpLimbBits;
    if (skipped >= limb_count) return;
    batch.set_moduli(static_cast<double>(term.a * k + term.b), k > first && k >= kNewtonIndex);
    // x = 2^-(bits below the limb before): no integer at first, but a power of 2, which nothing rounds. Its
    // quotients are 0 until it reaches m / 2. The last lane's is 2^-(48 + 47 * 20) at least.
    for (u64 c = 0; c < kChains; ++c)
      batch.x[c] = power_of_2(U64::all(kBbpLimbBits * skipped - shift) - batch.ramp_e[c]);
    if (last - k < kBatch) batch.drop_beyond(last - k);
    batch.expand(sums, limb_count - skipped);
  }
}

}  // namespace

extern const BbpKernel bbp_kernel;
constinit const BbpKernel bbp_kernel{SIMD_ISA_NAME, kLanes, kBatch, u64{1} << 48, &powers, &quotients};

}  // namespace orl::SIMD_ISA
