#include "arrays/raid_lane.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <utility>

#include "arrays/parity.h"
#include "core/unfinished_files.h"
#include "files/path_check.h"
#include "files/raw_io_buffer.h"

namespace orl::R03 {
namespace {

// Faults in several drives are tried again so often before the user is asked.
constexpr u32 kReattempts = 3;

// Bytes that move between a file and a transfer's own memory in one pass. Another pass waits while one is under way, so that
// a drive has always something to do.
constexpr u64 kDirectBytes = u64{64} << 20;

struct FreeMemory {
  void operator()(u8* memory) const { std::free(memory); }
};
using AlignedMemory = std::unique_ptr<u8, FreeMemory>;

AlignedMemory aligned_memory(u64 bytes) {
  AlignedMemory memory(static_cast<u8*>(std::aligned_alloc(kIoAlignment, bytes)));
  if (!memory)
    throw SystemException("RaidLane", "Not enough memory for the buffers of a disk array.", ENOMEM);
  return memory;
}

s32 code_of(const Exception& fault) {
  const auto* path_fault = dynamic_cast<const PathFault*>(&fault);
  return path_fault ? path_fault->code() : 0;
}

}  // namespace

void ArrayState::give_up(const Exception& failure) {
  const std::lock_guard guard(mutex_);
  if (!failure_) failure_ = failure.clone();
}

void ArrayState::check() const {
  const std::lock_guard guard(mutex_);
  if (failure_) failure_->throw_copy();
}

struct RaidLane::Drive {
  Drive(std::string folder_path, s64 drive_status, u64 buffer_bytes)
      : folder(std::move(folder_path)), status(drive_status), buffer(aligned_memory(buffer_bytes)) {}
  bool failed() const { return status < 0; }

  std::string folder;
  std::atomic<s64> status;
  AlignedMemory buffer;
  IoThread thread;
};

// A piece of a row in the buffers, or in the memory of the transfer itself.
struct RaidLane::Slot {
  // What is in the window of a store beside its own bytes.
  enum Rest : u8 { kNothing, kZeros, kOldBytes };

  RowPiece piece;
  ColumnWindow window;
  u64 at;  // of the window, from the start of the half
  Rest rest;
  u8* direct = nullptr;  // where the piece is in memory, if data need no buffer
  bool modified() const { return rest == kOldBytes; }
};

// Rows that are in the buffers at the same time.
struct RaidLane::Pass : Uncopied {
  ~Pass() {
    if (latch) latch->wait();
  }

  const LaneRequest* request = nullptr;
  Direction direction = Direction::read;
  bool only_modified = false;  // leaves out the slots that need not be read
  u64 base = 0;                // of its half
  std::vector<Slot> slots;
  std::vector<Failure> faults;           // by file
  std::shared_ptr<TransferState> latch;  // of what is under way
};

// Fills passes with the rows of a request.
class RaidLane::Feed {
 public:
  Feed(const LaneRequest& request, const LanePlace& place, u64 half_bytes)
      : request_(request),
        geometry_(place.geometry),
        half_bytes_(half_bytes),
        walk_(request.range, place.row_bytes, place.lanes, place.index),
        more_(walk_.next(piece_)) {}

  // False when no row is left.
  bool next(Pass& pass) {
    pass.slots.clear();
    u64 bytes = 0, direct_bytes = 0;
    while (more_) {
      Slot slot = slot_of(bytes);
      slot.direct = direct_place(slot);
      const bool buffered = !slot.direct || geometry_.shape.parity;
      u64& sum = buffered ? bytes : direct_bytes;
      if (sum + slot.window.bytes() > (buffered ? half_bytes_ : kDirectBytes)) break;
      sum += slot.window.bytes();
      pass.slots.push_back(slot);
      more_ = walk_.next(piece_);
    }
    return !pass.slots.empty();
  }

 private:
  Slot slot_of(u64 at) const {
    const ColumnWindow window = window_of(piece_, geometry_.file_block_bytes);
    const bool fills = fills_window(piece_, geometry_);
    if (request_.direction == Direction::read) return {piece_, window, at, Slot::kNothing};
    if (request_.object->written[piece_.row])
      return {piece_, window, at, fills ? Slot::kNothing : Slot::kOldBytes};
    const ColumnWindow whole{0, geometry_.file_block_bytes};
    if (geometry_.shape.parity && window.bytes() != whole.bytes()) return {piece_, whole, at, Slot::kZeros};
    return {piece_, window, at, fills ? Slot::kNothing : Slot::kZeros};
  }

