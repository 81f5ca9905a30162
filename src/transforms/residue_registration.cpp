#include "numbers/algorithm_table.h"
#include "transforms/residue.h"

namespace orl {

void register_c17(AlgorithmRegistry& registry) {
  registry.add("C17", {&c17_algorithm(), &c17_algorithm(), nullptr, nullptr});
}

}  // namespace orl
