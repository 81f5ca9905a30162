// Bounded products of 64-bit words beside the direct way, in the memory that each states: ns per word of one
// operand, bytes of scratch a word of the product, and both as ratios.
//
// bounded_bench [TARGET [THREADS [length of an operand in words ...]]]
#include <cstring>
#include <memory>
#include <new>

#include "multiply/algorithm_table.h"
#include "simd/target.h"
#include "support/measure.h"
#include "threads/simple_frameworks.h"
#include "transforms/registration.h"

namespace {

using namespace orl;

class Block {
 public:
  explicit Block(u64 bytes) : bytes_(bytes), store_(new (std::align_val_t{64}) u8[bytes + 64]) {
    std::memset(store_.get(), 0, bytes);
  }
  LinearHeapBuffer buffer() const { return {store_.get(), bytes_}; }

 private:
  struct Free {
    void operator()(u8* p) const { ::operator delete[](p, std::align_val_t{64}); }
  };
  u64 bytes_;
  std::unique_ptr<u8[], Free> store_;
};

void require(bool right, u64 L) {
  if (right) return;
  std::fprintf(stderr, "bounded_bench: the two ways differ at %llu words\n",
               static_cast<unsigned long long>(L));
  std::exit(1);
}

void print_row(const char* what, u64 L, const char* id, const bench::Comparison& c, u64 bytes,
               u64 direct_bytes) {
  const double product = 2 * double(L);
  std::printf("  %-14s %-4s %10llu %9.2f %6.1f%% %9.2f %7.3f %8.1f %8.1f %7.3f\n", what, id,
              static_cast<unsigned long long>(L), c.call.median / double(L), 100 * c.call.spread,
              c.peer.median / double(L), c.call.median / c.peer.median, double(bytes) / product,
              double(direct_bytes) / product, double(bytes) / double(direct_bytes));
}

void measure(ParallelContext parallel, u64 L) {
  const AlgorithmTable<u64>& table = basic_table<u64>();
  const Algorithm& algorithm = table.get_algorithm(2 * L);
  const u64 bits = 128 * L;
  Block table_block(table.table_bytes(bits));
  TransformTables tables(table_block.buffer());
  table.ensure_tables(tables, bits);
  std::vector<u64> a(L), b(L), t(2 * L), expected(2 * L);
  u64 x = 88172645463325252;
  for (std::vector<u64>* v : {&a, &b})
    for (u64& w : *v) w = x ^= (x ^= (x ^= x << 13) >> 7) << 17;

  const auto row = [&](const char* what, u64 skip, bool square) {
    const u64 len = 2 * L;
    const MultiplySizes direct = algorithm.sizes(bits, parallel.tds);
    const u64 direct_bytes = square ? direct.square_bytes() : direct.total_bytes();
    const ProductSizes sizes = algorithm.bounded_sizes(bits, (len - skip) * 64, parallel.tds);
    const u64 bytes = square ? sizes.square_bytes : sizes.product_bytes;
    const Block block(bytes), direct_block(direct_bytes);
    const MultiplyContext ctx{parallel, tables, block.buffer()};
    const MultiplyContext direct_ctx{parallel, tables, direct_block.buffer()};
    const auto bounded_way = [&] {
      if (square)
        algorithm.sqr_bounded(ctx, Window{t.data(), skip, len}, Words{a.data(), L});
      else
        algorithm.mul_bounded(ctx, Window{t.data(), skip, len}, Words{a.data(), L}, Words{b.data(), L});
    };
    const auto direct_way = [&] {
      if (square)
        algorithm.sqr_window(direct_ctx, Window{expected.data(), skip, len}, Words{a.data(), L});
      else
        algorithm.mul_window(direct_ctx, Window{expected.data(), skip, len}, Words{a.data(), L},
                             Words{b.data(), L});
    };
    bounded_way();
    direct_way();
    require(t == expected, L);
    print_row(what, L, algorithm.id(), bench::compare(bounded_way, direct_way, 2e6, L > 300000 ? 5 : 15),
              bytes, direct_bytes);
  };
  row("product", 0, false);
  row("upper half", L, false);
  row("square", 0, true);
  row("upper square", L, true);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1)
    for (int t = 0; t < 4; ++t)
      if (!std::strcmp(argv[1], simd::target_name(static_cast<simd::Target>(t))))
        simd::set_active_target(static_cast<simd::Target>(t));
  const u64 threads = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 1;
  register_multiplication();
  bench::heading("bounded_bench", simd::target_name(simd::active_target()));
  std::printf("  %-14s %-4s %10s %9s %7s %9s %7s %8s %8s %7s\n", "", "", "words", "ns/word", "spread",
              "direct", "ratio", "bytes", "direct", "ratio");
  Parallelizer_Spawn spawn;
  Parallelizer_None none;
  Parallelizer& parallelizer = threads > 1 ? static_cast<Parallelizer&>(spawn) : none;
  std::vector<u64> lengths = {10000, 100000, 1000000};
  if (argc > 3) lengths.clear();
  for (int i = 3; i < argc; ++i) lengths.push_back(std::strtoull(argv[i], nullptr, 10));
  for (const u64 L : lengths) measure({parallelizer, threads}, L);
}
