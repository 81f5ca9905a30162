// Makes one allocation, checks the touch pattern over the whole block and says what became of it; see
// allocator_calls.py, which watches its system calls.
//
//   allocator_probe KEY BYTES TDS [SETTINGS [NODES]]
//
// SETTINGS  the allocator's object as a configuration file holds it; "" for the defaults
// NODES     "unprivileged": without the right to lock pages; a number: as if there were so many NUMA nodes
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>

#include "config/object.h"
#include "config/parser.h"
#include "core/exceptions.h"
#include "core/settings.h"
#include "memory/allocators.h"
#include "memory/interleave_allocator.h"
#include "memory/memory_calls.h"
#include "memory/pattern.h"
#include "threads/frameworks.h"

namespace {

using namespace orl;

/// The machine's own calls, but more nodes than it has, each with all its cores.
class MoreNodes final : public MemoryCalls {
 public:
  explicit MoreNodes(u32 count) {
    for (u32 id = 0; id < count; ++id) nodes_.push_back({id, topology().cores, 1});
  }
  int numa_max_node() override { return static_cast<int>(nodes_.size()) - 1; }
  const std::vector<NumaNode>& nodes() override { return nodes_; }

 private:
  std::vector<NumaNode> nodes_;
};

bool drop_the_right_to_lock() {
  const rlimit nothing{0, 0};
  return setrlimit(RLIMIT_MEMLOCK, &nothing) == 0 && (geteuid() != 0 || setuid(65534) == 0);
}

bool pattern_is_right(const std::string& key, const LargeMemory& memory, u64 tds) {
  if (key == "malloc") return true;
  if (key != "interleave") {
    test::check_patterns(memory.address(), memory.length(), tds);
  } else {
    const u64 block = interleave_block_bytes(memory.length());
    for (u64 begin = 0; begin < memory.length(); begin += block) {
      test::check_pattern(static_cast<const u8*>(memory.address()) + begin,
                          std::min(block, memory.length() - begin));
    }
  }
  return !::testing::Test::HasFailure();
}

int run(int argc, char** argv) {
  const std::string key = argv[1];
  const u64 tds = std::strtoull(argv[3], nullptr, 10);
  const std::string machine = argc > 5 ? argv[5] : "";
  register_frameworks();
  register_allocators();
  const bool more = !machine.empty() && machine != "unprivileged";
  MoreNodes nodes(more ? static_cast<u32>(std::strtoul(machine.c_str(), nullptr, 10)) : 1);
  if (more) set_memory_calls(&nodes);
  if (machine == "unprivileged" && !drop_the_right_to_lock()) return 4;

  const auto allocator = create_allocator(key);
  if (argc > 4 && *argv[4] != '\0') allocator->read_object(root_object(*parse_text(argv[4])));
  const auto framework = create_framework("pushpool");
  std::vector<std::string> errors;
  const auto memory = allocator->allocate(std::strtoull(argv[2], nullptr, 10), {*framework, tds}, errors);
  for (const std::string& error : errors) std::cout << "Allocation Error: " << error << '\n';
  if (memory == nullptr) return 3;
  settings().colors_enabled = false;
  memory->report().print();
  return pattern_is_right(key, *memory, tds) ? 0 : 5;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) return 2;
  orl::settings().colors_enabled = false;
  try {
    return run(argc, argv);
  } catch (const orl::Exception& failure) {
    failure.print();
    return 1;
  }
}
