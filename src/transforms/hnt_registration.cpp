#include "numbers/algorithm_table.h"
#include "transforms/hnt.h"

namespace orl {

void register_hnt(AlgorithmRegistry& registry) {
  registry.add("HNT", {&hnt_algorithm(), &hnt_algorithm(), nullptr, nullptr});
}

}  // namespace orl
