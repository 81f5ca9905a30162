// With N = W^n, c = X mod (N - 1) and d = X mod (N + 1): X = d + t (N + 1), t = (c - d) / 2 mod (N - 1). So
// the low n words are d + t, and the high n words t and the carry.
//
// Let E be the n words of c - d, b its borrow (1 when d = N, for N > c) and o the lowest bit of E. As N is
// even and N - 1 is odd, t in [0, N - 1) is
//   o = 0, b = 0   E / 2
//   o = 1          (E - b N + N - 1) / 2 = (E - 1) / 2 + (1 - b) N / 2
//   o = 0, b = 1   (E - N) / 2 + N - 1   =  E / 2      +    b    N / 2 - 1
// which is E >> 1 with the bit o xor b shifted in on top, less 1 in the last case. c = N - 1 gives the same t
// as c = 0, but for d = 0: then t = N - 1, and X is 0.
//
// One pass writes both halves. It may do so in any order of blocks, and over the words of c, since everything
// that crosses blocks is known before: the borrow of c - d, the bit from above, the 1 taken from t, the carry
// of d + t and the carry into the high half. Each block is asked for the little that decides them: c and d
// from its top down to where they differ, d + t from its top down to a word that stops a carry, t from its
// bottom up to a word that is not all ones. Random words end every one of these walks at once.
#include "multiply/crt_combine.h"

#include <algorithm>
#include <cstring>

#include "words/any_word.h"
#include "words/block_carry.h"
#include "words/words.h"

namespace orl {
namespace {

// Words of a block of the pass: fewer stay in the calling thread.
constexpr u64 kLeastBlock = 8192;
// The window and the pieces cut [0, n) at most five times beside the equal blocks.
constexpr u64 kMaxBlocks = kMaxWordTasks + 8;
// First stretch of a walk down for a carry; each further one is four times as long.
constexpr u64 kFirstStretch = 64;

/// What becomes of a carry, or a borrow, that enters a block: at its top there is one anyway, none, or that
/// one.
enum class Crossing : u8 { kNone, kOne, kPasses };

bool cross(Crossing crossing, bool from_below) {
  return crossing == Crossing::kPasses ? from_below : crossing == Crossing::kOne;
}

/// `length` words of both residues and of the window.
struct Block {
  u64 length = 0;
  const AnyWord<u32>* c = nullptr;
  const AnyWord<u32>* d = nullptr;
  u32* low = nullptr;   ///< where d + t goes; null outside of the window
  u32* high = nullptr;  ///< where t goes; likewise

  Crossing borrow_out = Crossing::kNone;  ///< of c - d
  Crossing carry_out = Crossing::kNone;   ///< of d + t
  bool ones = false;                      ///< t is all ones
  // What enters the block.
  bool borrow = false;      ///< of c - d
  bool above = false;       ///< the bit above E
  bool less = false;        ///< the 1 that is taken from t
  u64 less_words = 0;       ///< if so, the words that it passes, being zero
  bool carry = false;       ///< of d + t
  bool high_carry = false;  ///< of t in the high half

