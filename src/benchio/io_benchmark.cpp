#include "benchio/io_benchmark.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "arrays/raid_array.h"
#include "config/located.h"
#include "config/writer.h"
#include "console/console.h"
#include "console/console_status.h"
#include "core/exceptions.h"
#include "core/format.h"
#include "core/round_up.h"
#include "core/run_timer.h"
#include "core/version.h"
#include "files/new_file.h"
#include "outofcore/swap_transform.h"
#include "system/limits.h"

namespace orvane {
namespace {

namespace console = orl::console;
using orl::FarMemory;
using orl::FarTransfer;
using orl::Object;
using orl::s64;
using orl::u8;

constexpr u64 kDefaultMemory = u64{1} << 30;
constexpr u64 kMinMemory = u64{32} << 20;
constexpr u64 kPasses = 2;
constexpr u64 kStampDistance = 65536;

double elapsed(double start) { return orl::monotonic_seconds() - start; }

std::string speed_text(double bytes_per_second) {
  return orl::format_binary_size(static_cast<u64>(bytes_per_second)) + "/s";
}

void print_speed(const char* label, double bytes_per_second) {
  console::label_value(label, speed_text(bytes_per_second), 'G');
  console::newline();
}

// The share of the sequential speed, then the speed.
void print_share(const char* label, double share, double sequential) {
  console::label_value(label, orl::format_float(share, 3), 'G');
  console::println("  ( " + speed_text(share * sequential) + " )", 'w');
}

// The file and the memory that it is moved through, in two halves.
class FileTest {
 public:
  FileTest(FarMemory& file, u8* memory, u64 memory_bytes, u64 row_bytes)
      : file_(file),
        half_bytes_(std::min(memory_bytes / 2 / row_bytes * row_bytes, file.size())),
        halves_{memory, memory + half_bytes_} {}

  // Bytes per second of kPasses sweeps. While one half is on its way the other is filled or looked at.
  double sequential(bool write) {
    const double start = orl::monotonic_seconds();
    for (u64 pass = 0; pass < kPasses; pass++) {
      FarTransfer transfers[2];
      u64 index = 0, before = 0;
      for (u64 at = 0; at < file_.size(); at += half_bytes_, index++) {
        const u64 half = index % 2, bytes = std::min(half_bytes_, file_.size() - at);
        transfers[half].wait();
        if (write) {
          stamp(halves_[half], at, bytes);
          transfers[half] = file_.start_store(halves_[half], at, bytes);
        } else {
          transfers[half] = file_.start_load(halves_[half], at, bytes);
          if (index != 0) look(transfers[1 - half], halves_[1 - half], before);
        }
        before = at;
      }
      for (FarTransfer& transfer : transfers) {
        if (write) transfer.wait();
      }
      if (!write) look(transfers[(index + 1) % 2], halves_[(index + 1) % 2], before);
    }
    return static_cast<double>(kPasses * file_.size()) / elapsed(start);
  }

  // Pieces of `piece` bytes, as the passes of a transform take them: the file is a matrix of them, moved by columns.
  double strided(bool write, u64 piece) {
    const u64 pieces = file_.size() / piece;
    if (pieces == 0) return 0;
    const u64 most = std::max<u64>(1, half_bytes_ / piece);
    const u64 rows = std::clamp<u64>(static_cast<u64>(std::sqrt(static_cast<double>(pieces))), 1, most);
    const u64 columns = pieces / rows, stride = columns * piece;
    const double start = orl::monotonic_seconds();
    FarTransfer transfers[2];
    for (u64 column = 0; column < columns; column++) {
      FarTransfer& transfer = transfers[column % 2];
      u8* const half = halves_[column % 2];
      transfer.wait();
      transfer = write ? file_.start_scatter(half, column * piece, piece, stride, rows)
                       : file_.start_gather(half, column * piece, piece, stride, rows);
    }
    for (FarTransfer& transfer : transfers) transfer.wait();
    return static_cast<double>(rows * columns * piece) / elapsed(start);
  }

 private:
  static void stamp(u8* block, u64 offset, u64 bytes) {
    for (u64 i = 0; i + 8 <= bytes; i += kStampDistance) {
      const u64 place = offset + i;
      std::memcpy(block + i, &place, 8);
    }
  }

