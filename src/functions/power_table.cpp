#include "core/exceptions.h"
#include "core/fault_point.h"
#include "core/status.h"
#include "functions/radix_conversion.h"
#include "multiply/algorithm_table.h"
#include "words/hash.h"
#include "words/words.h"

namespace orl::CBRv2 {

template <class W>
void CheckP(W radix, u64 e, const Power<W>& power, const RunContext& ctx) {
  if (radix < 2) throw InvalidParametersException("CBRv2::CheckP()", "Radix is less than 2.");
  const u64 expected = hash_canon(hash_pow(radix, e));
  const u64 words = bp_hash(0, power.T, power.L, ctx.parallel);
  const u64 actual = hash_canon(hash_mul(words, hash_word_pow<W>(static_cast<s64>(power.exp))));
  if (expected == actual) return;
  ctx.status.println("Radix Conversion: Power Hash Mismatch", 'R');
  ctx.status.println("Expected = " + std::to_string(expected), 'R');
  ctx.status.println("Actual   = " + std::to_string(actual), 'R');
  throw AlgorithmFailedException("CBRv2::CheckP()", "Power Hash Mismatch");
}

namespace {

// Drops words of zeros at the bottom into the exponent and at the top altogether.
template <class W>
void trim(Power<W>& power) {
  while (power.L > 1 && power.T[0] == 0) ++power.T, --power.L, ++power.exp;
  power.L = bp_strip<W>(0, power.T, power.L);
}

template <class W>
void check_stored(const ConvertPlanP<W>& plan, u64 level, const Power<W>& power, const RunContext& ctx) {
  fault_point("conversion power", power.T, power.L * sizeof(W));
  if (power.exp != plan.level(level).power_exp)
    throw AlgorithmFailedException("orl_CBRv2_ci_btrf_build_table()", "Mismatching exponents.");
  CheckP(plan.radix(), plan.level(level).digits, power, ctx);
}

// r^n0 in a few words: odd^n0, then the bits of zeros that are no whole word.
template <class W>
Power<W> base_power(const ConvertPlanP<W>& plan, W* T) {
  const u64 n0 = plan.level(0).digits;
  Power<W> power{T, 1, plan.level(0).power_exp};
  T[0] = 1;
  const auto times = [&](W w) {
    const W carry = bp_mul_uW(power.T, power.T, power.L, w);
    if (carry != 0) power.T[power.L++] = carry;
  };
  for (u64 i = 0; i < n0; ++i) times(plan.odd());
  times(W{1} << (n0 * plan.shift() % (8 * sizeof(W))));
  return power;
}

}  // namespace

template <class W>
void orl_CBRv2_ci_btrf_build_table(const ConvertPlanP<W>& plan, const RunContext& ctx, Power<W>* powers,
                                   const typename ConvertPlanP<W>::PowerAreas& areas, LinearHeapBuffer heap) {
  if (plan.levels() == 0) return;
  StatusFrame frame(ctx.status, "Powering...   ");
  powers[0] = base_power(plan, areas.powers[0]);
  check_stored(plan, 0, powers[0], ctx);
  for (u64 i = 1; i < plan.levels(); ++i) {
    const Power<W>& root = powers[i - 1];
    const u64 length = std::min(2 * root.L, plan.level(i).power_words + 1);
    Power<W> power{areas.powers[i], length, 2 * root.exp};
    basic_table<W>().sqr_bounded(ctx.multiply(heap), {power.T, 0, length}, {root.T, root.L});
    trim(power);
    powers[i] = power;
    check_stored(plan, i, power, ctx);
    ctx.status.set_progress(1.0 / static_cast<double>(u64{1} << (plan.levels() - 1 - i)));
  }
}

template void CheckP(u32, u64, const Power<u32>&, const RunContext&);
template void CheckP(u64, u64, const Power<u64>&, const RunContext&);
template void orl_CBRv2_ci_btrf_build_table(const ConvertPlanP<u32>&, const RunContext&, Power<u32>*,
                                            const ConvertPlanP<u32>::PowerAreas&, LinearHeapBuffer);
template void orl_CBRv2_ci_btrf_build_table(const ConvertPlanP<u64>&, const RunContext&, Power<u64>*,
                                            const ConvertPlanP<u64>::PowerAreas&, LinearHeapBuffer);

}  // namespace orl::CBRv2
