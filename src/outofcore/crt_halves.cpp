#include "outofcore/crt_halves.h"

#include <algorithm>
#include <array>

#include "core/exceptions.h"
#include "core/fault_point.h"
#include "files/raw_io_buffer.h"
#include "outofcore/product_runs.h"
#include "words/words.h"

namespace orl {
namespace {

constexpr ProductRing kRings[2] = {ProductRing::kCyclic, ProductRing::kNegacyclic};
// What the halves are called: modulo W^n - 1, modulo W^n + 1.
constexpr SwapNames kNames[2] = {
    {{"CRT-CA-", "CRT-CB-"}, "CRT-CM-", "CRT-CI-", {"orv_CRT_T(Ac).sf", "orv_CRT_T(Bc).sf"}},
    {{"CRT-NA-", "CRT-NB-"}, "CRT-NM-", "CRT-NI-", {"orv_CRT_T(An).sf", "orv_CRT_T(Bn).sf"}}};
constexpr const char* kFolded[2] = {"orv_CRT_Ac.sf", "orv_CRT_An.sf"};
constexpr const char* kProducts[2] = {"orv_CRT_Cc.sf", "orv_CRT_Cn.sf"};

// Blocks in memory while an operand is folded, and while halves are joined.
constexpr u64 kFoldBlocks = 10, kJoinBlocks = 8;
constexpr u64 kMostBlock = u64{16} << 20;

// Index of the longer operand, which may have to be folded.
u32 longer(const SwapRequest& request) { return request.b_words > request.a_words ? 1 : 0; }
u64 words_of(const SwapRequest& request, u32 operand) {
  return operand == 0 ? request.a_words : request.b_words;
}

// The product that either half is, in a ring of at least n words.
SwapRequest half_request(const SwapRequest& request, ProductRing ring, u64 n) {
  SwapRequest half = request;
  half.kept = false;
  half.a_words = std::min(half.a_words, n);
  half.b_words = std::min(half.b_words, n);
  half.skip = 0;
  half.len = n;
  half.ring = ring;
  return half;
}

std::optional<SwapPlan> plan_half(const FarFamily& family, const SwapRequest& request,
                                  const SwapBudget& budget) {
  std::optional<SwapPlan> best;
  for (const SwapScheme scheme :
       {SwapScheme::kPrimeGroups, SwapScheme::kTwoPasses, SwapScheme::kThreePasses}) {
    const auto plan = plan_swap_product(scheme, &family, request, budget);
    if (plan && (!best || plan->traffic() < best->traffic())) best = plan;
  }
  return best;
}

// -1, 0 or 1 as a carry.
FarCarry carry_of(s64 value) {
  FarCarry carry;
  carry.add(value);
  return carry;
}

class HalvesProduct {
 public:
  explicit HalvesProduct(const SwapWork& work)
      : work_(work),
        plan_(work.plan),
        n_(plan_.half[0]->ring_words),
        parallel_(work.run.parallel.with_tds(plan_.tds)) {}
  void run(const ProductTarget& target);

 private:
  const SwapNumber& operand(u32 index) const { return index == 0 ? work_.operands.a : *work_.operands.b; }
  bool fold(u32 index, SwapNumber& cyclic, SwapNumber& negacyclic) const;
  bool make_half(u32 ring, const SwapNumber& folded, SwapNumber& product) const;
  bool negate_other(SwapNumber& product) const;
  void join(const SwapNumber& c, const SwapNumber& d, bool top, const ProductTarget& target) const;