  bool first_bit() const { return (c[0] ^ d[0] ^ u32{borrow}) & 1; }
  /// The borrow of c - d, and what is taken from t, at word i.
  bool borrow_at(u64 i) const {
    while (i > 0 && c[i - 1] == d[i - 1]) --i;
    return i > 0 ? c[i - 1] < d[i - 1] : borrow;
  }
  bool less_at(u64 i) const { return less && i <= less_words; }
};

template <class X>
X load(const u32* from) {
  X x;
  std::memcpy(&x, from, sizeof x);
  return x;
}

template <class X>
void store(u32* to, X x) {
  std::memcpy(to, &x, sizeof x);
}

template <class X>
bool add_carry(X& x, X y, bool carry) {
  const bool over = __builtin_add_overflow(x, y, &x);
  return __builtin_add_overflow(x, static_cast<X>(carry), &x) || over;
}

template <class X>
bool sub_borrow(X& x, X y, bool borrow) {
  const bool under = __builtin_sub_overflow(x, y, &x);
  return __builtin_sub_overflow(x, static_cast<X>(borrow), &x) || under;
}

// Goes up through words [i, end) of a block as long as body(i, d, t) says true: two words at a time (as u64),
// the last one of an odd number alone (u32).
template <class Body>
void walk(const Block& block, u64 i, u64 end, bool less, Body&& body) {
  bool borrow = block.borrow_at(i);
  const auto step = [&]<class X>(X d, auto above) {
    X t = load<X>(block.c + i);
    borrow = sub_borrow(t, d, borrow);
    t = static_cast<X>(t >> 1 | static_cast<X>(above()) << (8 * sizeof(X) - 1));
    less = sub_borrow(t, X{0}, less);
    return body(i, d, t);
  };
  const auto above_pair = [&] { return (block.c[i + 2] ^ block.d[i + 2] ^ u32{borrow}) & 1; };
  const auto above_last = [&] {
    return end == block.length ? u32{block.above} : (block.c[end] ^ block.d[end] ^ u32{borrow}) & 1;
  };
  for (; end - i > 2; i += 2)
    if (!step(load<u64>(block.d + i), above_pair)) return;
  if (end - i == 2)
    step(load<u64>(block.d + i), above_last);
  else if (end - i == 1)
    step(load<u32>(block.d + i), above_last);
}

Crossing compare(const Block& block) {
  u64 i = block.length;
  while (i > 0 && block.c[i - 1] == block.d[i - 1]) --i;
  if (i == 0) return Crossing::kPasses;
  return block.c[i - 1] < block.d[i - 1] ? Crossing::kOne : Crossing::kNone;
}

// Words at the bottom of the block that are zero in t before anything is taken from it.
u64 zero_words(const Block& block) {
  u64 zeros = 0;
  walk(block, 0, block.length, false, [&]<class X>(u64, X, X t) {
    if (t == 0)
      zeros += sizeof(X) / sizeof(u32);
    else if (static_cast<u32>(t) == 0)
      ++zeros;
    return t == 0;
  });
  return zeros;
}

bool all_ones(const Block& block) {
  bool ones = true;
  walk(block, 0, block.length, block.less, [&]<class X>(u64, X, X t) {
    ones = t == static_cast<X>(~X{0});
    return ones;
  });
  return ones;
}

// The carry of d + t out of the block, from its top stretch, or as many as it takes.
Crossing carry_out(const Block& block) {
  u64 stretch = kFirstStretch;
  for (u64 end = block.length; end > 0; stretch *= 4) {
    const u64 begin = end - std::min(end, stretch);
    bool carry = false, passes = true;
    walk(block, begin, end, block.less_at(begin), [&]<class X>(u64, X d, X t) {
      carry = add_carry(d, t, carry);
      passes = passes && d == static_cast<X>(~X{0});
      return true;
    });
    if (!passes) return carry ? Crossing::kOne : Crossing::kNone;
    end = begin;
  }
  return Crossing::kPasses;
}

template <bool kLow, bool kHigh>
void write_halves(const Block& block) {
  bool carry = block.carry, high_carry = block.high_carry;
  walk(block, 0, block.length, block.less, [&]<class X>(u64 i, X d, X t) {
    if constexpr (kLow) {
      carry = add_carry(d, t, carry);
      store(block.low + i, d);
    }
    if constexpr (kHigh) {
      high_carry = add_carry(t, X{0}, high_carry);
      store(block.high + i, t);
    }
    return true;
  });
}

void write(const Block& block) {
  if (block.low && block.high)
    write_halves<true, true>(block);
  else if (block.low)
    write_halves<true, false>(block);
  else if (block.high)
    write_halves<false, true>(block);
}

class Combination {
 public:
  Combination(const CrtWindow& window, const CrtPieces& Cc, const u32* Cn, ParallelContext parallel)
      : window_(window), parallel_(parallel) {
    u64 cuts[kMaxBlocks + 1] = {
        0, window.low_begin(), window.low_end(), window.high_begin(), window.high_end(), window.n};
    u64 cut_count = 6;
    for (u64 p = 1; p < Cc.count; ++p) cuts[cut_count++] = Cc.piece[p].begin;
    const u64 tasks =
        std::clamp<u64>(window.n / kLeastBlock, 1, std::clamp<u64>(parallel.tds, 1, kMaxWordTasks));
    for (u64 k = 1; k < tasks; ++k) cuts[cut_count++] = k * (window.n / tasks);
    std::sort(cuts, cuts + cut_count);
    cut_count = static_cast<u64>(std::unique(cuts, cuts + cut_count) - cuts);
    u64 p = 0;
    for (u64 k = 0; k + 1 < cut_count; ++k) {
      const u64 begin = cuts[k];
      if (begin == Cc.end(p, window.n)) ++p;
      Block& block = blocks_[count_++];
      block.length = cuts[k + 1] - begin;
      block.c = Cc.piece[p].words + (begin - Cc.piece[p].begin);
      block.d = Cn + begin;
      if (begin >= window.low_begin() && begin < window.low_end()) block.low = window.low(begin);
      if (begin >= window.high_begin() && begin < window.high_end()) block.high = window.high(begin);
    }
  }

