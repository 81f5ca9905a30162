#include "arrays/raid_descriptor.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <utility>

#include "config/located.h"
#include "core/exceptions.h"

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

Array paths_array(const std::vector<std::string>& paths) {
  Array array;
  for (const std::string& path : paths) array.add_string(path);
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

void Raid03Descriptor::set_group(RaidGroup group) {
  check_group(group);
  groups_ = {std::move(group)};
  as_lanes_ = false;
}

void Raid03Descriptor::set_lanes(std::vector<RaidGroup> groups) {
  check(!groups.empty(), "Groups cannot be empty.");
  check(groups.size() <= kMaxGroups, "Cannot have more than 64 groups.");
  for (const RaidGroup& group : groups) check_group(group);
  groups_ = std::move(groups);
  as_lanes_ = true;
}

void Raid03Descriptor::set_buffer_per_file(u64 bytes) {
  buffer_per_file_ = std::clamp<u64>(bytes, kMinBufferPerFile, std::numeric_limits<s64>::max());
}

u64 Raid03Descriptor::data_files() const {
  u64 count = 0;
  for (const RaidGroup& group : groups_) count += group.paths.size() - (group.type == RaidType::raid3);
  return count;
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
  if (first.paths.size() == 1) return "One path at:  " + shown_path(first.paths[0]);
  return std::string(first.type == RaidType::raid0 ? "RAID 0" : "RAID 3") + " with " +
         std::to_string(first.paths.size()) + " paths";
}

}  // namespace orl::R03
