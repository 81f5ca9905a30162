// Runs a plan with exactly the memory it asks for, between guards, and sees how much of it was cut.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <memory>
#include <vector>

#include "core/status.h"
#include "numbers/big_float.h"
#include "numbers/run_context.h"
#include "support/gmp_oracle.h"
#include "support/multiplication.h"
#include "threads/frameworks.h"
#include "words/hash.h"

namespace orl::test {

class AlignedBytes {
 public:
  explicit AlignedBytes(u64 bytes)
      : bytes_(bytes), store_(static_cast<u8*>(std::aligned_alloc(64, (bytes + 64) & ~u64{63}))) {}
  u8* data() { return store_.get(); }
  const u8* data() const { return store_.get(); }
  LinearHeapBuffer buffer() { return {data(), bytes_}; }

 private:
  struct Free {
    void operator()(u8* p) const { std::free(p); }
  };
  u64 bytes_;
  std::unique_ptr<u8, Free> store_;
};

/// `bytes` bytes between guards that sees what is cut of them.
class GuardedHeap final : public GuardedBlock, public CutObserver {
 public:
  explicit GuardedHeap(u64 bytes) : GuardedBlock(bytes) { set_cut_observer(this); }
  ~GuardedHeap() override { set_cut_observer(nullptr); }

  /// Bytes from the start of the heap to the end of the highest cut.
  u64 high_water() const { return high_water_; }

  void on_cut(const void* begin, u64 bytes) override {
    const u8 *const at = static_cast<const u8*>(begin), *const start = static_cast<const u8*>(buffer().ptr);
    if (at < start || at > start + buffer().size) return;
    const u64 end = static_cast<u64>(at - start) + bytes;
    u64 seen = high_water_;
    while (seen < end && !high_water_.compare_exchange_weak(seen, end)) {
    }
  }

 private:
  std::atomic<u64> high_water_{0};
};

/// A framework and the transform tables of the products up to `table_bits`.
template <class W>
class Runner {
 public:
  explicit Runner(u64 table_bits, const char* framework = "none")
      : framework_(create_framework(framework)),
        table_memory_(basic_table<W>().table_bytes(table_bits)),
        tables_(table_memory_.buffer()) {
    basic_table<W>().ensure_tables(tables_, table_bits);
  }
  RunContext context(u64 tds) { return {{*framework_, tds}, tables_, silent_status()}; }

  /// Calls body(context, heap) with exactly need.ram_bytes and checks guards; from `tight_bytes` on, the plan
  /// may not ask for more than 1/0.7 of what is cut.
  template <class Body>
  void run(const Need& need, u64 tds, Body&& body, u64 tight_bytes = 4096) {
    GuardedHeap heap(need.ram_bytes);
    body(context(tds), heap.buffer());
    EXPECT_TRUE(heap.intact());
    if (need.ram_bytes >= tight_bytes) {
      EXPECT_GE(static_cast<double>(heap.high_water()), 0.7 * static_cast<double>(need.ram_bytes));
    }
    EXPECT_LE(heap.high_water(), need.ram_bytes);
  }

 private:
  std::unique_ptr<Parallelizer> framework_;
  AlignedBytes table_memory_;
  TransformTables tables_;
};

/// The frame of the plans that a test runs; it holds nothing.
inline NullStackFrame frame;

/// A number that owns its words; `spare` words of room above.
template <class W>
struct OwnedFloat {
  std::vector<W> store;
  BigFloat<W> x;

  explicit OwnedFloat(u64 capacity) : store(capacity), x(store.data(), capacity) {}
  OwnedFloat(const std::vector<W>& words, s64 exp, u8 sign = 1)
      : store(words), x(store.data(), store.size()) {
    x.L = words.size();
    x.exp = exp;
    x.sign = sign;
    x.strip_top_zeros();
    x.exp = x.L ? exp : 0;
  }
  OwnedFloat(OwnedFloat&&) = default;
};

/// The hash of x's words as they are.
template <class W>
u64 canonical_hash(const BigFloat<W>& x) {
  return hash_canon(x.computed_hash(Runner<W>(64).context(1).parallel));
}

/// Runs a proved plan in its own memory; the hash that it returns must be that of out's words.
template <class W, class Plan, class... Operands>
void run_proved(const Plan& plan, u64 tds, OwnedFloat<W>& out, const Operands&... operands) {
  u64 proved = 0;
  Runner<W>(plan.need().table_bits, tds == 1 ? "none" : "pushpool")
      .run(
          plan.need(), tds,
          [&](const RunContext& ctx, LinearHeapBuffer heap) {
            proved = plan.run(ctx, frame, out.x, operands..., heap);
          },
          ~u64{0});
  EXPECT_EQ(proved, canonical_hash(out.x));
}

/// What a plan makes of its operands; `tight_bytes` as Runner::run() has it.
template <class W, class Plan, class... Operands>
OwnedFloat<W> made_by(const Plan& plan, u64 tds, const char* framework, u64 tight_bytes,
                      const Operands&... operands) {
  OwnedFloat<W> out(plan.need().out_words);
  Runner<W>(plan.need().table_bits, framework)
      .run(
          plan.need(), tds,
          [&](const RunContext& ctx, LinearHeapBuffer heap) {
            plan.run(ctx, frame, out.x, operands..., heap);
          },
          tight_bytes);
  return out;
}

/// floor(|x| * W^words).
template <class W>
Mpz scaled(const BigFloat<W>& x, u64 words) {
  const s64 shift = (x.exp + static_cast<s64>(words)) * static_cast<s64>(8 * sizeof(W));
  const Mpz value(x.T, x.L);
  return shift >= 0 ? value << static_cast<u64>(shift) : value >> static_cast<u64>(-shift);
}

template <class W>
Mpz word_power(u64 n) {
  return Mpz(u64{1}) << (n * 8 * sizeof(W));
}

}  // namespace orl::test
