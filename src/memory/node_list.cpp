#include "memory/node_list.h"

#include <algorithm>

#include "config/object.h"
#include "console/number_forms.h"
#include "core/console.h"
#include "core/exceptions.h"
#include "memory/memory_calls.h"

namespace orl {

namespace {

/// The kernel's own bound on node numbers (MAX_NUMNODES) is 1024.
constexpr s64 kMostNodes = 1024;

bool exists(u64 node) {
  const std::vector<NumaNode>& nodes = memory_calls().nodes();
  return std::any_of(nodes.begin(), nodes.end(), [=](const NumaNode& entry) { return entry.id == node; });
}

}  // namespace

std::vector<u32> usable_nodes() {
  std::vector<u32> with_memory;
  std::vector<u32> all;
  for (const NumaNode& node : memory_calls().nodes()) {
    all.push_back(node.id);
    if (node.memory_bytes != 0) with_memory.push_back(node.id);
  }
  if (!with_memory.empty()) return with_memory;
  console::println("Unable to find any usable NUMA nodes. Will attempt to use all of them...", 'Y');
  console::println("Will assume all NUMA nodes have usable memory.", 'Y');
  console::set_colour('w');
  return all;
}

std::vector<u32> ask_nodes() {
  console::println("\n\nEnter NUMA node #'s one-by-one. Enter nothing to stop.", 'w');
  std::vector<u32> nodes;
  for (;;) {
    const std::string line = console::read_line("node: ");
    if (line.empty()) return nodes.empty() ? usable_nodes() : nodes;
    const WholeNumber number = parse_whole_number(line);
    if (number.kind == WholeNumber::kExact && exists(number.value)) {
      nodes.push_back(static_cast<u32>(number.value));
    } else {
      console::println("There is no NUMA node \"" + line + "\" on this machine.", 'R');
      console::set_colour('w');
    }
  }
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
