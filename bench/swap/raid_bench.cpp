// What parity costs: RAID 0 of two drives beside RAID 3 of three, which hold as much data.
//
//   raid_bench [folder] [MB/s of a drive ...]     /dev/shm; 200, 500 and 1000 MB/s by default
//
// The drives are folders of one place that each move no more than the speed given, so that the place should be much
// faster than all of them together, such as memory. One row a speed: MB/s of data, stored and loaded in blocks of 64 MiB,
// median of the rounds, and RAID 3 divided by RAID 0.
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <memory>
#include <thread>

#include "arrays/raid_array.h"
#include "files/file_calls.h"
#include "support/measure.h"

namespace {

using namespace orl;

constexpr u64 kBytes = u64{512} << 20, kBlock = u64{64} << 20;
constexpr int kRounds = 5;

/// File calls that take as long as drives of this speed would.
class SlowDrives final : public FileCalls {
 public:
  explicit SlowDrives(double bytes_per_second) : ns_per_byte_(1e9 / bytes_per_second) {
    set_file_calls(this);
  }
  ~SlowDrives() override { set_file_calls(nullptr); }

  s64 read(int fd, void* buffer, u64 bytes) override {
    return slowed([&] { return FileCalls::read(fd, buffer, bytes); });
  }
  s64 write(int fd, const void* buffer, u64 bytes) override {
    return slowed([&] { return FileCalls::write(fd, buffer, bytes); });
  }
  s64 readv(int fd, const iovec* pieces, int count) override {
    return slowed([&] { return ::readv(fd, pieces, count); });
  }
  s64 writev(int fd, const iovec* pieces, int count) override {
    return slowed([&] { return ::writev(fd, pieces, count); });
  }

 private:
  // Each drive has a thread of its own, which does one call after the other.
  template <class Call>
  s64 slowed(Call&& call) const {
    const auto start = std::chrono::steady_clock::now();
    const s64 moved = call();
    const auto ns = static_cast<s64>(static_cast<double>(std::max<s64>(moved, 0)) * ns_per_byte_);
    std::this_thread::sleep_until(start + std::chrono::nanoseconds(ns));
    return moved;
  }

  double ns_per_byte_;
};

struct Speeds {
  double store, load;
};

// Blocks go through two buffers in turn, as computations do it.
template <class Start>
double speed_of(Start&& start) {
  const double begin = bench::now_ns();
  FarTransfer transfers[2];
  for (u64 i = 0; i < kBytes / kBlock; i++) {
    transfers[i % 2].wait();
    transfers[i % 2] = start(i);
  }
  for (FarTransfer& transfer : transfers) transfer.wait();
  return static_cast<double>(kBytes) / (bench::now_ns() - begin) * 1e3;
}

Speeds measure(const std::string& folder, R03::RaidType type, u64 drives, u8* memory) {
  R03::RaidGroup group{type, {}};
  for (u64 i = 0; i < drives; i++) {
    group.paths.emplace_back(folder + "/drive" + std::to_string(i));
    std::filesystem::create_directories(group.paths.back().path);
  }
  R03::Raid03Descriptor descriptor;
  descriptor.set_group(std::move(group));
  descriptor.prepare();
  SwapDescriptor disk(descriptor);
  const auto object = disk.allocate(kBytes);
  std::vector<double> stores, loads;
  for (int round = 0; round < kRounds; round++) {
    stores.push_back(
        speed_of([&](u64 i) { return object->start_store(memory + i % 2 * kBlock, i * kBlock, kBlock); }));
    loads.push_back(
        speed_of([&](u64 i) { return object->start_load(memory + i % 2 * kBlock, i * kBlock, kBlock); }));
  }
  return {bench::median(stores), bench::median(loads)};
}

}  // namespace

int main(int argc, char** argv) {
  bench::heading("raid_bench", "arrays");
  std::string place = "/dev/shm";
  std::vector<double> drive_speeds;
  for (int i = 1; i < argc; i++) {
    const double speed = std::strtod(argv[i], nullptr);
    if (speed > 0)
      drive_speeds.push_back(speed);
    else
      place = argv[i];
  }
  if (drive_speeds.empty()) drive_speeds = {200, 500, 1000};
  const std::string folder = place + "/raid_bench." + std::to_string(getpid());
  const std::unique_ptr<u8, void (*)(void*)> memory(static_cast<u8*>(std::aligned_alloc(4096, 2 * kBlock)),
                                                    std::free);
  std::memset(memory.get(), 1, 2 * kBlock);
  std::printf("drive MB/s   store RAID 0   RAID 3  ratio    load RAID 0   RAID 3  ratio\n");
  for (const double speed : drive_speeds) {
    const SlowDrives drives(speed * 1e6);
    const Speeds plain = measure(folder, R03::RaidType::raid0, 2, memory.get());
    const Speeds parity = measure(folder, R03::RaidType::raid3, 3, memory.get());
    std::printf("%10.0f %14.0f %8.0f %6.2f %14.0f %8.0f %6.2f\n", speed, plain.store, parity.store,
                parity.store / plain.store, plain.load, parity.load, parity.load / plain.load);
    std::fflush(stdout);
  }
  std::filesystem::remove_all(folder);
}
