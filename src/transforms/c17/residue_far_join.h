// The join of numbers on disks, for both families of residues modulo primes below 2^48: runs of points, side by side or
// chained, and what they leave.
#pragma once

#include "transforms/c17/residue_bounds.h"
#include "transforms/c17/residue_kernels.h"
#include "transforms/common/far_steps.h"

namespace orl {

/// How coefficients of one plan become words. `plan` must stay.
class ResidueFarJoin {
 public:
  /// Coefficients out of range are told under `id`.
  ResidueFarJoin(const char* id, const ResiduePlan& plan) : id_(id), plan_(plan) {}

  /// 64-bit words of so many points, a multiple of 8.
  u64 words_of(u64 points) const { return points * plan_.row.point_bits() / 64; }
  /// Scratch of a task of block(), beside `bytes` of its own.
  static u64 task_bytes(u64 bytes) {
    return LinearHeapBuffer::cut_bytes<u8>(bytes) + LinearHeapBuffer::cut_bytes<u8>(sizeof(ResidueJoinRun));
  }

  /// FarTransform::join(): feed(begin, end, run, memory) joins points [begin, end) of the shape to the run, in `bytes` of
  /// memory.
  template <class Feed>
  void block(const FarBlock& block, u64* words, FarCarry& carry, FarWork work, u64 bytes, Feed&& feed) const {
    work.parallel.tds =
        std::clamp<u64>(work.parallel.tds, 1, std::max<u64>(work.scratch.size / task_bytes(bytes), 1));
    auto* const runs =
        reinterpret_cast<ResidueJoinRun*>(work.scratch.cut<u8>(sizeof(ResidueJoinRun) * work.parallel.tds));
    const u64 first = words_of(block.begin), last = words_of(block.end);
    const WordWindow window(reinterpret_cast<u32*>(words), 2 * first, 2 * last);
    u64 count = 0;
    for_units(block, work, bytes, [&](u64 task, u64 tasks, u64 begin, u64 end, u8* own) {
      if (task == 0) count = tasks;
      runs[task] = start_residue_run(plan_.row, plan_.ring, begin, end, window);
      feed(begin, end, runs[task], own);
    });
    check_residue_runs(id_, plan_.row, plan_.ring, runs, count);
    const FarCarry left = carry_of(chain_residue_runs(plan_.row, runs, count));
    carry.add_to(words, last - first);
    carry.add(left);
  }
  /// Parts of a block, in points: body(task, tasks, begin, end, memory).
  template <class Body>
  static void for_units(const FarBlock& block, FarWork work, u64 bytes, Body&& body) {
    for_tasks(work, bytes, (block.points() + kFarUnit - 1) / kFarUnit,
              [&](u64 task, u64 tasks, u64 begin, u64 end, u8* own) {
                body(task, tasks, block.begin + begin * kFarUnit,
                     std::min(block.begin + end * kFarUnit, block.end), own);
              });
  }

  /// FarTransform::start_runs().
  void start_runs(u32 levels, void* runs) const {
    const u64 rows = u64{plan_.row.k} << levels, points = plan_.row.points() / rows;
    for (u64 j = 0; j < rows; ++j)
      run(runs, j) =
          start_residue_run(plan_.row, plan_.ring, j * points, (j + 1) * points, WordWindow(nullptr, 0, 0));
  }
  /// FarTransform::join_stripe(): feed(j, run, memory) joins row j's points of the stripe to the run, in `bytes` of memory.
  template <class Feed>
  void stripe(u64 width, std::span<u64* const> words, void* runs, FarWork work, u64 bytes,
              Feed&& feed) const {
    for_tasks(work, bytes, words.size(), [&](u64, u64, u64 begin, u64 end, u8* own) {
      for (u64 j = begin; j < end; ++j) {
        ResidueJoinRun& r = run(runs, j);
        r.window = WordWindow(nullptr, 0, 0);
        if (words[j])
          r.window = WordWindow(reinterpret_cast<u32*>(words[j]), 2 * r.word, 2 * (r.word + words_of(width)));
        feed(j, r, own);
      }
    });
    check_residue_runs(id_, plan_.row, plan_.ring, &run(runs, 0), words.size());
  }
  /// FarTransform::run_carry().
  FarCarry run_carry(const void* runs, u64 row) const {
    return carry_of(residue_overflow(static_cast<const ResidueJoinRun*>(runs)[row], plan_.row.P));
  }
  static u64 runs_bytes(u32 k, u32 levels) {
    return LinearHeapBuffer::cut_bytes<u8>(sizeof(ResidueJoinRun) * k << levels);
  }

 private:
  static ResidueJoinRun& run(void* runs, u64 row) { return static_cast<ResidueJoinRun*>(runs)[row]; }
  static FarCarry carry_of(const ResidueOverflow& overflow) {
    FarCarry carry;
    std::fill_n(carry.word, FarCarry::kWords, overflow.negative() ? ~u64{0} : 0);
    std::copy_n(overflow.word, ResidueJoinRun::kHead, carry.word);
    return carry;
  }

  const char* id_;
  const ResiduePlan& plan_;
};

}  // namespace orl
