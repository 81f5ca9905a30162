#include "numbers/algorithm_table.h"
#include "transforms/vst.h"

namespace orl {

void register_vst(AlgorithmRegistry& registry) {
  registry.add("VST", {&vst_algorithm(), &vst_algorithm(), nullptr, nullptr});
}

}  // namespace orl
