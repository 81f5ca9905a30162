#include "system/environment.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <utility>

#include "config/parser.h"
#include "config/writer.h"
#include "core/exceptions.h"
#include "core/output.h"
#include "files/file_calls.h"
#include "files/path_check.h"

namespace orl {
namespace {

constexpr const char* kHeader =
    "//\r\n"
    "//  Orvane Environment Configuration File\r\n"
    "//\r\n"
    "\r\n";
constexpr const char* kHardware = "DetectedHardware";
constexpr const char* kPinOrder = "StaticPinOrder";

Array core_array(const std::vector<u32>& cores) {
  Array array;
  for (const u32 core : cores) array.add_integer(core);
  return array;
}

// Which cores there are and to which node each belongs: where ids have moved, settings by id mean other
// cores.
Object hardware_object(const Topology& topology) {
  Object hardware;
  hardware.add_integer("LogicalCores", static_cast<s64>(topology.cores.size()));
  Array nodes;
  for (const NumaNode& node : topology.nodes) {
    Object entry;
    entry.add_integer("Node", node.id);
    entry.add_array("Cores", core_array(node.cores));
    nodes.add_object(std::move(entry));
  }
  hardware.add_array("ThreadNodes", std::move(nodes));
  return hardware;
}

Object default_object(const Topology& topology) {
  Object root;
  root.add_object(kHardware, hardware_object(topology),
                  "Auto-Detected Hardware Topology\r\n"
                  "\r\n"
                  "Leave this section as it is. It is compared with the machine at every start: the\r\n"
                  "settings below are used only while both are the same. To have the file made anew\r\n"
                  "for changed hardware, delete it.");
  root.add_array(kPinOrder, core_array(default_environment(topology).static_pin_order),
                 "Static-Pin Order\r\n"
                 "\r\n"
                 "Pin threads to the following cores in a round-robin fashion.\r\n"
                 "\r\n"
                 "Used by: BBP Digit Extractor\r\n"
                 "         Component Stress Tester");
  return root;
}

bool matches_hardware(const Object& root, const Topology& topology) {
  const Value* hardware = root.find(kHardware);
  return hardware && same_content(*hardware, hardware_object(topology));
}

[[noreturn]] void refuse(const std::string& why) {
  throw InvalidParametersException("parse_environment()", why);
}

std::vector<u32> parse_pin_order(const Array& array, const Topology& topology) {
  if (array.size() == 0) refuse(std::string(kPinOrder) + ": The list of cores cannot be empty.");
  std::vector<u32> order;
  for (u64 i = 0; i < array.size(); i++) {
    const s64 core = array[i].as_integer(kPinOrder).value;
    const auto found = std::find(topology.cores.begin(), topology.cores.end(), core);
    if (found == topology.cores.end())
      refuse(std::string(kPinOrder) + ": There is no core " + std::to_string(core) + ".");
    order.push_back(*found);
  }
  return order;
}

// All of the file or nothing of it becomes visible: other programs may start from the same folder right now.
// The error's text when it cannot be written.
std::optional<std::string> write_whole(const std::string& path, const std::string& text) {
  const std::string temporary = path + "." + std::to_string(getpid()) + ".tmp";
  try {
    save_file(temporary, text);
  } catch (const FileIO::FileException& e) {
    std::remove(temporary.c_str());
    return std::strerror(e.code());
  }
  if (file_calls().rename(temporary.c_str(), path.c_str()) == 0) return {};
  const int code = errno;
  std::remove(temporary.c_str());
  return std::strerror(code);
}

Environment fall_back(const Topology& topology) {
  notice_line("Falling back to default settings...", 'Y');
  return default_environment(topology);
}

Environment load_existing(const std::string& path, const Topology& topology) {
  notice_line("Loading configuration file...", 'w');
  try {
    const std::unique_ptr<Value> file = load_file(path);
    const Object& root = root_object(*file);
    if (matches_hardware(root, topology)) return parse_environment(root, topology);
  } catch (const Exception& e) {
    e.print();
    notice_line("Please fix or delete \"" + path + "\".", 'Y');
    return fall_back(topology);
  }
  notice_line("Unable to load configuration file. The \"DetectedHardware\" section does not", 'Y');
  notice_line("match the current hardware configuration.", 'Y');
  const Environment defaults = fall_back(topology);
  notice_line("Delete \"" + path + "\" to have it made for this hardware.", 'w');
  return defaults;
}

std::optional<Environment>& current() {
  static std::optional<Environment> environment;
  return environment;
}

}  // namespace

Environment default_environment(const Topology& topology) {
  Environment environment;
  std::vector<std::pair<u32, u32>> ranked;
  for (std::size_t i = 0; i < topology.cores.size(); i++)
    ranked.emplace_back(topology.thread_ranks[i], topology.cores[i]);
  std::sort(ranked.begin(), ranked.end());
  for (const auto& [rank, core] : ranked) environment.static_pin_order.push_back(core);
  return environment;
}

std::string environment_text(const Topology& topology) {
  return kHeader + to_string(default_object(topology));
}

Environment parse_environment(const Object& root, const Topology& topology) {
  for (const Object::Node& node : root.nodes())
    if (node.key != kHardware && node.key != kPinOrder) refuse("Unknown key: " + node.key);
  return {parse_pin_order(root.get_array(kPinOrder), topology)};
}

Environment load_environment(const std::string& path, const Topology& topology) {
  notice_line("Loading Environment Configuration...", 'w');
  std::error_code error;
  if (std::filesystem::exists(std::filesystem::symlink_status(path, error)))
    return load_existing(path, topology);
  if (path.empty()) {
    notice_line("No configuration found, and no home folder to keep one in.", 'w');
    return default_environment(topology);
  }
  notice_line("No configuration found. Generating default file...", 'w');
  make_folders(path.substr(0, path.find_last_of('/') + 1));  // a failure shows at the next step
  if (const auto failure = write_whole(path, environment_text(topology))) {
    notice_line("Unable to write \"" + path + "\": " + *failure + ". Using default settings.", 'Y');
    return default_environment(topology);
  }
  return load_existing(path, topology);
}

Environment on_usable_cores(Environment environment, const std::vector<u32>& usable) {
  std::vector<u32> kept;
  std::string left_out;
  for (const u32 core : environment.static_pin_order) {
    if (std::find(usable.begin(), usable.end(), core) != usable.end())
      kept.push_back(core);
    else
      left_out += " " + std::to_string(core);
  }
  if (left_out.empty() || kept.empty()) return environment;
  notice_line("This process may not use all cores. Threads are not pinned to:" + left_out, 'Y');
  environment.static_pin_order = std::move(kept);
  return environment;
}

void set_environment(Environment environment) { current() = std::move(environment); }

const Environment& environment() {
  if (!current()) current() = default_environment(topology());
  return *current();
}

}  // namespace orl
