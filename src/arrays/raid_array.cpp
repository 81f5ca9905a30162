#include "arrays/raid_array.h"

#include <algorithm>
#include <utility>

#include "arrays/open_files.h"
#include "core/exceptions.h"
#include "core/output.h"

namespace orl {

namespace R03 {
namespace {

// The buffers take this part of the memory at most.
constexpr u64 kBufferShare = 8;

// Objects that are open at once in the deepest part of a computation.
constexpr u64 kOpenObjects = 64;

std::vector<LaneFiles> lane_files(const Raid03Descriptor& descriptor) {
  std::vector<LaneFiles> lanes;
  for (const RaidGroup& group : descriptor.groups())
    lanes.push_back({static_cast<u32>(group.data_files()), group.has_parity()});
  return lanes;
}

// On disks every object's name ends so.
std::string file_name(const std::string& name) {
  constexpr std::string_view kEnd = ".sf";
  return name.ends_with(kEnd) ? name : name + std::string(kEnd);
}

}  // namespace

ArrayGeometry geometry_of(const Raid03Descriptor& descriptor, u64 memory_bytes) {
  const std::vector<LaneFiles> lanes = lane_files(descriptor);
  const ArrayGeometry geometry = geometry_of(lanes, descriptor.buffer_per_file());
  const u64 most = memory_bytes / kBufferShare;
  if (memory_bytes == 0 || descriptor.has_own_buffer() || geometry.buffer_bytes() <= most) return geometry;
  return geometry_of(lanes, most / geometry.files());
}

RaidArray::RaidArray(Raid03Descriptor& descriptor, u64 memory_bytes, u64 usage_limit_bytes)
    : descriptor_(descriptor), geometry_(geometry_of(descriptor, memory_bytes)), usage_(usage_limit_bytes) {
  descriptor.check_usable();
  for (const RaidGroup& group : descriptor.groups())
    for (const RaidPath& path : group.paths)
      if (!path.failed()) folders_.push_back(std::make_unique<ArrayFolder>(path.path));
  allow_open_files(geometry_.files() * kOpenObjects);
  for (u64 i = 0; i < geometry_.lanes.size(); i++) {
    const RaidGroup& group = descriptor.groups()[i];
    std::vector<std::string> folders;
    std::vector<s64> statuses;
    for (const RaidPath& path : group.paths) {
      folders.push_back(path.path);
      statuses.push_back(path.status);
    }
    lanes_.push_back(std::make_unique<RaidLane>(
        LanePlace{geometry_.lanes[i], geometry_.row_bytes, geometry_.lanes.size(), i}, std::move(folders),
        statuses, state_));
  }
  descriptor.claim();
}

RaidArray::~RaidArray() {
  std::vector<std::vector<s64>> statuses;
  for (const auto& lane : lanes_) statuses.push_back(lane->statuses());
  descriptor_.release(statuses);
}

L0_RaidFile::L0_RaidFile(std::shared_ptr<RaidArray> array, u64 size_bytes, const char* name, Opening opening)
    : PersistentMemory(size_bytes, size_bytes, name), array_(std::move(array)) {
  array_->usage().add(this->name(), size_bytes);
  PersistentMemory::keep(opening == Opening::kept);
  try {
    for (u64 i = 0; i < array_->lanes(); i++)
      objects_.push_back(array_->lane(i).open(file_name(this->name()),
                                              array_->geometry().file_bytes_of(i, size_bytes), opening));
  } catch (...) {
    close();
    throw;
  }
}

L0_RaidFile::~L0_RaidFile() {
  if (kept()) {
    try {
      flush();
    } catch (const Exception& e) {
      notice_line("L0_RaidFile::~L0_RaidFile(): Unable to flush file.", 'R');
      e.print();
    }
  }
  close();
}

void L0_RaidFile::close() {
  for (u64 i = 0; i < objects_.size(); i++) {
    if (kept())
      array_->lane(i).close(objects_[i]);
    else
      array_->lane(i).remove(objects_[i]);
  }
  array_->usage().remove(name());
}

void L0_RaidFile::flush() {
  for (u64 i = 0; i < objects_.size(); i++) array_->lane(i).flush(objects_[i]);
}

void L0_RaidFile::rename(const std::string& new_name) {
  if (new_name == name()) return;
  array_->usage().rename(name(), new_name);
  for (u64 i = 0; i < objects_.size(); i++) array_->lane(i).rename(objects_[i], file_name(new_name));
  set_name(new_name);
  keep(kept());
}

void L0_RaidFile::keep(bool stays) {
  PersistentMemory::keep(stays);
  for (u64 i = 0; i < objects_.size(); i++) array_->lane(i).keep(objects_[i], stays);
}

FarTransfer L0_RaidFile::start(const StridedRange& range, u8* memory, Direction direction) {
  auto state = std::make_shared<TransferState>(objects_.size());
  for (u64 i = 0; i < objects_.size(); i++)
    array_->lane(i).post({&objects_[i], range, memory, direction, state});
  return FarTransfer(std::move(state));
}

FarTransfer L0_RaidFile::start_gather(void* buffer, u64 offset, u64 length, u64 stride, u64 count) {
  check_strided("FarMemory::gather()", offset, length, stride, count);
  // Pieces that overlap come one by one.
  if (count > 1 && stride < length) {
    FarMemory::gather(buffer, offset, length, stride, count);
    return {};
  }
  return start({offset, length, stride, count}, static_cast<u8*>(buffer), Direction::read);
}

FarTransfer L0_RaidFile::start_scatter(const void* buffer, u64 offset, u64 length, u64 stride, u64 count) {
  check_strided("FarMemory::scatter()", offset, length, stride, count);
  if (count > 1 && stride < length) {
    FarMemory::scatter(buffer, offset, length, stride, count);
    return {};
  }
  return start({offset, length, stride, count}, static_cast<u8*>(const_cast<void*>(buffer)),
               Direction::write);
}

FarTransfer L0_RaidFile::start_load(void* buffer, u64 offset, u64 length) {
  check("FarMemory::load()", offset, length);
  return start({offset, length, length, 1}, static_cast<u8*>(buffer), Direction::read);
}

FarTransfer L0_RaidFile::start_store(const void* buffer, u64 offset, u64 length) {
  check("FarMemory::store()", offset, length);
  return start({offset, length, length, 1}, static_cast<u8*>(const_cast<void*>(buffer)), Direction::write);
}

void L0_RaidFile::gather(void* buffer, u64 offset, u64 length, u64 stride, u64 count) {
  start_gather(buffer, offset, length, stride, count).wait();
}

void L0_RaidFile::scatter(const void* buffer, u64 offset, u64 length, u64 stride, u64 count) {
  start_scatter(buffer, offset, length, stride, count).wait();
}

void L0_RaidFile::load(void* buffer, u64 offset, u64 length) { start_load(buffer, offset, length).wait(); }

void L0_RaidFile::store(const void* buffer, u64 offset, u64 length) {
  start_store(buffer, offset, length).wait();
}

}  // namespace R03

SwapDescriptor::SwapDescriptor(R03::Raid03Descriptor& descriptor, u64 memory_bytes, u64 usage_limit_bytes)
    : array_(std::make_shared<R03::RaidArray>(descriptor, memory_bytes, usage_limit_bytes)) {}

SwapDescriptor::~SwapDescriptor() {
  const std::vector<std::string> left = usage().list();
  if (left.empty()) return;
  notice_line("Attempting to destroy a SwapDescriptor with active allocations.", 'R');
  for (const std::string& line : left) notice_line("    " + line, 'R');
}

double SwapDescriptor::busy_seconds() const {
  double seconds = 0;
  for (u64 i = 0; i < array_->lanes(); i++) seconds = std::max(seconds, array_->lane(i).busy_seconds());
  return seconds;
}

std::unique_ptr<PersistentMemory> SwapDescriptor::allocate(u64 bytes, const char* name) {
  return std::make_unique<R03::L0_RaidFile>(array_, bytes, name, R03::Opening::fresh);
}

std::unique_ptr<PersistentMemory> SwapDescriptor::reopen(u64 bytes, const char* name) {
  return std::make_unique<R03::L0_RaidFile>(array_, bytes, name, R03::Opening::kept);
}

}  // namespace orl
