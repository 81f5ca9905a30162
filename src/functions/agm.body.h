// The definitions of agm.h, for the files that instantiate them for a store.
#pragma once

#include <cstdio>

#include "core/exceptions.h"
#include "core/status.h"
#include "functions/agm.h"
#include "functions/hashed_steps.h"
#include "functions/proved.body.h"

namespace orl {

namespace agm {

inline constexpr const char* kMeanMismatch = "Checksum Mismatch. Arithmetic mean failed.";

/// "( 7 )".
struct Label {
  char text[32];
  /// Of the iteration of that number, from 1.
  explicit Label(u64 iteration) {
    std::snprintf(text, sizeof text, "( %llu )", static_cast<unsigned long long>(iteration));
  }
};

}  // namespace agm

// ---- AGM(a, b) ------------------------------------------------------------------------------------------

template <class Store>
AGM2<Store>::AGM2(u64 p, const Store::Budget& budget) : p_(p), product_(p, budget), root_(p, budget) {
  iteration_need_ = Store::need_of([&](auto& arena) {
    for (const Need& need : {product_.need(), root_.need()}) arena.leave(need);
    cut_number(arena);
  });
  Number out;
  need_ = Store::need_of([&](auto& arena) { lay_out(out, arena); });
  need_.out_words = p + 5;
}

template <class Store>
template <class AnyArena>
auto AGM2<Store>::lay_out(Number& a, AnyArena& arena) const -> Means {
  Means means = cut(a, arena);
  arena.leave(iteration_need_);
  return means;
}

template <class Store>
void AGM2<Store>::take_mean(const RunContext& ctx, Number& a, u64& a_hash, const Hashed<Number>& b,
                            Store::Arena arena) const {
  auto sum = cut_number(arena);
  // A geometric mean that came out too large by its last place may have a word more than the arithmetic one.
  const Hashed<Number> other{a, a_hash};
  const bool above = a.magnitude() >= b.number.magnitude();
  u64 hash = set_padded(sum, p_, above ? other : b, ctx.parallel);
  add_below(sum, hash, above ? b : other, ctx.parallel);
  halve_hashed(sum, hash, ctx.parallel);
  fault_point("arithmetic mean", sum);
  a_hash = set_padded(a, p_, {sum, hash}, ctx.parallel);
}

// Twice t bits are as many as p + 1 words have: a word less than the numbers hold.
template <class Store>
bool AGM2<Store>::agree(const Means& means) const {
  return agreeing_bits(means.a, means.b) >= (p_ + 1) * 4 * sizeof(typename Store::Word);
}

template <class Store>
void AGM2<Store>::take_root(const RunContext& ctx, Store::Frame& frame, Means& means,
                            const Hashed<Number>& product, Store::Arena arena) const {
  stage(frame, means, [&] {
    means.b_hash = root_.run(ctx, frame, means.b, product, arena);
    fault_point("geometric mean", means.b);
    means.agree = agree(means);
  });
}

template <class Store>
bool AGM2<Store>::near(const Means& means) {
  const s64 bits = means.a.bit_length() - means.b.bit_length();
  return bits >= -1 && bits <= 1;
}

/// means.a_square = a^2.
template <class Store>
void AGM2<Store>::take_square(const RunContext& ctx, Store::Frame& frame, Means& means,
                              Store::Arena arena) const {
  const StatusFrame status(ctx.status, " 4M ");
  means.a_square_hash =
      product_.run(ctx, frame, means.a_square, {means.a, means.a_hash}, {means.a, means.a_hash}, arena);
}

/// means.b_square = a b, and the next a; its square too, if it can be used.
template <class Store>
void AGM2<Store>::take_product(const RunContext& ctx, Store::Frame& frame, Means& means,
                               Store::Arena arena) const {
  stage(frame, means, [&] {
    const StatusFrame status(ctx.status, " 2M ");
    means.b_square_hash =
        product_.run(ctx, frame, means.b_square, {means.a, means.a_hash}, {means.b, means.b_hash}, arena);
  });
  stage(frame, means, [&] {
    const StatusFrame status(ctx.status, " 5S ");
    const u64 squares = near(means);
    take_mean(ctx, means.a, means.a_hash, {means.b, means.b_hash}, arena);
    if (squares) take_square(ctx, frame, means, arena);
    means.squares = squares;
  });
}

/// As above, from the squares of a and b.
template <class Store>
void AGM2<Store>::take_product_from_squares(const RunContext& ctx, Store::Frame& frame, Means& means,
                                            Store::Arena arena) const {
  stage(frame, means, [&] {
    const StatusFrame status(ctx.status, " 5S ");
    take_mean(ctx, means.a, means.a_hash, {means.b, means.b_hash}, arena);
    take_mean(ctx, means.b_square, means.b_square_hash, {means.a_square, means.a_square_hash}, arena);
    take_square(ctx, frame, means, arena);
    auto rest = arena;
    auto product = cut_number(rest);
    u64 hash = set_padded(product, p_, {means.a_square, means.a_square_hash}, ctx.parallel);
    product.mul_uW(2, ctx.parallel);
    hash = hash_mul(hash, 2);
    subtract_below(product, hash, {means.b_square, means.b_square_hash}, ctx.parallel);
    fault_point("product from squares", product);
    means.b_square_hash = set_padded(means.b_square, p_, {product, hash}, ctx.parallel);
  });
}

template <class Store>
u64 AGM2<Store>::iterate(const RunContext& ctx, Store::Frame& parent, Means& means,
                         Store::Arena arena) const {
  constexpr const char* kFunction = "AGM2_BigFloatR::run()";
  auto frame = parent.enter(kFunction);
  frame.assert_sL("p", p_);
  for (u64 iteration = 1; !means.agree; ++iteration) {
    const agm::Label label(iteration);
    const StatusFrame status(ctx.status, label.text);
    // One stage whichever way it goes: a run that resumes further on does not know which.
    stage(frame, means, [&] {
      if (means.squares)
        take_product_from_squares(ctx, frame, means, arena);
      else
        take_product(ctx, frame, means, arena);
    });
    const StatusFrame root(ctx.status, " 3Q ");
    take_root(ctx, frame, means, {means.b_square, means.b_square_hash}, arena);
  }
  const StatusFrame status(ctx.status, "( Final )");
  frame.stage(
      [&] {
        take_mean(ctx, means.a, means.a_hash, {means.b, means.b_hash}, arena);
        require_hash<Number>({means.a, means.a_hash}, kFunction, agm::kMeanMismatch, ctx.parallel);
      },
      means.a, means.a_hash);
  return means.a_hash;
}

template <class Store>
u64 AGM2<Store>::run(const RunContext& ctx, Store::Frame& parent, Number& out, const Hashed<Number>& a,
                     const Hashed<Number>& b, Store::Arena arena) const {
  constexpr const char* kFunction = "AGM2_BigFloatR::run()";
  if (a.number.L == 0 || b.number.L == 0) {
    out.set_zero();
    return 0;
  }
  if (a.number.signum() < 0 || b.number.signum() < 0)
    throw InvalidParametersException(kFunction, "One of the inputs is negative.");
  const StatusFrame status(ctx.status, "AGM(a,b)");
  auto frame = parent.enter(kFunction);
  Means means = lay_out(out, arena);
  frame.stage(
      [&] {
        means.a_hash = set_padded(out, p_, a, ctx.parallel);
        means.b_hash = set_padded(means.b, p_, b, ctx.parallel);
        means.agree = agree(means);
      },
      out, means.a_hash, means.b, means.b_hash, means.agree);
  u64 hash = 0;
  frame.stage([&] { hash = iterate(ctx, frame, means, arena); }, out, hash);
  return hash;
}

// ---- AGM(1, x) ------------------------------------------------------------------------------------------

template <class Store>
AGM1<Store>::AGM1(u64 p, const Store::Budget& budget) : means_(p, budget) {
  Number out;
  need_ = Store::need_of([&](auto& arena) { lay_out(out, arena); });
  need_.out_words = p + 5;
}

template <class Store>
template <class AnyArena>
auto AGM1<Store>::lay_out(Number& a, AnyArena& arena) const -> AGM2<Store>::Means {
  auto means = means_.cut(a, arena);
  arena.leave(means_.iteration_need());
  return means;
}

template <class Store>
u64 AGM1<Store>::run(const RunContext& ctx, Store::Frame& parent, Number& out, const Hashed<Number>& x,
                     Store::Arena arena) const {
  constexpr const char* kFunction = "AGM1_BigFloatR::run()";
  if (x.number.L == 0) {
    out.set_zero();
    return 0;
  }
  if (x.number.signum() < 0) throw InvalidParametersException(kFunction, "AGM of negative number.");
  const StatusFrame status(ctx.status, "AGM(1,x)");
  auto frame = parent.enter(kFunction);
  auto means = lay_out(out, arena);
  {
    const StatusFrame start(ctx.status, "(start)");
    frame.stage(
        [&] {
          const StatusFrame sum(ctx.status, " 0A ");
          const HashedOne<Store> one;
          means.a_hash = set_padded(out, means_.precision(), one.hashed(), ctx.parallel);
          means_.take_mean(ctx, out, means.a_hash, x, arena);
        },
        out, means.a_hash);
    const StatusFrame root(ctx.status, " 1Q ");
    means_.take_root(ctx, frame, means, x, arena);
  }
  u64 hash = 0;
  frame.stage([&] { hash = means_.iterate(ctx, frame, means, arena); }, out, hash);
  return hash;
}

}  // namespace orl
