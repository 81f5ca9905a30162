#include <gtest/gtest.h>

#include <set>
#include <thread>

#include "config/object.h"
#include "memory/allocator_kinds.h"
#include "memory/fake_memory_calls.h"
#include "memory/interleave_allocator.h"
#include "memory/node_list.h"
#include "memory/node_placement.h"
#include "memory/pattern.h"
#include "memory/registered.h"
#include "support/screen.h"
#include "support/thrown.h"

namespace orl::test {
namespace {

using Texts = std::vector<std::string>;

constexpr u64 kBytes = 9 * kLargePageBytes + 5000;  // ten blocks, the last one short

InterleaveAllocator allocator_with(const std::function<void(InterleaveSettings&)>& change) {
  InterleaveAllocator allocator;
  InterleaveSettings settings = allocator.settings();
  change(settings);
  allocator.set(settings);
  return allocator;
}

TEST(InterleaveAllocator, BindsEveryBlockToItsNode) {
  FakeMemoryCalls machine({0, 1, 66});
  for (const bool hashed : {false, true}) {
    const auto allocator = allocator_with([=](InterleaveSettings& settings) { settings.hashed = hashed; });
    const u64 before = machine.calls("mbind").size();
    const Allocation result = allocate(allocator, kBytes, hashed ? 1 : 40);
    ASSERT_NE(result.memory, nullptr);
    EXPECT_EQ(result.errors, Texts());
    const u64 base = reinterpret_cast<u64>(result.memory->address());
    const u64 length = result.memory->length();
    EXPECT_EQ(length, 9 * kLargePageBytes + 8192);

    std::map<u64, FakeMemoryCalls::Call> by_address;
    const auto binds = machine.calls("mbind");
    for (u64 i = before; i < binds.size(); ++i) by_address.emplace(binds[i].address, binds[i]);
    ASSERT_EQ(by_address.size(), 10u);
    std::map<int, u64> bytes;
    for (u64 block = 0; block < 10; ++block) {
      const u64 begin = block * kLargePageBytes;
      const u64 size = std::min(kLargePageBytes, length - begin);
      const u32 node = std::vector<u32>{0, 1, 66}[interleave_entry(block, 3, hashed)];
      ASSERT_TRUE(by_address.contains(base + begin));
      const FakeMemoryCalls::Call& call = by_address.at(base + begin);
      EXPECT_EQ(call.length, size);
      EXPECT_EQ(call.flags, u64{MPOL_BIND});
      EXPECT_EQ(call.mask,
                node == 66 ? (std::vector<unsigned long>{0, 4}) : std::vector<unsigned long>{1UL << node});
      EXPECT_EQ(call.maxnode, node == 66 ? 129u : 65u);
      ASSERT_NO_FATAL_FAILURE(check_pattern(reinterpret_cast<void*>(base + begin), size));
      bytes[static_cast<int>(node)] += size;
    }
    EXPECT_EQ(result.memory->report().node_bytes, bytes);
  }
  EXPECT_EQ(machine.thread_cores(), std::vector<u32>{7}) << "the thread got its cores back";
  const auto& bindings = machine.bindings();
  for (const std::vector<u32>& cores : {std::vector<u32>{0, 1}, {100, 101}, {200, 201}})
    EXPECT_NE(std::count(bindings.begin(), bindings.end(), cores), 0);
  // Its only mapping is left to the threads of the nodes to populate.
  for (const auto& call : machine.calls("mmap")) EXPECT_EQ(call.flags, u64{MAP_PRIVATE | MAP_ANONYMOUS});
}

TEST(InterleaveAllocator, RefusedBindingFallsToPreferringTheNode) {
  FakeMemoryCalls machine({0, 1});
  machine.refused_policies = {MPOL_BIND};
  const InterleaveAllocator allocator;
  EXPECT_EQ(allocate(allocator, kLargePageBytes).errors, Texts());
  const auto calls = machine.calls("mbind");
  ASSERT_EQ(calls.size(), 2u);
  EXPECT_EQ(calls[0].flags, u64{MPOL_BIND});
  EXPECT_EQ(calls[1].flags, u64{MPOL_PREFERRED});
  EXPECT_EQ(calls[1].mask, calls[0].mask);

  machine.refused_policies = {MPOL_BIND, MPOL_PREFERRED};
  const Allocation refused = allocate(allocator, 2 * kLargePageBytes);
  EXPECT_NE(refused.memory, nullptr);
  EXPECT_EQ(refused.errors, Texts({"mbind() failed for node 0. (Operation not permitted)",
                                   "mbind() failed for node 1. (Operation not permitted)",
                                   "Unable to place all pages onto node 1"}));
}

TEST(InterleaveAllocator, PagesElsewhereFailTheForcedBinding) {
  FakeMemoryCalls machine({0, 1, 2});
  machine.pages_obey = false;
  for (const Mode bind : {Mode::attempt, Mode::forced}) {
    const auto allocator = allocator_with([=](InterleaveSettings& settings) { settings.bind = bind; });
    const Allocation result = allocate(allocator, kBytes);
    EXPECT_EQ(result.memory == nullptr, bind == Mode::forced);
    EXPECT_EQ(result.errors,
              Texts({"Unable to place all pages onto node 1", "Unable to place all pages onto node 2"}));
  }
}

TEST(NodeMemory, PagesThatCannotBeSampledFailTheForcedBinding) {
  FakeMemoryCalls machine({0, 1});
  machine.pages_answer = false;
  for (const Mode bind : {Mode::attempt, Mode::forced}) {
    const auto allocator = allocator_with([=](InterleaveSettings& settings) { settings.bind = bind; });
    const Allocation spread = allocate(allocator, kBytes);
    EXPECT_EQ(spread.memory == nullptr, bind == Mode::forced);
    EXPECT_EQ(spread.errors, Texts({kUnknownPlacement}));
    Texts errors;
    EXPECT_EQ(allocate_local(1, 1, bind, 0, errors) == nullptr, bind == Mode::forced);
    EXPECT_EQ(errors, Texts({kUnknownPlacement}));
  }
}

TEST(InterleaveAllocator, ThreadsThatMissTheirNodeAreNamed) {
  FakeMemoryCalls machine({0, 1});
  machine.unreachable = {1};
  const auto elsewhere = allocator_with([](InterleaveSettings& settings) { settings.nodes = {1, 5}; });
  EXPECT_EQ(allocate(elsewhere, 1, 1).errors,
            Texts({"Thread 0 failed to bind to node 1", "Thread 1 failed to bind to node 5",
                   "Unable to place all pages onto node 5"}));
}

TEST(InterleaveAllocator, WithoutMbindThePagesGoWhereTheThreadRuns) {
  FakeMemoryCalls machine({0, 1});
  const auto allocator = allocator_with([](InterleaveSettings& settings) { settings.call_mbind = false; });
  EXPECT_NE(allocate(allocator, kBytes).memory, nullptr);
  EXPECT_TRUE(machine.calls("mbind").empty());
  EXPECT_FALSE(machine.bindings().empty());
}

TEST(InterleaveAllocator, OneNodeNeedsNoBindingAndIsSaid) {
  FakeMemoryCalls machine({0});
  const Allocation result = allocate(InterleaveAllocator(), kBytes);
  ASSERT_NE(result.memory, nullptr);
  EXPECT_EQ(result.errors, Texts({kNothingToInterleave}));
  EXPECT_TRUE(machine.calls("mbind").empty());
}

InterleaveAllocator locking(Mode mode) {
  return allocator_with([=](InterleaveSettings& settings) { settings.lock_pages = mode; });
}

TEST(InterleaveAllocator, LocksBlocksInTheModeAskedFor) {
  FakeMemoryCalls machine({0, 1});
  const Allocation locked = allocate(locking(Mode::forced), kBytes);
  ASSERT_NE(locked.memory, nullptr);
  EXPECT_EQ(locked.memory->report().locked_bytes, locked.memory->length());
  EXPECT_EQ(machine.calls("mlock").size(), 10u);

  machine.lock_limit = 0;
  const Allocation attempted = allocate(locking(Mode::attempt), kBytes);
  ASSERT_NE(attempted.memory, nullptr);
  EXPECT_EQ(attempted.memory->report().locked_bytes, 0u);
  EXPECT_EQ(attempted.errors, Texts({"Unable to lock pages. (Cannot allocate memory)"}));
  const Allocation forced = allocate(locking(Mode::forced), kBytes);
  EXPECT_EQ(forced.memory, nullptr);
  EXPECT_EQ(forced.errors, Texts({"Unable to force locked pages."}));
}

TEST(InterleaveAllocator, ForcedToLockIsNotContentWithAPart) {
  FakeMemoryCalls machine({0, 1});
  machine.lock_limit = kBytes - 1;
  EXPECT_EQ(allocate(locking(Mode::forced), kBytes).memory, nullptr);
}

TEST(InterleaveBlocks, AreSpreadEvenlyAndHashedOnesMeetNoStride) {
  for (const u64 n : {1, 2, 3, 4, 8, 17}) {
    std::vector<u64> hashed(n);
    std::vector<u64> in_turn(n);
    std::set<u64> on_stride;
    for (u64 block = 0; block < 256 * n; ++block) {
      EXPECT_EQ(interleave_entry(block, n, false), block % n);
      ++hashed[interleave_entry(block, n, true)];
      if (block % n == 0) on_stride.insert(interleave_entry(block, n, true));
    }
    EXPECT_EQ(hashed, std::vector<u64>(n, 256)) << n;
    EXPECT_EQ(on_stride.size(), n) << "of 256 blocks on a stride of " << n;
  }
  EXPECT_EQ(interleave_block_bytes(1), kLargePageBytes);
  for (u64 length = 1; length < u64{1} << 55; length *= 3)
    EXPECT_LE(length / interleave_block_bytes(length), 16384u);
}

TEST(LocalMemory, LiesOnTheNodeOfItsThread) {
  FakeMemoryCalls machine({0, 1, 2});
  Texts errors;
  {
    const auto memory = allocate_local(10000, 2, Mode::forced, 0, errors);
    ASSERT_NE(memory, nullptr);
    ASSERT_NO_FATAL_FAILURE(check_pattern(memory->address(), memory->length()));
    EXPECT_EQ(memory->report().node_bytes, (std::map<int, u64>{{2, 12288}}));
    const auto& calls = machine.calls("mbind");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].mask, std::vector<unsigned long>{4});
    EXPECT_EQ(machine.bindings(), (std::vector<std::vector<u32>>{{200, 201}, {7}}));
  }
  EXPECT_NE(allocate_local(10000, 1, Mode::disabled, 0, errors), nullptr);
  EXPECT_EQ(machine.calls("mbind").size(), 1u) << "disabled asks for no node";
  EXPECT_EQ(errors, Texts());

