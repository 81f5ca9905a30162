#include "constants/pi_terms.h"

namespace orl {
namespace {

template <class W>
void product_of(LeafNumber<W>& x, u64 a, u64 b, u64 c) {
  x.set(a);
  x.mul(b);
  x.mul(c);
}

// P = R (constant + slope k). The factor passes 64 bits at k near 3.4e10; then it is applied in two parts.
template <class W>
void linear_multiple(LeafNumber<W>& P, const LeafNumber<W>& R, u64 constant, u64 slope, u64 k) {
  P.copy(R);
  const u128 factor = u128{slope} * k + constant;
  if (factor >> 64 == 0) {
    P.mul(static_cast<u64>(factor));
  } else {
    P.mul(slope);
    P.mul(k);
    // R constant is far smaller than P, and longer than R by two words of u32 at most.
    W words[kPiTermWords<W> + 2];
    LeafNumber<W> rest{words, kPiTermWords<W> + 2};
    rest.copy(R);
    rest.mul(constant);
    P.add(rest, false);
  }
}

template <class W>
void chudnovsky_R(LeafNumber<W>& R, u64 k) {
  product_of(R, 6 * k - 5, 2 * k - 1, 6 * k - 1);
}

template <class W>
void chudnovsky_P(LeafNumber<W>& P, const LeafNumber<W>& R, u64 k) {
  linear_multiple(P, R, 13591409, 545140134, k);
  P.negate();
}

template <class W>
void chudnovsky_Q(LeafNumber<W>& Q, u64 k) {
  product_of(Q, k, k, k);
  Q.mul(10939058860032000);
}

template <class W>
void ramanujan_R(LeafNumber<W>& R, u64 k) {
  product_of(R, 2 * k - 1, 4 * k - 3, 4 * k - 1);
}

template <class W>
void ramanujan_P(LeafNumber<W>& P, const LeafNumber<W>& R, u64 k) {
  linear_multiple(P, R, 1103, 26390, k);
}

template <class W>
void ramanujan_Q(LeafNumber<W>& Q, u64 k) {
  product_of(Q, k, k, k);
  Q.mul(3073907232);
}

}  // namespace

template <class W>
void Pi_Chudnovsky_BSR_End_R1(LeafNumber<W>& R, u64 k) {
  check_end_capacity("Pi_Chudnovsky_BSR_End_R1()", R, 3);
  chudnovsky_R(R, k);
}

template <class W>
void Pi_Chudnovsky_BSR_End_P1(LeafNumber<W>& P, const LeafNumber<W>& R, u64 k) {
  check_end_capacity("Pi_Chudnovsky_BSR_End_P1()", P, 5);
  chudnovsky_P(P, R, k);
}

template <class W>
void Pi_Chudnovsky_BSR_End_Q1(LeafNumber<W>& Q, u64 k) {
  check_end_capacity("Pi_Chudnovsky_BSR_End_Q1()", Q, sizeof(W) == 8 ? 4 : 5);
  chudnovsky_Q(Q, k);
}

template <class W>
void Pi_Chudnovsky_BSR_End_PR2(LeafNumber<W>& P, LeafNumber<W>& R, u64 k) {
  check_end_capacity("Pi_Chudnovsky_BSR_End_PR2()", R, 6);
  check_end_capacity("Pi_Chudnovsky_BSR_End_PR2()", P, 9);
  chudnovsky_R(R, k);
  chudnovsky_P(P, R, k);
}

template <class W>
void Pi_Chudnovsky_BSR_End_Q2(LeafNumber<W>& Q, u64 k) {
  check_end_capacity("Pi_Chudnovsky_BSR_End_Q2()", Q, 8);
  chudnovsky_Q(Q, k);
}

template <class W>
void Pi_Ramanujan_BSR_End_R1(LeafNumber<W>& R, u64 k) {
  check_end_capacity("Pi_Ramanujan_BSR_End_R1()", R, 3);
  ramanujan_R(R, k);
}

template <class W>
void Pi_Ramanujan_BSR_End_P1(LeafNumber<W>& P, const LeafNumber<W>& R, u64 k) {
  check_end_capacity("Pi_Ramanujan_BSR_End_P1()", P, 5);
  ramanujan_P(P, R, k);
}

template <class W>
void Pi_Ramanujan_BSR_End_Q1(LeafNumber<W>& Q, u64 k) {
  check_end_capacity("Pi_Ramanujan_BSR_End_Q1()", Q, 4);
  ramanujan_Q(Q, k);
}

template <class W>
void Pi_Ramanujan_BSR_End_R2(LeafNumber<W>& R, u64 k) {
  check_end_capacity("Pi_Ramanujan_BSR_End_R2()", R, 6);
  ramanujan_R(R, k);
}

template <class W>
void Pi_Ramanujan_BSR_End_P2(LeafNumber<W>& P, const LeafNumber<W>& R, u64 k) {
  check_end_capacity("Pi_Ramanujan_BSR_End_P2()", P, 9);
  ramanujan_P(P, R, k);
}

template <class W>
void Pi_Ramanujan_BSR_End_Q2(LeafNumber<W>& Q, u64 k) {
  check_end_capacity("Pi_Ramanujan_BSR_End_Q2()", Q, 7);
  ramanujan_Q(Q, k);
}

#define ORVANE_INSTANTIATE(W)                                                        \
  template void Pi_Chudnovsky_BSR_End_R1(LeafNumber<W>&, u64);                       \
  template void Pi_Chudnovsky_BSR_End_P1(LeafNumber<W>&, const LeafNumber<W>&, u64); \
  template void Pi_Chudnovsky_BSR_End_Q1(LeafNumber<W>&, u64);                       \
  template void Pi_Chudnovsky_BSR_End_PR2(LeafNumber<W>&, LeafNumber<W>&, u64);      \
  template void Pi_Chudnovsky_BSR_End_Q2(LeafNumber<W>&, u64);                       \
  template void Pi_Ramanujan_BSR_End_R1(LeafNumber<W>&, u64);                        \
  template void Pi_Ramanujan_BSR_End_P1(LeafNumber<W>&, const LeafNumber<W>&, u64);  \
  template void Pi_Ramanujan_BSR_End_Q1(LeafNumber<W>&, u64);                        \
  template void Pi_Ramanujan_BSR_End_R2(LeafNumber<W>&, u64);                        \
  template void Pi_Ramanujan_BSR_End_P2(LeafNumber<W>&, const LeafNumber<W>&, u64);  \
  template void Pi_Ramanujan_BSR_End_Q2(LeafNumber<W>&, u64);
ORVANE_INSTANTIATE(u32)
ORVANE_INSTANTIATE(u64)
#undef ORVANE_INSTANTIATE

}  // namespace orl
