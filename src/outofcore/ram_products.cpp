#include "outofcore/ram_products.h"

#include <algorithm>

#include "core/fault_point.h"
#include "core/round_up.h"
#include "files/raw_io_buffer.h"
#include "multiply/algorithm_table.h"

namespace orl {
namespace {

const AlgorithmTable<u32>& table() { return basic_table<u32>(); }

// Transforms and working scratch of a direct product, as they are cut.
u64 direct_bytes(const MultiplySizes& sizes, bool square) {
  return (square ? 1 : 2) * LinearHeapBuffer::cut_bytes<u8>(sizes.transform_bytes) +
         LinearHeapBuffer::cut_bytes<u8>(sizes.scratch_bytes);
}

SwapPlan plan_of(SwapScheme scheme, const SwapRequest& request, const SwapBudget& budget, u64 ring_words,
                 const RamCut& cut) {
  SwapPlan plan;
  plan.scheme = scheme;
  plan.request = request;
  plan.ring_words = ring_words;
  plan.tds = budget.tds;
  plan.ram = cut;
  const u64 words = std::max(request.a_words + request.b_words, plan.made_words());
  plan.ram.area_words = round_up(words * sizeof(u32), kIoAlignment) / sizeof(u32);
  plan.sink_bytes = swap_sink_bytes(budget, plan.wanted_words());
  plan.memory_bytes = NumberSink::bytes(plan.sink_bytes) + plan.ram.area_words * sizeof(u32) +
                      LinearHeapBuffer::cut_bytes<u8>(cut.table_bytes) +
                      LinearHeapBuffer::cut_bytes<u8>(cut.scratch_bytes);
  plan.bytes_read = sizeof(u32) * (request.a_words + request.b_words);
  plan.bytes_written = sizeof(u32) * plan.wanted_words();
  return plan;
}

SwapPlan plan_direct(const Algorithm& algorithm, const SwapRequest& request, const SwapBudget& budget) {
  const u64 bits = 32 * request.product_words();
  return plan_of(SwapScheme::kRam, request, budget, 0,
                 {&algorithm, bits, 0, algorithm.table_bytes(bits),
                  direct_bytes(algorithm.sizes(bits, budget.tds), request.square())});
}

// By the least shape that wraps and is long enough.
std::optional<SwapPlan> plan_ring(const SwapRequest& request, const SwapBudget& budget) {
  for (u64 words = request.len; words <= table().max_words();) {
    const Algorithm& algorithm = table().get_lean_algorithm(words);
    ParametersBox box;
    const Parameters& shape = algorithm.parameters_for(box, nullptr, 32 * words, budget.tds);
    if (shape.cyclic_words() >= request.len)
      return plan_of(SwapScheme::kRam, request, budget, shape.cyclic_words(),
                     {&algorithm, 32 * words, 0, algorithm.table_bytes(32 * words),
                      direct_bytes(shape.sizes(), request.square())});
    words = std::max(words, shape.max_bits() / 32) + 1;
  }
  return std::nullopt;
}

std::optional<SwapPlan> within(const SwapPlan& plan, const SwapBudget& budget) {
  if (plan.memory_bytes > budget.memory_bytes) return std::nullopt;
  return plan;
}

// Scratch grows with the tasks: half or a quarter of them may do where the memory is short.
template <class Plan>
std::optional<SwapPlan> with_fewer_tasks(SwapBudget budget, Plan&& plan) {
  for (u32 i = 0; i < 3; i++, budget.tds = (budget.tds + 1) / 2)
    if (const std::optional<SwapPlan> found = plan(budget)) return found;
  return std::nullopt;
}

// What both schemes have cut, and how they begin and end.
class RamProduct {
 public:
  explicit RamProduct(const SwapWork& work)
      : work_(work),
        cut_(work.plan.ram),
        heap_(work.run.memory),
        words_(heap_.cut<u32>(cut_.area_words)),
        tables_(heap_.cut_buffer(cut_.table_bytes)),
        frame_(work.run.status, work.operands.square() ? "S-Fast" : "M-Fast") {
    cut_.algorithm->ensure_tables(tables_, cut_.bits);
  }

  // Both operands are under way at once; the second is loaded while the first is worked on.
  template <class Use>
  void load(Use&& use) {
    const SwapNumber& a = work_.operands.a;
    FarTransfer loading = a.start_load(words_, 0, a.words());
    FarTransfer second;
    if (!work_.operands.square()) {
      const SwapNumber& b = *work_.operands.b;
      second = b.start_load(words_ + a.words(), 0, b.words());
    }
    loading.wait();
    use(0, read(0, a, words_));
    if (work_.operands.square()) return;
    second.wait();
    use(1, read(1, *work_.operands.b, words_ + a.words()));
  }

  // The product stands in words().
  void finish(bool top) {
    const Words<u32> made{words_, work_.plan.made_words()};
    fault_point("swap product", words_, made.count * sizeof(u32));
    work_.proof.add_product(0, made, work_.run.parallel);
    FarCarry above;
    above.word[0] = top;
    work_.proof.add_above(above, work_.run.parallel);
    work_.proof.check();
    work_.sink.take(made, work_.run.parallel);
    work_.sink.finish();
  }

