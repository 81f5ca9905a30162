#include "arrays/open_files.h"

#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <string>

#include "core/output.h"

namespace orl {
namespace {

// For everything that is not swap: streams, digit files, libraries.
constexpr u64 kOtherFiles = 64;
std::atomic<bool> g_told{false};

}  // namespace

u64 allow_open_files(u64 wanted) {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return 0;
  const u64 needed = wanted + kOtherFiles;
  if (limit.rlim_cur < needed) {
    limit.rlim_cur = std::min<rlim_t>(needed, limit.rlim_max);
    setrlimit(RLIMIT_NOFILE, &limit);
    getrlimit(RLIMIT_NOFILE, &limit);
  }
  if (limit.rlim_cur < needed && !g_told.exchange(true)) {
    notice_line("This process may have " + std::to_string(limit.rlim_cur) +
                    " files open. A computation on this disk array may need " + std::to_string(needed) +
                    ".\nRaise the limit that `ulimit -Hn` shows, or use fewer paths.",
                'Y');
    output().set_colour('w');
  }
  return limit.rlim_cur;
}

}  // namespace orl
