// Products in bounded memory against GMP's.
#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "support/gmp_oracle.h"
#include "support/multiplication.h"
#include "support/random_words.h"

namespace orl::test {

/// Words [skip, len) of A B by the bounded forms, of a square where A and B are one object, in exactly the stated
/// scratch.
template <class W>
void check_bounded(const Algorithm& algorithm, const TransformTables& tables, ParallelContext parallel,
                   const std::vector<W>& A, const std::vector<W>& B, u64 skip, u64 len) {
  constexpr u64 bits = 8 * sizeof(W);
  const ProductSizes sizes =
      algorithm.bounded_sizes((A.size() + B.size()) * bits, (len - skip) * bits, parallel.tds);
  const GuardedBlock scratch(&A == &B ? sizes.square_bytes : sizes.product_bytes);
  const MultiplyContext ctx{parallel, tables, scratch.buffer()};
  GuardedWords<W> T(len - skip, skip);
  if (&A == &B)
    algorithm.sqr_bounded(ctx, Window{T.data(), skip, len}, Words{A.data(), A.size()});
  else
    algorithm.mul_bounded(ctx, Window{T.data(), skip, len}, Words{A.data(), A.size()},
                          Words{B.data(), B.size()});
  ASSERT_TRUE(T.words() == (Mpz(A) * Mpz(B)).template window<W>(skip, len))
      << A.size() << " by " << B.size() << ", words " << skip << " to " << len << ", " << bits << " bits";
  ASSERT_TRUE(T.intact() && scratch.intact());
}

}  // namespace orl::test
