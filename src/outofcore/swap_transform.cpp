#include "outofcore/swap_transform.h"

#include <optional>
#include <utility>

#include "core/exceptions.h"
#include "core/run_timer.h"
#include "files/raw_io_buffer.h"
#include "multiply/algorithm_table.h"

namespace orl {
namespace {

constexpr const char* kFunction = "SwapTransform::bench_overlap()";

// Words of an operand, the largest first.
constexpr u64 kSizes[] = {u64{1} << 36, u64{1} << 34, u64{1} << 33, u64{1} << 32, u64{3} << 30, u64{1} << 31,
                          u64{3} << 29, u64{1} << 30, u64{3} << 28, u64{1} << 29, u64{3} << 27, u64{1} << 28,
                          u64{3} << 26, u64{1} << 27, u64{3} << 25, u64{1} << 26, u64{3} << 24, u64{1} << 25,
                          u64{3} << 23, u64{1} << 24, u64{3} << 22, u64{1} << 23, u64{3} << 21, u64{1} << 22,
                          u64{3} << 20, u64{1} << 21, u64{3} << 19, u64{1} << 20, u64{3} << 18, u64{1} << 19,
                          u64{1} << 18, u64{1} << 17, u64{1} << 16, u64{1} << 15, u64{1} << 14};
constexpr double kSeconds = 3;
constexpr u64 kLeastSquares = 4;

// The memory of a test of `words` words.
struct OverlapPlan {
  u64 words;
  u64 block_bytes;  // of each of the two transfers that run beside a square
  u64 table_bytes;
  MultiplySizes sizes;
  u64 bytes() const {
    return 2 * block_bytes + kIoAlignment + 24 * words + table_bytes + sizes.square_bytes() + 5 * 64;
  }
};

std::optional<OverlapPlan> plan_of(const Algorithm& algorithm, u64 words, u64 tds) {
  const u64 bits = 128 * words;
  if (bits > algorithm.max_bits()) return std::nullopt;
  return OverlapPlan{words, SwapTransform::kTrafficOfSquare / 2 * 16 * words, algorithm.table_bytes(bits),
                     algorithm.sizes(bits, tds)};
}

OverlapPlan largest_plan(const Algorithm& algorithm, u64 memory_bytes, u64 file_bytes, u64 tds) {
  for (const u64 words : kSizes) {
    const std::optional<OverlapPlan> plan = plan_of(algorithm, words, tds);
    if (plan && plan->bytes() <= memory_bytes && 2 * plan->block_bytes <= file_bytes) return *plan;
  }
  throw InvalidParametersException(kFunction, "Unable to find a test that fits within the memory limit.");
}

u8* aligned_block(u8*& at, u64 bytes) {
  u8* const block = reinterpret_cast<u8*>((reinterpret_cast<std::uintptr_t>(at) + kIoAlignment - 1) &
                                          ~(std::uintptr_t{kIoAlignment} - 1));
  at = block + bytes;
  return block;
}

}  // namespace

OverlapSpeeds SwapTransform::bench_overlap(const SwapDescriptor& disk, FarMemory& file,
                                           LinearHeapBuffer memory, ParallelContext parallel) {
  const AlgorithmInstances* const family = algorithm_registry().find("VST");
  if (!family) throw InvalidParametersException(kFunction, "The algorithm \"VST\" is not there.");
  const Algorithm& algorithm = *family->basic<u64>();
  const OverlapPlan plan = largest_plan(algorithm, memory.size, file.size(), parallel.tds);

  u8* at = memory.cut<u8>(2 * plan.block_bytes + kIoAlignment);
  u8* blocks[2] = {aligned_block(at, plan.block_bytes), aligned_block(at, plan.block_bytes)};
  u64* const operand = memory.cut<u64>(plan.words);
  u64* const result = memory.cut<u64>(2 * plan.words);
  TransformTables tables(memory.cut_buffer(plan.table_bytes));
  algorithm.ensure_tables(tables, 128 * plan.words);
  const MultiplyContext ctx{parallel, tables, memory};
  for (u64 i = 0, x = 1; i < plan.words; i++) operand[i] = x = x * 6364136223846793005 + 1442695040888963407;

  const u64 places = file.size() / plan.block_bytes;
  double computing = 0;
  const double busy_before = disk.busy_seconds(), start = monotonic_seconds();
  u64 squares = 0;
  // What was loaded beside one square is stored beside the next.
  for (; squares < kLeastSquares || monotonic_seconds() - start < kSeconds; squares++) {
    FarTransfer loading =
        file.start_load(blocks[squares % 2], squares % places * plan.block_bytes, plan.block_bytes);
    FarTransfer storing;
    if (squares != 0)
      storing = file.start_store(blocks[(squares + 1) % 2], (squares - 1) % places * plan.block_bytes,
                                 plan.block_bytes);
    const double begin = monotonic_seconds();
    algorithm.sqr_window(ctx, Window<u64>{result, 0, 2 * plan.words}, Words<u64>{operand, plan.words});
    computing += monotonic_seconds() - begin;
    loading.wait();
    storing.wait();
  }
  const double busy = disk.busy_seconds() - busy_before;
  const double block = static_cast<double>(plan.block_bytes), count = static_cast<double>(squares);
  return {plan.words, 2 * block * count / computing, block * (2 * count - 1) / busy};
}

}  // namespace orl
