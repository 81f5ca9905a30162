#include "constants/pi_terms.h"

namespace orl {
namespace {

template <class W>
void check_end_case(const PiEndCase& end, const LeafNumber<W>& number) {
  check_end_capacity(end.function, number, end.words);
}

// x = a b c.
template <class W>
void set_product_of(LeafNumber<W>& x, u64 a, u64 b, u64 c) {
  x.set(a);
  x.mul(b);
  x.mul(c);
}

// P = R (constant + slope k). The factor passes 64 bits at k near 3.4e10; then it is applied in two parts.
template <class W>
void set_linear_multiple(LeafNumber<W>& P, const LeafNumber<W>& R, u64 slope, u64 k, u64 constant) {
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

}  // namespace

template <class W>
void make_pi_term(const PiTerms<W>& terms, u64 k, LeafNode<W>& out) {
  const PiEndCases& ends = k < terms.wide ? terms.narrow_ends : terms.wide_ends;
  const auto factor = [&](int i) { return terms.R[i].slope * k - terms.R[i].constant; };
  check_end_case(ends.R, out.R);
  set_product_of(out.R, factor(0), factor(1), factor(2));
  check_end_case(ends.P, out.P);
  set_linear_multiple(out.P, out.R, terms.P.slope, k, terms.P.constant);
  if (terms.alternating) out.P.negate();
  check_end_case(ends.Q, out.Q);
  set_product_of(out.Q, k, k, k);
  out.Q.mul(terms.Q);
}

template void make_pi_term(const PiTerms<u32>&, u64, LeafNode<u32>&);
template void make_pi_term(const PiTerms<u64>&, u64, LeafNode<u64>&);

}  // namespace orl
