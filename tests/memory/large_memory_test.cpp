#include "memory/large_memory.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>

#include <cstring>

#include "config/object.h"
#include "memory/fake_memory_calls.h"
#include "memory/mmap_allocator.h"
#include "memory/pattern.h"
#include "memory/registered.h"
#include "support/screen.h"
#include "support/thrown.h"
#include "threads/simple_frameworks.h"

namespace orl::test {
namespace {

using Texts = std::vector<std::string>;

TEST(TouchMemory, WritesThePatternAndNothingElse) {
  alignas(16) u8 memory[256];
  for (u64 offset = 0; offset < 8; ++offset) {
    for (const u64 length : {0, 1, 2, 3, 4, 5, 15, 16, 17, 40, 63, 100, 200}) {
      std::memset(memory, 0xee, sizeof memory);
      touch_memory(memory + 16 + offset, length);
      ASSERT_NO_FATAL_FAILURE(check_pattern(memory + 16 + offset, length));
      ASSERT_EQ(memory[15 + offset], 0xee);
      ASSERT_EQ(memory[16 + offset + length], 0xee);
    }
  }
}

TEST(TouchMemory, CutsTheBlockByAQuarterOfTheDecomposition) {
  Parallelizer_PushPool pool;
  std::vector<u8> memory(1000003);
  for (const u64 tds : {1, 7, 8, 64, 65536}) {
    std::fill(memory.begin(), memory.end(), 0);
    touch_memory(memory.data(), memory.size(), {pool, tds});
    ASSERT_NO_FATAL_FAILURE(check_patterns(memory.data(), memory.size(), tds));
  }
}

TEST(Allocators, EachGivesAlignedWritableMemory) {
  fill_registries();
  const FakeMemoryCalls machine({0, 1});
  ASSERT_EQ(allocators().size(), 4u);
  for (const AllocatorType& type : allocators()) {
    SCOPED_TRACE(type.key);
    const auto allocator = create_allocator(type.key);
    EXPECT_STREQ(allocator->key(), type.key);
    for (const u64 bytes : {u64{0}, u64{1}, u64{4096}, u64{4097}, u64{5000000}}) {
      const Allocation result = allocate(*allocator, bytes);
      ASSERT_NE(result.memory, nullptr);
      EXPECT_EQ(result.errors.size(), 0u);
      EXPECT_GE(result.memory->length(), bytes);
      EXPECT_EQ(reinterpret_cast<u64>(result.memory->address()) % 64, 0u);
      std::memset(result.memory->address(), 1, result.memory->length());
      EXPECT_EQ(result.memory->report().total_bytes, result.memory->length());
    }
  }
}

TEST(Allocators, RefuseWhatDoesNotFitTheAddressSpace) {
  fill_registries();
  const FakeMemoryCalls machine({0, 1});
  for (const AllocatorType& type : allocators()) {
    for (const u64 bytes : {~u64{0}, ~u64{0} - 5000, u64{1} << 56}) {
      const Allocation result = allocate(*create_allocator(type.key), bytes);
      EXPECT_EQ(result.memory, nullptr) << type.key;
      EXPECT_EQ(result.errors.size(), 1u) << type.key;
    }
  }
}

TEST(MmapAllocator, LeavesEveryPageResident) {
  const Allocation result = allocate(MmapAllocator(), 10000000);
  ASSERT_NE(result.memory, nullptr);
  EXPECT_EQ(result.memory->length(), 10002432u) << "rounded up to 4096";
  std::vector<unsigned char> resident(result.memory->length() / 4096);
  ASSERT_EQ(mincore(result.memory->address(), result.memory->length(), resident.data()), 0);
  for (const unsigned char page : resident) ASSERT_EQ(page & 1, 1);
  const AllocationReport& report = result.memory->report();
  EXPECT_EQ(report.page_size, 4096u);
  EXPECT_EQ(report.large_page_bytes, 0u);
  EXPECT_EQ(report.locked_bytes, 0u);
  u64 on_nodes = 0;
  for (const auto& [node, bytes] : report.node_bytes) on_nodes += bytes;
  EXPECT_TRUE(report.node_bytes.empty() || on_nodes == report.total_bytes);
}

TEST(MmapAllocator, MapsPopulatesAndTouchesChunkByChunk) {
  const FakeMemoryCalls machine({0});
  const u64 bytes = 11 * kLargePageBytes + 1;
  const Allocation whole = allocate(MmapAllocator(), bytes, 1);
  const u64 populate = MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE;
  ASSERT_EQ(machine.log().size(), 1u) << "one task: one call";
  EXPECT_EQ(machine.log()[0].address, 0u);
  EXPECT_EQ(machine.log()[0].length, bytes + 4095);
  EXPECT_EQ(machine.log()[0].flags, populate);

  // A decomposition of 64 has 16 patterns, whose ends are not those of the chunks.
  for (const u64 tds : {2, 64}) {
    const u64 before = machine.log().size();
    const Allocation chunks = allocate(MmapAllocator(), bytes, tds);
    ASSERT_NE(chunks.memory, nullptr);
    EXPECT_EQ(machine.log()[before].flags, u64{MAP_PRIVATE | MAP_ANONYMOUS}) << "the whole asked for first";
    const auto first = machine.log().begin() + static_cast<std::ptrdiff_t>(before) + 1;
    std::vector<FakeMemoryCalls::Call> calls(first, machine.log().end());
    std::sort(calls.begin(), calls.end(), [](const auto& a, const auto& b) { return a.address < b.address; });
    EXPECT_GT(calls.size(), tds == 64 ? 9u : tds);
    const u64 begin = reinterpret_cast<u64>(chunks.memory->address());
    u64 at = begin;
    for (const auto& call : calls) {
      EXPECT_EQ(call.address, at);
      EXPECT_EQ(call.flags, populate | MAP_FIXED);
      EXPECT_LT(call.length, 6 * kLargePageBytes);
      at += call.length;
      EXPECT_TRUE(at == begin + chunks.memory->length() || at % kLargePageBytes == 0);
    }
    EXPECT_EQ(at, begin + chunks.memory->length());
    ASSERT_NO_FATAL_FAILURE(check_patterns(chunks.memory->address(), chunks.memory->length(), tds));
  }
}

TEST(MmapAllocator, ARefusedChunkFailsTheWhole) {
  FakeMemoryCalls machine({0});
  machine.mapping_error = EAGAIN;
  const Allocation result = allocate(MmapAllocator(), 4 * kLargePageBytes);
  EXPECT_EQ(result.memory, nullptr);
  EXPECT_EQ(result.errors, Texts({"Unable to map memory. (Resource temporarily unavailable)"}));
}

TEST(MmapAllocator, LargePagesAreObtainedOrTheFallBackIsSaid) {
  FakeMemoryCalls machine({0});
  MmapAllocator allocator;
  allocator.set_large_pages(Mode::attempt);
  const Allocation attempted = allocate(allocator, 3000000, 1);
  ASSERT_NE(attempted.memory, nullptr);
  EXPECT_EQ(attempted.memory->report().large_page_bytes, 0u);
  EXPECT_EQ(attempted.memory->report().page_size, kSmallPageBytes);
  EXPECT_EQ(attempted.errors, Texts({"Unable to obtain large pages. (Cannot allocate memory)"}));
  const u64 large = MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE | MAP_HUGETLB;
  ASSERT_EQ(machine.log().size(), 2u);
  EXPECT_EQ(machine.log()[0].flags, large);
  EXPECT_EQ(machine.log()[0].length, 2 * kLargePageBytes);
  EXPECT_EQ(machine.log()[1].flags, large & ~u64{MAP_HUGETLB});

  allocator.set_large_pages(Mode::forced);
  const Allocation refused = allocate(allocator, 3000000);
  EXPECT_EQ(refused.memory, nullptr);
  EXPECT_EQ(refused.errors, Texts({"Unable to force large pages."}));
  EXPECT_EQ(machine.log().size(), 3u) << "nothing else is tried";

  machine.has_large_pages = true;
  const Allocation obtained = allocate(allocator, 3000000);
  ASSERT_NE(obtained.memory, nullptr);
  EXPECT_EQ(obtained.errors, Texts());
  EXPECT_EQ(obtained.memory->length(), 2 * kLargePageBytes);
  EXPECT_EQ(obtained.memory->report().large_page_bytes, 2 * kLargePageBytes);
  EXPECT_EQ(obtained.memory->report().page_size, kLargePageBytes);
}

TEST(MmapAllocator, LocksPagesInTheModeAskedFor) {
  FakeMemoryCalls machine({0});
  MmapAllocator allocator;
  allocator.set_lock_pages(Mode::forced);
  const Allocation locked = allocate(allocator, 100000);
  ASSERT_NE(locked.memory, nullptr);
  EXPECT_EQ(locked.memory->report().locked_bytes, 102400u);
  machine.lock_limit = 200000;
  const Allocation refused = allocate(allocator, 100000);
  EXPECT_EQ(refused.memory, nullptr);
  EXPECT_EQ(refused.errors, Texts({"Unable to force locked pages."}));
  allocator.set_lock_pages(Mode::attempt);
  const Allocation attempted = allocate(allocator, 100000);
  ASSERT_NE(attempted.memory, nullptr);
  EXPECT_EQ(attempted.memory->report().locked_bytes, 0u);
  EXPECT_EQ(attempted.errors, Texts({"Unable to lock pages. (Cannot allocate memory)"}));
}

TEST(MmapAllocatorDeathTest, TheTestOfLockingPrecedesTheFirstBlock) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  const auto calls = [] {
    const FakeMemoryCalls machine({0});
    MmapAllocator allocator;
    allocator.set_lock_pages(Mode::attempt);
    for (int round = 0; round < 2; ++round) allocate(allocator, 100000);
    for (const auto& call : machine.log()) std::cerr << call.name << ' ';
    std::exit(0);
  };
  EXPECT_EXIT(calls(), ::testing::ExitedWithCode(0), "^mlockall munlockall mmap mlock mmap mlock $");
}

void lock_without_permission(Mode mode) {
  const rlimit nothing{0, 0};
  ASSERT_EQ(setrlimit(RLIMIT_MEMLOCK, &nothing), 0);
  MmapAllocator allocator;
  allocator.set_lock_pages(mode);
  for (int round = 0; round < 2; ++round) {
    const Allocation result = allocate(allocator, 100000);
    const bool right =
        mode == Mode::forced
            ? result.memory == nullptr && result.errors.at(0) == "Unable to force locked pages."
            : result.memory != nullptr && result.memory->report().locked_bytes == 0 &&
                  result.errors.size() == 1;
    if (!right) std::exit(5);
  }
}

TEST(MmapAllocatorDeathTest, LockingWithoutPermissionIsSaidOnce) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the sanitizers let every lock of pages succeed without doing it";
#endif
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  for (const Mode mode : {Mode::attempt, Mode::forced}) {
    EXPECT_EXIT(expect_printed_unprivileged(
                    "This process does not have \"CAP_IPC_LOCK\". Page locking will not be possible.\n"
                    "Please run Orvane with elevation to enable page locking.\n",
                    [=] { lock_without_permission(mode); }),
                ::testing::ExitedWithCode(0), "");
  }
}

