#include "files/path_check.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "core/exceptions.h"
#include "files/file_calls.h"
#include "files/raw_file.h"

namespace orl {
namespace {

const char* name_of(const std::string& folder) { return folder.empty() ? "." : folder.c_str(); }

}  // namespace

std::string with_separator(const std::string& folder) {
  if (folder.empty() || folder.back() == '/' || folder.back() == '\\') return folder;
  return folder + "/";
}

namespace {

// 0 when a file can be made in a folder that is there, else the number of the reason.
int why_no_file(const std::string& folder) {
  const std::string path = with_separator(folder) + "pathcheck.sf";
  try {
    RawFile(path, RawFile::Mode::kCreate).close();
  } catch (const FileIO::FileException& e) {
    return e.code() != 0 ? e.code() : EACCES;
  } catch (...) {
    return EACCES;
  }
  return remove_file(path) ? 0 : errno;
}

}  // namespace

bool path_is_writable(const std::string& folder) { return why_no_file(folder) == 0; }

int why_unwritable(const std::string& folder) {
  std::filesystem::path there = name_of(folder);
  std::error_code ignored;
  while (!std::filesystem::exists(there, ignored) && there.has_relative_path()) {
    const std::filesystem::path above = there.parent_path();
    there = above.empty() ? "." : above;
  }
  if (!std::filesystem::is_directory(there, ignored)) return ENOTDIR;
  return why_no_file(there.string());
}

std::string unwritable_text(const std::string& folder, int reason) {
  return "Path is not writable.\nPath: " + (folder.empty() ? "./" : folder) +
         "\nReason: " + std::strerror(reason) + ".\nPlease name a folder that can be written to.";
}

int make_folders(const std::string& folder) {
  std::error_code fault;
  if (!folder.empty()) std::filesystem::create_directories(folder, fault);
  return fault.value();
}

u64 free_bytes(const std::string& folder) {
  struct statvfs found {};
  if (statvfs(name_of(folder), &found) != 0) return ~u64{0};
  return static_cast<u64>(found.f_bavail) * found.f_frsize;
}

u64 file_length_limit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return ~u64{0};
  return limit.rlim_cur;
}

u64 open_file_limit() {
  rlimit limit{};
  return getrlimit(RLIMIT_NOFILE, &limit) == 0 ? limit.rlim_cur : 1024;
}

u64 file_system_of(const std::string& folder) {
  struct stat found {};
  return stat(name_of(folder), &found) == 0 ? found.st_dev : 0;
}

void sync_folder_of(const std::string& path) {
  const std::string folder = path.substr(0, path.find_last_of('/') + 1);
  const int fd = file_calls().open(name_of(folder), O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0);
  if (fd < 0) return;
  file_calls().fsync(fd);
  file_calls().close(fd);
}

}  // namespace orl
