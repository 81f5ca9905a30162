#include "machin/chain.h"

#include <algorithm>

#include "machin/primes.h"

namespace orl {
namespace {

// A prime's links are looked for among the multiples by the first smooth numbers, and the ones that bring in
// the smallest cofactors are followed further down.
constexpr u64 kMultipliers = 400;
constexpr u64 kFollowed = 6;

struct Neighbour {
  u64 x;
  u64 brings;  ///< cofactor of the neighbour beyond the base
};

}  // namespace

ChainFinder::ChainFinder(std::span<const u64> base, const MachinFormula& banned, double nats)
    : base_(base), banned_(banned), nats_(nats), multipliers_(smooth_numbers(base, 1 << 20)) {
  if (multipliers_.size() > kMultipliers) multipliers_.resize(kMultipliers);
}

ChainFinder::Link ChainFinder::find_link(u64 q) {
  std::vector<Neighbour> neighbours;
  const auto offer = [&](u64 x, u64 neighbour) {
    if (x >= 2 && x <= kMaxArcCothArgument && !has_series(banned_, x))
      neighbours.push_back({x, cofactor(neighbour, base_)});
  };
  for (const u64 j : multipliers_) {
    const u64 a = j * q;
    if (a - 1 > kMaxArcCothArgument) break;
    offer(2 * a + 1, a + 1);
    offer(2 * a - 1, a - 1);
    if (a % 2 == 0) continue;
    offer(a + 1, a + 2);
    offer(a - 1, a - 2);
  }
  std::sort(neighbours.begin(), neighbours.end(), [](const Neighbour& a, const Neighbour& b) {
    return a.brings < b.brings || (a.brings == b.brings && a.x > b.x);
  });
  Link best;
  u64 followed = 0;
  for (const Neighbour& neighbour : neighbours) {
    if (followed == kFollowed) break;
    Link link{neighbour.x, arccoth_cost(neighbour.x, nats_)};
    for (const PrimePower& factor : factorise(neighbour.brings)) link.primes.push_back(factor.prime);
    if (!link.primes.empty() && link.primes.back() >= q) continue;
    ++followed;
    bool reaches_base = true;
    for (const u64 prime : link.primes) {
      const Link& next = best_link(prime);
      reaches_base = reaches_base && next.x != 0;
      link.cost += next.cost;
    }
    if (reaches_base && (best.x == 0 || link.cost < best.cost)) best = std::move(link);
  }
  return best;
}

const ChainFinder::Link& ChainFinder::best_link(u64 q) {
  const auto known = links_.find(q);
  if (known != links_.end()) return known->second;
  Link link = find_link(q);
  return links_.emplace(q, std::move(link)).first->second;
}

std::optional<Chain> ChainFinder::find(u64 n) {
  // Doubled exponents of what is left, largest prime first.
  std::map<u64, s64, std::greater<>> left;
  for (const PrimePower& factor : factorise(n)) left[factor.prime] = 2 * s64{factor.exponent};
  Chain chain;
  for (auto entry = left.begin(); entry != left.end(); entry = left.erase(entry)) {
    const auto [q, exponent] = *entry;
    const auto place = std::find(base_.begin(), base_.end(), q);
    if (place != base_.end()) {
      chain.rest[place - base_.begin()] = exponent;
      continue;
    }
    if (exponent == 0) continue;
    const Link& link = best_link(q);
    if (link.x == 0) return std::nullopt;
    const s64 coefficient = (link.x + 1) % q == 0 ? exponent : -exponent;
    chain.terms.push_back({coefficient, link.x});
    chain.cost += arccoth_cost(link.x, nats_);
    chain.primes.push_back(q);
    for (const PrimePower& factor : factorise(link.x + 1))
      left[factor.prime] -= coefficient * factor.exponent;
    for (const PrimePower& factor : factorise(link.x - 1))
      left[factor.prime] += coefficient * factor.exponent;
  }
  return chain;
}

}  // namespace orl
