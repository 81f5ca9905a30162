// Arguments that take the large primes out of a number, one prime after the other.
//
// For a prime q beyond a base, an argument x with q to the first power in (x + 1)/(x - 1) and only smaller
// primes beside it removes q and brings in the smaller ones. So a chain from the largest prime down ends in
// the base, and its coefficients are integers. Such x come from multiples j q, j smooth over the base, whose
// neighbour at a distance of 1 (2 for an odd one) is the other part of the fraction.
//
// End   q - 1 and q + 1 have no primes above (q + 1)/2, so a prime has a link as long as not all of these
//       neighbours are banned.
#pragma once

#include <map>
#include <optional>
#include <span>
#include <vector>

#include "machin/span_search.h"

namespace orl {

/// What takes the primes beyond a base out of 2 ln n.
struct Chain {
  MachinFormula terms;
  double cost = 0;
  std::vector<u64> primes;  ///< those that the chain removes, falling
  ExponentVector rest{};    ///< what is left of the exponents of n^2, over the base
};

/// Finds chains over one base; what it learns of a prime serves all numbers that it is asked for.
class ChainFinder {
 public:
  /// Over a base of primes that holds 2; no link is an x of `banned`. Both must outlive the finder.
  ChainFinder(std::span<const u64> base, const MachinFormula& banned, double nats);

  /// The chain of least cost, as far as the cheapest links of each prime tell; null where a prime has no
  /// link.
  std::optional<Chain> find(u64 n);

 private:
  struct Link {
    u64 x = 0;                  ///< 0: there is none
    double cost = 0;            ///< of the link and of the chains of the primes that it brings in
    std::vector<u64> primes{};  ///< those it brings in
  };

  const Link& best_link(u64 q);
  Link find_link(u64 q);

  std::span<const u64> base_;
  const MachinFormula& banned_;
  double nats_;
  std::vector<u64> multipliers_;
  std::map<u64, Link> links_;
};

}  // namespace orl
