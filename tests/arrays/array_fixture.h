// A disk array on folders that go with it, and what it printed.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "arrays/raid_array.h"
#include "core/output.h"
#include "support/fake_disks.h"
#include "support/files.h"

namespace orl::R03 {

/// Collects what is printed as long as it lives.
class Recorder final : public Output {
 public:
  Recorder() { set_output(this); }
  ~Recorder() override { set_output(nullptr); }
  void print(std::string_view text, char) override { add(text); }
  void print_line(std::string_view text, char) override { add(std::string(text) + "\n"); }
  std::string text() const {
    const std::lock_guard guard(mutex_);
    return text_;
  }
  u64 count(const std::string& words) const {
    const std::string all = text();
    u64 found = 0;
    for (std::size_t at = all.find(words); at != std::string::npos; at = all.find(words, at + 1)) found++;
    return found;
  }

 private:
  void add(std::string_view text) {
    const std::lock_guard guard(mutex_);
    text_ += text;
  }
  mutable std::mutex mutex_;
  std::string text_;
};

/// Answers prompts as often as it has answers; then nobody is there.
class Answers final : public FaultAnswers {
 public:
  explicit Answers(std::vector<u64> answers) : answers_(std::move(answers)) { set_fault_answers(this); }
  ~Answers() override { set_fault_answers(nullptr); }
  std::optional<u64> option() override {
    if (asked == answers_.size()) return std::nullopt;
    return answers_[asked++];
  }
  u64 asked = 0;

 private:
  std::vector<u64> answers_;
};

/// Folders and a descriptor over them: "3" is a RAID 0 lane of three paths, "2+1" a RAID 3 lane of three.
struct Folders {
  explicit Folders(const std::vector<std::string>& lanes,
                   const std::filesystem::path& parent = std::filesystem::temp_directory_path())
      : root(parent) {
    std::vector<RaidGroup> groups;
    for (const std::string& lane : lanes) {
      const bool parity = lane.ends_with("+1");
      RaidGroup group{parity ? RaidType::raid3 : RaidType::raid0, {}};
      const u64 paths = std::stoul(lane) + (parity ? 1 : 0);
      for (u64 i = 0; i < paths; i++) {
        names.push_back(root.file("disk" + std::to_string(names.size())));
        std::filesystem::create_directory(names.back());
        group.paths.emplace_back(names.back());
      }
      groups.push_back(group);
    }
    descriptor.set_lanes(groups);
    descriptor.set_buffer_per_file(kMinBufferPerFile);
    descriptor.prepare();
  }
  /// The content of an object's file on a path.
  std::string file(u64 path, const std::string& name) const {
    return test::read_file(names[path] + "/" + name);
  }
  /// Files in all folders, but for the locks of an array at work.
  u64 files_left() const {
    u64 count = 0;
    for (const std::string& name : names)
      for (const auto& entry : std::filesystem::directory_iterator(name))
        count += entry.is_regular_file() && entry.path().extension() != ".lock";
    return count;
  }

  test::TemporaryFolder root;
  std::vector<std::string> names;
  Raid03Descriptor descriptor;
};

/// Where thousands of small files cost no disk; the temporary folder where a machine has no such place.
inline std::filesystem::path memory_folder() {
  const std::filesystem::path shared = "/dev/shm";
  return std::filesystem::is_directory(shared) ? shared : std::filesystem::temp_directory_path();
}

/// Bytes of which the first lies at a multiple of 4096, which saves copies.
class AlignedBytes {
 public:
  explicit AlignedBytes(const std::vector<u8>& content)
      : block_(content.size() + 4096), size_(content.size()) {
    std::copy(content.begin(), content.end(), data());
  }
  u8* data() {
    return block_.data() + (4096 - reinterpret_cast<std::uintptr_t>(block_.data()) % 4096) % 4096;
  }
  std::vector<u8> content() { return {data(), data() + size_}; }

 private:
  std::vector<u8> block_;
  u64 size_;
};

inline std::vector<u8> random_bytes(std::mt19937_64& random, u64 count) {
  std::vector<u8> bytes(count + 8);
  for (u64 i = 0; i < count; i += 8) {
    const u64 word = random();
    std::memcpy(bytes.data() + i, &word, 8);
  }
  bytes.resize(count);
  return bytes;
}

}  // namespace orl::R03
