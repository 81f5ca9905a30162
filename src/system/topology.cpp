#include "system/topology.h"

#include <sched.h>

#include <algorithm>
#include <compare>
#include <map>
#include <memory>
#include <set>
#include <string_view>

#include "core/output.h"
#include "system/kernel_files.h"

namespace orl {
namespace {

// Which physical core of which socket a logical core is a thread of.
struct Place {
  s64 socket = 0;
  s64 core = 0;
  friend auto operator<=>(const Place&, const Place&) = default;
};

// What /proc/cpuinfo tells, by logical core. A block begins with its "processor" line.
std::map<u32, Place> parse_cpuinfo(const std::string& text) {
  std::map<u32, Place> places;
  Place* place = nullptr;
  for (const std::string_view line : lines_of(text)) {
    const std::size_t colon = line.find(':');
    if (colon == line.npos) continue;
    const std::string_view label = trimmed(line.substr(0, colon));
    const auto ids = parse_id_list(line.substr(colon + 1));
    if (ids.empty()) continue;
    if (label == "processor") {
      place = &places[ids.front()];
      *place = {0, -1 - s64{ids.front()}};  // a core of its own until the block says which
    }
    if (place && label == "physical id") place->socket = ids.front();
    if (place && label == "core id") place->core = ids.front();
  }
  return places;
}

std::vector<u32> online_cores(const std::string& root, const std::map<u32, Place>& cpuinfo) {
  std::vector<u32> cores = parse_id_list(read_kernel_line(root + "sys/devices/system/cpu/online"));
  if (cores.empty())
    for (const auto& [core, place] : cpuinfo) cores.push_back(core);
  if (cores.empty()) cores.push_back(0);
  return cores;
}

// The lowest of the threads that share the physical core names it: core ids repeat from die to die.
Place place_of(const std::string& root, u32 core, const std::map<u32, Place>& cpuinfo) {
  const std::string folder = root + "sys/devices/system/cpu/cpu" + std::to_string(core) + "/topology/";
  const auto listed = cpuinfo.find(core);
  Place place = listed == cpuinfo.end() ? Place{0, -1 - s64{core}} : listed->second;
  if (const auto socket = read_kernel_number(folder + "physical_package_id"))
    place.socket = std::max<s64>(*socket, 0);
  const auto siblings = parse_id_list(read_kernel_line(folder + "thread_siblings_list"));
  if (std::binary_search(siblings.begin(), siblings.end(), core)) place.core = siblings.front();
  return place;
}

void count_places(const std::string& root, const std::map<u32, Place>& cpuinfo, Topology& topology) {
  std::map<Place, u32> threads;
  std::set<s64> sockets;
  for (const u32 core : topology.cores) {
    const Place place = place_of(root, core, cpuinfo);
    topology.thread_ranks.push_back(threads[place]++);
    sockets.insert(place.socket);
  }
  topology.physical_cores = static_cast<u32>(threads.size());
  topology.sockets = static_cast<u32>(sockets.size());
}

std::vector<NumaNode> read_nodes(const std::string& root, const std::vector<u32>& cores) {
  const std::string folder = root + "sys/devices/system/node/";
  std::vector<NumaNode> nodes;
  std::vector<u32> homeless = cores;  // what no node lists goes to the lowest one
  for (const u32 id : parse_id_list(read_kernel_line(folder + "online"))) {
    NumaNode node{id, {}, 0};
    const std::string own = folder + "node" + std::to_string(id) + "/";
    for (const u32 core : parse_id_list(read_kernel_line(own + "cpulist"))) {
      const auto found = std::find(homeless.begin(), homeless.end(), core);
      if (found == homeless.end()) continue;  // offline, or another node's
      homeless.erase(found);
      node.cores.push_back(core);
    }
    node.memory_bytes = kilobytes_field(read_kernel_file(own + "meminfo").value_or(""), "MemTotal:");
    nodes.push_back(std::move(node));
  }
  if (nodes.empty())
    nodes.push_back(
        {0, {}, kilobytes_field(read_kernel_file(root + "proc/meminfo").value_or(""), "MemTotal:")});
  std::vector<u32>& first = nodes.front().cores;
  first.insert(first.end(), homeless.begin(), homeless.end());
  std::sort(first.begin(), first.end());
  return nodes;
}

Topology announce_and_read() {
  notice_line("Parsing Core -> Handle Mappings...", 'w');
  notice_line("Parsing NUMA -> Core Mappings...", 'w');
  return read_topology("/");
}

}  // namespace

u32 Topology::node_of(u32 core) const {
  for (const NumaNode& node : nodes)
    if (std::binary_search(node.cores.begin(), node.cores.end(), core)) return node.id;
  return 0;
}

Topology read_topology(const std::string& root) {
  Topology topology;
  const auto cpuinfo = parse_cpuinfo(read_kernel_file(root + "proc/cpuinfo").value_or(""));
  topology.cores = online_cores(root, cpuinfo);
  count_places(root, cpuinfo, topology);
  topology.nodes = read_nodes(root, topology.cores);
  return topology;
}

const Topology& topology() {
  static const Topology machine = announce_and_read();
  return machine;
}

namespace {

using CoreSet = std::unique_ptr<cpu_set_t, void (*)(cpu_set_t*)>;

CoreSet make_core_set(std::size_t cores) {
  return CoreSet(CPU_ALLOC(cores), [](cpu_set_t* set) { CPU_FREE(set); });
}

}  // namespace

bool bind_thread(const std::vector<u32>& cores) {
  if (cores.empty()) return false;
  const u32 highest = *std::max_element(cores.begin(), cores.end());
  if (highest >= kMaxKernelId) return false;
  const CoreSet set = make_core_set(highest + 1);
  if (!set) return false;
  const std::size_t bytes = CPU_ALLOC_SIZE(highest + 1);
  CPU_ZERO_S(bytes, set.get());
  for (const u32 core : cores) CPU_SET_S(core, bytes, set.get());
  return sched_setaffinity(0, bytes, set.get()) == 0;
}

std::vector<u32> bound_cores() {
  std::vector<u32> cores;
  const CoreSet set = make_core_set(kMaxKernelId);
  const std::size_t bytes = CPU_ALLOC_SIZE(kMaxKernelId);
  if (!set || sched_getaffinity(0, bytes, set.get()) != 0) return cores;
  for (u32 core = 0; core < kMaxKernelId; ++core)
    if (CPU_ISSET_S(core, bytes, set.get())) cores.push_back(core);
  return cores;
}

}  // namespace orl
