#include "arrays/raid_descriptor.h"

#include <algorithm>
#include <filesystem>
#include <limits>
#include <optional>
#include <set>
#include <utility>

#include "config/located.h"
#include "core/exceptions.h"
#include "core/output.h"
#include "files/path_check.h"

namespace orl::R03 {

namespace {

std::optional<RaidType> raid_type_from(const std::string& word) {
  if (word == "raid0") return RaidType::raid0;
  if (word == "raid3") return RaidType::raid3;
  return std::nullopt;
}

void check(bool valid, const char* text) {
  if (!valid) throw InvalidParametersException("Raid03Descriptor", text);
}

// The folder itself, however it is written, as far as it exists.
std::string folder_of(const std::string& path) {
  std::error_code ignored;
  const std::filesystem::path folder =
      path.empty() ? std::filesystem::path(".") : std::filesystem::path(path);
  std::filesystem::path real = std::filesystem::weakly_canonical(folder, ignored);
  if (real.empty()) real = folder.lexically_normal();
  if (!real.has_filename()) real = real.parent_path();
  return real.string();
}

// All files of an object have one name, so two paths of an array cannot be one folder.
void check_distinct(const std::vector<RaidGroup>& groups) {
  std::set<std::string> seen;
  for (const RaidGroup& group : groups)
    for (const RaidPath& path : group.paths)
      if (!seen.insert(folder_of(path.path)).second)
        throw InvalidParametersException(
            "Raid03Descriptor", "Two paths of a disk array are the same folder: " + shown_path(path.path));
}

void check_group(const RaidGroup& group) {
  const u64 count = group.paths.size();
  check(count != 0, "Paths cannot be empty.");
  if (group.type == RaidType::raid0) {
    check(count <= kMaxRaid0Paths, "There is a limit of 64 paths for RAID0.");
    return;
  }
  check(count <= kMaxRaid3Paths, "There is a limit of 8 paths for RAID3.");
  check(count >= kMinRaid3Paths, "RAID3 needs at least 2 paths.");
}

Array paths_array(const std::vector<RaidPath>& paths) {
  Array array;
  for (const RaidPath& path : paths) array.add_string(path.path);
  return array;
}

RaidType read_type(const Object& object, const std::string& key) {
  RaidType result = RaidType::raid0;
  read_key(object, key, [&] {
    const auto type = raid_type_from(object.get_string(key));
    if (!type)
      throw InvalidParametersException("Raid03Descriptor::read_object()",
                                       "RaidType must be either \"raid0\" or  \"raid3\".");
    result = *type;
  });
  return result;
}

RaidGroup read_group(const Object& object, const std::string& type_key) {
  RaidGroup group{read_type(object, type_key), {}};
  read_key(object, "Paths", [&] {
    const Array& paths = object.get_array("Paths");
    for (u64 i = 0; i < paths.size(); i++) group.paths.push_back(paths[i].as_string("Paths").value);
    check_group(group);
  });
  return group;
}

std::vector<RaidGroup> read_lanes(const Array& lanes) {
  std::vector<RaidGroup> groups;
  for (u64 i = 0; i < lanes.size(); i++)
    groups.push_back(read_group(lanes[i].as_object("Lanes"), "RaidType"));
  return groups;
}

}  // namespace

std::string shown_path(const std::string& path) { return path.empty() ? "** Default Path **" : path; }

const char* raid_type_key(RaidType type) { return type == RaidType::raid0 ? "raid0" : "raid3"; }

const char* raid_type_text(RaidType type) {
  return type == RaidType::raid0 ? "RAID 0 - No Redundancy" : "RAID 3 - Parity";
}

RaidType raid_type_of_option(const std::string& word) {
  const auto type = raid_type_from(word);
  if (!type) throw InvalidParametersException("-swap", "Unrecognized mode: " + word);
  return *type;
}

std::string shown_status(s64 status) {
  if (status < 0) return "   ( Status: Failed )";
  if (status == 0) return "   ( Status: ok )";
  return "   ( Status: " + std::to_string(status) + (status == 1 ? " error )" : " errors )");
}

u64 RaidGroup::failed_drives() const {
  return static_cast<u64>(
      std::count_if(paths.begin(), paths.end(), [](const RaidPath& path) { return path.failed(); }));
}

void RaidGroup::mark_failed(u64 path_index) {
  if (tolerance() < 0)
    throw Raid03Exception("RaidGroup::mark_failed()", "This raid group has already failed.",
                          paths[path_index].path, 0);
  paths[path_index].status = -1;
}

void Raid03Descriptor::set_group(RaidGroup group) {
  check_group(group);
  check_distinct({group});
  groups_ = {std::move(group)};
  ready_ = as_lanes_ = false;
}

void Raid03Descriptor::set_lanes(std::vector<RaidGroup> groups) {
  check(!groups.empty(), "Groups cannot be empty.");
  check(groups.size() <= kMaxGroups, "Cannot have more than 64 groups");
  for (const RaidGroup& group : groups) check_group(group);
  check_distinct(groups);
  groups_ = std::move(groups);
  ready_ = false;
  as_lanes_ = true;
}

void Raid03Descriptor::set_buffer_per_file(u64 bytes) {
  buffer_per_file_ = std::clamp<u64>(bytes, kMinBufferPerFile, std::numeric_limits<s64>::max());
}

u64 Raid03Descriptor::data_files() const {
  u64 count = 0;
  for (const RaidGroup& group : groups_) count += group.data_files();
  return count;
}

void Raid03Descriptor::prepare() {
  check_distinct(groups_);  // folders may have been made since
  for (RaidGroup& group : groups_) {
    for (u64 i = 0; i < group.paths.size(); i++) {
      if (group.paths[i].failed() || path_is_writable(group.paths[i].path)) continue;
      notice_line("Unable to write to: " + shown_path(group.paths[i].path), 'R');
      notice_line("Marking drive as failed.", 'R');
      output().set_colour('w');
      group.mark_failed(i);
    }
  }
  ready_ = true;
}

void Raid03Descriptor::check_usable() const {
  constexpr const char* kFunction = "Raid03Descriptor::check_usable()";
  if (in_use_)
    throw InvalidParametersException(
        kFunction, "This raid file descriptor is already in use and has active allocations.");
  bool usable = ready_;
  for (const RaidGroup& group : groups_) usable = usable && group.tolerance() >= 0;
  if (!usable) throw InvalidParametersException(kFunction, "This raid file descriptor is not ready to use.");
}

void Raid03Descriptor::claim() {
  check_usable();
  in_use_ = true;
}

void Raid03Descriptor::release(const std::vector<std::vector<s64>>& statuses) {
  in_use_ = false;
  for (u64 i = 0; i < groups_.size(); i++)
    for (u64 j = 0; j < groups_[i].paths.size(); j++) groups_[i].paths[j].status = statuses[i][j];
}

Object Raid03Descriptor::to_object() const {
  Object object;
  object.add_integer("BufferPerFile", static_cast<s64>(buffer_per_file_));
  if (!as_lanes_) {
    object.add_string("Type", raid_type_key(groups_[0].type));
    object.add_array("Paths", paths_array(groups_[0].paths));
    return object;
  }
  Array lanes;
  for (const RaidGroup& group : groups_) {
    Object lane;
    lane.add_string("RaidType", raid_type_key(group.type));
    lane.add_array("Paths", paths_array(group.paths));
    lanes.add_object(std::move(lane));
  }
  object.add_array("Lanes", std::move(lanes));
  return object;
}

Object Raid03Descriptor::dump() const {
  Object object = to_object();
  object.add_string("DisplayText", to_string());
  return object;
}

void Raid03Descriptor::read_object(const Object& object) {
  Raid03Descriptor fresh;
  read_optional_key(object, "BufferPerFile", [&] {
    const s64 bytes = object.get_integer("BufferPerFile");
    fresh.set_buffer_per_file(static_cast<u64>(std::max<s64>(bytes, 0)));
  });
  if (object.contains("Lanes"))
    read_key(object, "Lanes", [&] { fresh.set_lanes(read_lanes(object.get_array("Lanes"))); });
  else
    fresh.set_group(read_group(object, "Type"));
  refuse_unknown_keys(object, fresh.to_object());
  *this = std::move(fresh);
}

std::string Raid03Descriptor::to_string() const {
  const RaidGroup& first = groups_[0];
  if (groups_.size() > 1) return "Custom Configuration with " + std::to_string(groups_.size()) + " lanes";
  if (first.paths.size() == 1) return "One path at:  " + shown_path(first.paths[0].path);
  return std::string(first.type == RaidType::raid0 ? "RAID 0" : "RAID 3") + " with " +
         std::to_string(first.paths.size()) + " paths";
}

}  // namespace orl::R03
