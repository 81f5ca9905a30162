#include "outofcore/pass_product.h"

#include <algorithm>

#include "files/raw_io_buffer.h"
#include "outofcore/far_passes.h"

namespace orl {
namespace {

constexpr u64 kNumberWordBytes = sizeof(u32);

u64 table_bytes(const FarFamily& family, const FarShape& shape) {
  return LinearHeapBuffer::cut_bytes<u8>(family.table_bytes(shape));
}

// Bytes to move first; where they are about equal, computing.
bool better(const SwapPlan& plan, const SwapPlan& than) {
  const double own = static_cast<double>(plan.traffic()), other = static_cast<double>(than.traffic());
  return own < 0.98 * other || (own < 1.02 * other && plan.cost < than.cost);
}

std::optional<SwapPlan> plan_shape(SwapScheme scheme, const FarFamily& family, const FarShape& shape,
                                   const SwapRequest& request, const SwapBudget& budget) {
  SwapPlan plan;
  plan.scheme = scheme;
  plan.request = request;
  plan.shape = shape;
  plan.tds = std::max<u64>(budget.tds, 1);
  plan.cost = family.cost(shape);
  if (request.ring != ProductRing::kPlain) plan.ring_words = family.product_bytes(shape) / kNumberWordBytes;
  plan.sink_bytes = kIoAlignment;
  const u64 fixed = NumberSink::bytes(plan.sink_bytes) + table_bytes(family, shape);
  if (fixed >= budget.memory_bytes) return std::nullopt;
  const PassLimits limits{budget.memory_bytes - fixed, budget.bytes_per_seek, budget.row_bytes, plan.tds};
  const auto passes = scheme == SwapScheme::kTwoPasses ? plan_two_passes(family, shape, limits)
                                                       : plan_three_passes(family, shape, limits);
  if (!passes) return std::nullopt;
  plan.passes = *passes;
  plan.memory_bytes = fixed + passes->memory_bytes;
  const PassTraffic traffic =
      pass_traffic(*passes, request.square() ? 1 : 2, kNumberWordBytes * (request.a_words + request.b_words),
                   kNumberWordBytes * plan.wanted_words());
  plan.bytes_read = traffic.loaded_bytes;
  plan.bytes_written = traffic.stored_bytes;
  plan.disk_bytes = traffic.disk_bytes;
  return plan;
}

bool make_product(const SwapWork& work, const ProductTarget& target) {
  const SwapPlan& plan = work.plan;
  const bool square = work.operands.square();
  StatusFrame frame(work.run.status, "VST Streaming: ");
  LinearHeapBuffer memory = work.run.memory;
  LinearHeapBuffer tables = memory.cut_buffer(work.family->table_bytes(plan.shape));
  const auto transform = work.family->make(plan.shape, plan.request.ring, tables);
  const FarPasses passes(*transform, plan.passes, memory, work.run.parallel.with_tds(plan.tds));
  const auto residues = [&](const SwapNumber& operand, u32 index, const char* name) {
    auto file = work.run.disk.allocate(plan.passes.residue_bytes(), name);
    StatusFrame stage(work.run.status, work.names.forward[index]);
    WordSums read(work.proof.ring());
    passes.forward(operand, read, *file);
    work.proof.end_read(index, read, operand);
    return file;
  };
  const auto a = residues(work.operands.a, 0, work.names.file[0]);
  {
    const auto b = square ? nullptr : residues(*work.operands.b, 1, work.names.file[1]);
    StatusFrame stage(work.run.status, work.names.multiply);
    passes.multiply(*a, square ? *a : *b);
  }
  StatusFrame stage(work.run.status, work.names.inverse);
  const bool top = passes.back(*a, work.proof, target);
  work.proof.check();
  return top;
}

}  // namespace

std::optional<SwapPlan> plan_passes(SwapScheme scheme, const FarFamily& family, const SwapRequest& request,
                                    const SwapBudget& budget) {
  std::optional<SwapPlan> best;
  for (u32 P = family.least_primes(); P <= family.most_primes(); P++) {
    for (const u32 k : {1, 3, 5, 7}) {
      const auto shape = least_far_shape(family, request, P, k);
      const auto plan = shape ? plan_shape(scheme, family, *shape, request, budget) : std::nullopt;
      if (plan && (!best || better(*plan, *best))) best = plan;
    }
  }
  return best;
}

bool run_passes(const SwapWork& work) {
  return with_product_target(work, [&](const ProductTarget& target) { return make_product(work, target); });
}

}  // namespace orl
