// What the page "Compilation Options" tells: what the compiler and the loader say about this very program.
#include <gnu/libc-version.h>
#include <link.h>

#include "simd/features.h"
#include "system/machine.h"

namespace orl {
namespace {

std::string compiler() {
#if defined(__clang__)
  return "Clang " __clang_version__;
#else
  return "GCC " __VERSION__;
#endif
}

std::string standard_library() {
#if defined(_GLIBCXX_RELEASE)
  return "libstdc++ " + std::to_string(_GLIBCXX_RELEASE) + " (" + std::to_string(__GLIBCXX__) + ")";
#else
  return "libc++ " + std::to_string(_LIBCPP_VERSION);
#endif
}

std::string c_library() {
  return "glibc " + std::to_string(__GLIBC__) + "." + std::to_string(__GLIBC_MINOR__) + ", running on " +
         gnu_get_libc_version();
}

std::string assertions() {
#if defined(NDEBUG)
  return "Off";
#else
  return "On";
#endif
}

// File names of the shared libraries that the process has loaded.
std::vector<std::string> loaded_libraries() {
  std::vector<std::string> names;
  dl_iterate_phdr(
      [](dl_phdr_info* info, std::size_t, void* list) {
        const std::string path = info->dlpi_name ? info->dlpi_name : "";
        const std::string name = path.substr(path.rfind('/') + 1);
        if (name.find(".so") != name.npos) static_cast<std::vector<std::string>*>(list)->push_back(name);
        return 0;
      },
      &names);
  return names;
}

std::string or_none(const std::string& text) { return text.empty() ? "none" : text; }

}  // namespace

std::vector<ReportSection> compilation_sections() {
  using simd::Target;
  std::string targets;
  for (const Target target : {Target::kScalar, Target::kAvx2, Target::kAvx512, Target::kAvx512Ifma})
    targets += (targets.empty() ? "" : ", ") + std::string(simd::target_name(target));
  ReportSection libraries{"Libraries:",
                          {{"Standard Library:", standard_library()}, {"C Library:", c_library()}}};
  for (const std::string& name : loaded_libraries()) libraries.rows.emplace_back("Loaded:", name);
  return {{"Compiler:",
           {{"Name:", compiler()},
            {"Language:", "C++ " + std::to_string(__cplusplus / 100)},
            {"Build Type:", ORVANE_BUILD_TYPE},
            {"Flags:", or_none(ORVANE_BUILD_FLAGS)},
            {"Sanitizers:", or_none(ORVANE_BUILD_SANITIZERS)},
            {"Assertions:", assertions()},
            {"Pointer Size:", std::to_string(8 * sizeof(void*)) + " bits"}}},
          {"Instruction Targets:",
           {{"Compiled In:", targets},
            {"Limit of the Build:", simd::target_name(simd::build_limit())},
            {"Active:", simd::target_name(simd::active_target())}}},
          std::move(libraries)};
}

}  // namespace orl
