// The NUMA nodes over which an allocator spreads its pages: chosen at a prompt or in a configuration file.
#pragma once

#include <string>
#include <vector>

#include "core/settings_menu.h"
#include "core/types.h"

namespace orl {

class Object;

/// What the menus and the reports say of interleaving.
inline constexpr const char* kInterleaveNote =
    "        (This allocator is useful only when there are multiple NUMA nodes.)";
inline constexpr const char* kNothingToInterleave =
    "This machine has only one NUMA node, or does not tell of more: interleaving changes nothing.";

/// Ids of the nodes that have memory. A machine that tells of no memory on any node gets all its nodes, and
/// a notice says so.
std::vector<u32> usable_nodes();

/// Lets the user choose among the nodes of this machine. Without a choice: the usable nodes.
std::vector<u32> ask_nodes(SettingsMenu& menu);

/// "0, 1, 5".
std::string node_list_text(const std::vector<u32>& nodes);

/// The key Nodes. Reading gives `otherwise` when the key is absent and throws InvalidParametersException
/// "Node list cannot be empty.", or for a number that is no node anywhere. A node may stand there more than
/// once.
void write_nodes(Object& object, const std::vector<u32>& nodes);
std::vector<u32> read_nodes(const Object& object, const std::vector<u32>& otherwise);

}  // namespace orl
