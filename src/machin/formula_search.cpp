#include "machin/formula_search.h"

#include <algorithm>
#include <array>
#include <limits>
#include <vector>

#include "machin/chain.h"
#include "machin/primes.h"
#include "machin/span_search.h"
#include "machin/stored_formulas.h"

namespace orl {
namespace {

constexpr std::array<u64, 8> kBasePrimes{2, 3, 5, 7, 11, 13, 17, 19};
constexpr std::array kBaseSizes{4, 5, 6, 8};

class FormulaSearch {
 public:
  FormulaSearch(u64 n, const MachinFormula& banned, double nats, u64 tries)
      : n_(n), banned_(banned), nats_(nats), tries_(tries) {}

  std::optional<MachinFormula> run() {
    for (const u64 size : kBaseSizes) search_base(std::span(kBasePrimes).first(size));
    if (best_)
      std::sort(best_->begin(), best_->end(),
                [](const MachinTerm& a, const MachinTerm& b) { return a.x < b.x; });
    return best_;
  }

 private:
  void search_base(std::span<const u64> base) {
    const std::optional<Chain> chain = ChainFinder(base, banned_, nats_).find(n_);
    if (!chain || chain->cost >= best_cost_) return;
    const std::vector<ArcCothCandidate> candidates = candidates_over(base);
    for (const std::span<const u64> set : argument_sets(base.size())) offer_set(base, set, *chain);
    const double bound = best_cost_ - chain->cost;
    offer(*chain, search_span(candidates, chain->rest, bound, tries_));
    if (!chain->primes.empty() && base.size() + chain->primes.size() <= kMaxBasePrimes)
      search_jointly(base, *chain);
  }

  // The sum over a stored set that has a solution for every target.
  void offer_set(std::span<const u64> base, std::span<const u64> set, const Chain& chain) {
    std::vector<ArcCothCandidate> members;
    for (const u64 x : set)
      if (!has_series(banned_, x)) members.push_back(make_candidate(base, x, nats_));
    if (members.size() != set.size()) return;
    offer(chain, solve(members, chain.rest));
  }

  void search_jointly(std::span<const u64> base, const Chain& chain) {
    std::vector<u64> primes(base.begin(), base.end());
    primes.insert(primes.end(), chain.primes.rbegin(), chain.primes.rend());
    const std::vector<ArcCothCandidate> candidates = candidates_over(primes);
    ExponentVector target = exponents_over(primes, n_);
    for (s64& exponent : target) exponent *= 2;
    offer({}, search_span(candidates, target, best_cost_, tries_));
  }

  // Cheapest first, that is, with the largest x first.
  std::vector<ArcCothCandidate> candidates_over(std::span<const u64> base) const {
    std::vector<u64> arguments = smooth_arguments(base);
    std::vector<ArcCothCandidate> candidates;
    for (auto x = arguments.rbegin(); x != arguments.rend(); ++x)
      if (!has_series(banned_, *x)) candidates.push_back(make_candidate(base, *x, nats_));
    return candidates;
  }

  void offer(const Chain& chain, std::optional<MachinFormula> base_part) {
    if (!base_part) return;
    base_part->insert(base_part->end(), chain.terms.begin(), chain.terms.end());
    const double total = cost(*base_part, nats_);
    if (total >= best_cost_) return;
    best_ = std::move(base_part);
    best_cost_ = total;
  }

  u64 n_;
  const MachinFormula& banned_;
  double nats_;
  u64 tries_;
  std::optional<MachinFormula> best_;
  double best_cost_ = std::numeric_limits<double>::infinity();
};

}  // namespace

std::optional<MachinFormula> find_formula(u64 n, const MachinFormula& banned, double nats, u64 tries) {
  return FormulaSearch(n, banned, nats, tries).run();
}

}  // namespace orl
