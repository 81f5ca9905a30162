// One group of an array at work: it takes transfers apart into rows, moves the rows between files and buffers, and keeps
// the parity.
//
// Threads   one thread of the lane does its transfers one after the other; one thread for each file reads and writes. A
//           buffer has two halves: while the files work at one, the lane copies and adds up parity in the other. Data
//           need none where whole sectors, or with parity whole rows, are aligned in the caller's memory.
// Store     a row that a transfer fills is only written. One that it fills partly, and that was written before, is read
//           first: without parity only the sectors where the transfer begins and ends, if it leaves no gap. One that was
//           never written is completed with zeros, whole rows of it where there is parity, so that the parity of a row that
//           has been written always holds.
// Load      the parity of what is read is verified. Rows that were never written do not pass.
// Faults    raid_faults.h. A drive that is flagged gets no call any more: its pieces are made from the others.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "arrays/array_geometry.h"
#include "arrays/io_thread.h"
#include "arrays/raid_faults.h"
#include "arrays/transfer_state.h"
#include "core/uncopied.h"
#include "files/raw_file.h"

namespace orl::R03 {

/// What an array has moved so far, in bytes of files.
struct ArrayCounters {
  std::atomic<u64> bytes_read{0}, bytes_written{0};
  std::atomic<u64> modified_rows{0};  ///< rows that were read so that a part of them could be written
};

/// What the lanes of an array share.
class ArrayState : Uncopied {
 public:
  /// The user has decided to quit: every transfer from now on fails with this.
  void give_up(const Exception& failure);
  /// Throws what give_up() was given.
  void check() const;

  ArrayCounters counters;

 private:
  mutable std::mutex mutex_;
  Failure failure_;
};

/// Whether an object is new, or one that an earlier run kept.
enum class Opening { fresh, kept };

/// The files of one object in one lane. Only the lane's threads use it while transfers run.
struct LaneObject {
  std::vector<RawFile> files;  ///< one for each path; not open where the drive has failed
  std::vector<bool> written;   ///< rows that hold data
};

/// A transfer's part in one lane.
struct LaneRequest {
  LaneObject* object;
  StridedRange range;
  u8* memory;  ///< only read by a store
  Direction direction;
  std::shared_ptr<TransferState> state;
};

/// The place of a lane in its array.
struct LanePlace {
  LaneGeometry geometry;
  u64 row_bytes;
  u64 lanes, index;
};

/// A lane with its drives and threads.
class RaidLane : Uncopied {
 public:
  /// A path for each file, with what is known of its drive. Throws SystemException where the machine gives no threads or
  /// no memory for the buffers.
  RaidLane(const LanePlace& place, std::vector<std::string> folders, const std::vector<s64>& statuses,
           ArrayState& state);
  ~RaidLane();

  /// Adds a transfer; it ends in request.state.
  void post(LaneRequest request);

  /// Opens a file of `bytes` bytes on each drive. The faults that it meets are asked about; where the user quits,
  /// Raid03Exception is thrown, and no fresh file is left.
  LaneObject open(const std::string& name, u64 bytes, Opening opening);
  /// Closes and removes the files of an object; those on failed drives stay.
  void remove(LaneObject& object);
  /// Puts what was written to the files on the disks, all drives at a time; faults are asked about as in open().
  void flush(LaneObject& object);
  /// Flushes the files, gives them another name, and puts that on the disks too; keep() has to be said anew. Ends the program
  /// after a failure.
  void rename(LaneObject& object, const std::string& new_name);
  /// Whether the files stay when a signal ends the process; fresh ones do not.
  void keep(LaneObject& object, bool stays);
  /// Closes the files and leaves them where they are.
  void close(LaneObject& object);

  /// What became of each drive, as RaidPath::status.
  std::vector<s64> statuses() const;
  /// Seconds in which a transfer was under way; complete as soon as it has been waited for.
  double busy_seconds() const { return 1e-9 * static_cast<double>(busy_ns_.load()); }

 private:
  struct Drive;
  struct Slot;
  struct Pass;
  class Feed;

  void run(const LaneRequest& request);
  void start(Pass& pass);
  void start(Pass& pass, u64 file);
  void post_file(Pass& pass, u64 file);
  void transfer(Pass& pass, u64 file);
  u64 wait(Pass& pass);
  void settle(Pass& pass);
  void settle_one_fault(Pass& pass, u64 file);
  void settle_others(Pass& pass, u64 mask, u32 attempt);
  void complete(Pass& pass);
  void fill(Pass& pass);
  void read_before_writing(Pass& pass);
  bool parity_matches(const Pass& pass);
  void rebuild(const Pass& pass, u64 file);
  void add_parity(const Pass& pass);
  void open_file(RawFile& file, const std::string& path, u64 bytes, Opening opening);
  void settle_file_fault(const Exception& fault, u64 file, const std::string& path);
  u8* at(const Pass& pass, const Slot& slot, u64 file) const;
  s64 failed_file() const;
  s64 tolerance() const;
  void flag(u64 file, const std::string& path);
  [[noreturn]] void quit(const Exception& fault, const std::string& path);
  [[noreturn]] void quit(const Raid03Exception& failure);

  LanePlace place_;
  ArrayState& state_;
  u64 halves_, half_bytes_;
  std::vector<std::unique_ptr<Drive>> drives_;
  std::atomic<u64> busy_ns_{0};
  std::unique_ptr<IoThread> thread_;
};

}  // namespace orl::R03
