// Passes over complex points: radix 2, 3, 4, 5 and 8 with twiddles of one node, and the bottom blocks.
// Reads F64 of the open region and nothing else that depends on the instruction set.
//
// A pass over a node x^m - e(theta) writes the polynomial's R parts a_p (p = 0 to R-1, m/R coefficients each)
// as sum over p of a_p e(theta / R)^p e(j p / R), the j-th in slot bitreverse(j). The inverse does the
// reverse, without dividing by R.
namespace orl::SIMD_ISA {
namespace {

using simd::SIMD_ISA::F64;
using simd::SIMD_ISA::fma;
using simd::SIMD_ISA::fms;
using simd::SIMD_ISA::fnma;
using simd::SIMD_ISA::operator+;
using simd::SIMD_ISA::operator-;
using simd::SIMD_ISA::operator*;

#define FFT_INLINE inline __attribute__((always_inline))

constexpr u32 L = F64::lanes;
constexpr u32 kGroup = 2 * L;  // doubles in a group of complex points

struct Complex {
  F64 re, im;
};
FFT_INLINE Complex load(const double* p) { return {F64::load(p), F64::load(p + L)}; }
FFT_INLINE void store(double* p, Complex a) {
  a.re.store(p);
  a.im.store(p + L);
}
FFT_INLINE Complex twiddle(const FftTwiddles& t, u32 i) { return {F64::all(t.re[i]), F64::all(t.im[i])}; }
FFT_INLINE Complex operator+(Complex a, Complex b) { return {a.re + b.re, a.im + b.im}; }
FFT_INLINE Complex operator-(Complex a, Complex b) { return {a.re - b.re, a.im - b.im}; }
/// a + i b and a - i b.
FFT_INLINE Complex add_i(Complex a, Complex b) { return {a.re - b.im, a.im + b.re}; }
FFT_INLINE Complex sub_i(Complex a, Complex b) { return {a.re + b.im, a.im - b.re}; }
FFT_INLINE Complex times(Complex a, Complex w) {
  return {fms(a.re, w.re, a.im * w.im), fma(a.re, w.im, a.im * w.re)};
}
FFT_INLINE Complex times_conj(Complex a, Complex w) {
  return {fma(a.re, w.re, a.im * w.im), fms(a.im, w.re, a.re * w.im)};
}
/// a + w b.
FFT_INLINE Complex plus_times(Complex a, Complex w, Complex b) {
  return {fnma(w.im, b.im, fma(w.re, b.re, a.re)), fma(w.im, b.re, fma(w.re, b.im, a.im))};
}
/// 2 a - t: with t = a + w b this is a - w b.
FFT_INLINE Complex reflect(Complex a, Complex t) {
  const F64 two = F64::all(2.0);
  return {fms(two, a.re, t.re), fms(two, a.im, t.im)};
}
/// a + c z and a - c z for a real constant c.
FFT_INLINE Complex plus_scaled(Complex a, F64 c, Complex z) {
  return {fma(c, z.re, a.re), fma(c, z.im, a.im)};
}
FFT_INLINE Complex minus_scaled(Complex a, F64 c, Complex z) {
  return {fnma(c, z.re, a.re), fnma(c, z.im, a.im)};
}

constexpr double kSqrtHalf = 0.70710678118654752440;

/// A point that is known to be real.
struct Real {
  F64 re;
};
FFT_INLINE Complex times(Real a, Complex w) { return {a.re * w.re, a.re * w.im}; }
FFT_INLINE Complex as_complex(Complex a) { return a; }
FFT_INLINE Complex as_complex(Real a) { return {a.re, F64::all(0.0)}; }

/// sum = a + w b, difference = a - w b.
FFT_INLINE void halve(Complex a, Complex w, Complex b, Complex& sum, Complex& difference) {
  sum = plus_times(a, w, b);
  difference = reflect(a, sum);
}
FFT_INLINE void halve(Complex a, Complex w, Real b, Complex& sum, Complex& difference) {
  sum = {fma(w.re, b.re, a.re), fma(w.im, b.re, a.im)};
  difference = {fnma(w.re, b.re, a.re), fnma(w.im, b.re, a.im)};
}
FFT_INLINE void halve(Real a, Complex w, Real b, Complex& sum, Complex& difference) {
  sum = {fma(w.re, b.re, a.re), w.im * b.re};
  difference = {fnma(w.re, b.re, a.re), F64::all(0.0) - sum.im};
}

/// Radix 8 with the twiddles w^1 to w^7.
template <class Point>
FFT_INLINE void forward_radix8(const Point (&a)[8], const Complex (&w)[7], Complex (&x)[8]) {
  Complex s[4], d[4];
  halve(a[0], w[3], a[4], s[0], d[0]);
  halve(times(a[1], w[0]), w[4], a[5], s[1], d[1]);
  halve(times(a[2], w[1]), w[5], a[6], s[2], d[2]);
  halve(times(a[3], w[2]), w[6], a[7], s[3], d[3]);
  const F64 c = F64::all(kSqrtHalf);
  const Complex s02 = s[0] + s[2], s0_2 = s[0] - s[2], s13 = s[1] + s[3], s1_3 = s[1] - s[3];
  x[0] = s02 + s13;
  x[1] = s02 - s13;
  x[2] = add_i(s0_2, s1_3);
  x[3] = sub_i(s0_2, s1_3);
  const Complex d02 = add_i(d[0], d[2]), d0_2 = sub_i(d[0], d[2]);
  const Complex d13 = add_i(d[1], d[3]), d1_3 = sub_i(d[1], d[3]);
  // e(1/8) d13 = c r1 and i e(1/8) d1_3 = -c r3.
  const Complex r1 = {d13.re - d13.im, d13.re + d13.im};
  const Complex r3 = {d1_3.re + d1_3.im, d1_3.im - d1_3.re};
  x[4] = plus_scaled(d02, c, r1);
  x[5] = minus_scaled(d02, c, r1);
  x[6] = minus_scaled(d0_2, c, r3);
  x[7] = plus_scaled(d0_2, c, r3);
}

/// The inverse of forward_radix8 times 8.
FFT_INLINE void inverse_radix8(Complex (&x)[8], const Complex (&w)[7]) {
  const F64 c = F64::all(kSqrtHalf);
  const Complex s0 = x[0] + x[1], s1 = x[0] - x[1], s2 = x[2] + x[3], s3 = x[2] - x[3];
  const Complex e0 = s0 + s2, e2 = s0 - s2, e1 = sub_i(s1, s3), e3 = add_i(s1, s3);
  const Complex d0 = x[4] + x[5], r1 = x[4] - x[5], d2 = x[6] + x[7], r3 = x[6] - x[7];
  // conj(e(1/8)) r1 = c d1 and i conj(e(1/8)) r3 = c d3; c is applied in the last sums.
  const Complex d1 = {r1.re + r1.im, r1.im - r1.re};
  const Complex d3 = {r3.re - r3.im, r3.re + r3.im};
  const Complex o0 = d0 + d2, o2 = d0 - d2;
  const Complex o1 = d1 - d3, o3 = d1 + d3;
  x[0] = e0 + o0;
  x[4] = times_conj(e0 - o0, w[3]);
  x[2] = times_conj(sub_i(e2, o2), w[1]);
  x[6] = times_conj(add_i(e2, o2), w[5]);
  x[1] = times_conj(plus_scaled(e1, c, o1), w[0]);
  x[5] = times_conj(minus_scaled(e1, c, o1), w[4]);
  x[3] = times_conj({fma(c, o3.im, e3.re), fnma(c, o3.re, e3.im)}, w[2]);
  x[7] = times_conj({fnma(c, o3.im, e3.re), fma(c, o3.re, e3.im)}, w[6]);
}

/// The powers e(theta / 8)^1 to ^7 of a record, in every lane.
FFT_INLINE void load_powers(const FftTwiddles& t, Complex (&w)[7]) {
  for (u32 p = 0; p < 7; ++p) w[p] = twiddle(t, p);
}

template <class Point>
FFT_INLINE void forward_radix4(const Point (&a)[4], const FftTwiddles& t, Complex (&x)[4]) {
  Complex s0, d0, s1, d1;
  halve(a[0], twiddle(t, 3), a[2], s0, d0);
  halve(times(a[1], twiddle(t, 1)), twiddle(t, 5), a[3], s1, d1);
  x[0] = s0 + s1;
  x[1] = s0 - s1;
  x[2] = add_i(d0, d1);
  x[3] = sub_i(d0, d1);
}
FFT_INLINE void inverse_radix4(Complex (&x)[4], const FftTwiddles& t) {
  const Complex s0 = x[0] + x[1], s1 = x[0] - x[1], d0 = x[2] + x[3], d1 = x[2] - x[3];
  x[0] = s0 + d0;
  x[1] = times_conj(sub_i(s1, d1), twiddle(t, 1));
  x[2] = times_conj(s0 - d0, twiddle(t, 3));
  x[3] = times_conj(add_i(s1, d1), twiddle(t, 5));
}

constexpr double kSin3 = 0.86602540378443864676;  // sin(2 pi / 3)
constexpr double kCos5[2] = {0.30901699437494742410, -0.80901699437494742410};
constexpr double kSin5[2] = {0.95105651629515357212, 0.58778525229247312917};

/// The discrete Fourier transforms of 3 and 5 points: x[j] = sum of y[p] e(sign j p / K).
template <int sign>
FFT_INLINE void fourier(Complex (&y)[3]) {
  const Complex s = y[1] + y[2], d = y[1] - y[2];
  const Complex m = plus_scaled(y[0], F64::all(-0.5), s);
  const F64 c = F64::all(kSin3);
  y[0] = y[0] + s;
  y[sign > 0 ? 1 : 2] = {fnma(c, d.im, m.re), fma(c, d.re, m.im)};
  y[sign > 0 ? 2 : 1] = {fma(c, d.im, m.re), fnma(c, d.re, m.im)};
}
template <int sign>
FFT_INLINE void fourier(Complex (&y)[5]) {
  const F64 c1 = F64::all(kCos5[0]), c2 = F64::all(kCos5[1]);
  const F64 s1 = F64::all(kSin5[0]), s2 = F64::all(kSin5[1]);
  const Complex t1 = y[1] + y[4], u1 = y[1] - y[4], t2 = y[2] + y[3], u2 = y[2] - y[3];
  const Complex m1 = plus_scaled(plus_scaled(y[0], c1, t1), c2, t2);
  const Complex m2 = plus_scaled(plus_scaled(y[0], c2, t1), c1, t2);
  const Complex n1 = {fma(s1, u1.re, s2 * u2.re), fma(s1, u1.im, s2 * u2.im)};
  const Complex n2 = {fms(s2, u1.re, s1 * u2.re), fms(s2, u1.im, s1 * u2.im)};
  y[0] = y[0] + t1 + t2;
  y[sign > 0 ? 1 : 4] = add_i(m1, n1);
  y[sign > 0 ? 2 : 3] = add_i(m2, n2);
  y[sign > 0 ? 3 : 2] = sub_i(m2, n2);
  y[sign > 0 ? 4 : 1] = sub_i(m1, n1);
}

/// One column of the forward pass of radix R; odd radices take the record of FftTables::odd() and leave their
/// slots in natural order.
template <u32 R, class Point>
FFT_INLINE void forward_column(const Point (&a)[R], const FftTwiddles& t, Complex (&x)[R]) {
  if constexpr (R == 8) {
    Complex w[7];
    load_powers(t, w);
    forward_radix8(a, w, x);
  } else if constexpr (R == 4) {
    forward_radix4(a, t, x);
  } else if constexpr (R == 2) {
    halve(a[0], twiddle(t, 3), a[1], x[0], x[1]);
  } else {
    x[0] = as_complex(a[0]);
    for (u32 p = 1; p < R; ++p) x[p] = times(a[p], twiddle(t, p - 1));
    if constexpr (R > 1) fourier<1>(x);
  }
}
template <u32 R>
FFT_INLINE void inverse_column(Complex (&x)[R], const FftTwiddles& t) {
  if constexpr (R == 8) {
    Complex w[7];
    load_powers(t, w);
    inverse_radix8(x, w);
  } else if constexpr (R == 4) {
    inverse_radix4(x, t);
  } else if constexpr (R == 2) {
    const Complex d = x[0] - x[1];
    x[0] = x[0] + x[1];
    x[1] = times_conj(d, twiddle(t, 3));
  } else if constexpr (R > 1) {
    fourier<-1>(x);
    for (u32 p = 1; p < R; ++p) x[p] = times_conj(x[p], twiddle(t, p - 1));
  }
}

/// Columns of one node: part p is read at source + p * source_stride and written at target + p *
/// target_stride, `doubles` of each; in place when the two are equal.
template <u32 R>
void forward_pass(const double* source, u64 source_stride, double* target, u64 target_stride, u64 doubles,
                  const FftTwiddles& t) {
  for (u64 i = 0; i < doubles; i += kGroup) {
    Complex a[R], x[R];
    for (u32 p = 0; p < R; ++p) a[p] = load(source + p * source_stride + i);
    forward_column<R>(a, t, x);
    for (u32 p = 0; p < R; ++p) store(target + p * target_stride + i, x[p]);
  }
}
template <u32 R>
void inverse_pass(const double* source, u64 source_stride, double* target, u64 target_stride, u64 doubles,
                  const FftTwiddles& t) {
  for (u64 i = 0; i < doubles; i += kGroup) {
    Complex x[R];
    for (u32 p = 0; p < R; ++p) x[p] = load(source + p * source_stride + i);
    inverse_column<R>(x, t);
    for (u32 p = 0; p < R; ++p) store(target + p * target_stride + i, x[p]);
  }
}

// Bottom blocks: 64 points, six levels. Radix 8 over the eight rows of eight points; then each row is a node
// of its own, and after a transposition `L` rows lie side by side in the lanes: three radix-2 levels with a
// twiddle a lane. Row l has theta_l = theta / 8 + bitreverse(l), so its twiddles are those of the block times
// constants.

/// e(bitreverse(l) / 2), / 4 and / 8 of the rows l = 0 to 7.
struct RowConstants {
  double re[3][8], im[3][8];
};
constexpr RowConstants kRows = {
    {{1.0, 0.0, 0.707106781186547524401, -0.707106781186547524401, 0.923879532511286756128,
      -0.382683432365089771728, 0.382683432365089771728, -0.923879532511286756128},
     {1.0, 0.707106781186547524401, 0.923879532511286756128, 0.382683432365089771728, 0.980785280403230449126,
      0.555570233019602224743, 0.831469612302545237079, 0.195090322016128267848},
     {1.0, 0.923879532511286756128, 0.980785280403230449126, 0.831469612302545237079, 0.995184726672196886245,
      0.881921264348355029713, 0.956940335732208864936, 0.773010453362736960811}},
    {{0.0, 1.0, 0.707106781186547524401, 0.707106781186547524401, 0.382683432365089771728,
      0.923879532511286756128, 0.923879532511286756128, 0.382683432365089771728},
     {0.0, 0.707106781186547524401, 0.382683432365089771728, 0.923879532511286756128, 0.195090322016128267848,
      0.831469612302545237079, 0.555570233019602224743, 0.980785280403230449126},
     {0.0, 0.382683432365089771728, 0.195090322016128267848, 0.555570233019602224743, 0.098017140329560601994,
      0.471396736825997648556, 0.290284677254462367636, 0.634393284163645498215}},
};

/// The twiddles of the three levels of L rows, a lane a row, and e(1/8) times the last.
struct RowTwiddles {
  Complex w1, w2, w3, w3z;
};
FFT_INLINE RowTwiddles row_twiddles(const FftTwiddles& t, u32 first_row) {
  const auto constant = [&](u32 level) {
    return Complex{F64::load(kRows.re[level] + first_row), F64::load(kRows.im[level] + first_row)};
  };
  RowTwiddles w;
  w.w1 = times(constant(0), twiddle(t, 7));
  w.w2 = times(constant(1), twiddle(t, 8));
  w.w3 = times(constant(2), twiddle(t, 9));
  const F64 c = F64::all(kSqrtHalf);
  w.w3z = {c * (w.w3.re - w.w3.im), c * (w.w3.re + w.w3.im)};
  return w;
}

/// (a, b) becomes (a + w b, a - w b).
FFT_INLINE void halve(Complex& a, Complex& b, Complex w) {
  const Complex t = plus_times(a, w, b);
  b = reflect(a, t);
  a = t;
}
/// (a, b) becomes (a + i w b, a - i w b).
FFT_INLINE void halve_i(Complex& a, Complex& b, Complex w) {
  const Complex t = {fnma(w.im, b.re, fnma(w.re, b.im, a.re)), fnma(w.im, b.im, fma(w.re, b.re, a.im))};
  b = reflect(a, t);
  a = t;
}
/// Inverses of halve and halve_i times 2.
FFT_INLINE void join(Complex& a, Complex& b, Complex w) {
  const Complex d = a - b;
  a = a + b;
  b = times_conj(d, w);
}
FFT_INLINE void join_i(Complex& a, Complex& b, Complex w) {
  const Complex d = {a.im - b.im, b.re - a.re};
  a = a + b;
  b = times_conj(d, w);
}

FFT_INLINE void forward_rows(Complex (&x)[8], const RowTwiddles& w) {
  for (u32 p = 0; p < 4; ++p) halve(x[p], x[p + 4], w.w1);
  halve(x[0], x[2], w.w2);
  halve(x[1], x[3], w.w2);
  halve_i(x[4], x[6], w.w2);
  halve_i(x[5], x[7], w.w2);
  halve(x[0], x[1], w.w3);
  halve_i(x[2], x[3], w.w3);
  halve(x[4], x[5], w.w3z);
  halve_i(x[6], x[7], w.w3z);
}
FFT_INLINE void inverse_rows(Complex (&x)[8], const RowTwiddles& w) {
  join(x[0], x[1], w.w3);
  join_i(x[2], x[3], w.w3);
  join(x[4], x[5], w.w3z);
  join_i(x[6], x[7], w.w3z);
  join(x[0], x[2], w.w2);
  join(x[1], x[3], w.w2);
  join_i(x[4], x[6], w.w2);
  join_i(x[5], x[7], w.w2);
  for (u32 p = 0; p < 4; ++p) join(x[p], x[p + 4], w.w1);
}

/// L rows of eight points, in the order of memory, become eight vectors with the rows in lanes.
FFT_INLINE void rows_to_lanes(Complex (&x)[8]) {
  Complex y[8];
  for (u32 c = 0; c < 8 / L; ++c) {
    F64 re[L], im[L];
    for (u32 i = 0; i < L; ++i) {
      re[i] = x[i * (8 / L) + c].re;
      im[i] = x[i * (8 / L) + c].im;
    }
    transpose(re);
    transpose(im);
    for (u32 i = 0; i < L; ++i) y[c * L + i] = {re[i], im[i]};
  }
  for (u32 i = 0; i < 8; ++i) x[i] = y[i];
}
FFT_INLINE void lanes_to_rows(Complex (&x)[8]) {
  Complex y[8];
  for (u32 c = 0; c < 8 / L; ++c) {
    F64 re[L], im[L];
    for (u32 i = 0; i < L; ++i) {
      re[i] = x[c * L + i].re;
      im[i] = x[c * L + i].im;
    }
    transpose(re);
    transpose(im);
    for (u32 i = 0; i < L; ++i) y[i * (8 / L) + c] = {re[i], im[i]};
  }
  for (u32 i = 0; i < 8; ++i) x[i] = y[i];
}

enum class Pointwise { kNone, kSquare, kMultiply };

template <Pointwise P>
FFT_INLINE void pointwise(Complex (&x)[8], const double* g) {
  for (u32 b = 0; b < 8; ++b) {
    if constexpr (P == Pointwise::kSquare)
      x[b] = {fms(x[b].re, x[b].re, x[b].im * x[b].im), (x[b].re + x[b].re) * x[b].im};
    if constexpr (P == Pointwise::kMultiply) x[b] = times(x[b], load(g + b * kGroup));
  }
}

/// One block: forward, pointwise with g, inverse, as asked for.
template <bool kForward, Pointwise P>
void transform_block(double* x, const double* g, const FftTwiddles& t) {
  constexpr u64 kRow = 16;  // doubles in a row of eight points
  if constexpr (L == 8) {
    Complex a[8], w[7];
    for (u32 r = 0; r < 8; ++r) a[r] = load(x + r * kRow);
    load_powers(t, w);
    const RowTwiddles rows = row_twiddles(t, 0);
    if constexpr (kForward) {
      Complex b[8];
      forward_radix8(a, w, b);
      for (u32 r = 0; r < 8; ++r) a[r] = b[r];
      rows_to_lanes(a);
      forward_rows(a, rows);
    }
    if constexpr (P != Pointwise::kNone) {
      pointwise<P>(a, g);
      inverse_rows(a, rows);
      lanes_to_rows(a);
      inverse_radix8(a, w);
    }
    for (u32 r = 0; r < 8; ++r) store(x + r * kRow, a[r]);
  } else {
    if constexpr (kForward) forward_pass<8>(x, kRow, x, kRow, kRow, t);
    for (u32 row = 0; row < 8; row += L) {
      const RowTwiddles rows = row_twiddles(t, row);
      Complex a[8];
      for (u32 i = 0; i < 8; ++i) a[i] = load(x + row * kRow + i * kGroup);
      if constexpr (kForward) {
        rows_to_lanes(a);
        forward_rows(a, rows);
      }
      if constexpr (P != Pointwise::kNone) {
        pointwise<P>(a, g + row * kRow);
        inverse_rows(a, rows);
        lanes_to_rows(a);
      }
      for (u32 i = 0; i < 8; ++i) store(x + row * kRow + i * kGroup, a[i]);
    }
    if constexpr (P != Pointwise::kNone) inverse_pass<8>(x, kRow, x, kRow, kRow, t);
  }
}

}  // namespace
}  // namespace orl::SIMD_ISA
