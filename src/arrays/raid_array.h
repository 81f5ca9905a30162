// A disk array at work, and the objects that lie on it.
//
//   SwapDescriptor disk(descriptor, memory_bytes);
//   auto number = disk.allocate(bytes, "orv_R.sf");     // a file of this name in each folder
//   number->start_store(words, 0, bytes).wait();
//
// Threads   one for each lane and one for each path, from the first line to the end of the descriptor's scope. Any thread
//           may allocate, and start transfers of any object.
// Memory    the buffers of the files. Unless the user has chosen their size they take an eighth of `memory_bytes` at most.
// Ends      an object's files go with it, unless keep() says that a later run needs them. Objects go before their
//           descriptor, which says so where they have not.
// Folders   belong to one array at a time, of all processes of the machine (array_folder.h).
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "arrays/array_folder.h"
#include "arrays/array_geometry.h"
#include "arrays/far_memory.h"
#include "arrays/raid_descriptor.h"
#include "arrays/raid_lane.h"
#include "arrays/swap_usage.h"

namespace orl {

namespace R03 {

/// The lanes, each with its drives.
class RaidArray : Uncopied {
 public:
  /// Claims the descriptor, which must have been prepared, and its folders, and starts the threads. `memory_bytes` 0: the
  /// buffers are as large as the descriptor says.
  RaidArray(Raid03Descriptor& descriptor, u64 memory_bytes, u64 usage_limit_bytes);
  ~RaidArray();

  const ArrayGeometry& geometry() const { return geometry_; }
  /// The lane; index counts from 0.
  RaidLane& lane(u64 index) { return *lanes_[index]; }
  const RaidLane& lane(u64 index) const { return *lanes_[index]; }
  u64 lanes() const { return lanes_.size(); }
  SwapUsage& usage() { return usage_; }
  const ArrayCounters& counters() const { return state_.counters; }

 private:
  Raid03Descriptor& descriptor_;
  ArrayGeometry geometry_;
  std::vector<std::unique_ptr<ArrayFolder>> folders_;  ///< of the drives that have not failed
  ArrayState state_;
  SwapUsage usage_;
  std::vector<std::unique_ptr<RaidLane>> lanes_;
};

/// An object of the array: a file of its name in each folder that it needs.
class L0_RaidFile final : public PersistentMemory {
 public:
  /// The faults of opening the files are asked about; Raid03Exception where the user quits.
  L0_RaidFile(std::shared_ptr<RaidArray> array, u64 size_bytes, const char* name, Opening opening);
  /// Removes the files. Those that are kept are flushed and closed; a failure is printed.
  ~L0_RaidFile() override;

  void flush() override;
  void rename(const std::string& new_name) override;
  void keep(bool stays = true) override;

  void gather(void* buffer, u64 offset, u64 length, u64 stride, u64 count) override;
  void scatter(const void* buffer, u64 offset, u64 length, u64 stride, u64 count) override;
  void load(void* buffer, u64 offset, u64 length) override;
  void store(const void* buffer, u64 offset, u64 length) override;
  FarTransfer start_gather(void* buffer, u64 offset, u64 length, u64 stride, u64 count) override;
  FarTransfer start_scatter(const void* buffer, u64 offset, u64 length, u64 stride, u64 count) override;
  FarTransfer start_load(void* buffer, u64 offset, u64 length) override;
  FarTransfer start_store(const void* buffer, u64 offset, u64 length) override;

 private:
  FarTransfer start(const StridedRange& range, u8* memory, Direction direction);
  void close();

  std::shared_ptr<RaidArray> array_;
  std::vector<LaneObject> objects_;  ///< one for each lane
};

/// The sizes of an array whose buffers are to fit `memory_bytes`; 0: as the descriptor says.
ArrayGeometry geometry_of(const Raid03Descriptor& descriptor, u64 memory_bytes);

}  // namespace R03

/// What a computation holds while it uses an array.
class SwapDescriptor : Uncopied {
 public:
  /// `memory_bytes`: what the computation takes in all, buffers included; 0 sets them no limit. `usage_limit_bytes`: what
  /// a plan expects of the disks, 0 for none. Throws InvalidParametersException where the array is in use or not prepared.
  explicit SwapDescriptor(R03::Raid03Descriptor& descriptor, u64 memory_bytes = 0, u64 usage_limit_bytes = 0);
  /// Tells which objects are still there, if any are: the array is in use until they have gone.
  ~SwapDescriptor();

  /// A fresh object. A null name stands for one that nobody needs to know.
  std::unique_ptr<PersistentMemory> allocate(u64 bytes, const char* name = nullptr);
  /// The object that an earlier run kept under this name, of the size and on the arrangement that it had: all of its rows
  /// count as written. It is kept again unless keep(false) says otherwise. Files that are not there, or have another length,
  /// are asked about as faults are.
  std::unique_ptr<PersistentMemory> reopen(u64 bytes, const char* name);

  const R03::ArrayGeometry& geometry() const { return array_->geometry(); }
  const SwapUsage& usage() const { return array_->usage(); }
  const R03::ArrayCounters& counters() const { return array_->counters(); }
  /// Memory of all buffers.
  u64 buffer_bytes() const { return geometry().buffer_bytes(); }
  /// Seconds in which the busiest lane had a transfer under way.
  double busy_seconds() const;

 private:
  std::shared_ptr<R03::RaidArray> array_;
};

}  // namespace orl
