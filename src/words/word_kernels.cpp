#include "words/word_kernels.h"

#include "words/word_loops.h"

namespace orl {
namespace scalar {
constinit const WordKernels word_kernel_table{
    "scalar", &word_loops::add<u64>, &word_loops::sub<u64>, &word_loops::mul<u64>, &word_loops::hash<u64>,
};
}  // namespace scalar

}  // namespace orl
