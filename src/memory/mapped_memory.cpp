#include "memory/mapped_memory.h"

#include <sys/mman.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include "core/output.h"
#include "memory/memory_calls.h"

namespace orl {

namespace {

constexpr int kReadWrite = PROT_READ | PROT_WRITE;
constexpr int kAnonymous = MAP_PRIVATE | MAP_ANONYMOUS;
constexpr int kPopulated = kAnonymous | MAP_POPULATE;
/// Large pages that a task maps at once, and touches before it maps more. While a call populates, mmap() of
/// the other tasks waits: with one call for each task's share they populate one after the other, at 0.63 to
/// 0.71 of the rate of memset. In chunks one task touches while another populates, 0.78 to 0.87; 16 and 32
/// MiB gave 0.78 to 0.89, and below 2 MiB the tasks wait for each other too often (2 tasks, 2 GiB, 2 cores of
/// a virtual machine, bench/memory/population_bench).
constexpr u64 kChunkPages = 4;

std::unique_ptr<MappedMemory> map_pages(u64 bytes, u64 page_size, int flags) {
  const u64 length = (bytes + page_size - 1) & ~(page_size - 1);
  if (length < bytes) {
    errno = ENOMEM;
    return nullptr;
  }
  void* const address = memory_calls().mmap(nullptr, length, kReadWrite, flags);
  if (address == MAP_FAILED) return nullptr;
  return std::make_unique<MappedMemory>(address, length, page_size);
}

std::unique_ptr<MappedMemory> map_and_touch(u64 bytes, u64 page_size, int more_flags,
                                            const ParallelContext& parallel) {
  std::unique_ptr<MappedMemory> memory = map_pages(bytes, page_size, kPopulated | more_flags);
  if (memory != nullptr) touch_memory(memory->address(), memory->length(), parallel);
  return memory;
}

}  // namespace

MappedMemory::MappedMemory(void* address, u64 length, u64 page_size) : LargeMemory(address, length) {
  report_.total_bytes = length;
  report_.page_size = page_size;
  if (page_size == kLargePageBytes) report_.large_page_bytes = length;
}

MappedMemory::~MappedMemory() { memory_calls().munmap(address_, length_); }

std::unique_ptr<MappedMemory> map_large_pages(u64 bytes, const ParallelContext& parallel) {
  return map_and_touch(bytes, kLargePageBytes, MAP_HUGETLB, parallel);
}

// One call for the whole block would clear all of it on this thread, and on this thread's node. The first
// call holds no page but asks for the block as a whole, so that a machine without the memory refuses it
// there.
// Transparent huge pages are left to the system's setting "always"; chunks begin where a huge page may. Where
// it says "madvise", advice would have to come before the pages, hence in place of MAP_POPULATE, and Pi to 50
// million digits gains nothing by them: 5.2 s with small pages, 5.6 s with "always" (2 cores, a virtual
// machine).
std::unique_ptr<MappedMemory> map_small_pages(u64 bytes, const ParallelContext& parallel) {
  if (std::min(parallel.tds, bytes / kLargePageBytes) < 2)
    return map_and_touch(bytes, kSmallPageBytes, 0, parallel);
  std::unique_ptr<MappedMemory> memory = map_unpopulated(bytes);
  if (memory == nullptr) return nullptr;
  char* const base = static_cast<char*>(memory->address());
  const u64 length = memory->length();
  const u64 head = -reinterpret_cast<std::uintptr_t>(base) % kLargePageBytes;
  const u64 pages = (length - head) / kLargePageBytes;  // the first and the last one with what lies beside
  const auto begin_of = [=](u64 page) {
    if (page == 0) return u64{0};
    return page == pages ? length : head + page * kLargePageBytes;
  };
  const u64 tasks = std::min(parallel.tds, pages);
  std::atomic<int> error = 0;
  fork_range(parallel.parallelizer, 0, tasks, [&](u64 k) {
    const u64 last = pages * (k + 1) / tasks;
    for (u64 page = pages * k / tasks; page < last && error == 0; page += kChunkPages) {
      const u64 begin = begin_of(page);
      const u64 end = begin_of(std::min(page + kChunkPages, last));
      if (memory_calls().mmap(base + begin, end - begin, kReadWrite, kPopulated | MAP_FIXED) == MAP_FAILED)
        error = errno;
      else
        touch_part(base, length, parallel.tds, begin, end);
    }
  });
  if (error == 0) return memory;
  memory.reset();
  errno = error;
  return nullptr;
}

std::unique_ptr<MappedMemory> map_unpopulated(u64 bytes) {
  return map_pages(bytes, kSmallPageBytes, kAnonymous);
}

void test_page_locking() {
  static const bool possible = [] {
    if (memory_calls().mlockall(MCL_CURRENT) == 0) {
      memory_calls().munlockall();
      return true;
    }
    notice(
        "This process does not have \"CAP_IPC_LOCK\". Page locking will not be possible.\n"
        "Please run Orvane with elevation to enable page locking.\n",
        'Y');
    output().set_colour('w');
    return false;
  }();
  static_cast<void>(possible);
}

int lock_pages(const void* address, u64 length) {
  return memory_calls().mlock(address, length) == 0 ? 0 : errno;
}

std::string with_reason(const std::string& text, int error) {
  return text + " (" + std::strerror(error) + ")";
}

}  // namespace orl
