#include "arrays/far_memory.h"

#include <atomic>
#include <utility>

#include "arrays/transfer_state.h"
#include "core/exceptions.h"
#include "core/run_timer.h"

namespace orl {
namespace {

void check_bytes(const char* function, u64 size, u64 offset, u64 length) {
  if (length > size || offset > size - length)
    throw FarMemoryOutOfBoundsException(function, size, offset, length);
}

// The offset that is told is that of the last block.
void check_blocks(const char* function, u64 size, u64 offset, u64 length, u64 stride, u64 count) {
  if (count == 0) return;
  u64 distance, last;
  if (__builtin_mul_overflow(stride, count - 1, &distance) || __builtin_add_overflow(offset, distance, &last))
    last = ~u64{0};
  check_bytes(function, size, last, length);
}

std::atomic<u64> waited_ns{0};

const Exception* wait_for(TransferState& state) {
  const double start = monotonic_seconds();
  const Exception* const failure = state.wait();
  waited_ns += static_cast<u64>(1e9 * (monotonic_seconds() - start));
  return failure;
}

std::string hexadecimal(u64 value) {
  std::string text;
  for (int shift = 60; shift >= 0; shift -= 4) text += "0123456789abcdef"[value >> shift & 15];
  return text;
}

}  // namespace

FarTransfer::FarTransfer() = default;
FarTransfer::FarTransfer(std::shared_ptr<TransferState> state) : state_(std::move(state)) {}
FarTransfer::FarTransfer(FarTransfer&& other) noexcept = default;

FarTransfer& FarTransfer::operator=(FarTransfer&& other) {
  const std::shared_ptr<TransferState> before = std::exchange(state_, std::exchange(other.state_, nullptr));
  if (!before) return *this;
  if (const Exception* failure = wait_for(*before)) failure->throw_copy();
  return *this;
}

FarTransfer::~FarTransfer() {
  if (state_) wait_for(*state_);
}

void FarTransfer::wait() { *this = FarTransfer(); }

double far_waited_seconds() { return 1e-9 * static_cast<double>(waited_ns.load()); }

void FarMemory::check(const char* function, u64 offset, u64 length) const {
  check_bytes(function, size_, offset, length);
}

void FarMemory::check_strided(const char* function, u64 offset, u64 length, u64 stride, u64 count) const {
  check_blocks(function, size_, offset, length, stride, count);
}

void FarMemory::gather(void* buffer, u64 offset, u64 length, u64 stride, u64 count) {
  check_strided("FarMemory::gather()", offset, length, stride, count);
  for (u64 i = 0; i < count; i++) load(static_cast<u8*>(buffer) + i * length, offset + i * stride, length);
}

void FarMemory::scatter(const void* buffer, u64 offset, u64 length, u64 stride, u64 count) {
  check_strided("FarMemory::scatter()", offset, length, stride, count);
  for (u64 i = 0; i < count; i++)
    store(static_cast<const u8*>(buffer) + i * length, offset + i * stride, length);
}

FarTransfer FarMemory::start_gather(void* buffer, u64 offset, u64 length, u64 stride, u64 count) {
  gather(buffer, offset, length, stride, count);
  return {};
}

FarTransfer FarMemory::start_scatter(const void* buffer, u64 offset, u64 length, u64 stride, u64 count) {
  scatter(buffer, offset, length, stride, count);
  return {};
}

FarTransfer FarMemory::start_load(void* buffer, u64 offset, u64 length) {
  load(buffer, offset, length);
  return {};
}

FarTransfer FarMemory::start_store(const void* buffer, u64 offset, u64 length) {
  store(buffer, offset, length);
  return {};
}

PersistentMemory::PersistentMemory(u64 size_bytes, u64 capacity_bytes, const char* name)
    : FarMemory(size_bytes),
      capacity_(capacity_bytes),
      name_(name ? name : "orv_" + hexadecimal(reinterpret_cast<std::uintptr_t>(this))) {
  if (name_.empty())
    throw InvalidParametersException("PersistentMemory::PersistentMemory()", "Name is empty.");
}

void sfb_t::check_load(u64 offset, u64 length) const {
  check_bytes("sfb_t::check_load()", size_, offset, length);
}
void sfb_t::check_store(u64 offset, u64 length) const {
  check_bytes("sfb_t::check_store()", size_, offset, length);
}
void sfb_t::check_strided_load(u64 offset, u64 length, u64 stride, u64 count) const {
  check_blocks("sfb_t::check_strided_load()", size_, offset, length, stride, count);
}
void sfb_t::check_strided_store(u64 offset, u64 length, u64 stride, u64 count) const {
  check_blocks("sfb_t::check_strided_store()", size_, offset, length, stride, count);
}

FarTransfer sfb_t::start_load(void* buffer, u64 offset, u64 length) const {
  check_load(offset, length);
  return memory_.start_load(buffer, offset_ + offset, length);
}
FarTransfer sfb_t::start_store(const void* buffer, u64 offset, u64 length) const {
  check_store(offset, length);
  return memory_.start_store(buffer, offset_ + offset, length);
}
FarTransfer sfb_t::start_gather(void* buffer, u64 offset, u64 length, u64 stride, u64 count) const {
  check_strided_load(offset, length, stride, count);
  return memory_.start_gather(buffer, offset_ + offset, length, stride, count);
}
FarTransfer sfb_t::start_scatter(const void* buffer, u64 offset, u64 length, u64 stride, u64 count) const {
  check_strided_store(offset, length, stride, count);
  return memory_.start_scatter(buffer, offset_ + offset, length, stride, count);
}

}  // namespace orl
