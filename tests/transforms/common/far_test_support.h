// Products by the transforms of numbers on disks, with arrays of bytes in place of files: every scheme against GMP.
#pragma once

#include "support/thrown.h"
#include "transforms/common/far_transform.h"
#include "transforms/common/product_test_support.h"

namespace orl::test {

/// One shape and ring at work: how its product is made.
class FarProduct {
 public:
  FarProduct(const FarFamily& family, const FarShape& shape, ProductRing ring, Random& random)
      : family_(family),
        random_(random),
        tasks_(random.between(1, 4)),
        tables_(family.table_bytes(shape)),
        table_memory_(tables_.buffer()),
        far_(family.make(shape, ring, table_memory_)),
        words_(family.product_bytes(shape) / 8) {}
  ~FarProduct() { EXPECT_TRUE(tables_.intact()); }

  u64 words() const { return words_; }

  /// All channels' transforms in memory, one after the other, some of the residues packed between.
  void by_groups(const std::vector<u32>& a, const std::vector<u32>& b) {
    const GuardedBlock scratch(family_.node_scratch_bytes(shape(), 0, random_.between(1, tasks_)));
    const FarWork work{scratch.buffer(), parallel()};
    const bool square = a == b;
    const Channels A(*this), B(*this);
    split(a, A, work);
    if (!square) split(b, B, work);
    for (u32 c = 0; c < family_.channels(shape()); ++c) {
      A.load(c, parallel());
      if (!square) B.load(c, parallel());
      void *const F = A.node(c), *const G = square ? F : B.node(c);
      multiply(c, {}, F, G, work);
      A.store(c, parallel());
    }
    start_words();
    FarCarry carry;
    for (u64 begin = 0, end; begin < shape().points(); begin = end) {
      end = next_block(begin);
      const FarBlock block{begin, end};
      far_->join(block, A.places(begin), word(begin), carry, work);
    }
    close(carry);
    EXPECT_TRUE(scratch.intact());
  }

  /// By rows on disks: `levels` levels of columns, rows by themselves or by columns of further levels.
  void by_rows(const std::vector<u32>& a, const std::vector<u32>& b, std::vector<u32> levels) {
    const u32 channels = family_.channels(shape());
    const u64 bytes = shape().points() * family_.packed_bytes(shape());
    const bool square = a == b;
    std::vector<std::vector<u8>> A(channels, std::vector<u8>(bytes)), B(square ? 0 : channels, A[0]);
    columns(a, levels[0], A);
    if (!square) columns(b, levels[0], B);
    for (u32 c = 0; c < channels; ++c)
      for (u32 t = 0; t < shape().k; ++t)
        for (u64 j = 0; j < u64{1} << levels[0]; ++j)
          row(c, {levels[0], t, j}, A[c], square ? A[c] : B[c], {levels.begin() + 1, levels.end()});
    columns_back(levels[0], A);
  }

  /// The product that was made last: its words and, modulo W^n + 1, whether it is W^n.
  std::vector<u32> found() const {
    std::vector<u32> words(2 * words_ + 1);
    std::memcpy(words.data(), product_->data(), 8 * words_);
    if (top_) std::fill(words.begin(), words.end() - 1, 0);
    words.back() = top_;
    const bool all_ones = std::all_of(words.begin(), words.end() - 1, [](u32 w) { return w == ~u32{0}; });
    if (far_->ring() == ProductRing::kCyclic && all_ones) std::fill(words.begin(), words.end(), 0);
    return words;
  }
  bool intact() const { return product_->intact(); }

 private:
  /// An operand's residues: an unpacked node each, or packed, by turns.
  class Channels {
   public:
    explicit Channels(const FarProduct& p)
        : p_(p), bytes_(p.family_.packed_bytes(p.shape())), packed_first_(p.random_.coin()) {
      for (u32 c = 0; c < p.family_.channels(p.shape()); ++c) {
        nodes_.push_back(std::make_unique<GuardedBlock>(p.family_.node_bytes(p.shape(), 0)));
        packed_.push_back(std::make_unique<GuardedBlock>(is_packed(c) ? bytes_ * p.shape().points() : 0));
      }
    }
    ~Channels() {
      for (const auto& block : nodes_) EXPECT_TRUE(block->intact());
      for (const auto& block : packed_) EXPECT_TRUE(block->intact());
    }
    void* node(u32 c) const { return nodes_[c]->buffer().ptr; }
    u8* packed(u32 c) const { return static_cast<u8*>(packed_[c]->buffer().ptr); }
    std::vector<FarPlace> places(u64 begin) const {
      std::vector<FarPlace> places(nodes_.size());
      for (u32 c = 0; c < places.size(); ++c)
        if (is_packed(c))
          places[c].packed = packed(c) + begin * bytes_;
        else
          places[c].node = node(c);
      return places;
    }
    void load(u32 c, ParallelContext parallel) const {
      if (is_packed(c)) p_.far_->unpack(c, {}, node(c), {0, p_.shape().points()}, packed(c), parallel);
    }
    void store(u32 c, ParallelContext parallel) const {
      if (is_packed(c)) p_.far_->pack(c, {}, node(c), {0, p_.shape().points()}, packed(c), parallel);
    }

