#include "machin/generator.h"

#include <algorithm>
#include <numeric>

#include "core/exceptions.h"
#include "core/output.h"
#include "core/run_timer.h"
#include "machin/formula_search.h"
#include "machin/primes.h"

namespace orl {
namespace {

// n = root^power with the largest power.
struct PerfectPower {
  u64 root = 1;
  u32 power = 0;
};

PerfectPower perfect_power(u64 n) {
  PerfectPower result;
  const std::vector<PrimePower> factors = factorise(n);
  for (const PrimePower& factor : factors) result.power = std::gcd(result.power, factor.exponent);
  for (const PrimePower& factor : factors)
    for (u32 i = 0; i < factor.exponent / result.power; ++i) result.root *= factor.prime;
  return result;
}

void scale(MachinFormula& formula, u32 times) {
  for (MachinTerm& term : formula) term.coefficient *= times;
}

// The searches for one root, in their order.
class LogFormulaGenerator {
 public:
  LogFormulaGenerator(u64 n, double nats, std::span<const StoredLogFormulas> stored) : n_(n), nats_(nats) {
    for (const StoredLogFormulas& row : stored)
      if (row.n == n) stored_ = {row.formulas.primary, row.formulas.secondary};
    put_cheaper_first(stored_);
  }

  LogFormulas run() {
    std::vector<MachinFormula> formulas;
    formulas.push_back(find("Generating Primary Formula...       ", {}, 0));
    formulas.push_back(find("Generating Secondary Formula...     ", formulas[0], 1));
    for (const auto& [found, known] : beaten_) {
      notice_line("The heuristic has found a better formula than the table entry.", 'Y');
      notice_line("    " + to_string(found, n_));
      notice_line("    " + to_string(known, n_));
    }
    put_cheaper_first(formulas);
    return {formulas[0], formulas[1]};
  }

 private:
  void put_cheaper_first(std::vector<MachinFormula>& formulas) const {
    std::stable_sort(formulas.begin(), formulas.end(), [&](const MachinFormula& a, const MachinFormula& b) {
      return cost(a, nats_) < cost(b, nats_);
    });
  }

  MachinFormula find(const char* label, const MachinFormula& banned, u64 index) {
    notice(label);
    const double start = monotonic_seconds();
    std::optional<MachinFormula> found = find_formula(n_, banned, nats_);
    notice_line(seconds_text(monotonic_seconds() - start), 'G');
    const bool is_stored = index < stored_.size() && share_no_series(stored_[index], banned);
    if (!found && !is_stored)
      throw AlgorithmFailedException("generate_log_formulas()", "Unable to derive formula.");
    if (!is_stored) return *found;
    // One formula's cost depends in its last bits on the order of the terms.
    if (!found || cost(*found, nats_) > cost(stored_[index], nats_) * (1 - 1e-9)) return stored_[index];
    beaten_.emplace_back(*found, stored_[index]);
    return *found;
  }

  u64 n_;
  double nats_;
  std::vector<MachinFormula> stored_;
  std::vector<std::pair<MachinFormula, MachinFormula>> beaten_;
};

}  // namespace

void require_verified(const LogFormulas& formulas, u64 n) {
  const MachinFormula* both[] = {&formulas.primary, &formulas.secondary};
  for (u64 i = 0; i < std::size(both); ++i)
    if (!is_proved(*both[i], n) || !agrees_with_log(*both[i], n))
      throw AlgorithmFailedException(
          "require_verified()", "Unable to verify correctness of formula.\nFormula " + std::to_string(i) +
                                    " failed to pass verification.\nPlease report this as a bug.");
}

LogFormulas generate_log_formulas(u64 n, double nats, std::span<const StoredLogFormulas> stored) {
  // ln b^k = k ln b: the formulas of a power are those of its root, and cost what those cost.
  const auto [root, power] = perfect_power(n);
  LogFormulas formulas = LogFormulaGenerator(root, nats, stored).run();
  scale(formulas.primary, power);
  scale(formulas.secondary, power);
  require_verified(formulas, n);
  return formulas;
}

}  // namespace orl
