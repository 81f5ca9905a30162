#include "support/allocation_counter.h"

#include <atomic>
#include <cerrno>
#include <cstddef>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
// Debian's g++ brings the function without its header.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*)(const volatile void*, std::size_t),
                                                         void (*)(const volatile void*));
#endif

namespace {
std::atomic<orl::u64> calls{0};
}

namespace orl::test {
u64 allocation_calls() { return calls.load(std::memory_order_relaxed); }
}  // namespace orl::test

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)

// The sanitizer has an allocator of its own, which reports to hooks.
namespace {
void count_malloc(const volatile void*, std::size_t) { calls.fetch_add(1, std::memory_order_relaxed); }
void ignore_free(const volatile void*) {}
[[maybe_unused]] const int installed = __sanitizer_install_malloc_and_free_hooks(&count_malloc, &ignore_free);
}  // namespace

#else

// The program's definitions take the place of the C library's, for the library itself as well; operator new
// calls malloc. The C library keeps its allocator under second names.
extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);

void* malloc(std::size_t size) {
  calls.fetch_add(1, std::memory_order_relaxed);
  return __libc_malloc(size);
}
void* calloc(std::size_t count, std::size_t size) {
  calls.fetch_add(1, std::memory_order_relaxed);
  return __libc_calloc(count, size);
}
void* realloc(void* p, std::size_t size) {
  calls.fetch_add(1, std::memory_order_relaxed);
  return __libc_realloc(p, size);
}
void* memalign(std::size_t alignment, std::size_t size) {
  calls.fetch_add(1, std::memory_order_relaxed);
  return __libc_memalign(alignment, size);
}
void* aligned_alloc(std::size_t alignment, std::size_t size) { return memalign(alignment, size); }
int posix_memalign(void** out, std::size_t alignment, std::size_t size) {
  void* const p = memalign(alignment, size);
  if (p == nullptr) return ENOMEM;
  *out = p;
  return 0;
}
}

#endif
