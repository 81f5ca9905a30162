// Products of numbers on disks.
//
//   product_bench [option ...] FOLDER...
//
//   -M BYTES      working memory, buffers of the array included (256M)
//   -S LIST       sizes of the products as multiples of it (0.15,0.4,0.7,2,8)
//   -A NAME       family of transforms, C17, N64 or VST (C17)
//   -scheme NAME  one scheme instead of the cheapest: ram, halves, groups, two, three, crt
//   -square       squares instead of products
//   -minIO BYTES  smallest piece worth a seek (1M for each folder with data)
//   -raid3        the last folder holds parity
//   -PF NAME, -TD N   framework and tasks
//   -memory DIR   a place in memory, for the time of computing alone (/dev/shm; "none" leaves it out)
//   -plan         only what the plans say: nothing is moved
//   -check        also compares the residues of operands and product modulo three primes
//
// One row a size. S are the bytes of the product; moved, disk and peak (of the files besides operands and product) are
// multiples of it. `alone` are seconds of computing, measured with all files in memory, and of moving, by the speeds at
// which the same array then stores and loads as much as the memory; `x` is the time divided by the larger of the two. `rss`
// is the largest resident size less M, in MiB. `proc` is what the system has counted on disks divided by what the array has.
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>

#include "core/exceptions.h"
#include "core/number_forms.h"
#include "core/round_up.h"
#include "core/status.h"
#include "outofcore/swap_product.h"
#include "simd/target.h"
#include "support/measure.h"
#include "system/limits.h"
#include "system/machine.h"
#include "threads/frameworks.h"
#include "transforms/registration.h"

namespace {

using namespace orl;

constexpr u64 kMebi = u64{1} << 20;
constexpr u64 kPrimes[] = {0xFFFFFFFFFFFFFFC5, 0x7FFFFFFFFFFFFFE7, 0x3FFFFFFFFFFFFFC7};

[[noreturn]] void refuse(const std::string& text) {
  std::fprintf(stderr, "product_bench: %s\n", text.c_str());
  std::exit(1);
}

struct Options {
  u64 memory = 256 * kMebi, min_io = 0, tds = 0;
  std::vector<double> sizes{0.15, 0.4, 0.7, 2, 8};
  std::string family = "C17", framework, memory_folder = "/dev/shm";
  std::optional<SwapScheme> scheme;
  bool square = false, parity = false, check = false, plan_only = false;
  std::vector<std::string> folders;
};

u64 bytes_of(const std::string& text) {
  const Number number = parse_number(text, NumberForm::kBytes);
  if (!number.is_whole() || number.too_large) refuse("no size: " + text);
  return number.value;
}

SwapScheme scheme_of(const std::string& name) {
  constexpr const char* kNames[] = {"ram", "halves", "groups", "two", "three", "crt"};
  for (u32 i = 0; i < kSwapSchemes; i++)
    if (name == kNames[i]) return static_cast<SwapScheme>(i);
  refuse("no scheme: " + name);
}

const char* name_of(SwapScheme scheme) {
  constexpr const char* kNames[] = {"ram", "halves", "groups", "two", "three", "crt"};
  return kNames[static_cast<u32>(scheme)];
}

Options parse(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; i++) {
    const std::string key = argv[i];
    const auto value = [&]() -> std::string {
      if (++i == argc) refuse(key + " wants a value");
      return argv[i];
    };
    if (key == "-M")
      options.memory = bytes_of(value());
    else if (key == "-minIO")
      options.min_io = bytes_of(value());
    else if (key == "-A")
      options.family = value();
    else if (key == "-PF")
      options.framework = value();
    else if (key == "-TD")
      options.tds = bytes_of(value());
    else if (key == "-memory")
      options.memory_folder = value();
    else if (key == "-scheme")
      options.scheme = scheme_of(value());
    else if (key == "-square")
      options.square = true;
    else if (key == "-raid3")
      options.parity = true;
    else if (key == "-plan")
      options.plan_only = true;
    else if (key == "-check")
      options.check = true;
    else if (key == "-S") {
      options.sizes.clear();
      const std::string list = value();
      for (std::size_t at = 0; at < list.size();) {
        const std::size_t end = std::min(list.find(',', at), list.size());
        options.sizes.push_back(std::strtod(list.substr(at, end - at).c_str(), nullptr));
        at = end + 1;
      }
    } else if (key.starts_with("-"))
      refuse("no option: " + key);
    else
      options.folders.push_back(key);
  }
  if (options.folders.empty()) refuse("which folders?");
  return options;
}

