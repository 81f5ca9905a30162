// The second half of CRT_mulp: from both residues to the words of a window.
#pragma once

#include <array>

#include "core/types.h"
#include "threads/parallelizer.h"
#include "words/word_view.h"

namespace orl {

/// A window of a product of at most 2n words, len <= 2n.
struct CrtWindow : Window<u32> {
  u64 n = 0;

  /// The indices i in [0, n) whose words i (low) and n + i (high) stand in the window.
  u64 low_begin() const { return skip < n ? skip : n; }
  u64 low_end() const { return len < n ? len : n; }
  u64 high_begin() const { return skip > n ? skip - n : 0; }
  u64 high_end() const { return len > n ? len - n : 0; }
  u32* low(u64 i) const { return T + (i - skip); }
  u32* high(u64 i) const { return T + (n + i - skip); }
};

/// Where the n words of a cyclic residue lie, in pieces from the lowest up; a piece ends where the next one
/// begins, and the last at n.
struct CrtPieces {
  /// Words from `begin` on.
  struct Piece {
    u64 begin;
    u32* words;
  };
  std::array<Piece, 3> piece{};
  u64 count = 0;

  /// Appends a piece; the end of piece `index`.
  void add(u64 begin, u32* words) { piece[count++] = {begin, words}; }
  u64 end(u64 index, u64 n) const { return index + 1 < count ? piece[index + 1].begin : n; }
};

/// Lays word i where word i or word n + i of the window will go, and the words that have no such place at
/// `rest`, which holds n - min(n, len - skip) of them. crt_combine() takes pieces laid so.
CrtPieces crt_pieces_in_place(const CrtWindow& window, u32* rest);

/// The window of the X in [0, W^2n - 1) that is Cc modulo W^n - 1 and Cn[0, n) modulo W^n + 1. Cc all ones
/// stands for 0; `flag` says that Cn is W^n, and then its words are zero. The window does not overlap Cn, and
/// Cc only as crt_pieces_in_place() lays it.
void crt_combine(const CrtWindow& window, const CrtPieces& Cc, const u32* Cn, bool flag,
                 ParallelContext parallel);

}  // namespace orl