  void look(FarTransfer& transfer, const u8* block, u64 offset) const {
    transfer.wait();
    const u64 bytes = std::min(half_bytes_, file_.size() - offset);
    for (u64 i = 0; i + 8 <= bytes; i += kStampDistance) {
      u64 place;
      std::memcpy(&place, block + i, 8);
      if (place != offset + i)
        throw orl::FarMemoryException(
            "run_io_benchmark()",
            "The disk array returned other bytes than were written, at " + std::to_string(offset + i) + ".");
    }
  }

  FarMemory& file_;
  u64 half_bytes_;
  u8* halves_[2];
};

BenchIoResults measure(BenchIoSettings& settings) {
  BenchIoResults results;
  IoMeasurements& measured = results.measured;
  results.memory_bytes = settings.memory_bytes;
  results.bytes_per_seek = settings.bytes_per_seek.value(settings.raid);
  results.file_bytes = settings.file_bytes();
  results.buffer_bytes = geometry_of(settings.raid, settings.memory_bytes).buffer_bytes();

  const u64 working = settings.memory_bytes - results.buffer_bytes;
  console::label_value("Working Memory...  ", orl::format_bytes(working), 'G');
  console::newline();
  std::vector<std::string> errors;
  const auto memory =
      orl::allocate_or_exit(*settings.allocator, working, settings.parallelism.context(), errors);
  for (const std::string& error : errors) console::println(error, 'Y');
  console::label_value("I/O Buffers...     ", orl::format_bytes(results.buffer_bytes), 'G');
  console::newline();
  orl::SwapDescriptor disk(settings.raid, settings.memory_bytes, results.file_bytes);
  auto file = disk.allocate(results.file_bytes, "orv_benchtest.sf");
  FileTest test(*file, static_cast<u8*>(memory->address()), working, disk.geometry().row_bytes);

  console::newline();
  print_speed("Sequential Write:         ", measured.sequential_write = test.sequential(true));
  print_speed("Sequential Read:          ", measured.sequential_read = test.sequential(false));
  measured.strided_write = test.strided(true, results.bytes_per_seek) / measured.sequential_write;
  print_share("Threshold Strided Write:  ", measured.strided_write, measured.sequential_write);
  measured.strided_read = test.strided(false, results.bytes_per_seek) / measured.sequential_read;
  print_share("Threshold Strided Read:   ", measured.strided_read, measured.sequential_read);

  // Its place is what the numbers of the next test may take.
  file.reset();
  console::print("\nVST Streaming: ", 'w');
  const orl::OverlapSpeeds overlap = orl::SwapTransform::bench_overlap(
      disk, {results.bytes_per_seek, results.file_bytes}, {memory->address(), working / 64 * 64},
      settings.parallelism.context());
  results.overlap_words = overlap.operand_words;
  measured.computation = overlap.computation;
  measured.disk = overlap.disk;
  console::label_value("\n    Computation:  ", speed_text(overlap.computation), 'G');
  console::label_value("\n    Disk I/O   :  ", speed_text(overlap.disk), 'G');
  console::label_value("\n    Ratio      :  ", orl::format_float(overlap.ratio(), 3),
                       ratio_colour(overlap.ratio()));
  console::newline();
  return results;
}

void leave_results(const BenchIoSettings& settings, const BenchIoResults& results) {
  orl::RunTimer now;
  now.stop();
  const std::string name = orl::write_new_file("I-O Benchmark - " + now.end_stamp(), ".json",
                                               orl::to_json(benchio_object(settings, results)));
  console::label_value("\nResults File:    ", name, 'G');
  console::newline();
}

}  // namespace

BenchIoSettings::BenchIoSettings()
    : memory_bytes(std::max(kMinMemory, std::min(kDefaultMemory, orl::available_memory_bytes() / 2))),
      allocator(orl::create_allocator(orl::default_allocator_key())) {}

// Twice what the array needs at least for one row, and whole rows.
u64 BenchIoSettings::file_bytes() const {
  const u64 row = geometry_of(raid, memory_bytes).row_bytes;
  return std::max(orl::round_up(memory_bytes, row), 2 * row);
}

std::string BenchIoSettings::refusal() const {
  if (memory_bytes < kMinMemory)
    return "The benchmark needs " + orl::format_bytes(kMinMemory) + " of memory at least. Use -M.";
  const u64 buffers = geometry_of(raid, memory_bytes).buffer_bytes();
  if (buffers > memory_bytes / 2)
    return "The buffers of the array take " + orl::format_bytes(buffers) +
           ", more than half of the memory. Use more memory, or smaller buffers.";
  const orl::Limits limits = orl::limits();
  if (memory_bytes > limits.available_bytes)
    return orl::memory_sentence(limits) + " of memory, of which " +
           orl::format_bytes(limits.available_bytes) + " are available. Use less with -M.";
  return "";
}

Object BenchIoSettings::to_object() const {
  Object object;
  object.add_integer("Memory", static_cast<s64>(memory_bytes));
  object.add_integer("BytesPerSeek", static_cast<s64>(bytes_per_seek.setting()));
  object.add_object("RaidFile", raid.to_object());
  Object threads;
  parallelism.write_settings(threads);
  object.add_object("Parallelism", std::move(threads));
  object.add_object("Allocator", allocator->to_object());
  object.add_bool("JsonResults", json_results);
  return object;
}

void BenchIoSettings::from_object(const Object& object) {
  const auto count = [&](const char* key) {
    const s64 value = object.get_integer(key);
    if (value < 0)
      throw orl::InvalidParametersException("BenchIO", std::to_string(value) + " is out of range.");
    return static_cast<u64>(value);
  };
  orl::read_optional_key(object, "Memory", [&] { memory_bytes = count("Memory"); });
  orl::read_optional_key(object, "BytesPerSeek", [&] {
    if (const u64 bytes = count("BytesPerSeek"); bytes != 0) bytes_per_seek.set(bytes);
  });
  orl::read_optional_key(object, "RaidFile", [&] { raid.read_object(object.get_object("RaidFile")); });
  orl::read_optional_key(object, "Parallelism",
                         [&] { parallelism.read_object(object.get_object("Parallelism")); });
  orl::read_optional_key(object, "Allocator", [&] {
    const Object& settings = object.get_object("Allocator");
    auto fresh = orl::create_allocator(settings.get_string("Allocator"));
    fresh->read_object(settings);
    allocator = std::move(fresh);
  });
  orl::read_optional_key(object, "JsonResults", [&] { json_results = object.get_bool("JsonResults"); });
  orl::refuse_unknown_keys(object, to_object());
}

Object benchio_object(const BenchIoSettings& settings, const BenchIoResults& results) {
  const IoMeasurements& measured = results.measured;
  const auto rounded = [](double value) { return static_cast<s64>(std::llround(value)); };
  Object object;
  object.add_string("Program", std::string("Orvane ") + orl::kVersion);
  object.add_object("Settings", settings.to_object());
  object.add_string("Array", settings.raid.to_string());
  object.add_integer("MemoryBytes", static_cast<s64>(results.memory_bytes));
  object.add_integer("BufferBytes", static_cast<s64>(results.buffer_bytes));
  object.add_integer("FileBytes", static_cast<s64>(results.file_bytes));
  object.add_integer("BytesPerSeek", static_cast<s64>(results.bytes_per_seek));
  object.add_integer("SequentialWrite", rounded(measured.sequential_write));
  object.add_integer("SequentialRead", rounded(measured.sequential_read));
  object.add_integer("StridedWrite", rounded(measured.strided_write * measured.sequential_write));
  object.add_integer("StridedRead", rounded(measured.strided_read * measured.sequential_read));
  object.add_integer("OverlapWords", static_cast<s64>(results.overlap_words));
  object.add_integer("Computation", rounded(measured.computation));
  object.add_integer("DiskBesideComputation", rounded(measured.disk));
  orl::Array notes;
  for (const std::string& line : io_advice(measured)) notes.add_string(line);
  object.add_array("Notes", std::move(notes));
  return object;
}

int run_io_benchmark(BenchIoSettings& settings) {
  orl::LinearConsoleNode status(79, 1.0);
  console::newline();
  settings.raid.prepare();
  const BenchIoResults results = measure(settings);
  console::println("\nNotes:\n", 'w');
  for (const std::string& line : io_advice(results.measured)) console::println(line, 'w');
  if (settings.json_results) leave_results(settings, results);
  return 0;
}

}  // namespace orvane
