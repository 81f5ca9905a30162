// Storage that the processor cannot address: everything goes through transfers between it and a buffer in memory.
//
// A transfer is one range of bytes, or equal pieces at equal distances. Each has two forms: load() returns when the bytes
// are there, start_load() at once, and what it returns is waited for. Numbers on disks go through three buffers in turn:
//
//   FarTransfer reading = a.start_load(next, ...);   // block i + 1
//   compute(block);                                  // block i
//   writing = r.start_store(block, ...);             // and waits for the store of block i - 1
//   reading.wait();
//
// Lifetime  buffer and object stay until the transfer has been waited for; its destructor waits too.
// Faults    those of the disks reach wait(), as exceptions. A destructor drops them: the array refuses what comes next.
// Threads   any number of transfers at once, on disjoint bytes. Transfers of one object that touch the same bytes run in
//           the order in which one thread started them.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "core/types.h"
#include "core/uncopied.h"

namespace orl {

class TransferState;

/// A transfer under way, or none. It can be moved, not copied.
class FarTransfer {
 public:
  FarTransfer();
  /// Done when each of the parts that `state` counts has ended.
  explicit FarTransfer(std::shared_ptr<TransferState> state);
  FarTransfer(FarTransfer&& other) noexcept;
  /// Stands for `other` now, then waits for what it stood for before, and throws what wait() would.
  FarTransfer& operator=(FarTransfer&& other);
  ~FarTransfer();

  /// Returns when all bytes have been moved; throws what failed. Afterwards the object stands for none.
  void wait();

 private:
  std::shared_ptr<TransferState> state_;
};

/// Seconds for which the threads of this process have waited for transfers so far, added up.
double far_waited_seconds();

/// A region of bytes. An access past its end throws FarMemoryOutOfBoundsException, and nothing is moved.
class FarMemory : Uncopied {
 public:
  virtual ~FarMemory() = default;

  /// Reads `count` blocks of `length` bytes from `offset`, `offset + stride` and so on into `buffer`, one behind the
  /// other. No bounds apply to no blocks.
  virtual void gather(void* buffer, u64 offset, u64 length, u64 stride, u64 count);
  /// gather() the other way round.
  virtual void scatter(const void* buffer, u64 offset, u64 length, u64 stride, u64 count);
  /// Reads bytes [offset, offset + length).
  virtual void load(void* buffer, u64 offset, u64 length) = 0;
  /// load() the other way round.
  virtual void store(const void* buffer, u64 offset, u64 length) = 0;

  /// The four as transfers that are waited for. The bounds are checked at once.
  virtual FarTransfer start_gather(void* buffer, u64 offset, u64 length, u64 stride, u64 count);
  virtual FarTransfer start_scatter(const void* buffer, u64 offset, u64 length, u64 stride, u64 count);
  virtual FarTransfer start_load(void* buffer, u64 offset, u64 length);
  virtual FarTransfer start_store(const void* buffer, u64 offset, u64 length);

  u64 size() const { return size_; }  ///< bytes

 protected:
  explicit FarMemory(u64 size_bytes) : size_(size_bytes) {}
  void set_size(u64 bytes) { size_ = bytes; }
  void check(const char* function, u64 offset, u64 length) const;
  void check_strided(const char* function, u64 offset, u64 length, u64 stride, u64 count) const;

 private:
  u64 size_;
};

/// Far memory with a name, which a later run can find it by.
class PersistentMemory : public FarMemory {
 public:
  const std::string& name() const { return name_; }
  /// Bytes that the place has, at least size().
  u64 capacity() const { return capacity_; }

  /// Whether what is stored stays when the object goes, or a signal ends the process. It does not at first.
  virtual void keep(bool stays = true) { kept_ = stays; }
  bool kept() const { return kept_; }
  /// Returns when everything that was stored would survive a loss of power. No transfer of the object may be under way.
  virtual void flush() = 0;
  /// flush(), then another name, under which a later run finds it; what a dead run left there is replaced. No transfer of
  /// the object may be under way. Throws InvalidParametersException where a living object has the name; any other failure
  /// cannot be undone and ends the program.
  virtual void rename(const std::string& new_name) = 0;

 protected:
  void set_name(std::string name) { name_ = std::move(name); }
  /// A null name becomes "orv_" and the object's address in sixteen hexadecimal digits. Throws
  /// InvalidParametersException "Name is empty.".
  PersistentMemory(u64 size_bytes, u64 capacity_bytes, const char* name);

 private:
  u64 capacity_;
  std::string name_;
  bool kept_ = false;
};

/// Words of a number in far memory: a named piece with a size of its own, which every access is checked against.
struct sfb_t {
  /// `length_words` words of `word_bytes` bytes from byte `offset` of `memory` on.
  sfb_t(FarMemory& memory, std::string piece_name, u64 length_words, u64 word_bytes, u64 offset = 0)
      : name(std::move(piece_name)), memory_(memory), offset_(offset), size_(length_words * word_bytes) {}

  /// The verbs of FarMemory, in bytes of the piece. Throws FarMemoryOutOfBoundsException.
  FarTransfer start_load(void* buffer, u64 offset, u64 length) const;
  FarTransfer start_store(const void* buffer, u64 offset, u64 length) const;
  FarTransfer start_gather(void* buffer, u64 offset, u64 length, u64 stride, u64 count) const;
  FarTransfer start_scatter(const void* buffer, u64 offset, u64 length, u64 stride, u64 count) const;

  /// What the verbs check; each throws under its own name.
  void check_load(u64 offset, u64 length) const;
  void check_store(u64 offset, u64 length) const;
  void check_strided_load(u64 offset, u64 length, u64 stride, u64 count) const;
  void check_strided_store(u64 offset, u64 length, u64 stride, u64 count) const;

  u64 size() const { return size_; }  ///< bytes

  std::string name;

 private:
  FarMemory& memory_;
  u64 offset_, size_;
};

}  // namespace orl
