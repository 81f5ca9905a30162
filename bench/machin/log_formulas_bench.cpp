// Machin-like formulas of 40 numbers at 10^9 digits: processor time of both, and what they cost beside those
// of a search that tries more sets. Then the rows of src/machin/stored_formulas.cpp as the long search finds
// them.
//
// log_formulas_bench [TRIES of the long search]
#include <ctime>

#include "machin/formula_search.h"
#include "machin/stored_formulas.h"
#include "support/measure.h"

namespace {

using namespace orl;

constexpr double kNats = 2.302585092994046e9;

struct Pair {
  MachinFormula primary, secondary;
  double costs = 0;
  double seconds = 0;
};

Pair find_pair(u64 n, u64 tries) {
  const std::clock_t start = std::clock();
  Pair pair;
  pair.primary = find_formula(n, {}, kNats, tries).value();
  pair.secondary = find_formula(n, pair.primary, kNats, tries).value();
  pair.seconds = double(std::clock() - start) / CLOCKS_PER_SEC;
  if (!is_proved(pair.primary, n) || !is_proved(pair.secondary, n) ||
      !share_no_series(pair.primary, pair.secondary)) {
    std::fprintf(stderr, "log_formulas_bench: a formula for %llu is wrong\n",
                 static_cast<unsigned long long>(n));
    std::exit(1);
  }
  pair.costs = cost(pair.primary, kNats) + cost(pair.secondary, kNats);
  return pair;
}

void compare_searches(u64 tries) {
  std::printf("%12s %6s %9s %9s %12s %7s\n", "n", "terms", "seconds", "cost", "long search", "ratio");
  std::vector<double> seconds;
  u64 state = 88172645463325252;
  for (int i = 0; i < 40; ++i) {
    state ^= state << 13, state ^= state >> 7, state ^= state << 17;
    const u64 n = 2 + state % (kMaxLogArgument - 1);
    const Pair pair = find_pair(n, kFormulaTries), peer = find_pair(n, tries);
    seconds.push_back(pair.seconds);
    std::printf("%12llu %3zu %2zu %9.3f %9.3f %12.3f %7.4f\n", static_cast<unsigned long long>(n),
                pair.primary.size(), pair.secondary.size(), pair.seconds, pair.costs, peer.costs,
                pair.costs / peer.costs);
  }
  std::printf("both formulas of a number: median %.3f s, longest %.3f s\n\n", bench::median(seconds),
              *std::max_element(seconds.begin(), seconds.end()));
}

std::string initialiser(const MachinFormula& formula) {
  std::string text;
  for (const MachinTerm& term : formula)
    text += (text.empty() ? "{{" : ", {") + std::to_string(term.coefficient) + ", " + std::to_string(term.x) +
            "}";
  return text + "}";
}

}  // namespace

int main(int argc, char** argv) {
  bench::heading("log_formulas_bench", "none");
  const u64 tries = argc > 1 ? std::strtoull(argv[1], nullptr, 0) : 10 * kFormulaTries;
  compare_searches(tries);
  for (const StoredLogFormulas& row : stored_log_formulas()) {
    const Pair pair = find_pair(row.n, tries);
    std::printf("{%llu, {%s, %s}},\n", static_cast<unsigned long long>(row.n),
                initialiser(pair.primary).c_str(), initialiser(pair.secondary).c_str());
  }
}
