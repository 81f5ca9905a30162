#include "system/topology.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <thread>

#include "system/fake_machine.h"
#include "system/kernel_files.h"

namespace orl::test {
namespace {

using Ids = std::vector<u32>;

TEST(IdList, KeepsWhatItCanRead) {
  EXPECT_EQ(parse_id_list("0-3,7,9-10\n"), (Ids{0, 1, 2, 3, 7, 9, 10}));
  EXPECT_EQ(parse_id_list("5,1-2,2"), (Ids{1, 2, 5}));
  EXPECT_EQ(parse_id_list("x,3,4-,-5,6-y,8-7,9"), (Ids{3, 9}));
  EXPECT_EQ(parse_id_list("1,0-4294967295,99999999999999999999"), (Ids{1}));
  EXPECT_EQ(parse_id_list(""), Ids{});
}

TEST(KernelFiles, ThatCannotBeReadAreEmpty) {
  EXPECT_EQ(read_kernel_file("/proc/self"), "");  // opens, but every read fails
  EXPECT_EQ(read_kernel_file("/proc/self/mem"), "");
  EXPECT_EQ(read_kernel_number("/proc/none"), std::nullopt);
}

// Two sockets with two nodes each; node ids with a hole, core ids with a hole, core 6 off, node 5 memory
// only.
TEST(Topology, SeesNodesHolesAndOfflineCores) {
  FakeMachine machine;
  machine.online("0-5,7-9\n").nodes("0-1,4-5");
  for (u32 core : {0, 1, 2, 3, 4, 5, 7}) {
    const u32 first = core % 4;
    machine.core(core, first / 2, std::to_string(first) + "," + std::to_string(first + 4));
  }
  machine.core(8, 1, "8-9").core(9, 1, "8-9");
  machine.node(0, "0,4", 1000).node(1, "1,5", 2000).node(4, "2-3,6-9", 0).node(5, "", 4000);
  const Topology t = read_topology(machine.root());
  EXPECT_EQ(t.cores, (Ids{0, 1, 2, 3, 4, 5, 7, 8, 9}));
  EXPECT_EQ(t.thread_ranks, (Ids{0, 0, 0, 0, 1, 1, 1, 0, 1}));
  EXPECT_EQ(t.physical_cores, 5u);
  EXPECT_EQ(t.sockets, 2u);
  ASSERT_EQ(t.nodes.size(), 4u);
  EXPECT_EQ(t.nodes[1].cores, (Ids{1, 5}));
  EXPECT_EQ(t.nodes[1].memory_bytes, 2000u << 10);
  EXPECT_EQ(t.nodes[2].id, 4u);
  EXPECT_EQ(t.nodes[2].cores, (Ids{2, 3, 7, 8, 9}));  // 6 is off
  EXPECT_EQ(t.nodes[3].id, 5u);
  EXPECT_EQ(t.nodes[3].cores, Ids{});
  EXPECT_EQ(t.nodes[3].memory_bytes, 4000u << 10);
  EXPECT_EQ(t.node_of(9), 4u);
  EXPECT_EQ(t.node_of(6), 0u);
}

// Core ids repeat from die to die, so only the lists of threads tell two dies of a socket apart.
TEST(Topology, WithoutNodesOneNodeHoldsEverything) {
  FakeMachine machine;
  machine.online("2-3").core(2, -1, "2").core(3, -1, "3");
  machine.put("proc/meminfo", "MemTotal:       123 kB\nMemFree: 4 kB\n");
  const Topology t = read_topology(machine.root());
  EXPECT_EQ(t.physical_cores, 2u);
  EXPECT_EQ(t.sockets, 1u);
  ASSERT_EQ(t.nodes.size(), 1u);
  EXPECT_EQ(t.nodes[0].id, 0u);
  EXPECT_EQ(t.nodes[0].cores, (Ids{2, 3}));
  EXPECT_EQ(t.nodes[0].memory_bytes, 123u << 10);
}

TEST(Topology, ProcessorListStandsInForTheTree) {
  FakeMachine machine;
  std::string cpuinfo;
  for (int core = 0; core < 4; core++)
    cpuinfo += "processor\t: " + std::to_string(core) + "\nphysical id\t: " + std::to_string(core % 2) +
               "\ncore id\t\t: 0\ncpu cores\t: 1\n\n";
  machine.put("proc/cpuinfo", cpuinfo);
  const Topology t = read_topology(machine.root());
  EXPECT_EQ(t.cores, (Ids{0, 1, 2, 3}));
  EXPECT_EQ(t.thread_ranks, (Ids{0, 0, 1, 1}));
  EXPECT_EQ(t.physical_cores, 2u);
  EXPECT_EQ(t.sockets, 2u);
}

TEST(Topology, CoreThatNoNodeListsGoesToTheLowest) {
  FakeMachine machine;
  machine.online("0-3").nodes("1-2").node(1, "2", 1).node(2, "1,2", 1);
  const Topology t = read_topology(machine.root());
  ASSERT_EQ(t.nodes.size(), 2u);
  EXPECT_EQ(t.nodes[0].cores, (Ids{0, 2, 3}));
  EXPECT_EQ(t.nodes[1].cores, (Ids{1}));  // 2 has its node already
  EXPECT_EQ(t.physical_cores, 4u);
}

TEST(Topology, NothingToReadIsOneCore) {
  FakeMachine empty;
  FakeMachine damaged;
  damaged.online("\x01\xff garbage").nodes("-").put("proc/cpuinfo", ":\nphysical id : 3\nprocessor : x\n");
  for (const FakeMachine* machine : {&empty, &damaged}) {
    const Topology t = read_topology(machine->root());
    EXPECT_EQ(t.cores, Ids{0});
    ASSERT_EQ(t.nodes.size(), 1u);
    EXPECT_EQ(t.nodes[0].cores, Ids{0});
    EXPECT_EQ(t.physical_cores, 1u);
  }
}

TEST(Topology, OfThisMachineIsReadOnce) {
  EXPECT_EQ(&topology(), &topology());
  EXPECT_EQ(topology().cores.size(), static_cast<std::size_t>(sysconf(_SC_NPROCESSORS_ONLN)));
}

TEST(BindThread, MovesTheThreadAndRefusesWhatIsNotThere) {
  std::thread([] {
    const u32 last = static_cast<u32>(sched_getcpu());  // may be the only one that a container allows
    ASSERT_TRUE(bind_thread({last}));
    EXPECT_EQ(sched_getcpu(), static_cast<int>(last));
    EXPECT_FALSE(bind_thread({}));
    EXPECT_FALSE(bind_thread({5000}));  // beyond a cpu_set_t
    EXPECT_FALSE(bind_thread({~0u}));
    EXPECT_TRUE(bind_thread({last, 5000}));
    EXPECT_EQ(sched_getcpu(), static_cast<int>(last));
  }).join();
}

}  // namespace
}  // namespace orl::test