TEST(Allocators, UnknownKeysAreRefusedByName) {
  fill_registries();
  EXPECT_EQ(message_of([] { create_allocator("heap"); }), "Invalid Memory Allocator: heap");
}

TEST(AllocatorsDeathTest, FailedAllocationAndDoubleRegistrationEndTheProcess) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  const auto fail = [] {
    console_to_stderr();
    Parallelizer_None none;
    std::vector<std::string> errors;
    allocate_or_exit(MmapAllocator(), u64{1} << 56, {none, 1}, errors);
  };
  EXPECT_EXIT(fail(), ::testing::ExitedWithCode(1),
              "Large heap allocation failed.(.|\n)*Failed Allocation(.|\n)*72,057,594,037,927,936");
  const auto register_twice = [] {
    console_to_stderr();
    register_allocators();
    register_allocators();
  };
  EXPECT_EXIT(register_twice(), ::testing::ExitedWithCode(1), "Duplicate Allocator Type");
}

TEST(AllocationReport, ShowsTheNodes) {
  AllocationReport report;
  report.total_bytes = 3 * kLargePageBytes;
  report.node_bytes[0] = report.total_bytes;
  EXPECT_TRUE(report.is_ordinary());
  report.node_bytes = {{0, kLargePageBytes}, {12, 2 * kLargePageBytes}};
  report.locked_bytes = 5;
  EXPECT_FALSE(report.is_ordinary());
  EXPECT_EQ(screen_of("", [&] { report.print(); }),
            "    Total Bytes:        6,291,456 (6.00 MiB)\n"
            "    Page Size:          4,096\n"
            "    Large Page Bytes:   0 (0 bytes)\n"
            "    Locked Bytes:       5 (5 bytes)\n"
            "    NUMA node 0:        2,097,152 (2.00 MiB)\n"
            "    NUMA node 12:       4,194,304 (4.00 MiB)\n");
}

