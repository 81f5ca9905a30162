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
  if (request.kept) {
    // Its words do not come in, nor go its residues out, through each of the passes before rows.
    const u64 residues = passes->residue_bytes(), inner = passes->inner_levels == 0 ? 0 : 1;
    plan.bytes_read -= kNumberWordBytes * request.b_words + inner * residues;
    plan.bytes_written -= (1 + inner) * residues;
    plan.disk_bytes -= residues;
  }
  return plan;
}

bool in_passes(const SwapPlan& plan) {
  return plan.scheme == SwapScheme::kTwoPasses || plan.scheme == SwapScheme::kThreePasses;
}

// The tables of a plan, its transform, and the passes behind them in memory.
struct PassesAtWork {
  PassesAtWork(const SwapPlan& plan, const FarFamily& family, const SwapRun& run)
      : memory(run.memory),
        tables(memory.cut_buffer(family.table_bytes(plan.shape))),
        transform(family.make(plan.shape, plan.request.ring, tables)),
        passes(*transform, plan.passes, memory, run.parallel.with_tds(plan.tds), run.status) {}

  LinearHeapBuffer memory, tables;
  std::unique_ptr<FarTransform> transform;
  FarPasses passes;
};

bool make_product(const SwapWork& work, const ProductTarget& target) {
  const SwapPlan& plan = work.plan;
  const bool square = work.operands.square();
  StatusFrame frame(work.run.status, "VST Streaming: ");
  const PassesAtWork at_work(plan, *work.family, work.run);
  const FarPasses& passes = at_work.passes;
  const SwapKept* const kept = plan.request.kept ? work.operands.kept : nullptr;
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
    const auto b = square || kept ? nullptr : residues(*work.operands.b, 1, work.names.file[1]);
    if (kept) work.proof.end_read(1, kept->read(), kept->number());
    StatusFrame stage(work.run.status, work.names.multiply);
    passes.multiply(*a, square ? *a : kept ? *kept->residues() : *b);
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

u64 SwapKept::disk_bytes(const SwapPlan& plan) { return in_passes(plan) ? plan.passes.residue_bytes() : 0; }

SwapKept::SwapKept(const SwapPlan& plan, const FarFamily* family, const SwapRun& run,
                   const SwapNumber& number, const char* name)
    : number_(number), plan_(plan), ring_(ring_check_of(plan)), read_(ring_ ? &*ring_ : nullptr) {
  if (!in_passes(plan)) return;
  const PassesAtWork at_work(plan, *family, run);
  residues_ = run.disk.allocate(plan.passes.residue_bytes(), name);
  StatusFrame stage(run.status, "CRT-F: ");
  at_work.passes.forward(number_, read_, *residues_);
  ProductProof(plan, "SwapKept::SwapKept()").end_read(1, read_, number_);
}

bool SwapKept::serves(const SwapPlan& plan) const {
  if (number_.words() != plan.request.b_words) return false;
  return residues_ ? plan.scheme == plan_.scheme && plan.shape == plan_.shape &&
                         plan.passes.levels == plan_.passes.levels &&
                         plan.passes.inner_levels == plan_.passes.inner_levels &&
                         plan.request.ring == plan_.request.ring
                   : !in_passes(plan);
}

bool run_passes(const SwapWork& work) {
  return with_product_target(work, [&](const ProductTarget& target) { return make_product(work, target); });
}

}  // namespace orl