  // Data files take whole sectors of the transfer's memory as they are, and give them. Where there is parity, whole rows.
  u8* direct_place(const Slot& slot) const {
    if (slot.rest != Slot::kNothing || !fills_window(slot.piece, geometry_)) return nullptr;
    const StridedRange range = request_.range.simplified();
    const u64 begin = slot.piece.row_start + slot.piece.begin;
    u8* const place = request_.memory + slot.piece.first * range.length +
                      (begin - range.offset - slot.piece.first * range.stride);
    return reinterpret_cast<std::uintptr_t>(place) % kIoAlignment == 0 ? place : nullptr;
  }

  const LaneRequest& request_;
  const LaneGeometry& geometry_;
  u64 half_bytes_;
  RaidAccessRange walk_;
  RowPiece piece_;
  bool more_;
};

RaidLane::RaidLane(const LanePlace& place, std::vector<std::string> folders, const std::vector<s64>& statuses,
                   ArrayState& state)
    : place_(place),
      state_(state),
      halves_(place.geometry.blocks_per_buffer >= 2 ? 2 : 1),
      half_bytes_(place.geometry.blocks_per_buffer / halves_ * place.geometry.file_block_bytes) {
  for (u64 i = 0; i < folders.size(); i++)
    drives_.push_back(std::make_unique<Drive>(std::move(folders[i]), statuses[i], halves_ * half_bytes_));
  thread_ = std::make_unique<IoThread>();
}

RaidLane::~RaidLane() { thread_.reset(); }  // before the drives that it works with

std::vector<s64> RaidLane::statuses() const {
  std::vector<s64> result;
  for (const auto& drive : drives_) result.push_back(drive->status);
  return result;
}

s64 RaidLane::failed_file() const {
  for (u64 i = 0; i < drives_.size(); i++)
    if (drives_[i]->failed()) return static_cast<s64>(i);
  return -1;
}

s64 RaidLane::tolerance() const {
  const auto failed =
      std::count_if(drives_.begin(), drives_.end(), [](const auto& one) { return one->failed(); });
  return (place_.geometry.shape.parity ? 1 : 0) - failed;
}

void RaidLane::post(LaneRequest request) {
  thread_->post([this, request = std::move(request)] {
    const auto start = std::chrono::steady_clock::now();
    Failure failure = failure_of([&] {
      state_.check();
      run(request);
    });
    const std::chrono::nanoseconds time = std::chrono::steady_clock::now() - start;
    busy_ns_ += static_cast<u64>(time.count());
    request.state->finish(std::move(failure));
  });
}

void RaidLane::run(const LaneRequest& request) {
  Feed feed(request, place_, half_bytes_);
  Pass passes[2];
  Pass* before = nullptr;
  for (u64 i = 0;; i++) {
    if (halves_ == 1 && before) complete(*std::exchange(before, nullptr));
    Pass& pass = passes[i % halves_];
    pass.request = &request;
    pass.base = i % halves_ * half_bytes_;
    if (!feed.next(pass)) break;
    if (request.direction == Direction::write) fill(pass);
    pass.direction = request.direction;
    start(pass);
    if (before) complete(*before);
    before = &pass;
  }
  if (before) complete(*before);
}

u8* RaidLane::at(const Pass& pass, const Slot& slot, u64 file) const {
  const LaneGeometry& geometry = place_.geometry;
  if (slot.direct && file < geometry.shape.data_files)
    return slot.direct + file * geometry.file_block_bytes + slot.window.begin - slot.piece.begin;
  return drives_[file]->buffer.get() + pass.base + slot.at;
}

namespace {

// Calls copy(offset in memory, file, column in its piece, bytes) for all bytes of a piece.
template <class Copy>
void for_each_part(const StridedRange& whole, const RowPiece& piece, u64 file_block, Copy&& copy) {
  const StridedRange range = whole.simplified();
  const u64 begin = piece.row_start + piece.begin, end = piece.row_start + piece.end;
  for (u64 element = piece.first; element <= piece.last; element++) {
    const u64 start = range.offset + element * range.stride;
    u64 from = std::max(start, begin);
    const u64 to = std::min(start + range.length, end);
    while (from < to) {
      const u64 column = from - piece.row_start, file = column / file_block;
      const u64 bytes = std::min(to - from, (file + 1) * file_block - column);
      copy(element * range.length + (from - start), file, column % file_block, bytes);
      from += bytes;
    }
  }
}

}  // namespace

void RaidLane::complete(Pass& pass) {
  settle(pass);
  if (pass.direction == Direction::write) return;
  for (const Slot& slot : pass.slots) {
    if (slot.direct) continue;
    for_each_part(pass.request->range, slot.piece, place_.geometry.file_block_bytes,
                  [&](u64 to, u64 file, u64 column, u64 bytes) {
                    std::memcpy(pass.request->memory + to,
                                at(pass, slot, file) + (column - slot.window.begin), bytes);
                  });
  }
}

void RaidLane::fill(Pass& pass) {
  read_before_writing(pass);
  const u64 data_files = place_.geometry.shape.data_files;
  for (const Slot& slot : pass.slots) {
    pass.request->object->written[slot.piece.row] = true;
    if (slot.direct) continue;
    for (u64 file = 0; slot.rest == Slot::kZeros && file < data_files; file++)
      std::memset(at(pass, slot, file), 0, slot.window.bytes());
    for_each_part(pass.request->range, slot.piece, place_.geometry.file_block_bytes,
                  [&](u64 from, u64 file, u64 column, u64 bytes) {
                    std::memcpy(at(pass, slot, file) + (column - slot.window.begin),
                                pass.request->memory + from, bytes);
                  });
  }
  if (place_.geometry.shape.parity) add_parity(pass);
}

void RaidLane::read_before_writing(Pass& pass) {
  u64 rows = 0;
  for (const Slot& slot : pass.slots) rows += slot.modified();
  if (rows == 0) return;
  state_.counters.modified_rows += rows;
  pass.direction = Direction::read;
  pass.only_modified = true;
  start(pass);
  settle(pass);
  pass.only_modified = false;
}

void RaidLane::add_parity(const Pass& pass) {
  const u64 data_files = place_.geometry.shape.data_files;
  const u8* pieces[kMaxFiles];
  for (const Slot& slot : pass.slots) {
    for (u64 file = 0; file < data_files; file++) pieces[file] = at(pass, slot, file);
    complete_parity(at(pass, slot, data_files), {pieces, data_files}, slot.window.bytes());
  }
}

bool RaidLane::parity_matches(const Pass& pass) {
  const u8* pieces[kMaxFiles];
  for (const Slot& slot : pass.slots) {
    if (pass.only_modified && !slot.modified()) continue;
    for (u64 file = 0; file < drives_.size(); file++) pieces[file] = at(pass, slot, file);
    if (!parity_holds({pieces, drives_.size()}, slot.window.bytes())) return false;
  }
  return true;
}

void RaidLane::rebuild(const Pass& pass, u64 file) {
  const u8* pieces[kMaxFiles];
  for (const Slot& slot : pass.slots) {
    if (pass.only_modified && !slot.modified()) continue;
    u64 others = 0;
    for (u64 i = 0; i < drives_.size(); i++)
      if (i != file) pieces[others++] = at(pass, slot, i);
    complete_parity(at(pass, slot, file), {pieces, others}, slot.window.bytes());
  }
}

void RaidLane::start(Pass& pass) {
  pass.faults.clear();
  pass.faults.resize(drives_.size());
  pass.latch = std::make_shared<TransferState>(drives_.size());
  for (u64 file = 0; file < drives_.size(); file++) post_file(pass, file);
}

// Only the one file, again.
void RaidLane::start(Pass& pass, u64 file) {
  pass.faults[file] = nullptr;
  pass.latch = std::make_shared<TransferState>(1);
  post_file(pass, file);
}

void RaidLane::post_file(Pass& pass, u64 file) {
  drives_[file]->thread.post([this, &pass, file, latch = pass.latch] {
    pass.faults[file] = failure_of([&] { transfer(pass, file); });
    latch->finish(nullptr);
  });
}

// On the thread of the file. Pieces that follow each other in the file are moved together.
void RaidLane::transfer(Pass& pass, u64 file) {
  const Drive& drive = *drives_[file];
  const LaneGeometry& geometry = place_.geometry;
  RawFile& raw = pass.request->object->files[file];
  u64 offset = 0, bytes = 0;
  std::vector<iovec> pieces;
  const auto move = [&] {
    if (bytes == 0 || drive.failed()) return;
    if (pass.direction == Direction::read)
      state_.counters.bytes_read += raw.load(pieces, offset);
    else
      state_.counters.bytes_written += raw.store(pieces, offset);
  };
  const auto add = [&](const Slot& slot, const ColumnWindow& columns) {
    if (columns.bytes() == 0) return;
    const u64 slot_offset = slot.piece.row * geometry.file_block_bytes + columns.begin;
    u8* const buffer = at(pass, slot, file) + (columns.begin - slot.window.begin);
    const bool follows = slot_offset == offset + bytes && bytes + columns.bytes() <= RawFile::kMostBytes;
    if (!follows || pieces.size() == RawFile::kMostPieces) {
      move();
      offset = slot_offset;
      bytes = 0;
      pieces.clear();
    }
    if (bytes != 0 && static_cast<u8*>(pieces.back().iov_base) + pieces.back().iov_len == buffer)
      pieces.back().iov_len += columns.bytes();
    else
      pieces.push_back({buffer, columns.bytes()});
    bytes += columns.bytes();
  };
  for (const Slot& slot : pass.slots) {
    if (pass.only_modified && !slot.modified()) continue;
    if (geometry.shape.parity) {
      // A data file that the store does not touch has these bytes already.
      const bool known = pass.direction == Direction::write && slot.modified() &&
                         file < geometry.shape.data_files &&
                         columns_of(slot.piece, geometry.file_block_bytes, file).bytes() == 0;
      if (!known) add(slot, slot.window);
    } else if (pass.only_modified && slot.piece.dense) {
      for (const ColumnWindow& edge : edges_of(slot.piece, geometry.file_block_bytes, file)) add(slot, edge);
    } else {
      add(slot, columns_of(slot.piece, geometry.file_block_bytes, file));
    }
  }
  move();
}

// A bit for each file that failed.
u64 RaidLane::wait(Pass& pass) {
  pass.latch->wait();
  pass.latch = nullptr;
  u64 mask = 0;
  for (u64 file = 0; file < pass.faults.size(); file++)
    if (pass.faults[file]) mask |= u64{1} << file;
  return mask;
}

// Returns when every file has done its part, or the others have taken its place.
void RaidLane::settle(Pass& pass) {
  const bool parity = place_.geometry.shape.parity, reading = pass.direction == Direction::read;
  for (u32 attempt = 0;; attempt++) {
    u64 mask = wait(pass);
    // What a drive said before it was flagged by another pass does not count.
    for (u64 file = 0; file < drives_.size(); file++)
      if (drives_[file]->failed()) mask &= ~(u64{1} << file);
    const s64 failed = failed_file();
    if (mask == 0) {
      if (reading && failed >= 0) rebuild(pass, static_cast<u64>(failed));
      if (!parity || !reading || failed >= 0 || parity_matches(pass)) return;
      std::vector<std::string> paths;
      for (const RawFile& file : pass.request->object->files) paths.push_back(file.path());
      state_.check();
      tell_mismatch(paths);
      if (ask_to_retry() == FaultChoice::quit)
        quit(Raid03Exception("ord_rf2_process_raid_la()", "A parity mismatch has been detected.", paths[0],
                             kParityMismatch));
    } else if (parity && failed < 0 && std::popcount(mask) == 1) {
      return settle_one_fault(pass, static_cast<u64>(std::countr_zero(mask)));
    } else {
      settle_others(pass, mask, attempt);
    }
    start(pass);
  }
}

// The others have the data. The drive is asked once more: one that fails again is out of use from now on.
void RaidLane::settle_one_fault(Pass& pass, u64 file) {
  Drive& drive = *drives_[file];
  RawFile& raw = pass.request->object->files[file];
  tell_recovery(*pass.faults[file], raw.path(), pass.direction);
  drive.status++;
  start(pass, file);
  if (wait(pass) != 0) flag(file, raw.path());
  if (pass.direction == Direction::read) rebuild(pass, file);
}

// Returns when the operation is to be tried again.
void RaidLane::settle_others(Pass& pass, u64 mask, u32 attempt) {
  state_.check();
  const u64 first = static_cast<u64>(std::countr_zero(mask));
  const std::string& path = pass.request->object->files[first].path();
  if (place_.geometry.shape.parity && failed_file() < 0) {
    std::vector<std::string> paths;
    for (const RawFile& file : pass.request->object->files) paths.push_back(file.path());
    tell_several_faults(paths, mask, pass.direction);
    if (attempt < kReattempts) return;
  }
  if (ask_about_fault(*pass.faults[first], path, 0) == FaultChoice::quit) quit(*pass.faults[first], path);
}

// On the drive's own thread, behind the calls that are under way: none comes after it.
void RaidLane::flag(u64 file, const std::string& path) {
  TransferState flagged(1);
  drives_[file]->thread.post([&] {
    drives_[file]->status = -1;
    flagged.finish(nullptr);
  });
  flagged.wait();
  tell_flagged(path);
}

void RaidLane::quit(const Exception& fault, const std::string& path) {
  quit(Raid03Exception(fault.function(), fault.message(), path, code_of(fault)));
}

void RaidLane::quit(const Raid03Exception& failure) {
  state_.give_up(failure);
  throw failure;
}

LaneObject RaidLane::open(const std::string& name, u64 bytes, Opening opening) {
  LaneObject object;
  object.files.resize(drives_.size());
  if (bytes == 0) return object;
  object.written.resize(bytes / place_.geometry.file_block_bytes, opening == Opening::kept);
  try {
    for (u64 i = 0; i < drives_.size(); i++) {
      const std::string path = with_separator(drives_[i]->folder) + name;
      while (!drives_[i]->failed() && !object.files[i].is_open()) {
        const Failure fault = failure_of([&] { open_file(object.files[i], path, bytes, opening); });
        if (fault) settle_file_fault(*fault, i, path);
      }
    }
  } catch (...) {
    if (opening == Opening::fresh)
      remove(object);
    else
      close(object);
    throw;
  }
  return object;
}

void RaidLane::open_file(RawFile& file, const std::string& path, u64 bytes, Opening opening) {
  constexpr const char* kFunction = "RaidLane::open()";
  if (opening == Opening::kept) {
    RawFile found(path, RawFile::Mode::kReadWrite);
    if (found.size() != bytes)
      FileIO::throw_file_error(
          kFunction, 0,
          "The file has " + std::to_string(found.size()) + " bytes instead of " + std::to_string(bytes) + ".",
          path);
    file = std::move(found);
    return;
  }
  // What an earlier run left there has rows that look as if this one had written them.
  if (!remove_file(path)) FileIO::throw_file_error(kFunction, errno, "Unable to remove file.", path);
  list_unfinished(path);
  try {
    file = RawFile(bytes, path);
  } catch (...) {
    remove_file(path);  // one without room is there all the same
    unlist_unfinished(path);
    throw;
  }
}

// Returns when another attempt is to be made, or the drive has been flagged.
void RaidLane::settle_file_fault(const Exception& fault, u64 file, const std::string& path) {
  state_.check();
  const FaultChoice choice = ask_about_fault(fault, path, tolerance());
  if (choice == FaultChoice::quit) quit(fault, path);
  if (choice == FaultChoice::flag) flag(file, path);
}

void RaidLane::flush(LaneObject& object) {
  std::vector<Failure> faults(object.files.size());
  const auto flush_file = [&](u64 i) { return failure_of([&] { object.files[i].flush(); }); };
  TransferState flushed(object.files.size());
  for (u64 i = 0; i < object.files.size(); i++)
    drives_[i]->thread.post([&, i] {
      if (!drives_[i]->failed() && object.files[i].is_open()) faults[i] = flush_file(i);
      flushed.finish(nullptr);
    });
  flushed.wait();
  for (u64 i = 0; i < object.files.size(); i++)
    while (faults[i] && !drives_[i]->failed()) {
      settle_file_fault(*faults[i], i, object.files[i].path());
      if (!drives_[i]->failed()) faults[i] = flush_file(i);
    }
}

void RaidLane::rename(LaneObject& object, const std::string& new_name) {
  for (u64 i = 0; i < object.files.size(); i++) {
    if (drives_[i]->failed() || !object.files[i].is_open()) continue;
    const std::string path = with_separator(drives_[i]->folder) + new_name;
    const EndingHold hold;
    unlist_unfinished(object.files[i].path());
    object.files[i].rename(path);
    list_unfinished(path);
    sync_folder_of(path);
  }
}

void RaidLane::keep(LaneObject& object, bool stays) {
  for (const RawFile& file : object.files) {
    unlist_unfinished(file.path());
    if (!stays && file.is_open()) list_unfinished(file.path());
  }
}

void RaidLane::close(LaneObject& object) {
  for (RawFile& file : object.files) file.abandon();
  object.files.clear();
}

void RaidLane::remove(LaneObject& object) {
  for (u64 i = 0; i < object.files.size(); i++) {
    if (!object.files[i].is_open()) continue;
    const std::string path = object.files[i].path();
    object.files[i].abandon();
    if (!drives_[i]->failed()) remove_file(path);
    unlist_unfinished(path);
  }
  object.files.clear();
}

}  // namespace orl::R03