  machine.pages_obey = false;
  machine.unreachable = {1};
  EXPECT_NE(allocate_local(1, 1, Mode::attempt, 4, errors), nullptr);
  EXPECT_EQ(allocate_local(1, 2, Mode::forced, 5, errors), nullptr);
  EXPECT_EQ(allocate_local(~u64{0}, 0, Mode::attempt, 6, errors), nullptr);
  EXPECT_EQ(errors, Texts({"Thread 4 failed to bind to node 1", "Unable to place all pages onto node 1",
                           "Unable to place all pages onto node 2",
                           "Unable to map memory. (Cannot allocate memory)"}));
}

TEST(LocalMemory, ManyThreadsAllocateAtOnce) {
  FakeMemoryCalls machine({0, 1});
  std::vector<std::thread> threads;
  std::vector<Texts> errors(4);
  for (u64 k = 0; k < 4; ++k) {
    threads.emplace_back([k, &errors] {
      const auto local = allocate_local(100000, k % 2, Mode::forced, k, errors[k]);
      const auto spread = allocate_interleaved(3 * kLargePageBytes, errors[k]);
      EXPECT_TRUE(local != nullptr && spread != nullptr && spread->report().node_bytes.size() == 2);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(errors, std::vector<Texts>(4));
}

TEST(LibNumaAllocator, TakesTheListAndGivesAllBack) {
  FakeMemoryCalls machine({0, 1, 3});
  const Allocation result = allocate(*libnuma_allocator().create(), 48000000);
  ASSERT_NE(result.memory, nullptr);
  const auto calls = machine.calls("numa_alloc_interleaved_subset");
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].mask, (std::vector<unsigned long>{0, 1, 3}));
  EXPECT_EQ(calls[0].length, 48001024u) << "rounded up to 4096";
  EXPECT_EQ(machine.mapped_bytes, 48001024);
  EXPECT_EQ(result.errors, Texts());
  // A sample on a stride of 12 pages would find the first of the three nodes alone.
  for (const int node : {0, 1, 3})
    EXPECT_NEAR(static_cast<double>(result.memory->report().node_bytes.at(node)), 16e6, 2e6);

  const auto on_others = libnuma_allocator().create();
  Object nodes;
  write_nodes(nodes, {1, 3});
  on_others->read_object(nodes);
  machine.pages_obey = false;
  EXPECT_EQ(allocate(*on_others, 1).errors, Texts({"Pages lie on node 0, which was not chosen."}));
  EXPECT_EQ(allocate(*on_others, 1000000).errors,
            Texts({"Pages lie on node 0, which was not chosen.", "No pages lie on node 1, which was chosen.",
                   "No pages lie on node 3, which was chosen."}));
  machine.has_numa = false;
  EXPECT_EQ(refusal<InvalidParametersException>([&] { allocate(*on_others, 1); }),
            "LargeMemory_NodeInterleavingLibNuma() NUMA is not available on this system.");
}

TEST(NodeList, HoldsTheNodesWithMemory) {
  FakeMemoryCalls machine({0, 1, 2});
  machine.machine()[1].memory_bytes = 0;
  EXPECT_EQ(usable_nodes(), (std::vector<u32>{0, 2}));
  for (NumaNode& node : machine.machine()) node.memory_bytes = 0;
  std::vector<u32> all;
  EXPECT_EQ(screen_of("", [&] { all = usable_nodes(); }),
            "Unable to find any usable NUMA nodes. Will attempt to use all of them...\n"
            "Will assume all NUMA nodes have usable memory.\n");
  EXPECT_EQ(all, (std::vector<u32>{0, 1, 2}));
}

TEST(NodeList, RefusesWhatIsNoListOfNodes) {
  const auto refusal = [](const std::vector<s64>& numbers) {
    Object object;
    Array list;
    for (const s64 number : numbers) list.add_integer(number);
    object.add_array("Nodes", std::move(list));
    return message_of<InvalidParametersException>([&] { read_nodes(object, {}); });
  };
  EXPECT_EQ(refusal({}), "Node list cannot be empty.");
  EXPECT_EQ(refusal({0, -1}), "Invalid NUMA node: -1. Expected 0 to 1023.");
  EXPECT_EQ(refusal({1024}), "Invalid NUMA node: 1024. Expected 0 to 1023.");
  EXPECT_EQ(refusal({1023}), "accepted");
}

TEST(InterleaveAllocator, SettingsSurviveTheTrip) {
  FakeMemoryCalls machine({0, 1});
  const auto first = allocator_with([](InterleaveSettings& settings) {
    settings = {{5, 0, 5}, false, false, Mode::forced, Mode::forced};
  });
  const Object written = first.to_object();
  InterleaveAllocator second;
  second.read_object(written);
  EXPECT_TRUE(same_content(second.to_object(), written));
  EXPECT_EQ(second.settings().nodes, (std::vector<u32>{5, 0, 5}));
  EXPECT_EQ(second.settings().bind, Mode::forced);

  Object older;
  older.add_string("LockedPages", "attempt");
  second.read_object(older);
  EXPECT_EQ(second.settings().lock_pages, Mode::attempt);
  Object policy;
  policy.add_string("NumaBind", "disable");
  Object wrong;
  wrong.add_bool("Hashed", true);
  wrong.add_object("MemoryPolicy", std::move(policy));
  EXPECT_EQ(message_of<InvalidParametersException>([&] { second.read_object(wrong); }),
            "Invalid value for NumaBind. Expected \"attempt\" or \"forced\".");
  EXPECT_FALSE(second.settings().hashed) << "a refused object changes nothing";
}

}  // namespace
}  // namespace orl::test
