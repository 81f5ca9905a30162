// The settings of a disk array: which folders, in which arrangement, through how much buffer.
//
// Groups stand side by side and share the data; a group is RAID 0 or RAID 3 over its paths. A path is a
// folder; an empty one is the working folder.
#pragma once

#include <string>
#include <vector>

#include "config/object.h"

namespace orl::R03 {

/// The numbers stand in configuration files.
enum class RaidType : u32 { raid0 = 0, raid3 = 1 };

/// The folders of one group; an empty path is the working folder.
struct RaidGroup {
  RaidType type = RaidType::raid0;
  std::vector<std::string> paths{std::string()};
};

inline constexpr u64 kMaxGroups = 64;
inline constexpr u64 kMaxRaid0Paths = 64;
inline constexpr u64 kMinRaid3Paths = 2;
inline constexpr u64 kMaxRaid3Paths = 8;
inline constexpr u64 kDefaultBufferPerFile = 67108864;
inline constexpr u64 kMinBufferPerFile = 1048576;

/// "raid0" or "raid3".
const char* raid_type_key(RaidType type);
/// "RAID 0 - No Redundancy" or "RAID 3 - Parity".
const char* raid_type_text(RaidType type);

/// The path, or what stands for the empty one: "** Default Path **".
std::string shown_path(const std::string& path);

/// The settings of an array: its groups and the buffer of each file.
class Raid03Descriptor {
 public:
  const std::vector<RaidGroup>& groups() const { return groups_; }
  /// Throws InvalidParametersException for a group that cannot be; nothing has changed then.
  void set_group(RaidGroup group);
  /// set_group() for several; throws for a number of groups that cannot be, too.
  void set_lanes(std::vector<RaidGroup> groups);
  u64 buffer_per_file() const { return buffer_per_file_; }
  /// Raised to 1 MiB; at most 2^63 - 1.
  void set_buffer_per_file(u64 bytes);
  /// Files that hold data, over all groups.
  u64 data_files() const;

  /// The keys of a configuration: BufferPerFile, then Type and Paths of the group, or Lanes, an array of
  /// objects with RaidType and Paths, where the groups were given as lanes.
  Object to_object() const;
  /// to_object() with texts for the reader of a report.
  Object dump() const;
  /// Reads to_object()'s form. Throws ConfigException; nothing has changed then.
  void read_object(const Object& object);

  /// One line: the arrangement in words.
  std::string to_string() const;

 private:
  std::vector<RaidGroup> groups_{RaidGroup{}};
  bool as_lanes_ = false;
  u64 buffer_per_file_ = kDefaultBufferPerFile;
};

/// Throws InvalidParametersException "Unrecognized mode: " with a word that is neither raid0 nor raid3.
RaidType raid_type_of_option(const std::string& word);

}  // namespace orl::R03
