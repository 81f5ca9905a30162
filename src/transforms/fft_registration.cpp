#include "numbers/algorithm_table.h"
#include "transforms/fft.h"

namespace orl {

void register_fft(AlgorithmRegistry& registry) {
  registry.add("FFT", {&fft_algorithm(), &fft_algorithm(), nullptr, nullptr});
}

}  // namespace orl
