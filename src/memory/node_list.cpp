#include "memory/node_list.h"

#include "config/object.h"
#include "core/exceptions.h"
#include "core/output.h"
#include "memory/memory_calls.h"

namespace orl {

namespace {

/// The kernel's own bound on node numbers (MAX_NUMNODES) is 1024.
constexpr s64 kMostNodes = 1024;

std::vector<u32> all_nodes() {
  std::vector<u32> ids;
  for (const NumaNode& node : memory_calls().nodes()) ids.push_back(node.id);
  return ids;
}

}  // namespace

std::vector<u32> usable_nodes() {
  std::vector<u32> with_memory;
  for (const NumaNode& node : memory_calls().nodes()) {
    if (node.memory_bytes != 0) with_memory.push_back(node.id);
  }
  if (!with_memory.empty()) return with_memory;
  notice_line("Unable to find any usable NUMA nodes. Will attempt to use all of them...", 'Y');
  notice_line("Will assume all NUMA nodes have usable memory.", 'Y');
  output().set_colour('w');
  return all_nodes();
}

std::vector<u32> ask_nodes(SettingsMenu& menu) {
  const std::vector<u32> nodes = menu.ask_nodes(all_nodes());
  return nodes.empty() ? usable_nodes() : nodes;
}

std::string node_list_text(const std::vector<u32>& nodes) {
  std::string text;
  for (const u32 node : nodes) text += (text.empty() ? "" : ", ") + std::to_string(node);
  return text;
}

void write_nodes(Object& object, const std::vector<u32>& nodes) {
  Array list;
  for (const u32 node : nodes) list.add_integer(node);
  object.add_array("Nodes", std::move(list));
}

std::vector<u32> read_nodes(const Object& object, const std::vector<u32>& otherwise) {
  if (!object.contains("Nodes")) return otherwise;
  const Array& list = object.get_array("Nodes");
  if (list.size() == 0) throw InvalidParametersException("read_nodes()", "Node list cannot be empty.");
  std::vector<u32> nodes;
  for (u64 i = 0; i < list.size(); ++i) {
    const s64 node = list[i].as_integer("Nodes").value;
    if (node < 0 || node >= kMostNodes)
      throw InvalidParametersException("read_nodes()", "Invalid NUMA node: " + std::to_string(node) +
                                                           ". Expected 0 to " +
                                                           std::to_string(kMostNodes - 1) + ".");
    nodes.push_back(static_cast<u32>(node));
  }
  return nodes;
}

}  // namespace orl