R03::Raid03Descriptor array_on(const std::vector<std::string>& folders, bool parity) {
  R03::Raid03Descriptor descriptor;
  R03::RaidGroup group{parity ? R03::RaidType::raid3 : R03::RaidType::raid0, {}};
  for (const std::string& folder : folders) {
    std::filesystem::create_directories(folder);
    group.paths.emplace_back(folder);
  }
  descriptor.set_group(std::move(group));
  descriptor.prepare();
  return descriptor;
}

/// The bytes of this process that have passed between the system and disks, in both directions.
u64 system_bytes() {
  std::ifstream file("/proc/self/io");
  u64 sum = 0;
  for (std::string line; std::getline(file, line);)
    if (line.starts_with("read_bytes: ") || line.starts_with("write_bytes: "))
      sum += std::strtoull(line.c_str() + line.find(' '), nullptr, 10);
  return sum;
}

void forget_peak() { std::ofstream("/proc/self/clear_refs") << "5"; }

/// Residues of a number modulo kPrimes, of blocks from the lowest up.
class Residues {
 public:
  void add(Words<u32> words) {
    for (int i = 0; i < 3; i++) {
      const u64 p = kPrimes[i];
      u64 block = 0;
      for (u64 j = words.count; j-- > 0;) block = static_cast<u64>((u128{block} << 32 | words.ptr[j]) % p);
      sum_[i] = static_cast<u64>((u128{block} * power_[i] + sum_[i]) % p);
      u64 base = (u64{1} << 32) % p;
      for (u64 e = words.count; e != 0; e >>= 1) {
        if (e & 1) power_[i] = static_cast<u64>(u128{power_[i]} * base % p);
        base = static_cast<u64>(u128{base} * base % p);
      }
    }
  }
  bool is_product_of(const Residues& a, const Residues& b) const {
    for (int i = 0; i < 3; i++)
      if (static_cast<u64>(u128{a.sum_[i]} * b.sum_[i] % kPrimes[i]) != sum_[i]) return false;
    return true;
  }

 private:
  u64 sum_[3] = {}, power_[3] = {1, 1, 1};
};

class Bench {
 public:
  explicit Bench(const Options& options)
      : options_(options),
        family_(find_far_family(options.family)),
        framework_(create_framework(options.framework.empty() ? default_framework_key(processor_count())
                                                              : options.framework)),
        tds_(options.tds != 0 ? options.tds : default_task_decomposition(processor_count())) {
    if (!family_) refuse("no such family: " + options.family);
    framework_->reserve();
  }
  ~Bench() { framework_->reset(); }

  void run() {
    for (const double size : options_.sizes) {
      try {
        row(static_cast<u64>(size * static_cast<double>(options_.memory)));
      } catch (const Exception& e) {
        std::printf("%8.2f  %s %s\n", size, e.function().c_str(), e.message().c_str());
      }
      std::fflush(stdout);
    }
  }

 private:
  struct Run {
    SwapPlan plan;
    double seconds = 0, moving_seconds = 0;
    u64 read = 0, written = 0, peak = 0, resident = 0, system = 0;
    u64 moved() const { return read + written; }
  };

  ParallelContext parallel() const { return {*framework_, tds_}; }

