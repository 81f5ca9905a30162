#include "outofcore/stretched_product.h"

#include <algorithm>

#include "core/exceptions.h"
#include "files/raw_io_buffer.h"
#include "outofcore/product_runs.h"
#include "outofcore/ram_products.h"
#include "words/hash.h"
#include "words/words.h"

namespace orl {
namespace {

// A shape may be shorter than the product by one of these parts at most.
constexpr u64 kAboveShares[] = {24, 50, 100};
// Blocks in memory while the words above are found.
constexpr u64 kBlocks = 4;
constexpr u64 kMostBlock = u64{1} << 20;

class StretchedProduct {
 public:
  StretchedProduct(const SwapWork& work, const ProductTarget& target)
      : work_(work),
        T_(target.number),
        n_(work.plan.half[0]->ring_words),
        m_(work.plan.above_words),
        parallel_(work.run.parallel.with_tds(work.plan.tds)),
        block_words_(work.plan.half_block_bytes / sizeof(u32)) {
    LinearHeapBuffer memory = work.run.memory;
    for (u32*& block : block_) block = memory.cut<u32>(block_words_);
  }
  void run();

 private:
  void make_residue(SwapNumber& residue) const;
  void make_low(SwapNumber& low) const;
  void unwrap(const SwapNumber& residue, const SwapNumber& low);
  s32 add(s32 carry, u64 from, u64 to);
  void load(u32* to, const SwapNumber& number, u64 at, u64 count) const {
    number.start_load(to, at, count).wait();
  }
  void store(u64 at, const u32* words, u64 count) {
    changed_.add(at, {words, count}, parallel_);
    T_.start_store(words, at, count).wait();
  }
  [[noreturn]] void fail() const {
    throw AlgorithmFailedException(work_.proof.function(), "Overlap Mismatch");
  }