TEST(MmapAllocator, SettingsSurviveTheTrip) {
  MmapAllocator first;
  first.set_large_pages(Mode::attempt);
  first.set_lock_pages(Mode::forced);
  Object object;
  first.write_settings(object);
  MmapAllocator second;
  second.read_object(object);
  EXPECT_EQ(second.large_pages(), Mode::attempt);
  EXPECT_EQ(second.lock_pages(), Mode::forced);
  Object policy;
  policy.add_string("LargePages", "disable");
  policy.add_string("LockPages", "Forced");
  Object wrong;
  wrong.add_object("MemoryPolicy", std::move(policy));
  EXPECT_EQ(message_of<InvalidParametersException>([&] { second.read_object(wrong); }),
            "Invalid value for LockPages. Expected \"disable\", \"attempt\", or \"forced\".");
  EXPECT_EQ(second.large_pages(), Mode::attempt) << "a refused object changes nothing";
  Object older_policy;
  older_policy.add_string("LockedPages", "attempt");
  Object older;
  older.add_object("MemoryPolicy", std::move(older_policy));
  second.read_object(older);
  EXPECT_EQ(second.lock_pages(), Mode::attempt);
  EXPECT_THROW(mode_to_string(static_cast<Mode>(3)), InvalidParametersException);
}

}  // namespace
}  // namespace orl::test