  const SwapWork& work_;
  const SwapPlan& plan_;
  u64 n_;
  ParallelContext parallel_;
};

// Adds `carry` at the end of what went to a sink modulo W^n - 1 or W^n + 1. True for W^n.
bool close(ProductRing ring, u64 n, s64 carry, ProductSink& sink, u64* block, u64 block_words,
           ParallelContext parallel) {
  const bool top = close_ring(
      ring, n / 2, block_words, carry_of(carry),
      [&](u64 at, u64 count) {
        sink.load(2 * at, reinterpret_cast<u32*>(block), 2 * count);
        return block;
      },
      [&](u64 at, u64 count) {
        sink.store(2 * at, {reinterpret_cast<const u32*>(block), 2 * count}, parallel);
      });
  sink.finish();
  return top;
}

// The operand modulo W^n - 1 and W^n + 1. True when the latter is W^n.
bool HalvesProduct::fold(u32 index, SwapNumber& cyclic, SwapNumber& negacyclic) const {
  const SwapNumber& A = operand(index);
  LinearHeapBuffer memory = work_.run.memory;
  const u64 block = plan_.half_block_bytes / sizeof(u32);
  const SwapNumber low = A.view(0, n_), high = A.view(n_, A.words());
  WordReader lower(low, block, memory, work_.proof.function()),
      upper(high, block, memory, work_.proof.function());
  NumberSink sums(cyclic, 0, plan_.half_block_bytes,
                  memory.cut_buffer(NumberSink::bytes(plan_.half_block_bytes)));
  NumberSink rests(negacyclic, 0, plan_.half_block_bytes,
                   memory.cut_buffer(NumberSink::bytes(plan_.half_block_bytes)));
  u32* const sum = memory.cut<u32>(block);
  u32* const rest = memory.cut<u32>(block);
  WordSums read;
  s32 carry = 0, borrow = 0;
  while (true) {
    const Words<u32> a = lower.next(parallel_), b = upper.next(parallel_);
    if (a.count == 0) break;
    read.add(lower.at(), a, parallel_);
    if (b.count != 0) read.add(n_ + upper.at(), b, parallel_);
    // What the upper part has not counts as zero.
    const u64 more = a.count - b.count;
    bp_copy(sum + b.count, a.ptr + b.count, more, parallel_);
    bp_copy(rest + b.count, a.ptr + b.count, more, parallel_);
    if (b.count != 0) {
      carry = static_cast<s32>(bp_add<u32>(sum, a.ptr, b.ptr, b.count, static_cast<u32>(carry), parallel_));
      borrow =
          -static_cast<s32>(bp_sub<u32>(rest, a.ptr, b.ptr, b.count, static_cast<u32>(-borrow), parallel_));
    }
    if (more != 0) {
      carry = bp_carry<u32>(carry, sum + b.count, more, parallel_);
      borrow = bp_carry<u32>(borrow, rest + b.count, more, parallel_);
    }
    sums.take({sum, a.count}, parallel_);
    rests.take({rest, a.count}, parallel_);
  }
  work_.proof.end_read(index, read, A);
  close(ProductRing::kCyclic, n_, carry, sums, reinterpret_cast<u64*>(sum), block / 2, parallel_);
  return close(ProductRing::kNegacyclic, n_, borrow, rests, reinterpret_cast<u64*>(rest), block / 2,
               parallel_);
}

// The product in a ring, with `folded` in place of the longer operand where that was folded. True when it is W^n.
bool HalvesProduct::make_half(u32 ring, const SwapNumber& folded, SwapNumber& product) const {
  const SwapPlan& plan = *plan_.half[ring];
  const u32 long_one = longer(plan_.request);
  const bool folds = words_of(plan_.request, long_one) > n_;
  SwapRun run = work_.run;
  NumberSink sink(product, 0, plan.sink_bytes, run.memory);
  run.memory.cut_buffer(NumberSink::bytes(plan.sink_bytes));
  SwapOperands operands{work_.operands.a, work_.operands.b};
  const SwapOperands with_a{folded, operands.b}, with_b{operands.a, &folded};
  ProductProof proof(plan, work_.proof.function());
  const bool top = run_swap_scheme({plan, work_.family, run,
                                    !folds          ? operands
                                    : long_one == 0 ? with_a
                                                    : with_b,
                                    proof, sink, kNames[ring]});
  // The whole product is proved by what was read here.
  for (u32 i = 0; i < (operands.square() ? 1u : 2u); i++)
    if (!folds || i != long_one) work_.proof.end_read(i, proof.read(i), operand(i));
  return top;
}

// The product modulo W^n + 1 when the longer operand is W^n, that is -1. True when it is W^n.
bool HalvesProduct::negate_other(SwapNumber& product) const {
  const u32 other = 1 - longer(plan_.request);
  LinearHeapBuffer memory = work_.run.memory;
  const u64 block = plan_.half_block_bytes / sizeof(u32);
  WordReader reader(operand(other), block, memory, work_.proof.function());
  NumberSink sink(product, 0, plan_.half_block_bytes,
                  memory.cut_buffer(NumberSink::bytes(plan_.half_block_bytes)));
  u32* const zeros = memory.cut<u32>(block);
  u32* const out = memory.cut<u32>(block);
  bp_fill<u32>(zeros, block, 0, parallel_);
  s32 borrow = 0;
  for (u64 at = 0; at < n_;) {
    const Words<u32> b = reader.next(parallel_);
    const u64 count = b.count != 0 ? b.count : std::min(block, n_ - at);
    borrow = -static_cast<s32>(
        bp_sub<u32>(out, zeros, b.count != 0 ? b.ptr : zeros, count, static_cast<u32>(-borrow), parallel_));
    sink.take({out, count}, parallel_);
    at += count;
  }
  work_.proof.end_read(other, reader.sums(), operand(other));
  return close(ProductRing::kNegacyclic, n_, borrow, sink, reinterpret_cast<u64*>(out), block / 2, parallel_);
}

// The words of the product from both residues; d is W^n with `top`, its words are zero then.
void HalvesProduct::join(const SwapNumber& c, const SwapNumber& d, bool top,
                         const ProductTarget& target) const {
  const u64 words = n_ / 2, block = plan_.half_block_bytes / sizeof(u64), pairs = sizeof(u64) / sizeof(u32);
  LinearHeapBuffer memory = work_.run.memory;
  const SwapNumber* const residues[2] = {&c, &d};
  WordSums sums[2];
  u64* loaded[2][2];
  FarTransfer loading[2];
  for (auto& of_residue : loaded)
    for (u64*& buffer : of_residue) buffer = memory.cut<u64>(block + kIoAlignment / sizeof(u64));
  u64* const out[2] = {memory.cut<u64>(2 * block), memory.cut<u64>(2 * block)};
  // A block and the word behind it, whose lowest bit belongs to the block's last word.
  const auto start = [&](u64 at, u64 i) {
    for (u32 r = 0; r < 2; r++)
      loading[r] =
          residues[r]->start_load(loaded[r][i], pairs * at, pairs * (std::min(block + 1, words - at)));
  };
  ProductRuns product({2, n_ * sizeof(u32)}, work_.proof, target, parallel_);
  u64 borrow = 0, carry = 0, odd = 0;
  start(0, 0);
  for (u64 at = 0, count, i = 0; at < words; at += count, i ^= 1) {
    count = std::min(block, words - at);
    const u64 *const x = loaded[0][i], *const y = loaded[1][i];
    for (u32 r = 0; r < 2; r++) {
      loading[r].wait();
      fault_point("swap residues", loaded[r][i], count * sizeof(u64));
      sums[r].add(pairs * at, {reinterpret_cast<const u32*>(loaded[r][i]), pairs * count}, parallel_);
    }
    if (at + count < words) start(at + count, i ^ 1);
    u64 *const low = out[i], *const high = out[i] + count;
    if (at == 0) odd = (x[0] ^ y[0]) & 1;
    borrow = bp_sub<u64>(low, x, y, count, borrow, parallel_);
    const u64 above = at + count < words ? (x[count] ^ y[count] ^ borrow) & 1 : odd ^ (borrow | top);
    for_parts(parallel_, count, [&](u64 begin, u64 end) {
      for (u64 j = begin; j < end; j++) high[j] = low[j] >> 1 | (j + 1 < count ? low[j + 1] : above) << 63;
    });
    carry = bp_add<u64>(low, y, high, count, carry, parallel_);
    product.wait();
    product.start(at * sizeof(u64), count * sizeof(u64), reinterpret_cast<u8*>(out[i]));
  }
  product.wait();
  for (u32 r = 0; r < 2; r++)
    if (sums[r].hash() != residues[r]->hash())
      throw AlgorithmFailedException(work_.proof.function(), kSwapNumberMismatch);
  // The 1 that is taken from t, where there is one, and what leaves the low half.
  const s64 less = odd == 0 && (borrow | top) ? 1 : 0;
  FarCarry below = carry_of(-less), above = carry_of(static_cast<s64>(carry) + top - less);
  product.count(0, below);
  product.add(0, below);
  if (product.rows() == 2) {
    product.count(1, above);
    above.add(below);
    product.add(1, above);
  }
  product.finish(ProductRing::kPlain, {});
}

void HalvesProduct::run(const ProductTarget& target) {
  if (2 * n_ < plan_.made_words())
    throw InvalidParametersException("CRT_mulp()", "CRT_mulp(): Convolution length is not long enough.");
  if (n_ % 2 != 0)
    throw InvalidParametersException("CRT_mulp()",
                                     "CRT_mulp(): Convolution length is not divisible by the word-size.");
  const u32 long_one = longer(plan_.request);
  SwapNumber folded[2], products[2];
  bool minus_one = false, top = false;
  if (words_of(plan_.request, long_one) > n_) {
    for (u32 r = 0; r < 2; r++) folded[r] = SwapNumber(work_.run.disk, n_, kFolded[r]);
    minus_one = fold(long_one, folded[0], folded[1]);
  }
  for (u32 r = 0; r < 2; r++) {
    products[r] = SwapNumber(work_.run.disk, n_, kProducts[r]);
    top = minus_one && r == 1 ? negate_other(products[r]) : make_half(r, folded[r], products[r]);
    folded[r] = {};
  }
  join(products[0], products[1], top, target);
  work_.proof.check();
}

}  // namespace

std::optional<SwapPlan> plan_crt_halves(const FarFamily& family, const SwapRequest& request,
                                        const SwapBudget& budget) {
  if (request.ring != ProductRing::kPlain) return std::nullopt;
  auto begun = begin_composed(SwapScheme::kCrtHalves, request, budget);
  if (!begun) return std::nullopt;
  auto& [plan, rest] = *begun;
  // Beside a half lie both of them.
  const u64 both_bytes = request.product_words() * sizeof(u32);
  rest.disk_bytes -= std::min(rest.disk_bytes, both_bytes);
  // The shape says how long the ring is, and the ring how long the operands are.
  u64 n = (request.product_words() + 1) / 2;
  n = std::max(n, std::min(request.a_words, request.square() ? request.a_words : request.b_words));
  const auto first = plan_half(family, half_request(request, ProductRing::kCyclic, n), rest);
  if (!first) return std::nullopt;
  n = first->ring_words;
  for (u32 r = 0; r < 2; r++) {
    const auto half = plan_half(family, half_request(request, kRings[r], n), rest);
    if (!half || half->ring_words != n) return std::nullopt;
    plan.half[r] = std::make_shared<const SwapPlan>(*half);
  }
  plan.shape = first->shape;
  const u64 blocks = std::min(kMostBlock, rest.memory_bytes / (kFoldBlocks + 1));
  plan.half_block_bytes = swap_block_bytes(budget, std::max(blocks, kIoAlignment));
  const u64 own =
      std::max(kFoldBlocks * plan.half_block_bytes, kJoinBlocks * plan.half_block_bytes + 4 * kIoAlignment);
  if (own > rest.memory_bytes) return std::nullopt;

  const u64 ring_bytes = n * sizeof(u32), long_bytes = words_of(request, longer(request)) * sizeof(u32);
  const bool folds = long_bytes > ring_bytes;
  plan.memory_bytes = NumberSink::bytes(plan.sink_bytes) + own;
  for (const auto& half : plan.half) {
    plan.memory_bytes = std::max(plan.memory_bytes, NumberSink::bytes(plan.sink_bytes) + half->memory_bytes);
    plan.bytes_read += half->bytes_read;
    plan.bytes_written += half->bytes_written;
    plan.cost += half->cost;
  }
  plan.bytes_read += 2 * ring_bytes + (folds ? long_bytes : 0);
  plan.bytes_written += (folds ? 2 * ring_bytes : 0) + plan.wanted_words() * sizeof(u32);
  // The folded operands of a half go with it.
  plan.disk_bytes = std::max({(folds ? 3 : 1) * ring_bytes + plan.half[0]->disk_bytes,
                              (folds ? 3 : 2) * ring_bytes + plan.half[1]->disk_bytes});
  return plan;
}

bool run_crt_halves(const SwapWork& work) {
  return with_product_target(work, [&](const ProductTarget& target) {
    HalvesProduct(work).run(target);
    return false;
  });
}

}  // namespace orl