  const SwapWork& work_;
  SwapNumber& T_;
  u64 n_, m_;
  ParallelContext parallel_;
  u64 block_words_;
  u32* block_[kBlocks];
  WordSums changed_;
};

void StretchedProduct::make_residue(SwapNumber& residue) const {
  const SwapPlan& plan = *work_.plan.half[0];
  SwapRun run = work_.run;
  NumberSink sink(residue, 0, plan.sink_bytes, run.memory);
  run.memory.cut_buffer(NumberSink::bytes(plan.sink_bytes));
  ProductProof proof(plan, work_.proof.function());
  run_swap_scheme({plan, work_.family, run, work_.operands, proof, sink, work_.names});
  work_.proof.end_read(0, proof.read(0), work_.operands.a);
  if (!work_.operands.square()) work_.proof.end_read(1, proof.read(1), *work_.operands.b);
}

void StretchedProduct::make_low(SwapNumber& low) const {
  const SwapPlan& plan = *work_.plan.half[1];
  const SwapNumber a = work_.operands.a.view(0, plan.request.a_words);
  const SwapNumber b =
      work_.operands.square() ? SwapNumber() : work_.operands.b->view(0, plan.request.b_words);
  swap_multiply(plan, work_.family, work_.run, {a, work_.operands.square() ? nullptr : &b}, low);
}

// Adds a carry to words [from, to) of the product; returns what leaves them.
s32 StretchedProduct::add(s32 carry, u64 from, u64 to) {
  for (u64 at = from, count; at < to && carry != 0; at += count) {
    count = std::min(block_words_, to - at);
    load(block_[0], T_, at, count);
    changed_.subtract(at, {block_[0], count}, parallel_);
    carry = bp_carry<u32>(carry, block_[0], count, parallel_);
    store(at, block_[0], count);
  }
  return carry;
}

// As unwrap_product(), in blocks. The residue's lowest words less those of the product are H or H + 1, H what is above.
void StretchedProduct::unwrap(const SwapNumber& residue, const SwapNumber& low) {
  u32 borrow = 0, top = 0;
  bool ones = true;
  for (u64 at = 0, count; at <= m_; at += count) {
    count = std::min(block_words_, m_ + 1 - at);
    u32 *const T = block_[0], *const L = block_[1], *const H = block_[2];
    FarTransfer loading = low.start_load(L, at, count);
    load(T, residue, at, count);
    loading.wait();
    borrow = bp_sub<u32>(H, T, L, count, borrow, parallel_);
    ones = ones && bp_strip<u32>(~u32{0}, H, count, parallel_) == 0;
    changed_.subtract(at, {T, count}, parallel_);
    store(at, L, count);
    if (at + count > m_) top = H[count - 1];
    if (const u64 above = std::min(count, m_ - at)) store(n_ + at, H, above);
  }
  // W^n - 1 stands for 0.
  if (ones) {
    bp_fill<u32>(block_[0], block_words_, 0, parallel_);
    changed_ = WordSums();
    for (u64 at = 0; at < n_ + m_; at += block_words_)
      store(at, block_[0], std::min(block_words_, n_ + m_ - at));
    return T_.set_hash(0);
  }
  if (top > 1) fail();
  const s32 below = add(-static_cast<s32>(borrow), m_ + 1, n_);
  if (add(below, n_, n_ + m_) + static_cast<s32>(top) != 0) fail();
  T_.set_hash(hash_add(*residue.hash(), changed_.hash()));
}

void StretchedProduct::run() {
  SwapNumber residue = T_.view(0, n_), low(work_.run.disk, m_ + 1);
  make_residue(residue);
  make_low(low);
  unwrap(residue, low);
  work_.proof.check(*T_.hash());
}

// The product of the lowest words: it fits in memory, or nearly.
std::optional<SwapPlan> plan_low(const FarFamily& family, const SwapRequest& request,
                                 const SwapBudget& budget) {
  if (const Algorithm* const algorithm = family.short_part()) return plan_ram_by(*algorithm, request, budget);
  std::optional<SwapPlan> low;
  for (const SwapScheme scheme : {SwapScheme::kRam, SwapScheme::kRamHalves, SwapScheme::kPrimeGroups})
    if (!low) low = plan_swap_product(scheme, &family, request, budget);
  return low;
}

// With at most so many words above the shape.
std::optional<SwapPlan> plan_above(SwapScheme scheme, const FarFamily& family, const SwapRequest& request,
                                   const SwapBudget& budget, u64 most_above) {
  const u64 words = request.product_words();
  auto begun = begin_composed(scheme, request, budget);
  if (!begun) return std::nullopt;
  auto& [plan, rest] = *begun;

  SwapRequest ring = request;
  ring.ring = ProductRing::kCyclic;
  ring.len = std::max({words - most_above, request.a_words, request.b_words});
  const auto residue = plan_swap_product(scheme, &family, ring, rest);
  if (!residue || residue->ring_words >= words) return std::nullopt;
  plan.above_words = words - residue->ring_words;
  SwapRequest lowest = request;
  lowest.a_words = std::min(request.a_words, plan.above_words + 1);
  lowest.b_words = std::min(request.b_words, plan.above_words + 1);
  lowest.len = plan.above_words + 1;
  if (lowest.product_words() < lowest.len) return std::nullopt;
  const auto low = plan_low(family, lowest, rest);
  plan.half_block_bytes = swap_block_bytes(budget, std::min(kMostBlock, rest.memory_bytes / kBlocks));
  if (!low || kBlocks * plan.half_block_bytes > rest.memory_bytes) return std::nullopt;

  plan.half[0] = std::make_shared<const SwapPlan>(*residue);
  plan.half[1] = std::make_shared<const SwapPlan>(*low);
  plan.shape = residue->shape;
  plan.passes = residue->passes;
  plan.groups = residue->groups;
  plan.cost = residue->cost + low->cost;
  const u64 above_bytes = plan.above_words * sizeof(u32), low_bytes = above_bytes + sizeof(u32);
  plan.memory_bytes = NumberSink::bytes(plan.sink_bytes) +
                      std::max({residue->memory_bytes, low->memory_bytes, kBlocks * plan.half_block_bytes});
  plan.disk_bytes = low_bytes + std::max(residue->disk_bytes, low->disk_bytes);
  plan.bytes_read = residue->bytes_read + low->bytes_read + 2 * low_bytes;
  plan.bytes_written = residue->bytes_written + low->bytes_written + low_bytes + above_bytes;
  return plan;
}

}  // namespace

std::optional<SwapPlan> plan_stretched(SwapScheme scheme, const FarFamily& family, const SwapRequest& request,
                                       const SwapBudget& budget) {
  const u64 words = request.product_words();
  if (request.ring != ProductRing::kPlain || request.skip != 0 || request.len != words) return std::nullopt;
  std::optional<SwapPlan> best;
  for (const u64 share : kAboveShares) {
    const auto plan = plan_above(scheme, family, request, budget, words / share);
    if (plan && (!best || plan->traffic() < best->traffic())) best = plan;
  }
  return best;
}

bool run_stretched(const SwapWork& work) {
  return with_product_target(work, [&](const ProductTarget& target) {
    StretchedProduct(work, target).run();
    return false;
  });
}

}  // namespace orl
