// Which frameworks there are, and which one a machine starts with.
#pragma once

#include <memory>
#include <string>

#include "threads/parallelizer.h"
#include "threads/registry.h"

namespace orl {

inline constexpr u64 kMaxTaskDecomposition = 65536;
inline constexpr u64 kMaxThreads = 65536;

using FrameworkType = RegistryEntry<Parallelizer>;

/// Fills the registry: none, spawn, cppasync, pushpool, cilk (only in a build that found its runtime), tbb.
/// To be called once, from main; a key that is registered twice ends the program: "Duplicate Framework Type".
void register_frameworks();
void register_framework(const FrameworkType& type);
/// In order of registration.
const std::vector<FrameworkType>& frameworks();
bool has_framework(const std::string& key);
/// A fresh framework with its default settings. Throws InvalidParametersException "Invalid Parallel
/// Framework: " and the key for one that is not registered.
std::unique_ptr<Parallelizer> create_framework(const std::string& key);

/// n when it is a power of two, otherwise 2n, at most kMaxTaskDecomposition.
u64 default_task_decomposition(u64 logical_cores);
/// pushpool up to 16 logical processors; above, cilk, or tbb when this build has no cilk.
std::string default_framework_key(u64 logical_cores);
/// Throws InvalidParametersException unless 1 <= tds <= kMaxTaskDecomposition.
void check_task_decomposition(u64 tds);
/// A WorkerThreads value of a configuration. Throws InvalidParametersException unless in 0 to kMaxThreads.
u64 checked_thread_count(s64 threads);
/// An answer above kMaxThreads is taken as kMaxThreads.
u64 ask_thread_count(SettingsMenu& menu, const char* prompt);

}  // namespace orl