   private:
    bool is_packed(u32 c) const { return c % 2 != packed_first_; }

    const FarProduct& p_;
    u64 bytes_;
    bool packed_first_;
    std::vector<std::unique_ptr<GuardedBlock>> nodes_, packed_;
  };

  const FarShape& shape() const { return far_->shape(); }
  ParallelContext parallel() const { return {spawn_, tasks_}; }
  ParallelContext alone() const { return {spawn_, 1}; }  ///< for rows, which are many
  u64 next_block(u64 begin) const {
    return std::min(shape().points(), begin + 64 * random_.between(1, 1 + shape().points() / 200));
  }
  u64* word(u64 point) const { return product_->data() + point * family_.point_bytes(shape()) / 8; }
  OperandBytes bytes_of(const std::vector<u32>& a, u64 point) const {
    const u64 at = std::min<u64>(point * family_.point_bytes(shape()), 4 * a.size());
    return {reinterpret_cast<const u8*>(a.data()) + at, 4 * a.size() - at};
  }
  void start_words() { product_ = std::make_unique<GuardedWords<u64>>(words_); }

  void split(const std::vector<u32>& a, const Channels& to, FarWork work) {
    for (u64 begin = 0, end; begin < shape().points(); begin = end) {
      end = next_block(begin);
      far_->split({begin, end}, bytes_of(a, begin), to.places(begin), work);
    }
  }

  void multiply(u32 c, const FarNode& node, void* F, void* G, FarWork work) {
    far_->start(c, node, F, work);
    if (G != F) far_->start(c, node, G, work);
    OperandState state = OperandState::kStarted;
    if (random_.coin()) {
      state = OperandState::kTransformed;
      far_->forward(c, node, F, work);
      if (G != F) far_->forward(c, node, G, work);
      // A transform may be kept on a disk.
      const u64 points = u64{node.levels ? 1 : shape().k} << (shape().n - node.levels);
      std::vector<u8> kept(points * family_.packed_bytes(shape()));
      far_->pack(c, node, G, {0, points}, kept.data(), work.parallel);
      far_->unpack(c, node, G, {0, points}, kept.data(), work.parallel);
    }
    far_->multiply(c, node, F, G, state, work);
    far_->finish(c, node, F, work);
  }

  /// Calls body(stripe) for stripes of a node from left to right.
  template <class Body>
  void for_stripes(const FarNode& node, u32 levels, Body&& body) {
    FarStripe stripe{node, levels, 0, 0};
    const u64 columns = stripe.columns(shape()), widest = std::max<u64>(columns / 16, 2);
    for (; stripe.begin < columns; stripe.begin += stripe.width) {
      stripe.width = std::min(columns - stripe.begin, 8 * random_.between(1, widest));
      body(stripe);
    }
  }
  u8* packed_column(std::vector<u8>& packed, const FarStripe& stripe) const {
    const u64 first = stripe.node.levels ? ((u64{stripe.node.sequence} << shape().n) +
                                            (stripe.node.index << (shape().n - stripe.node.levels)))
                                         : 0;
    return packed.data() + (first + stripe.begin) * family_.packed_bytes(shape());
  }
  u64 row_bytes(const FarStripe& stripe) const {
    return stripe.columns(shape()) * family_.packed_bytes(shape());
  }

