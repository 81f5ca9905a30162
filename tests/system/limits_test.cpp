// What control groups and affinity leave of a machine with 16 GB of memory, 12 of them available, and eight cores.
#include "system/limits.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "system/fake_machine.h"
#include "system/topology.h"

namespace orl::test {
namespace {

constexpr u64 kMachine = 16'000'000 * u64{1024}, kFree = 12'000'000 * u64{1024}, kGiB = u64{1} << 30;

struct Case {
  const char* what;
  std::string groups, mounts;  ///< /proc/self/cgroup and the last columns of /proc/self/mountinfo
  std::vector<std::pair<std::string, std::string>> files;  ///< below the mounts, with their text
  std::string allowed;                                     ///< cores; empty: the kernel does not tell
  u64 memory, available, processors;
};

// Of a limit that is free, all but a share that the kernel takes for itself.
constexpr u64 usable(u64 limit) { return limit - limit / 64; }

Limits limits_of(const Case& at) {
  FakeMachine machine;
  machine.online("0-7").put("proc/meminfo",
                            "MemTotal: 16000000 kB\nMemFree: 1 kB\nMemAvailable: 12000000 kB\n");
  machine.put("proc/self/cgroup", at.groups)
      .put("proc/self/mountinfo", "1 1 8:1 / / rw - ext4 /dev/a rw\n" + at.mounts);
  if (!at.allowed.empty())
    machine.put("proc/self/status", "Name:\tx\nCpus_allowed:\tff\nCpus_allowed_list:\t" + at.allowed + "\n");
  for (const auto& [name, text] : at.files) machine.put(name, text + "\n");
  return read_limits(machine.root());
}

TEST(Limits, AreTheSmallestOfTheMachineAndOfEveryGroupAbove) {
  const std::string v2 = "2 1 0:2 / /sys/fs/cgroup rw - cgroup2 none rw\n";
  const std::string v1 =
      "3 1 0:3 / /cg/memory rw shared:4 - cgroup cgroup rw,memory\n4 1 0:4 / /cg/cpu rw - cgroup x "
      "rw,cpuacct,cpu\n";
  const std::string own = "sys/fs/cgroup/a/b/", parent = "sys/fs/cgroup/a/", top = "sys/fs/cgroup/";
  const Case cases[] = {
      {"no group at all", "", "", {}, "", kMachine, kFree, 8},
      {"a group without limits",
       "0::/a/b\n",
       v2,
       {{own + "memory.max", "max"}, {own + "memory.high", "max"}, {own + "cpu.max", "max 100000"}},
       "0-7",
       kMachine,
       kFree,
       8},
      {"the own group",
       "0::/a/b\n",
       v2,
       {{own + "memory.max", "2147483648"}, {own + "cpu.max", "150000 100000"}},
       "0-7",
       2 * kGiB,
       usable(2 * kGiB),
       2},
      {"what is used counts, its cache does not",
       "0::/a/b\n",
       v2,
       {{own + "memory.max", "2147483648"},
        {own + "memory.current", "1073741824"},
        {own + "memory.stat", "anon 5\ninactive_file 268435456\nactive_file 268435456\nslab 7"}},
       "",
       2 * kGiB,
       usable(2 * kGiB) - kGiB / 2,
       8},
      {"a group that is full",
       "0::/a/b\n",
       v2,
       {{own + "memory.max", "1073741824"}, {own + "memory.current", "1073741824"}},
       "",
       kGiB,
       0,
       8},
      {"the parent allows less",
       "0::/a/b\n",
       v2,
       {{own + "memory.max", "4294967296"},
        {parent + "memory.high", "1073741824"},
        {parent + "cpu.max", "100 200"}},
       "",
       kGiB,
       usable(kGiB),
       1},
      {"the parent is fuller",
       "0::/a/b\n",
       v2,
       {{own + "memory.max", "2147483648"},
        {parent + "memory.max", "4294967296"},
        {parent + "memory.current", "4194304000"}},
       "",
       2 * kGiB,
       usable(4 * kGiB) - 4194304000,
       8},
      {"more than the machine has",
       "0::/a/b\n",
       v2,
       {{own + "memory.max", "99999999999"}},
       "",
       kMachine,
       kFree,
       8},
      {"less is free on the machine",
       "0::/a/b\n",
       v2,
       {{own + "memory.max", "15000000000"}},
       "",
       15000000000,
       kFree,
       8},
      {"a container that shows its group as the top",
       "0::/a/b\n",
       "2 1 0:2 /a/b /sys/fs/cgroup rw - cgroup2 none rw\n",
       {{top + "memory.max", "1073741824"}},
       "",
       kGiB,
       usable(kGiB),
       8},
      {"a name from outside of the container",
       "0::/../../a/b\n",
       v2,
       {{top + "memory.max", "1073741824"}},
       "",
       kGiB,
       usable(kGiB),
       8},
      {"a mount with a blank in its name",
       "0::/\n",
       "2 1 0:2 / /my\\040groups rw - cgroup2 none rw\n",
       {{"my groups/memory.max", "1073741824"}},
       "",
       kGiB,
       usable(kGiB),
       8},
      {"version 1",
       "7:memory:/a\n6:cpu,cpuacct:/a\n0::/\n",
       v1,
       {{"cg/memory/a/memory.limit_in_bytes", "2147483648"},
        {"cg/memory/a/memory.usage_in_bytes", "1073741824"},
        {"cg/memory/a/memory.stat", "inactive_file 1\ntotal_inactive_file 1073741824\ntotal_active_file 0"},
        {"cg/memory/memory.limit_in_bytes", "9223372036854771712"},
        {"cg/cpu/a/cpu.cfs_quota_us", "-1"},
        {"cg/cpu/cpu.cfs_quota_us", "300000"},
        {"cg/cpu/cpu.cfs_period_us", "100000"}},
       "0-7",
       2 * kGiB,
       usable(2 * kGiB),
       3},
      {"version 1, a group above that is not shown",
       "7:memory:/a\n",
       "3 1 0:3 /a /cg/memory rw - cgroup cgroup rw,memory\n",
       {{"cg/memory/memory.limit_in_bytes", "9223372036854771712"},
        {"cg/memory/memory.stat", "hierarchical_memory_limit 1073741824"}},
       "",
       kGiB,
       usable(kGiB),
       8},
      {"affinity, with cores that are off", "", "", {}, "2,9-11", kMachine, kFree, 1},
      {"damaged files",
       "x\n::\n0:\n",
       v2 + "- \nx - cgroup2\n",
       {{top + "memory.max", "many"}, {top + "cpu.max", "5"}},
       "-",
       kMachine,
       kFree,
       8}};
  for (const Case& at : cases) {
    const Limits limits = limits_of(at);
    EXPECT_EQ(limits.memory_bytes, at.memory) << at.what;
    EXPECT_EQ(limits.available_bytes, at.available) << at.what;
    EXPECT_EQ(limits.processors, at.processors) << at.what;
    EXPECT_EQ(memory_sentence(limits).starts_with("This process may use "), at.memory < kMachine) << at.what;
  }
}

TEST(Limits, OfThisProcess) {
  const Limits now = limits();
  EXPECT_GT(now.memory_bytes, u64{1} << 28);
  EXPECT_GT(now.available_bytes, 0u);
  EXPECT_LE(now.available_bytes, now.memory_bytes);
  EXPECT_LE(processor_count(), topology().cores.size());
}

}  // namespace
}  // namespace orl::test
