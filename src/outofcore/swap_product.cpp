#include "outofcore/swap_product.h"

#include <array>
#include <atomic>
#include <string>

#include "core/exceptions.h"
#include "outofcore/crt_halves.h"
#include "outofcore/pass_product.h"
#include "outofcore/prime_groups.h"
#include "outofcore/ram_products.h"
#include "outofcore/stretched_product.h"

namespace orl {
namespace {

std::array<std::atomic<u64>, kSwapSchemes> products_made;

const char* function_name(const SwapOperands& operands) {
  return operands.square() ? "SwapFloatO::Transform::inverse_fsqr()"
                           : "SwapFloatO::Transform::inverse_fmul()";
}

// What the transforms produce must hold what the caller asks for.
void check_range(const SwapPlan& plan, const SwapOperands& operands) {
  const SwapRequest& request = plan.request;
  const u64 made = plan.made_words();
  if (request.skip <= request.len && request.len <= made) return;
  throw InvalidParametersException(
      function_name(operands),
      (operands.square() ? "Truncated Range:\n    L    = " : "Truncated Range:\n    AL   = ") +
          std::to_string(request.a_words) + "\n    clen = " + std::to_string(made) +
          "\n    ie   = " + std::to_string(request.skip) + "\n    te   = " + std::to_string(request.len));
}

void check_operands(const SwapPlan& plan, const SwapRun& run, const SwapOperands& operands) {
  const SwapRequest& request = plan.request;
  const bool same = operands.square() == request.square() && operands.a.words() == request.a_words &&
                    (operands.square() || operands.b->words() == request.b_words);
  if (!same)
    throw InvalidParametersException(function_name(operands), "The operands are not those of the plan.");
  if (run.memory.size < plan.memory_bytes)
    throw BufferTooSmallException(function_name(operands), run.memory.size, plan.memory_bytes);
}

}  // namespace

bool run_swap_scheme(const SwapWork& work) {
  if (work.plan.above_words != 0) return run_stretched(work);
  switch (work.plan.scheme) {
    case SwapScheme::kRam:
      return run_ram(work);
    case SwapScheme::kRamHalves:
      return run_ram_halves(work);
    case SwapScheme::kTwoPasses:
    case SwapScheme::kThreePasses:
      return run_passes(work);
    case SwapScheme::kCrtHalves:
      return run_crt_halves(work);
    default:
      return run_prime_groups(work);
  }
}

bool swap_multiply(const SwapPlan& plan, const FarFamily* family, const SwapRun& run,
                   const SwapOperands& operands, ProductSink& sink) {
  check_range(plan, operands);
  check_operands(plan, run, operands);
  SwapRun own = run;
  own.memory.cut_buffer(NumberSink::bytes(plan.sink_bytes));
  ProductProof proof(plan, function_name(operands));
  const bool top = run_swap_scheme({plan, family, own, operands, proof, sink});
  products_made[static_cast<u32>(plan.scheme)]++;
  return top;
}

bool swap_multiply(const SwapPlan& plan, const FarFamily* family, const SwapRun& run,
                   const SwapOperands& operands, SwapNumber& product) {
  check_range(plan, operands);
  check_operands(plan, run, operands);
  NumberSink sink(product, plan.ring_words ? 0 : plan.request.skip, plan.sink_bytes, run.memory);
  return swap_multiply(plan, family, run, operands, sink);
}

u64 swap_products(SwapScheme scheme) { return products_made[static_cast<u32>(scheme)]; }

}  // namespace orl
