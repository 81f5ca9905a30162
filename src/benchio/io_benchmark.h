// The I/O benchmark: how fast a disk array is, by itself and beside the computation.
#pragma once

#include <memory>

#include "arrays/bytes_per_seek.h"
#include "arrays/raid_descriptor.h"
#include "benchio/io_advice.h"
#include "config/object.h"
#include "memory/allocators.h"
#include "threads/parallelism.h"

namespace orvane {

using orl::u64;

/// What the command line, the menu or a configuration file sets.
struct BenchIoSettings {
  /// The defaults for this machine.
  BenchIoSettings();

  /// Memory of the test: buffers of the array and all that computes.
  u64 memory_bytes;
  orl::BytesPerSeek bytes_per_seek;
  orl::R03::Raid03Descriptor raid;
  orl::Parallelism parallelism;
  std::unique_ptr<orl::MemoryAllocator> allocator;
  bool json_results = false;

  /// Bytes of the file that is written and read.
  u64 file_bytes() const;
  /// Why the benchmark cannot run, and what to do; empty when it can.
  std::string refusal() const;

  /// The keys Memory, BytesPerSeek, RaidFile, Parallelism, Allocator and JsonResults.
  orl::Object to_object() const;
  /// Takes the keys that are there, and the defaults for those that are not. Throws ConfigException.
  void from_object(const orl::Object& object);
};

/// What a run found.
struct BenchIoResults {
  u64 memory_bytes = 0, file_bytes = 0, buffer_bytes = 0, bytes_per_seek = 0;
  u64 overlap_words = 0;  ///< of the squares that were made beside the transfers
  IoMeasurements measured;
};

/// The results for scripts: speeds in bytes per second, sizes in bytes.
orl::Object benchio_object(const BenchIoSettings& settings, const BenchIoResults& results);

/// Runs the benchmark and prints its lines and notes; leaves a file of results where the settings say so. Returns the
/// status of the process. A fault of the array that the user ends is thrown.
int run_io_benchmark(BenchIoSettings& settings);

}  // namespace orvane
