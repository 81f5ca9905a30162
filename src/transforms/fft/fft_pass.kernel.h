// Passes over complex points: radix 2, 3, 4, 5 and 8 with twiddles of one node,
// and the bottom blocks. Reads F64 of the open region and nothing else that
// depends on the instruction set.
//
// A pass over a node x^m - e(theta) writes the polynomial's R parts a_p (p = 0
// to R-1, m/R coefficients each) as sum over p of a_p e(theta / R)^p e(j p /
// R), the j-th in slot bitreverse(j). The inverse does the reverse, without
// dividing by R.
#include "transforms/common/pass_steps.kernel.h"

namespace orl::SIMD_ISA {
namespace {

using simd::SIMD_ISA::F64;

#define FFT_INLINE inline __attribute__((always_inline))

constexpr u32 L = F64::lanes;
constexpr u32 kGroup = 2 * L;  // doubles in a group of complex points

struct Complex {
  F64 re, im;
};
FFT_INLINE Complex load(const double* p) {
  return {in_register(F64::load(p)), in_register(F64::load(p + L))};
}
FFT_INLINE void store(double* p, Complex a) {
  a.re.store(p);
  a.im.store(p + L);
}
FFT_INLINE Complex twiddle(const FftTwiddles& t, u32 i) { return {F64::all(t.re[i]), F64::all(t.im[i])}; }
FFT_INLINE Complex power(const FftPowers& t, u32 p) { return {F64::all(t.re[p - 1]), F64::all(t.im[p - 1])}; }
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
/// a + c z and a - c z for a real constant c.
FFT_INLINE Complex plus_scaled(Complex a, F64 c, Complex z) {
  return {fma(c, z.re, a.re), fma(c, z.im, a.im)};
}
FFT_INLINE Complex minus_scaled(Complex a, F64 c, Complex z) {
  return {fnma(c, z.re, a.re), fnma(c, z.im, a.im)};
}

constexpr double kSqrtHalf = 0.70710678118654752440;

// Butterflies multiply first, then add and subtract: as many multiply-adds as
// additions, at every level, which processors with separate ports for the two
// run side by side. A form with t = a + w b and 2 a - t takes six multiply-adds
// instead of eight operations and was slower here: 62 against 52 cycles for
// radix 8 on eight vectors (Zen 4, 512 bits).

/// (a, b) becomes (a + w b, a - w b).
FFT_INLINE void halve(Complex& a, Complex& b, Complex w) {
  const Complex z = times(b, w);
  b = a - z;
  a = a + z;
}
/// (a, b) becomes (a + i w b, a - i w b).
FFT_INLINE void halve_i(Complex& a, Complex& b, Complex w) {
  const Complex z = times(b, w);
  b = sub_i(a, z);
  a = add_i(a, z);
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

/// Twiddles of the halvings below a node x^m - e(theta): e(theta / 2), e(theta
/// / 4), e(theta / 8) and e(theta / 8 + 1 / 8); the other nodes of a level have
/// i times these.
struct NodeTwiddles {
  Complex w1, w2, w3, w3z;
};
FFT_INLINE NodeTwiddles node_twiddles(const FftTwiddles& t) {
  return {twiddle(t, 0), twiddle(t, 1), twiddle(t, 2), twiddle(t, 3)};
}

FFT_INLINE void forward_node(Complex (&x)[2], const NodeTwiddles& w) { halve(x[0], x[1], w.w1); }
FFT_INLINE void inverse_node(Complex (&x)[2], const NodeTwiddles& w) { join(x[0], x[1], w.w1); }
FFT_INLINE void forward_node(Complex (&x)[4], const NodeTwiddles& w) {
  halve(x[0], x[2], w.w1);
  halve(x[1], x[3], w.w1);
  halve(x[0], x[1], w.w2);
  halve_i(x[2], x[3], w.w2);
}
FFT_INLINE void inverse_node(Complex (&x)[4], const NodeTwiddles& w) {
  join(x[0], x[1], w.w2);
  join_i(x[2], x[3], w.w2);
  join(x[0], x[2], w.w1);
  join(x[1], x[3], w.w1);
}
FFT_INLINE void forward_node(Complex (&x)[8], const NodeTwiddles& w) {
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
FFT_INLINE void inverse_node(Complex (&x)[8], const NodeTwiddles& w) {
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

enum class Direction { kForward, kInverse };

/// A pass of radix R over the columns of one node: part p is read at source + p * source_stride and written at
/// target + p * target_stride, `doubles` of each; in place when the two are equal.
template <Direction D, u32 R>
void node_pass(const double* source, u64 source_stride, double* target, u64 target_stride, u64 doubles,
               const FftTwiddles& t) {
  const NodeTwiddles w = node_twiddles(t);
  for (u64 i = 0; i < doubles; i += kGroup) {
    Complex x[R];
    for (u32 p = 0; p < R; ++p) x[p] = load(source + p * source_stride + i);
    if constexpr (D == Direction::kForward)
      forward_node(x, w);
    else
      inverse_node(x, w);
    for (u32 p = 0; p < R; ++p) store(target + p * target_stride + i, x[p]);
  }
}

constexpr double kSin3 = 0.86602540378443864676;  // sin(2 pi / 3)
constexpr double kCos5[2] = {0.30901699437494742410, -0.80901699437494742410};
constexpr double kSin5[2] = {0.95105651629515357212, 0.58778525229247312917};

/// The discrete Fourier transforms of 3 and 5 points: x[j] = sum of y[p] e(sign
/// j p / K).
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

/// A point that is known to be real.
struct Real {
  F64 re;
};
FFT_INLINE Complex times(Real a, Complex w) { return {a.re * w.re, a.re * w.im}; }
FFT_INLINE Complex as_complex(Complex a) { return a; }
FFT_INLINE Complex as_complex(Real a) { return {a.re, F64::all(0.0)}; }
FFT_INLINE Complex plus_times(Complex a, Complex w, Real b) {
  return {fma(w.re, b.re, a.re), fma(w.im, b.re, a.im)};
}
FFT_INLINE Complex minus_times(Complex a, Complex w, Real b) {
  return {fnma(w.re, b.re, a.re), fnma(w.im, b.re, a.im)};
}
FFT_INLINE Complex plus_times(Complex a, Complex w, Complex b) { return a + times(b, w); }
FFT_INLINE Complex minus_times(Complex a, Complex w, Complex b) { return a - times(b, w); }

// The first pass splits the root x^m - i. Its input is mostly real, so it
// multiplies part p by e(p / (4 R)) before all sums, where that costs half.
// Slots: bit-reversed, for odd R natural.

template <class Point>
FFT_INLINE void root_column(const Point (&a)[1], const FftPowers&, Complex (&x)[1]) {
  x[0] = as_complex(a[0]);
}
template <class Point>
FFT_INLINE void root_column(const Point (&a)[2], const FftPowers& t, Complex (&x)[2]) {
  const Complex a0 = as_complex(a[0]);
  x[0] = plus_times(a0, power(t, 1), a[1]);
  x[1] = minus_times(a0, power(t, 1), a[1]);
}
template <class Point>
FFT_INLINE void root_column(const Point (&a)[4], const FftPowers& t, Complex (&x)[4]) {
  const Complex a0 = as_complex(a[0]), a1 = times(a[1], power(t, 1));
  const Complex s0 = plus_times(a0, power(t, 2), a[2]), d0 = minus_times(a0, power(t, 2), a[2]);
  const Complex s1 = plus_times(a1, power(t, 3), a[3]), d1 = minus_times(a1, power(t, 3), a[3]);
  x[0] = s0 + s1;
  x[1] = s0 - s1;
  x[2] = add_i(d0, d1);
  x[3] = sub_i(d0, d1);
}
template <class Point>
FFT_INLINE void root_column(const Point (&a)[8], const FftPowers& t, Complex (&x)[8]) {
  Complex s[4], d[4];
  for (u32 p = 0; p < 4; ++p) {
    const Complex first = p == 0 ? as_complex(a[0]) : times(a[p], power(t, p == 0 ? 1 : p));
    s[p] = plus_times(first, power(t, p + 4), a[p + 4]);
    d[p] = minus_times(first, power(t, p + 4), a[p + 4]);
  }
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
template <class Point, u32 K>
FFT_INLINE void root_column(const Point (&a)[K], const FftPowers& t, Complex (&x)[K]) {
  x[0] = as_complex(a[0]);
  for (u32 p = 1; p < K; ++p) x[p] = times(a[p], power(t, p));
  fourier<1>(x);
}

/// The inverse of the first pass, in place.
template <u32 R>
void root_inverse_pass(double* x, u64 stride, u64 doubles, const FftPowers& t, const FftTwiddles& root) {
  if constexpr (R == 2 || R == 4 || R == 8) {
    node_pass<Direction::kInverse, R>(x, stride, x, stride, doubles, root);
  } else if constexpr (R > 1) {
    for (u64 i = 0; i < doubles; i += kGroup) {
      Complex y[R];
      for (u32 p = 0; p < R; ++p) y[p] = load(x + p * stride + i);
      fourier<-1>(y);
      store(x + i, y[0]);
      for (u32 p = 1; p < R; ++p) store(x + p * stride + i, times_conj(y[p], power(t, p)));
    }
  }
}

// Bottom blocks: 64 points, six levels. Radix 8 over the eight rows of eight
// points; then each row is a node of its own, and after a transposition `L`
// rows lie side by side in the lanes: three radix-2 levels with a twiddle a
// lane. Row l has theta_l = theta / 8 + bitreverse(l), so its twiddles are
// those of the block times constants.

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

/// The twiddles of L rows, one lane per row.
FFT_INLINE NodeTwiddles row_twiddles(const FftTwiddles& t, u32 first_row) {
  const auto constant = [&](u32 level) {
    return Complex{F64::load(kRows.re[level] + first_row), F64::load(kRows.im[level] + first_row)};
  };
  return {times(constant(0), twiddle(t, 4)), times(constant(1), twiddle(t, 5)),
          times(constant(2), twiddle(t, 6)), times(constant(2), twiddle(t, 7))};
}

/// L rows of eight points, in the order of memory, become eight vectors with the rows in lanes, and back.
FFT_INLINE void rows_to_lanes(Complex (&x)[8]) {
  F64 re[8], im[8];
  rows_to_lanes(re, [&](u32 row, u32 part) { return x[row * (8 / L) + part].re; });
  rows_to_lanes(im, [&](u32 row, u32 part) { return x[row * (8 / L) + part].im; });
  for (u32 i = 0; i < 8; ++i) x[i] = {re[i], im[i]};
}
FFT_INLINE void lanes_to_rows(Complex (&x)[8]) {
  F64 re[8], im[8];
  for (u32 i = 0; i < 8; ++i) {
    re[i] = x[i].re;
    im[i] = x[i].im;
  }
  lanes_to_rows(re, [&](u32 row, u32 part, F64 values) { x[row * (8 / L) + part].re = values; });
  lanes_to_rows(im, [&](u32 row, u32 part, F64 values) { x[row * (8 / L) + part].im = values; });
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
    Complex a[8];
    for (u32 r = 0; r < 8; ++r) a[r] = load(x + r * kRow);
    if constexpr (kForward) {
      forward_node(a, node_twiddles(t));
      rows_to_lanes(a);
    }
    const NodeTwiddles rows = row_twiddles(t, 0);
    if constexpr (kForward) forward_node(a, rows);
    if constexpr (P != Pointwise::kNone) {
      pointwise<P>(a, g);
      inverse_node(a, rows);
      lanes_to_rows(a);
      inverse_node(a, node_twiddles(t));
    }
    for (u32 r = 0; r < 8; ++r) store(x + r * kRow, a[r]);
  } else {
    if constexpr (kForward) node_pass<Direction::kForward, 8>(x, kRow, x, kRow, kRow, t);
    for (u32 row = 0; row < 8; row += L) {
      const NodeTwiddles rows = row_twiddles(t, row);
      Complex a[8];
      for (u32 i = 0; i < 8; ++i) a[i] = load(x + row * kRow + i * kGroup);
      if constexpr (kForward) {
        rows_to_lanes(a);
        forward_node(a, rows);
      }
      if constexpr (P != Pointwise::kNone) {
        pointwise<P>(a, g + row * kRow);
        inverse_node(a, rows);
        lanes_to_rows(a);
      }
      for (u32 i = 0; i < 8; ++i) store(x + row * kRow + i * kGroup, a[i]);
    }
    if constexpr (P != Pointwise::kNone) node_pass<Direction::kInverse, 8>(x, kRow, x, kRow, kRow, t);
  }
}

}  // namespace
}  // namespace orl::SIMD_ISA
