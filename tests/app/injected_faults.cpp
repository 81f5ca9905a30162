// The fault seam of tests: flips one bit at a chosen visit of a chosen site, and slows the disk.
//
// ORVANE_TEST_FAULT = "<site>:<visit>:<bit>"; the visit counts from 0, the bit wraps at the size of the data.
// At the site "digit file" the data is a path, and the bit lies in the file. "stop" in place of the bit stops the
// process there until it is told to go on.
// ORVANE_TEST_SLOW = "<milliseconds>" that a transfer of 64 KiB and more takes longer.
#include <signal.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>

#include "core/fault_point.h"
#include "files/file_calls.h"

namespace orl {
namespace {

struct Fault {
  std::string site;
  u64 visit = 0, bit = 0;
  bool stops = false;
};

const Fault& fault() {
  static const Fault instance = [] {
    Fault f;
    const char* const text = std::getenv("ORVANE_TEST_FAULT");
    if (const std::string line = text ? text : ""; !line.empty()) {
      const auto first = line.find(':'), second = line.find(':', first + 1);
      const std::string deed = line.substr(second + 1);
      f = {line.substr(0, first), std::stoull(line.substr(first + 1)), 0, deed == "stop"};
      if (!f.stops) f.bit = std::stoull(deed);
    }
    return f;
  }();
  return instance;
}

void flip_in_file(const std::string& path, u64 bit) {
  std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary | std::ios::ate);
  const u64 size = static_cast<u64>(file.tellg());
  const auto at = static_cast<std::streamoff>(bit / 8 % size);
  file.seekg(at);
  const char byte = static_cast<char>(file.get() ^ (1 << bit % 8));
  file.seekp(at);
  file.put(byte);
}

class SlowFileCalls final : public FileCalls {
 public:
  explicit SlowFileCalls(u64 milliseconds) : milliseconds_(milliseconds) {}
  s64 read(int fd, void* buffer, u64 bytes) override {
    wait(bytes);
    return FileCalls::read(fd, buffer, bytes);
  }
  s64 write(int fd, const void* buffer, u64 bytes) override {
    wait(bytes);
    return FileCalls::write(fd, buffer, bytes);
  }

 private:
  void wait(u64 bytes) const {
    if (bytes >= 65536) std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds_));
  }

  const u64 milliseconds_;
};

const bool slowed = [] {
  const char* const text = std::getenv("ORVANE_TEST_SLOW");
  if (!text) return false;
  static SlowFileCalls calls(std::stoull(text));
  set_file_calls(&calls);
  return true;
}();

}  // namespace

void fault_point(const char* site, void* data, u64 bytes) {
  static std::atomic<u64> visits{0};
  if (bytes == 0 || fault().site != site || visits++ != fault().visit) return;
  if (fault().stops)
    raise(SIGSTOP);
  else if (std::strcmp(site, "digit file") == 0)
    flip_in_file(std::string(static_cast<const char*>(data), bytes), fault().bit);
  else
    static_cast<u8*>(data)[fault().bit / 8 % bytes] ^= static_cast<u8>(1 << fault().bit % 8);
}

}  // namespace orl
