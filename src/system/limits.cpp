#include "system/limits.h"

#include <algorithm>
#include <optional>
#include <sstream>
#include <string_view>
#include <vector>

#include "core/format.h"
#include "system/kernel_files.h"

namespace orl {
namespace {

std::string text_of(const std::string& path) { return read_kernel_file(path).value_or(""); }

bool list_holds(std::string_view list, std::string_view word) {
  while (!list.empty()) {
    const std::size_t end = list.find(',');
    if (list.substr(0, end) == word) return true;
    list.remove_prefix(end == list.npos ? list.size() : end + 1);
  }
  return false;
}

// The kernel writes blanks and backslashes of paths as "\040".
std::string unescaped(const std::string& text) {
  std::string plain;
  for (std::size_t i = 0; i < text.size(); i++) {
    const auto octal = [&](std::size_t at) { return text[at] >= '0' && text[at] <= '7'; };
    if (text[i] != '\\' || i + 3 >= text.size() || !octal(i + 1) || !octal(i + 2) || !octal(i + 3)) {
      plain += text[i];
      continue;
    }
    plain += static_cast<char>((text[i + 1] - '0') * 64 + (text[i + 2] - '0') * 8 + (text[i + 3] - '0'));
    i += 3;
  }
  return plain;
}

// Where a hierarchy of groups is mounted, and which of its groups the mount shows as its top.
struct GroupMount {
  std::string top, folder;
};

// `controller`: one of version 1; empty for the hierarchy of version 2.
std::vector<GroupMount> group_mounts(const std::string& root, std::string_view controller) {
  std::vector<GroupMount> mounts;
  const std::string table = text_of(root + "proc/self/mountinfo");
  for (const std::string_view line : lines_of(table)) {
    // id parent device top folder options [tags...] - type source options
    const std::size_t dash = line.find(" - ");
    if (dash == line.npos) continue;
    std::istringstream left{std::string(line.substr(0, dash))}, right{std::string(line.substr(dash + 3))};
    std::string skipped, top, folder, type, options;
    left >> skipped >> skipped >> skipped >> top >> folder;
    right >> type >> skipped >> options;
    if (controller.empty() ? type == "cgroup2" : type == "cgroup" && list_holds(options, controller))
      mounts.push_back({unescaped(top), unescaped(folder)});
  }
  return mounts;
}

// The name of the process's own group in the hierarchy; nothing when it is in none.
std::optional<std::string> own_group(const std::string& root, std::string_view controller) {
  const std::string table = text_of(root + "proc/self/cgroup");
  for (const std::string_view line : lines_of(table)) {
    const std::size_t first = line.find(':');
    const std::size_t second = line.find(':', first + 1);
    if (first == line.npos || second == line.npos) continue;
    const std::string_view controllers = line.substr(first + 1, second - first - 1);
    if (controller.empty() ? controllers.empty() : list_holds(controllers, controller))
      return std::string(line.substr(second + 1));
  }
  return {};
}

// The part of `group` below `top`, such as "/a/b"; nothing when it lies elsewhere, as the name of a group does that
// was given from outside of a container.
std::optional<std::string> below(const std::string& group, const std::string& top) {
  if (group.find("/..") != group.npos) return {};
  if (top == "/") return group == "/" ? "" : group;
  if (!group.starts_with(top) || (group.size() > top.size() && group[top.size()] != '/')) return {};
  return group.substr(top.size());
}

// The folders of the process's groups in a hierarchy, its own first; they end with a separator.
std::vector<std::string> group_folders(const std::string& root, std::string_view controller) {
  const auto group = own_group(root, controller);
  const auto mounts = group_mounts(root, controller);
  if (!group || mounts.empty()) return {};
  // A container that shows its own group as the top, under a name from outside, leaves only that one to read.
  std::string mount = mounts.front().folder, path;
  for (const GroupMount& candidate : mounts)
    if (const auto part = below(*group, candidate.top)) {
      mount = candidate.folder;
      path = *part;
      break;
    }
  const std::string top = root + std::string(std::string_view(mount).substr(mount.starts_with('/'))) + "/";
  std::vector<std::string> folders;
  while (!path.empty()) {
    folders.push_back(top + path.substr(1) + "/");
    path.resize(path.rfind('/'));
  }
  folders.push_back(top);
  return folders;
}

// The number in a file or behind a key; nothing where there is none, or the word "max".
std::optional<u64> amount(const std::optional<s64>& number) {
  if (!number || *number < 0) return {};
  return static_cast<u64>(*number);
}
std::optional<u64> amount_in(const std::string& path) { return amount(read_kernel_number(path)); }

std::optional<u64> amount_behind(const std::string& text, std::string_view key) {
  for (const std::string_view line : lines_of(text))
    if (line.starts_with(key) && line.size() > key.size() && line[key.size()] == ' ')
      return amount(leading_number(line.substr(key.size() + 1)));
  return {};
}

// The kernel charges a group for page tables, stacks and what files and pipes need besides: 1/512 of what is mapped
// and some megabytes.
constexpr u64 kReserveShare = 64;

// A group above may have less left than one below, whose limit is smaller.
void narrow_memory(Limits& limits, std::optional<u64> limit, u64 used, u64 cache) {
  if (!limit) return;
  limits.memory_is_less = limits.memory_is_less || *limit < limits.memory_bytes;
  limits.memory_bytes = std::min(limits.memory_bytes, *limit);
  const u64 usable = *limit - *limit / kReserveShare;
  const u64 held = used - std::min(cache, used);
  limits.available_bytes = std::min(limits.available_bytes, usable - std::min(held, usable));
}

void narrow_memory_v1(Limits& limits, const std::string& folder) {
  const std::string stat = text_of(folder + "memory.stat");
  const u64 used = amount_in(folder + "memory.usage_in_bytes").value_or(0);
  const u64 cache = amount_behind(stat, "total_inactive_file").value_or(0) +
                    amount_behind(stat, "total_active_file").value_or(0);
  narrow_memory(limits, amount_in(folder + "memory.limit_in_bytes"), used, cache);
  // The smallest of the groups above, those included that a container does not see.
  narrow_memory(limits, amount_behind(stat, "hierarchical_memory_limit"), used, cache);
}

void narrow_memory_v2(Limits& limits, const std::string& folder) {
  const std::string stat = text_of(folder + "memory.stat");
  const u64 used = amount_in(folder + "memory.current").value_or(0);
  const u64 cache =
      amount_behind(stat, "inactive_file").value_or(0) + amount_behind(stat, "active_file").value_or(0);
  narrow_memory(limits, amount_in(folder + "memory.max"), used, cache);
  // Beyond it nothing is killed, but every page is fought for.
  narrow_memory(limits, amount_in(folder + "memory.high"), used, cache);
}

void narrow_processors(Limits& limits, std::optional<u64> quota, std::optional<u64> period) {
  if (!quota || *quota == 0 || period.value_or(0) == 0) return;
  limits.processors = std::min(limits.processors, (*quota - 1) / *period + 1);
}

// "150000 100000": microseconds of processor time in each period of as many as the second number says.
void narrow_processors_v2(Limits& limits, const std::string& folder) {
  const std::string line = read_kernel_line(folder + "cpu.max");
  const std::size_t blank = line.find(' ');
  if (blank == line.npos) return;
  narrow_processors(limits, amount(leading_number(line)),
                    amount(leading_number(std::string_view(line).substr(blank + 1))));
}

// Of the cores that are online those that the process may run on.
u64 granted_cores(const std::string& root) {
  const auto online = parse_id_list(read_kernel_line(root + "sys/devices/system/cpu/online"));
  const std::string status = text_of(root + "proc/self/status");
  constexpr std::string_view kLabel = "Cpus_allowed_list:";
  for (const std::string_view line : lines_of(status)) {
    if (!line.starts_with(kLabel)) continue;
    const auto allowed = parse_id_list(line.substr(kLabel.size()));
    if (online.empty() && !allowed.empty()) return allowed.size();
    const auto both = std::count_if(online.begin(), online.end(), [&](u32 core) {
      return std::binary_search(allowed.begin(), allowed.end(), core);
    });
    if (both != 0) return static_cast<u64>(both);
  }
  return std::max<u64>(online.size(), 1);
}

}  // namespace

Limits read_limits(const std::string& root) {
  const std::string machine = text_of(root + "proc/meminfo");
  Limits limits{kilobytes_field(machine, "MemTotal:"), kilobytes_field(machine, "MemAvailable:"),
                granted_cores(root), false};
  for (const std::string& folder : group_folders(root, "memory")) narrow_memory_v1(limits, folder);
  for (const std::string& folder : group_folders(root, "cpu"))
    narrow_processors(limits, amount_in(folder + "cpu.cfs_quota_us"),
                      amount_in(folder + "cpu.cfs_period_us"));
  for (const std::string& folder : group_folders(root, "")) {
    narrow_memory_v2(limits, folder);
    narrow_processors_v2(limits, folder);
  }
  return limits;
}

Limits limits() { return read_limits("/"); }

std::string memory_sentence(const Limits& limits) {
  return (limits.memory_is_less ? "This process may use " : "This machine has ") +
         format_bytes(limits.memory_bytes);
}

u64 processor_count() {
  static const u64 count = limits().processors;
  return count;
}

}  // namespace orl