  void run(bool flag) {
    each_block([](Block& block) { block.borrow_out = compare(block); });
    resolve_quotient(flag);
    each_block([](Block& block) {
      block.carry_out = carry_out(block);
      block.ones = all_ones(block);
    });
    if (std::all_of(blocks_, blocks_ + count_, [](const Block& block) { return block.ones; }))
      return bp_fill(window_.T, window_.len - window_.skip, 0, parallel_);
    resolve_carries(flag);
    each_block([](Block& block) { write(block); });
  }

 private:
  // What leaves the top of a block enters the one above; returns what leaves the last.
  bool hand_up(Crossing Block::*leaves, bool Block::*enters) {
    bool bit = false;
    for (u64 k = 0; k < count_; ++k) {
      blocks_[k].*enters = bit;
      bit = cross(blocks_[k].*leaves, bit);
    }
    return bit;
  }

  // Borrows of c - d, the bits above the blocks, and the 1 taken from t.
  void resolve_quotient(bool flag) {
    const bool borrow = hand_up(&Block::borrow_out, &Block::borrow) || flag;
    const bool odd = blocks_[0].first_bit();
    for (u64 k = 0; k + 1 < count_; ++k) blocks_[k].above = blocks_[k + 1].first_bit();
    blocks_[count_ - 1].above = odd != borrow;
    bool less = borrow && !odd;
    for (u64 k = 0; k < count_ && less; ++k) {
      blocks_[k].less = true;
      blocks_[k].less_words = zero_words(blocks_[k]);
      less = blocks_[k].less_words == blocks_[k].length;
    }
  }

  void resolve_carries(bool flag) {
    // d = W^n carries too; its words are zero, so t does not.
    bool carry = hand_up(&Block::carry_out, &Block::carry) || flag;
    for (u64 k = 0; k < count_; ++k) {
      blocks_[k].high_carry = carry;
      carry = carry && blocks_[k].ones;
    }
  }

  template <class Body>
  void each_block(Body&& body) {
    if (parallel_.tds > 1 && window_.n >= 2 * kLeastBlock)
      return fork_range(parallel_.parallelizer, 0, count_, [&](u64 k) { body(blocks_[k]); });
    for (u64 k = 0; k < count_; ++k) body(blocks_[k]);
  }

  CrtWindow window_;
  ParallelContext parallel_;
  Block blocks_[kMaxBlocks];
  u64 count_ = 0;
};

}  // namespace

CrtPieces crt_pieces_in_place(const CrtWindow& window, u32* rest) {
  CrtPieces pieces;
  u64 at = 0;
  while (at < window.n) {
    const u64 begin = at;
    if (at >= window.low_begin() && at < window.low_end()) {
      pieces.add(begin, window.low(begin));
      at = window.low_end();
    } else if (at >= window.high_begin() && at < window.high_end()) {
      pieces.add(begin, window.high(begin));
      at = at < window.low_begin() ? std::min(window.high_end(), window.low_begin()) : window.high_end();
    } else {
      pieces.add(begin, rest);
      at = window.n;
      if (begin < window.low_begin() && window.low_begin() < window.low_end()) at = window.low_begin();
      if (begin < window.high_begin()) at = std::min(at, window.high_begin());
      rest += at - begin;
    }
  }
  return pieces;
}

void crt_combine(const CrtWindow& window, const CrtPieces& Cc, const u32* Cn, bool flag,
                 ParallelContext parallel) {
  Combination(window, Cc, Cn, parallel).run(flag);
}

}  // namespace orl
