#include "transforms/registration.h"

#include <utility>

#include "multiply/algorithm_table.h"
#include "multiply/basecase_algorithm.h"
#include "transforms/c17/residue.h"
#include "transforms/c17/residue_far.h"
#include "transforms/fft/fft.h"
#include "transforms/hnt/hnt.h"
#include "transforms/hnt/hnt_far.h"
#include "transforms/ntt/ntt.h"
#include "transforms/ntt/ntt_far.h"
#include "transforms/vst/vst.h"
#include "transforms/vst/vst_far.h"

namespace orl {

std::vector<std::string> register_multiplication() {
  AlgorithmRegistry registry;
  register_basecase(registry);
  const auto add = [&](const Algorithm& algorithm) {
    const FarFamily* const far = find_far_family(algorithm.id());
    registry.add(algorithm.id(), {&algorithm, &algorithm, far, far});
  };
  add(fft_algorithm());
  add(n32_algorithm());
  add(n64_algorithm());
  add(hnt_algorithm());
  add(vst_algorithm());
  add(c17_algorithm());
  return initialize_multiplication(std::move(registry));
}

const FarFamily* find_far_family(std::string_view id) {
  for (const FarFamily* family : {&c17_far_family(), &n64_far_family(), &vst_far_family(), &hnt_far_family()})
    if (id == family->id()) return family;
  return nullptr;
}

}  // namespace orl