  SwapNumber number(SwapDescriptor& disk, u64 words, u64 seed, const char* name,
                    LinearHeapBuffer memory) const {
    SwapNumber result(disk, words, name);
    const u64 block = std::max<u64>(disk.geometry().row_bytes, 4 * kMebi);
    NumberSink sink(result, 0, block, memory.cut_buffer(NumberSink::bytes(block)));
    std::vector<u32> piece(kMebi / 4);
    u64 x = seed;
    for (u64 done = 0; done < words; done += piece.size()) {
      for (u32& word : piece) {
        x = x * 6364136223846793005 + 1442695040888963407;
        word = static_cast<u32>(x >> 32);
      }
      sink.take({piece.data(), std::min<u64>(piece.size(), words - done)}, parallel());
    }
    sink.finish();
    return result;
  }

  Residues residues_of(const SwapNumber& number, LinearHeapBuffer memory) const {
    Residues residues;
    WordReader reader(number, kMebi, memory, "product_bench");
    for (Words<u32> words = reader.next(parallel()); words.count != 0; words = reader.next(parallel()))
      residues.add(words);
    return residues;
  }

  SwapPlan planned(const R03::Raid03Descriptor& descriptor, u64 product_bytes) const {
    const R03::ArrayGeometry geometry = geometry_of(descriptor, options_.memory);
    const u64 words = std::max<u64>(1, product_bytes / 8), min_io = kMebi * descriptor.data_files();
    const SwapBudget budget{(options_.memory - geometry.buffer_bytes()) / 4096 * 4096,
                            options_.min_io != 0 ? options_.min_io : min_io, geometry.row_bytes, tds_};
    const SwapRequest request = whole_product(words, options_.square ? 0 : words);
    if (!options_.scheme) return plan_swap_product(family_, request, budget);
    const auto plan = plan_swap_product(*options_.scheme, family_, request, budget);
    if (!plan) throw InvalidParametersException("product_bench", "does not fit this scheme");
    return *plan;
  }

  /// Seconds that storing and loading so many bytes takes by itself, by a file as large as the memory.
  double moving_seconds(SwapDescriptor& disk, LinearHeapBuffer memory, u64 read, u64 written) const {
    const u64 row = disk.geometry().row_bytes;
    const u64 block = std::max(row, memory.size / 4 / row * row),
              blocks = std::max<u64>(2, options_.memory / block);
    const auto file = disk.allocate(blocks * block);
    double seconds[2];
    for (const bool store : {true, false}) {
      const double start = bench::now_ns();
      FarTransfer transfers[2];
      for (u64 i = 0; i < blocks; i++) {
        u8* const at = static_cast<u8*>(memory.ptr) + i % 2 * block;
        transfers[i % 2].wait();
        transfers[i % 2] =
            store ? file->start_store(at, i * block, block) : file->start_load(at, i * block, block);
      }
      for (FarTransfer& transfer : transfers) transfer.wait();
      seconds[store] = (bench::now_ns() - start) * 1e-9 / static_cast<double>(blocks * block);
    }
    return seconds[0] * static_cast<double>(read) + seconds[1] * static_cast<double>(written);
  }

