// Schoolbook products in plain C++: the reference of the other kernels, and what a machine below AVX2 runs.
#include "multiply/basecase_kernels.h"
#include "multiply/basecase_rows.h"

namespace orl::scalar {
namespace {

template <class W>
void mul(W* T, const W* A, u64 AL, const W* B, u64 BL) {
  T[AL] = mul_row(T, A, AL, B[0]);
  for (u64 j = 1; j < BL; ++j) T[j + AL] = add_row(T + j, A, AL, B[j]);
}

template <class W>
void elm(W* T, const W* A, const W* B, u64 L) {
  mul(T, A, L, B, L);
}

// T[0, 2L) = 2 * T[0, 2L) + the squares of A[0, L).
template <class W>
void double_and_add_squares(W* T, const W* A, u64 L) {
  W shifted_out = 0;
  DoubleWord<W> carry = 0;
  for (u64 i = 0; i < 2 * L; ++i) {
    const DoubleWord<W> square = DoubleWord<W>{A[i / 2]} * A[i / 2];
    const W part = static_cast<W>(i % 2 == 0 ? square : square >> (8 * sizeof(W)));
    const W doubled = static_cast<W>(T[i] << 1 | shifted_out);
    shifted_out = T[i] >> (8 * sizeof(W) - 1);
    carry += DoubleWord<W>{doubled} + part;
    T[i] = static_cast<W>(carry);
    carry >>= 8 * sizeof(W);
  }
}

template <class W>
void sqr(W* T, const W* A, u64 L) {
  T[0] = T[2 * L - 1] = 0;
  if (L > 1) T[L] = mul_row(T + 1, A + 1, L - 1, A[0]);
  for (u64 i = 1; i + 1 < L; ++i) T[L + i] = add_row(T + 2 * i + 1, A + i + 1, L - i - 1, A[i]);
  double_and_add_squares(T, A, L);
}

}  // namespace

constinit const BasecaseKernels<u32> basecase_u32{"Scalar", &mul<u32>, &elm<u32>, &sqr<u32>};
constinit const BasecaseKernels<u64> basecase_u64{"Scalar", &mul<u64>, &elm<u64>, &sqr<u64>};

}  // namespace orl::scalar
