// The entry of a fuzzing engine such as libFuzzer. ORVANE_FUZZ_FORMAT names the format; a corpus folder that is
// empty is filled with the format's seeds first.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "core/exceptions.h"
#include "fuzz/formats.h"
#include "memory/allocators.h"
#include "threads/frameworks.h"
#include "transforms/registration.h"

namespace {

const orvane::fuzz::Format& chosen() {
  const char* const name = std::getenv("ORVANE_FUZZ_FORMAT");
  for (const auto& format : orvane::fuzz::formats())
    if (name && std::strcmp(name, format.name) == 0) return format;
  std::fprintf(stderr, "ORVANE_FUZZ_FORMAT must be one of:");
  for (const auto& format : orvane::fuzz::formats()) std::fprintf(stderr, " %s", format.name);
  std::fprintf(stderr, "\n");
  std::exit(2);
}

// The first argument that is a folder is the corpus.
void fill(const std::filesystem::path& corpus) {
  if (!std::filesystem::is_empty(corpus)) return;
  int number = 0;
  for (const std::string& seed : chosen().seeds())
    std::ofstream(corpus / ("seed-" + std::to_string(number++)), std::ios::binary) << seed;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  orl::register_exceptions();
  orl::register_frameworks();
  orl::register_allocators();
  orl::register_multiplication();
  for (int i = 1; i < *argc; i++) {
    if (!std::filesystem::is_directory((*argv)[i])) continue;
    fill((*argv)[i]);
    break;
  }
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const orvane::fuzz::Format& format = chosen();
  format.read(data, size);
  return 0;
}
