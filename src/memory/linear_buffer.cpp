#include "memory/linear_buffer.h"

#include <algorithm>
#include <limits>

#include "core/exceptions.h"

namespace orl {

namespace {

constexpr u64 kAlignment = 64;

CutObserver* cut_observer = nullptr;

/// count * width, or all ones when that is out of range: larger than any buffer, so the check that follows
/// fails.
u64 saturated_bytes(u64 count, u64 width) {
  u64 bytes = 0;
  return __builtin_mul_overflow(count, width, &bytes) ? std::numeric_limits<u64>::max() : bytes;
}

void report_cut(const void* begin, u64 bytes) {
  if (cut_observer != nullptr) cut_observer->on_cut(begin, bytes);
}

}  // namespace

void set_cut_observer(CutObserver* observer) { cut_observer = observer; }

LinearHeapBuffer::LinearHeapBuffer(void* pointer, u64 size_bytes) : ptr(pointer), size(size_bytes) {
  if (reinterpret_cast<std::uintptr_t>(pointer) % kAlignment != 0) {
    throw InvalidParametersException("LinearHeapBuffer::LinearHeapBuffer()", "Pointer is misaligned.");
  }
}

void* LinearHeapBuffer::spawn(u64 count, u64 width) {
  const u64 bytes = saturated_bytes(count, width);
  if (bytes > size) throw BufferTooSmallException("LinearHeapBuffer::spawn_words()", size, bytes);
  if (bytes % kAlignment != 0) {
    throw InvalidParametersException("LinearHeapBuffer::spawn_words()", "Size is misaligned.");
  }
  void* words = ptr;
  ptr = static_cast<u8*>(ptr) + bytes;
  size -= bytes;
  report_cut(words, bytes);
  return words;
}

LinearHeapBuffer LinearHeapBuffer::cut_buffer(u64 bytes) {
  if (bytes > size) throw BufferTooSmallException("LinearHeapBuffer::cut_buffer()", size, bytes);
  // A size that is no multiple of 64 ends in a rest that nothing aligned fits into; it may go unused.
  const u64 rounded = (bytes + kAlignment - 1) & ~(kAlignment - 1);
  if (rounded > size) throw BufferTooSmallException("LinearHeapBuffer::cut_buffer()", size, rounded);
  const LinearHeapBuffer share(ptr, rounded);
  ptr = static_cast<u8*>(ptr) + rounded;
  size -= rounded;
  return share;
}

void LinearHeapBuffer::leave(u64 bytes) const {
  if (bytes > size) throw BufferTooSmallException("LinearHeapBuffer::leave()", size, bytes);
}

void LinearHeapBuffer::leave(const Need& need) const { leave(need.ram_bytes); }

template <class W>
W* LinearWordBuffer<W>::cut_from_bottom(u64 count) {
  if (count > size) throw BufferTooSmallException("LinearWordBuffer::cut_from_bottom()", size, count);
  W* words = ptr;
  ptr += count;
  size -= count;
  report_cut(words, count * sizeof(W));
  return words;
}

template struct LinearWordBuffer<u32>;
template struct LinearWordBuffer<u64>;

Need Need::max(const Need& a, const Need& b) {
  return {std::max(a.ram_bytes, b.ram_bytes), std::max(a.out_words, b.out_words),
          std::max(a.table_bits, b.table_bits), std::max(a.disk_bytes, b.disk_bytes)};
}

Need Need::sum(const Need& a, const Need& b) {
  // Tables are shared: two parts that are alive together need those of the larger one.
  return {a.ram_bytes + b.ram_bytes, a.out_words + b.out_words, std::max(a.table_bits, b.table_bits),
          a.disk_bytes + b.disk_bytes};
}

}  // namespace orl
