#include "outofcore/swap_plan.h"

#include <algorithm>

#include "core/exceptions.h"
#include "core/round_up.h"
#include "files/raw_io_buffer.h"
#include "outofcore/crt_halves.h"
#include "outofcore/pass_product.h"
#include "outofcore/prime_groups.h"
#include "outofcore/ram_products.h"
#include "outofcore/stretched_product.h"
#include "outofcore/swap_number.h"

namespace orl {
namespace {

constexpr const char* kFunction = "plan_swap_product()";

// A block of this size is worth a seek on any drive, whatever the array says; a share of the memory that blocks may take.
constexpr u64 kGoodBlock = u64{1} << 20;
constexpr u64 kBlockShare = 32;

// Whether a shape that is a little short is to be preferred: it is more work to join.
bool is_worth_it(const SwapPlan& stretched, const SwapPlan& direct) {
  return stretched.traffic() < direct.traffic() - direct.traffic() / 64 &&
         (stretched.groups.overlapped || !direct.groups.overlapped);
}

// By one scheme, whatever files it takes.
std::optional<SwapPlan> plan_scheme(SwapScheme scheme, const FarFamily* family, const SwapRequest& request,
                                    const SwapBudget& budget) {
  if (scheme == SwapScheme::kRam) return plan_ram(request, budget);
  if (scheme == SwapScheme::kRamHalves) return plan_ram_halves(request, budget);
  if (family == nullptr) return std::nullopt;
  if (scheme == SwapScheme::kCrtHalves) return plan_crt_halves(*family, request, budget);
  const auto direct = scheme == SwapScheme::kPrimeGroups ? plan_prime_groups(*family, request, budget)
                                                         : plan_passes(scheme, *family, request, budget);
  // A kept operand has the transforms of one shape.
  const auto stretched = request.kept ? std::nullopt : plan_stretched(scheme, *family, request, budget);
  return stretched && (!direct || is_worth_it(*stretched, *direct)) ? stretched : direct;
}

std::optional<SwapPlan> best_plan(const FarFamily* family, const SwapRequest& request,
                                  const SwapBudget& budget) {
  std::optional<SwapPlan> best;
  for (u32 scheme = 0; scheme < kSwapSchemes; scheme++) {
    const auto plan = plan_swap_product(static_cast<SwapScheme>(scheme), family, request, budget);
    if (plan && (!best || plan->traffic() < best->traffic())) best = plan;
    // No other moves less than a product in memory.
    if (best && best->scheme <= SwapScheme::kRamHalves) break;
  }
  return best;
}

}  // namespace

SwapRequest whole_product(u64 a_words, u64 b_words) {
  SwapRequest request{a_words, b_words};
  request.len = request.product_words();
  return request;
}

std::optional<ComposedPlan> begin_composed(SwapScheme scheme, const SwapRequest& request,
                                           const SwapBudget& budget) {
  ComposedPlan begun{{}, budget};
  begun.plan.scheme = scheme;
  begun.plan.request = request;
  begun.plan.tds = std::max<u64>(budget.tds, 1);
  begun.plan.sink_bytes = kIoAlignment;
  const u64 sink = NumberSink::bytes(begun.plan.sink_bytes);
  if (budget.memory_bytes <= sink) return std::nullopt;
  begun.rest.memory_bytes -= sink;
  return begun;
}

std::optional<FarShape> least_far_shape(const FarFamily& family, const SwapRequest& request, u32 P, u32 k) {
  const u64 words = request.ring == ProductRing::kPlain ? request.product_words() : request.len;
  for (u32 n = 1; n < 56; n++) {
    const FarShape shape{P, k, n};
    if (family.holds(shape) && family.product_bytes(shape) >= words * sizeof(u32)) return shape;
  }
  return std::nullopt;
}

u64 swap_block_bytes(const SwapBudget& budget, u64 bytes) {
  if (bytes >= budget.row_bytes) return bytes / budget.row_bytes * budget.row_bytes;
  return std::max(bytes / kIoAlignment, u64{1}) * kIoAlignment;
}

u64 swap_sink_bytes(const SwapBudget& budget, u64 wanted_words) {
  const u64 good = std::max({budget.bytes_per_seek, budget.row_bytes, kGoodBlock});
  const u64 all = round_up(wanted_words * sizeof(u32), kIoAlignment);
  const u64 most = std::min(good, budget.memory_bytes / kBlockShare);
  return all <= most ? all : swap_block_bytes(budget, most);
}

std::optional<SwapPlan> plan_swap_product(SwapScheme scheme, const FarFamily* family,
                                          const SwapRequest& request, const SwapBudget& budget) {
  const auto plan = plan_scheme(scheme, family, request, budget);
  return plan && plan->disk_bytes <= budget.disk_bytes ? plan : std::nullopt;
}

SwapPlan plan_swap_product(const FarFamily* family, const SwapRequest& request, const SwapBudget& budget) {
  if (const auto plan = best_plan(family, request, budget)) return *plan;
  // More memory, in steps, until one fits.
  SwapBudget more = budget;
  while (more.memory_bytes < u64{1} << 62) {
    more.memory_bytes += more.memory_bytes / 8 + kIoAlignment;
    if (const auto plan = best_plan(family, request, more))
      throw BufferTooSmallException(kFunction, budget.memory_bytes, plan->memory_bytes);
  }
  throw LimitExceededException(kFunction, family ? family->max_bits() : 0, 32 * request.product_words());
}

}  // namespace orl
