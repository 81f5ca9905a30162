// Scratch memory as a plain (pointer, size) pair, passed by value down the call tree.
//
// Cutting advances the callee's own copy; the caller's copy is untouched, so there is no free: memory is
// given back when a call returns. A plan says beforehand how much a call needs; a buffer that is too small
// shows a wrong plan and is an exception.
#pragma once

#include "core/types.h"

namespace orl {

/// Sees every cut of words, from any thread; tests and benchmarks use it to compare what was cut with what
/// was planned. A branch's share (cut_buffer) is no use of memory by itself and is not reported; cuts from it
/// are.
struct CutObserver {
  virtual ~CutObserver() = default;
  /// `bytes` were cut at `begin`.
  virtual void on_cut(const void* begin, u64 bytes) = 0;
};
/// Null (the default) turns observation off. Not to be changed while anything runs.
void set_cut_observer(CutObserver* observer);

template <class W>
struct LinearWordBuffer;
struct Need;

/// `size` bytes at `ptr`, 64-byte aligned.
struct LinearHeapBuffer {
  LinearHeapBuffer() = default;
  /// Throws InvalidParametersException "Pointer is misaligned." unless `pointer` is a multiple of 64.
  LinearHeapBuffer(void* pointer, u64 size_bytes);

  /// Cuts `count` words of type W from the front. Throws BufferTooSmallException when they do not fit and
  /// InvalidParametersException "Size is misaligned." when they are not a multiple of 64 bytes.
  template <class W>
  W* spawn_words(u64 count) {
    return static_cast<W*>(spawn(count, sizeof(W)));
  }
  /// spawn_words with the count rounded up to a multiple of 64 bytes: what plans use for odd lengths.
  template <class W>
  W* cut(u64 count) {
    const u64 rounded = round_up_words<W>(count);
    return spawn_words<W>(rounded < count ? count : rounded);  // an absurd count must not wrap to a small one
  }
  /// Cuts `bytes`, rounded up to a multiple of 64, as a buffer of its own: a branch's share.
  LinearHeapBuffer cut_buffer(u64 bytes);
  /// States that a call that gets the rest cuts up to `bytes` from it; a layout says so here and
  /// sizing_arena.h counts it. Throws BufferTooSmallException when they do not fit.
  void leave(u64 bytes) const;
  void leave(const Need& need) const;

  /// `count` words, rounded up to whole lines of 64 bytes.
  template <class W>
  static constexpr u64 round_up_words(u64 count) {
    static_assert(64 % sizeof(W) == 0, "cuts are whole multiples of 64 bytes");
    return (count + 64 / sizeof(W) - 1) & ~(u64{64} / sizeof(W) - 1);
  }
  /// Bytes that cut<W>(count) takes.
  template <class W>
  static constexpr u64 cut_bytes(u64 count) {
    return round_up_words<W>(count) * sizeof(W);
  }

  void* ptr = nullptr;
  u64 size = 0;

 private:
  void* spawn(u64 count, u64 width);
};

/// `size` words at `ptr`; for lengths that are not transform-aligned.
template <class W>
struct LinearWordBuffer {
  W* ptr = nullptr;
  u64 size = 0;

  /// Cuts `count` words from the front. Throws BufferTooSmallException when they do not fit.
  W* cut_from_bottom(u64 count);
};

/// What a plan asks for, stated before anything is allocated.
struct Need {
  u64 ram_bytes = 0;   ///< working memory beside the output
  u64 out_words = 0;   ///< capacity of the output, in words
  u64 table_bits = 0;  ///< largest product, in bits, for which transform tables must exist
  u64 disk_bytes = 0;

  /// Stages that run one after the other.
  static Need max(const Need& a, const Need& b);
  /// Parts that are alive together.
  static Need sum(const Need& a, const Need& b);
};

}  // namespace orl
