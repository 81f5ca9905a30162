// Words of an array that is read, and the words of a product that are wanted: what a number is to a product.
//
// A product is made of 32-bit words or of 64-bit words alike: either view converts to one of 32-bit words, in
// which an array of 64-bit words has twice the count. Whoever takes such a view reads and writes bytes, or
// words of a type that may alias any other, since the array may be of either type.
#pragma once

#include "core/types.h"

namespace orl {

/// The words ptr[0, count), least significant first.
template <class W>
struct Words {
  const W* ptr = nullptr;
  u64 count = 0;

  /// The words [from, from + length) of these.
  Words part(u64 from, u64 length) const { return {ptr + from, length}; }
  operator Words<u32>() const requires(sizeof(W) == 8) {
    return {reinterpret_cast<const u32*>(ptr), 2 * count};
  }
};
/// A view of words of the type that the pointer has.
template <class W>
Words(const W*, u64) -> Words<W>;

/// The words [skip, len) of a product, which go to T[0, len - skip).
template <class W>
struct Window {
  W* T = nullptr;
  u64 skip = 0;
  u64 len = 0;

  u64 count() const { return len - skip; }
  operator Window<u32>() const requires(sizeof(W) == 8) {
    return {reinterpret_cast<u32*>(T), 2 * skip, 2 * len};
  }
};
/// A window of words of the type that the pointer has.
template <class W>
Window(W*, u64, u64) -> Window<W>;

/// An array as its owner knows it, from the view of its 32-bit words; counts of 64-bit words are rounded
/// down.
template <class W>
Words<W> words_of(Words<u32> A) {
  return {reinterpret_cast<const W*>(A.ptr), A.count / (sizeof(W) / sizeof(u32))};
}
template <class W>
Window<W> window_of_words(Window<u32> T) {
  constexpr u64 k = sizeof(W) / sizeof(u32);
  return {reinterpret_cast<W*>(T.T), T.skip / k, T.len / k};
}

/// Whether the words that T receives and those of A have one in common.
template <class W>
bool words_overlap(Window<W> T, Words<W> A) {
  const auto at = [](const W* p) { return reinterpret_cast<std::uintptr_t>(p); };
  return at(T.T) < at(A.ptr + A.count) && at(A.ptr) < at(T.T + T.count());
}

}  // namespace orl