  u32* words() { return words_; }
  LinearHeapBuffer& heap() { return heap_; }
  const TransformTables& tables() const { return tables_; }

 private:
  Words<u32> read(u32 operand, const SwapNumber& number, u32* words) {
    fault_point("swap operand", words, number.words() * sizeof(u32));
    const Words<u32> view{words, number.words()};
    WordSums sums(work_.proof.ring());
    sums.add(0, view, work_.run.parallel);
    work_.proof.end_read(operand, sums, number);
    return view;
  }

  const SwapWork& work_;
  const RamCut& cut_;
  LinearHeapBuffer heap_;
  u32* words_;
  TransformTables tables_;
  StatusFrame frame_;
};

}  // namespace

std::optional<SwapPlan> plan_ram(const SwapRequest& request, const SwapBudget& budget) {
  return with_fewer_tasks(budget, [&](const SwapBudget& share) -> std::optional<SwapPlan> {
    if (request.ring != ProductRing::kPlain) {
      const std::optional<SwapPlan> plan = plan_ring(request, share);
      return plan ? within(*plan, share) : plan;
    }
    const u64 words = request.product_words();
    if (words > table().max_words()) return std::nullopt;
    if (const auto plan = within(plan_direct(table().get_algorithm(words), request, share), share))
      return plan;
    return within(plan_direct(table().get_lean_algorithm(words), request, share), share);
  });
}

std::optional<SwapPlan> plan_ram_by(const Algorithm& algorithm, const SwapRequest& request,
                                    const SwapBudget& budget) {
  if (32 * request.product_words() > algorithm.max_bits()) return std::nullopt;
  return within(plan_direct(algorithm, request, budget), budget);
}

std::optional<SwapPlan> plan_ram_halves(const SwapRequest& request, const SwapBudget& budget) {
  const u64 words = request.product_words(), bits = 32 * words;
  if (request.ring != ProductRing::kPlain || words > table().max_words()) return std::nullopt;
  const Algorithm& algorithm = table().get_lean_algorithm(words);
  return with_fewer_tasks(budget, [&](const SwapBudget& share) -> std::optional<SwapPlan> {
    // The product may be written over the operands where halves take less than the direct way.
    const ProductSizes bounded = algorithm.bounded_sizes(bits, 0, share.tds);
    const MultiplySizes direct = algorithm.sizes(bits, share.tds);
    const u64 bytes = request.square() ? bounded.square_bytes : bounded.product_bytes;
    if (bytes >= (request.square() ? direct.square_bytes() : direct.total_bytes())) return std::nullopt;
    return within(plan_of(SwapScheme::kRamHalves, request, share, 0,
                          {&algorithm, bits, 0, algorithm.table_bytes(bits), bytes}),
                  share);
  });
}

bool run_ram(const SwapWork& work) {
  RamProduct product(work);
  const RamCut& cut = work.plan.ram;
  const bool square = work.operands.square();
  ParametersBox box;
  const Parameters& shape = cut.algorithm->parameters_for(box, &product.tables(), cut.bits, work.plan.tds);
  LinearHeapBuffer heap = product.heap();
  u8* transform[2];
  transform[0] = heap.cut<u8>(shape.transform_size());
  transform[1] = square ? transform[0] : heap.cut<u8>(shape.transform_size());
  u8* const tmp = heap.cut<u8>(shape.scratch_size());
  const ParallelContext parallel = work.run.parallel.with_tds(work.plan.tds);

  const WrappedProducts* const ring = work.plan.ring_words ? shape.wrapped() : nullptr;
  const Wrap wrap = work.plan.request.ring == ProductRing::kCyclic ? Wrap::cyclic : Wrap::negacyclic;
  product.load([&](u32 operand, Words<u32> words) {
    if (ring)
      ring->forward_wrapped(wrap, transform[operand], words, tmp, parallel);
    else
      shape.forward(transform[operand], words, tmp, parallel);
    fault_point("swap transform", transform[operand], shape.transform_size());
  });
  u32* const words = product.words();
  bool top = false;
  if (ring)
    top = ring->pointwise_wrapped(wrap, transform[0], transform[1], words, tmp, parallel) &&
          wrap == Wrap::negacyclic;
  else if (square)
    shape.inverse_fsqr(transform[0], {words, 0, work.plan.made_words()}, tmp, parallel);
  else
    shape.inverse_fmul(transform[0], transform[1], {words, 0, work.plan.made_words()}, tmp, parallel);
  product.finish(top);
  return top;
}

bool run_ram_halves(const SwapWork& work) {
  RamProduct product(work);
  const RamCut& cut = work.plan.ram;
  Words<u32> operand[2];
  product.load([&](u32 index, Words<u32> words) { operand[index] = words; });
  LinearHeapBuffer scratch = product.heap().cut_buffer(cut.scratch_bytes);
  scratch.size = cut.scratch_bytes;
  const MultiplyContext ctx{work.run.parallel.with_tds(work.plan.tds), product.tables(), scratch};
  const Window<u32> window{product.words(), 0, work.plan.made_words()};
  if (work.operands.square())
    cut.algorithm->sqr_bounded(ctx, window, operand[0]);
  else
    cut.algorithm->mul_bounded(ctx, window, operand[0], operand[1]);
  product.finish(false);
  return false;
}

}  // namespace orl