  void columns(const std::vector<u32>& a, u32 levels, std::vector<std::vector<u8>>& packed) {
    for_stripes({}, levels, [&](const FarStripe& stripe) {
      const GuardedBlock X(family_.stripe_bytes(shape(), stripe)),
          scratch(family_.stripe_scratch_bytes(shape(), levels, random_.between(1, tasks_)));
      const FarWork work{scratch.buffer(), parallel()};
      void* const x = X.buffer().ptr;
      std::vector<OperandBytes> rows;
      for (u64 j = 0; j < stripe.rows(shape()); ++j) {
        OperandBytes row = bytes_of(a, j * stripe.columns(shape()) + stripe.begin);
        row.bytes = std::min(row.bytes, stripe.width * family_.point_bytes(shape()));
        rows.push_back(row);
      }
      for (u32 c = 0; c < packed.size(); ++c) {
        far_->split_stripe(c, stripe, rows, x, work);
        far_->columns(c, stripe, x, work);
        far_->pack_stripe(c, stripe, x, packed_column(packed[c], stripe), row_bytes(stripe), parallel());
      }
      EXPECT_TRUE(X.intact() && scratch.intact());
    });
  }

  void row(u32 c, const FarNode& node, std::vector<u8>& A, std::vector<u8>& B, std::vector<u32> levels) {
    const bool square = &A == &B;
    const u64 points = u64{1} << (shape().n - node.levels);
    if (levels.empty()) {
      const u64 at =
          ((u64{node.sequence} << shape().n) + node.index * points) * family_.packed_bytes(shape());
      const GuardedBlock X(family_.node_bytes(shape(), node.levels)),
          Y(family_.node_bytes(shape(), node.levels)),
          scratch(family_.node_scratch_bytes(shape(), node.levels, 1));
      void *const F = X.buffer().ptr, *const G = square ? F : Y.buffer().ptr;
      far_->unpack(c, node, F, {0, points}, A.data() + at, alone());
      if (!square) far_->unpack(c, node, G, {0, points}, B.data() + at, alone());
      multiply(c, node, F, G, {scratch.buffer(), alone()});
      far_->pack(c, node, F, {0, points}, A.data() + at, alone());
      EXPECT_TRUE(X.intact() && Y.intact() && scratch.intact());
      return;
    }
    const auto sweep = [&](std::vector<u8>& packed, bool back) {
      for_stripes(node, levels[0], [&](const FarStripe& stripe) {
        const GuardedBlock X(family_.stripe_bytes(shape(), stripe)),
            scratch(family_.stripe_scratch_bytes(shape(), levels[0], 1));
        u8* const from = packed_column(packed, stripe);
        far_->unpack_stripe(c, stripe, X.buffer().ptr, from, row_bytes(stripe), alone());
        if (back)
          far_->columns_back(c, stripe, X.buffer().ptr, {scratch.buffer(), alone()});
        else
          far_->columns(c, stripe, X.buffer().ptr, {scratch.buffer(), alone()});
        far_->pack_stripe(c, stripe, X.buffer().ptr, from, row_bytes(stripe), alone());
      });
    };
    sweep(A, false);
    if (!square) sweep(B, false);
    for (u64 j = 0; j < u64{1} << levels[0]; ++j)
      row(c, {node.levels + levels[0], node.sequence, (node.index << levels[0]) + j}, A, B,
          {levels.begin() + 1, levels.end()});
    sweep(A, true);
  }

  void columns_back(u32 levels, std::vector<std::vector<u8>>& packed) {
    start_words();
    const GuardedBlock runs(family_.runs_bytes(shape(), levels));
    far_->start_runs(levels, runs.buffer().ptr);
    const u64 rows = u64{shape().k} << levels, row_words = words_ / rows;
    for_stripes({}, levels, [&](const FarStripe& stripe) {
      const GuardedBlock scratch(family_.stripe_scratch_bytes(shape(), levels, random_.between(1, tasks_)));
      const FarWork work{scratch.buffer(), parallel()};
      std::vector<std::unique_ptr<GuardedBlock>> X;
      std::vector<void*> x;
      for (u32 c = 0; c < packed.size(); ++c) {
        X.push_back(std::make_unique<GuardedBlock>(family_.stripe_bytes(shape(), stripe)));
        x.push_back(X[c]->buffer().ptr);
        far_->unpack_stripe(c, stripe, x[c], packed_column(packed[c], stripe), row_bytes(stripe), parallel());
        far_->columns_back(c, stripe, x[c], work);
      }
      std::vector<u64*> words;
      for (u64 j = 0; j < rows; ++j) words.push_back(word(j * stripe.columns(shape()) + stripe.begin));
      far_->join_stripe(stripe, x, words, runs.buffer().ptr, work);
      EXPECT_TRUE(scratch.intact());
      for (const auto& block : X) EXPECT_TRUE(block->intact());
    });
    FarCarry left;
    for (u64 j = 0; j < rows; ++j) {
      FarCarry carry = far_->run_carry(levels, runs.buffer().ptr, j);
      const u64 at = (j + 1) * row_words;
      carry.add_to(product_->data() + at, words_ - at);
      left.add(carry);
    }
    close(left);
    EXPECT_TRUE(runs.intact());
  }

