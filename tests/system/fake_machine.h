// A made-up machine: files below a folder that stands for the root of the file system.
#pragma once

#include <filesystem>
#include <string>

#include "core/types.h"
#include "support/files.h"

namespace orl::test {

class FakeMachine {
 public:
  /// With the separator at its end.
  std::string root() const { return folder_.path() + "/"; }

  FakeMachine& put(const std::string& name, const std::string& text) {
    const std::string path = folder_.file(name);
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    write_file(path, text);
    return *this;
  }
  FakeMachine& online(const std::string& cores) { return put("sys/devices/system/cpu/online", cores + "\n"); }
  FakeMachine& core(u32 id, s32 socket, const std::string& siblings) {
    const std::string folder = "sys/devices/system/cpu/cpu" + std::to_string(id) + "/topology/";
    put(folder + "physical_package_id", std::to_string(socket) + "\n");
    return put(folder + "thread_siblings_list", siblings + "\n");
  }
  FakeMachine& nodes(const std::string& ids) { return put("sys/devices/system/node/online", ids + "\n"); }
  FakeMachine& node(u32 id, const std::string& cores, u64 kilobytes) {
    const std::string folder = "sys/devices/system/node/node" + std::to_string(id) + "/";
    put(folder + "cpulist", cores + "\n");
    return put(folder + "meminfo", "Node " + std::to_string(id) + " MemTotal:       " +
                                       std::to_string(kilobytes) + " kB\nNode 0 MemFree: 1 kB\n");
  }

 private:
  TemporaryFolder folder_;
};

}  // namespace orl::test
