#include "memory/node_placement.h"

#include <numaif.h>

#include <algorithm>
#include <cerrno>

#include "memory/mapped_memory.h"
#include "memory/memory_calls.h"

namespace orl {

bool has_numa_nodes() { return memory_calls().numa_available() >= 0 && memory_calls().numa_max_node() > 0; }

int bind_pages(void* address, u64 length, u32 node) {
  if (!has_numa_nodes() || node > static_cast<u32>(memory_calls().numa_max_node())) return 0;
  std::vector<unsigned long> mask(node / 64 + 1);
  mask.back() = 1UL << (node % 64);
  // The kernel leaves out the last bit that it is told of.
  const u64 maxnode = 64 * mask.size() + 1;
  for (const int policy : {MPOL_BIND, MPOL_PREFERRED}) {
    if (memory_calls().mbind(address, length, policy, mask.data(), maxnode, MPOL_MF_MOVE) == 0) return 0;
  }
  return errno;
}

int node_of_page(const void* page) {
  void* where = const_cast<void*>(page);
  int node = -1;
  // A negative status is an error number: a page that is not there yet.
  return memory_calls().move_pages(1, &where, nullptr, &node, 0) == 0 ? node : -1;
}

NodeThread::NodeThread(u32 node) : cores_before_(memory_calls().bound_cores()) {
  const std::vector<NumaNode>& nodes = memory_calls().nodes();
  const auto found =
      std::find_if(nodes.begin(), nodes.end(), [=](const NumaNode& entry) { return entry.id == node; });
  bound_ = found != nodes.end() && memory_calls().bind_thread(found->cores);
}

NodeThread::~NodeThread() {
  if (bound_) memory_calls().bind_thread(cores_before_);
}

std::string failed_thread(u64 thread, u32 node) {
  return "Thread " + std::to_string(thread) + " failed to bind to node " + std::to_string(node);
}

std::string failed_placement(u32 node) {
  return "Unable to place all pages onto node " + std::to_string(node);
}

bool placement_is_unknown(const AllocationReport& sampled) {
  return has_numa_nodes() && sampled.node_bytes.empty();
}

std::string failed_mbind(u32 node, int error) {
  return with_reason("mbind() failed for node " + std::to_string(node) + ".", error);
}

std::unique_ptr<LargeMemory> allocate_local(u64 bytes, u32 node, Mode bind, u64 thread,
                                            std::vector<std::string>& errors) {
  std::unique_ptr<MappedMemory> memory = map_unpopulated(std::max<u64>(bytes, 1));
  if (memory == nullptr) {
    errors.push_back(with_reason("Unable to map memory.", errno));
    return nullptr;
  }
  AllocationReport& report = memory->report_to_fill();
  if (bind == Mode::disabled) {
    touch_memory(memory->address(), memory->length());
    report.node_bytes = sample_nodes(memory->address(), memory->length());
    return memory;
  }
  const NodeThread on_node(node);
  if (!on_node.bound()) errors.push_back(failed_thread(thread, node));
  if (const int error = bind_pages(memory->address(), memory->length(), node); error != 0)
    errors.push_back(failed_mbind(node, error));
  touch_memory(memory->address(), memory->length());
  report.node_bytes = sample_nodes(memory->address(), memory->length());
  const bool elsewhere =
      std::any_of(report.node_bytes.begin(), report.node_bytes.end(),
                  [=](const auto& entry) { return entry.first != static_cast<int>(node); });
  const bool unknown = placement_is_unknown(report);
  if (!elsewhere && !unknown) return memory;
  errors.push_back(unknown ? kUnknownPlacement : failed_placement(node));
  if (bind == Mode::forced) return nullptr;
  return memory;
}

}  // namespace orl