  void close(const FarCarry& carry) {
    top_ = false;
    if (far_->ring() == ProductRing::kPlain) {
      EXPECT_TRUE(carry.zero());
      return;
    }
    top_ = close_ring(
        far_->ring(), words_, random_.between(1, words_), carry,
        [&](u64 at, u64) { return product_->data() + at; }, [](u64, u64) {});
  }

  const FarFamily& family_;
  Random& random_;
  mutable Parallelizer_Spawn spawn_;
  u64 tasks_;
  GuardedBlock tables_;
  LinearHeapBuffer table_memory_;
  std::unique_ptr<FarTransform> far_;
  u64 words_;
  std::unique_ptr<GuardedWords<u64>> product_;
  bool top_ = false;
};

/// A shape's products in every ring, whole and wrapped, by groups of channels (no levels) or by rows: the first `count` of
/// three in each ring.
inline void check_far(const FarFamily& family, const FarShape& shape, std::vector<u32> levels, Random& random,
                      u32 count = 3) {
  SCOPED_TRACE(testing::Message() << family.id() << " P " << shape.P << " k " << shape.k << " n " << shape.n);
  ASSERT_TRUE(family.holds(shape));
  for (const ProductRing ring : {ProductRing::kPlain, ProductRing::kCyclic, ProductRing::kNegacyclic}) {
    FarProduct product(family, shape, ring, random);
    const u64 n = 2 * product.words();
    const bool plain = ring == ProductRing::kPlain;
    const u64 longest = plain ? n / 2 : n;
    std::vector<u32> half(n / 2 + 1);  // its square is W^n
    half.back() = 1;
    const std::vector<u32> ones = operand(random, longest, 0), some = operand(random, longest, 2),
                           other = operand(random, random.between(1, longest), 1);
    const std::pair<std::vector<u32>, std::vector<u32>> pairs[] = {
        {some, other}, {ones, ones}, plain ? std::pair(other, ones) : std::pair(half, half)};
    for (const auto& [a, b] : std::span(pairs).first(count)) {
      if (levels.empty())
        product.by_groups(a, b);
      else
        product.by_rows(a, b, levels);
      std::vector<u32> right = gmp_product(a, b);
      if (plain)
        right.resize(n + 1);
      else
        right = gmp_wrapped(Mpz(right), n, ring == ProductRing::kCyclic ? Wrap::cyclic : Wrap::negacyclic);
      EXPECT_TRUE(product.found() == right) << a.size() << " by " << b.size() << ", ring " << int(ring);
      EXPECT_TRUE(product.intact());
      if (testing::Test::HasFailure()) return;
    }
  }
}

/// A wrong residue where all others say zero: no coefficient that a product can have.
inline void check_far_tells(const FarFamily& family, const FarShape& shape) {
  const GuardedBlock tables(family.table_bytes(shape)), scratch(family.node_scratch_bytes(shape, 0, 1));
  LinearHeapBuffer memory = tables.buffer();
  const auto far = family.make(shape, ProductRing::kNegacyclic, memory);
  Parallelizer_None none;
  const FarWork work{scratch.buffer(), {none, 1}};
  const FarBlock block{0, shape.points()};
  std::vector<std::vector<u8>> packed;
  std::vector<FarPlace> places;
  for (u32 c = 0; c < family.channels(shape); ++c) {
    packed.emplace_back(shape.points() * family.packed_bytes(shape));
    places.push_back({nullptr, packed[c].data()});
  }
  far->split(block, {}, places, work);
  std::vector<u64> words(family.product_bytes(shape) / 8, 1);
  FarCarry carry;
  far->join(block, places, words.data(), carry, work);
  EXPECT_TRUE(carry.zero() && words == std::vector<u64>(words.size()));
  for (const u64 byte : {5, 7}) ++packed[0][48 * family.channels(shape) + byte];  // the upper ones
  EXPECT_EQ(
      message_of<ConvolutionFailedException>([&] { far->join(block, places, words.data(), carry, work); }),
      "Coefficient is too large.");
}

}  // namespace orl::test