  Run measure(const std::vector<std::string>& folders, u64 product_bytes, bool moving) const {
    R03::Raid03Descriptor descriptor = array_on(folders, options_.parity && folders.size() > 1);
    SwapDescriptor disk(descriptor, options_.memory);
    const u64 working = (options_.memory - disk.buffer_bytes()) / 4096 * 4096;
    const std::unique_ptr<void, void (*)(void*)> block(std::aligned_alloc(4096, working), std::free);
    std::memset(block.get(), 1, working);
    const LinearHeapBuffer memory(block.get(), working);

    const u64 words = std::max<u64>(1, product_bytes / 8);
    const SwapNumber a = number(disk, words, 1, "A.sf", memory);
    const SwapNumber b = options_.square ? SwapNumber() : number(disk, words, 2, "B.sf", memory);
    Run run;
    run.plan = planned(descriptor, product_bytes);
    SwapNumber product(disk, run.plan.wanted_words(), "C.sf");
    const u64 used = disk.usage().current();
    forget_peak();
    const u64 read = disk.counters().bytes_read, written = disk.counters().bytes_written,
              system = system_bytes();
    const double start = bench::now_ns();
    swap_multiply(run.plan, family_, {parallel(), disk, memory, silent_status()},
                  {a, options_.square ? nullptr : &b}, product);
    run.seconds = (bench::now_ns() - start) * 1e-9;
    run.system = system_bytes() - system;
    run.read = disk.counters().bytes_read - read;
    run.written = disk.counters().bytes_written - written;
    run.peak = disk.usage().peak() - used;
    run.resident = peak_memory_bytes();
    if (options_.check) {
      const Residues of_a = residues_of(a, memory);
      if (!residues_of(product, memory).is_product_of(of_a, options_.square ? of_a : residues_of(b, memory)))
        refuse("the product is wrong");
    }
    if (moving) run.moving_seconds = moving_seconds(disk, memory, run.read, run.written);
    return run;
  }

  void print_shape(const SwapPlan& plan, double size) const {
    std::printf("%8.2f %9.1f  %-7s %u*%u*2^%-2u", size / static_cast<double>(options_.memory), size / kMebi,
                name_of(plan.scheme), plan.shape.P, plan.shape.k, plan.shape.n);
  }

  void plan_row(u64 product_bytes) const {
    const SwapPlan plan = planned(array_on(options_.folders, options_.parity), product_bytes);
    const double size = static_cast<double>(product_bytes);
    print_shape(plan, size);
    std::printf(" %6s %6.2f %5.1f\n", "", static_cast<double>(plan.traffic()) / size,
                static_cast<double>(plan.disk_bytes) / size);
  }

  void row(u64 product_bytes) const {
    if (options_.plan_only) return plan_row(product_bytes);
    const Run run = measure(options_.folders, product_bytes, true);
    const double size = static_cast<double>(product_bytes);
    double computing = 0;
    const u64 kept = run.peak + 2 * product_bytes;
    if (options_.memory_folder != "none" &&
        std::filesystem::space(options_.memory_folder).available > kept + kept / 8) {
      const std::string folder = options_.memory_folder + "/product_bench." + std::to_string(getpid());
      computing = measure({folder}, product_bytes, false).seconds;
      std::filesystem::remove_all(folder);
    }
    const double larger = std::max(computing, run.moving_seconds);
    print_shape(run.plan, size);
    std::printf(" %6.2f %6.2f %5.1f %9.2f %9.2f %9.2f %5.2f %6.0f %6.3f\n",
                static_cast<double>(run.moved()) / size, static_cast<double>(run.plan.traffic()) / size,
                static_cast<double>(run.peak) / size, run.seconds, computing, run.moving_seconds,
                run.seconds / larger,
                (static_cast<double>(run.resident) - static_cast<double>(options_.memory)) / kMebi,
                static_cast<double>(run.system) / static_cast<double>(run.moved()));
  }

  Options options_;
  const FarFamily* family_;
  std::unique_ptr<Parallelizer> framework_;
  u64 tds_;
};

}  // namespace

int main(int argc, char** argv) {
  bench::heading("product_bench", simd::target_name(simd::active_target()));
  register_frameworks();
  register_multiplication();
  try {
    const Options options = parse(argc, argv);
    std::printf("M %llu MiB, %s\n", static_cast<unsigned long long>(options.memory / kMebi),
                options.square ? "squares" : "products");
    std::printf("%8s %9s  %-7s %-9s %6s %6s %5s %9s %9s %9s %5s %6s %6s\n", "S / M", "S MiB", "scheme",
                "P k n", "moved", "plan", "disk", "seconds", "computing", "moving", "x", "rss", "proc");
    Bench(options).run();
  } catch (const Exception& e) {
    refuse(e.function() + " " + e.message());
  }
}
