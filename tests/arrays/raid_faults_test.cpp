#include "arrays/raid_faults.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "arrays/array_fixture.h"
#include "arrays/raid_array.h"
#include "core/exceptions.h"

namespace orl::R03 {
namespace {

using test::DiskCall;
using test::DiskEvent;
using test::FakeDisks;

// The thread sanitizer takes a second for what otherwise takes 20 ms.
#if defined(__SANITIZE_THREAD__)
constexpr int kLostDrives = 16;
constexpr u64 kCallStep = 7;
#else
constexpr int kLostDrives = 100;
constexpr u64 kCallStep = 1;
#endif

u64 threads_now() {
  u64 count = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) count += entry.exists();
  return count;
}

// What a computation does with an array: two objects, blocks and pieces, rows that are shared; true when every byte that
// came back is right.
bool work(Raid03Descriptor& descriptor) {
  std::mt19937_64 random(7);
  SwapDescriptor disk(descriptor);
  const u64 row = disk.geometry().row_bytes, size = 4 * row + 1000;
  std::vector<u8> bytes = random_bytes(random, size), back(size);
  AlignedBytes aligned(bytes);
  const auto first = disk.allocate(size, "orv_Ta.sf");
  FarTransfer one = first->start_store(aligned.data(), 0, size / 2);
  FarTransfer two = first->start_store(bytes.data() + size / 2, size / 2, size - size / 2);
  one.wait();
  two.wait();
  std::fill_n(aligned.data(), size, u8{0});
  first->load(aligned.data(), 0, size);
  if (aligned.content() != bytes) return false;
  for (u64 i = 0; i < 5; i++)
    std::memset(bytes.data() + 100 + i * (row / 2 + 4096), static_cast<int>(i), 9000);
  std::vector<u8> pieces(5 * 9000);
  for (u64 i = 0; i < 5; i++) std::memset(pieces.data() + i * 9000, static_cast<int>(i), 9000);
  first->scatter(pieces.data(), 100, 9000, row / 2 + 4096, 5);
  const auto second = disk.allocate(size, "orv_Tb.sf");
  second->store(bytes.data(), 0, size);
  second->flush();
  std::fill(pieces.begin(), pieces.end(), 255);
  first->gather(pieces.data(), 100, 9000, row / 2 + 4096, 5);
  for (u64 i = 0; i < pieces.size(); i++)
    if (pieces[i] != i / 9000) return false;
  first->load(back.data(), 0, size);
  if (back != bytes) return false;
  second->load(back.data(), 0, size);
  return back == bytes;
}

TEST(RaidFaults, ADriveMayBeLostAtAnyTransfer) {
  std::mt19937_64 random(20261122);
  u64 lost_writes = 0, transfers[2][3] = {};  // by arrangement and drive, of a run that loses none
  for (int trial = 0; trial < kLostDrives; trial++) {
    Folders folders({trial % 2 == 0 ? "2+1" : "1+1"}, memory_folder());
    FakeDisks disks(folders.names);
    Recorder recorder;
    const int drive = static_cast<int>(random() % folders.names.size());
    if (trial < 2) {
      disks.set_rule([&](const DiskEvent& event) {
        if (event.drive >= 0) transfers[trial][event.drive] = event.transfers;
        return test::kGoesOn;
      });
      ASSERT_TRUE(work(folders.descriptor));
    }
    const u64 lost_at = random() % (transfers[trial % 2][drive] - 4);
    bool lost = false, broken = false;
    disks.set_rule([&](const DiskEvent& event) {
      if (event.drive != drive) return test::kGoesOn;
      if (event.transfers >= lost_at && (event.call == DiskCall::read || event.call == DiskCall::write) &&
          !lost) {
        lost = true;
        lost_writes += event.call == DiskCall::write;
      }
      broken = broken || (recorder.count("Marking drive as failed.") != 0 && event.call != DiskCall::close);
      return lost ? EIO : test::kGoesOn;
    });
    ASSERT_TRUE(work(folders.descriptor)) << recorder.text();
    ASSERT_TRUE(lost);
    EXPECT_FALSE(broken) << "a call reached a drive that was flagged";
    EXPECT_EQ(recorder.count("Recovering from parity."), 1u) << recorder.text();
    EXPECT_TRUE(folders.descriptor.groups()[0].paths[static_cast<u64>(drive)].failed());
    EXPECT_EQ(folders.descriptor.groups()[0].tolerance(), 0);
    // The next computation does without it as well.
    const u64 calls = disks.calls_of(drive);
    if (trial % 10 == 0) {
      ASSERT_TRUE(work(folders.descriptor));
    }
    EXPECT_EQ(disks.calls_of(drive), calls);
  }
  EXPECT_GT(lost_writes, kLostDrives / 10u);
  EXPECT_LT(lost_writes, kLostDrives * 9 / 10u);
}

// Faults that go away: of one drive, of two at once, of two until the user is asked, of a group without parity.
TEST(RaidFaults, IntermittentFaultsAreSurvived) {
  const struct {
    const char* lane;
    DiskCall call;
    int drives;  // that fail
    u64 times;   // each
    u64 prompts, recovered, several;
  } rows[] = {
      {"2+1", DiskCall::read, 1, 1, 0, 1, 0}, {"2+1", DiskCall::write, 1, 1, 0, 1, 0},
      {"2+1", DiskCall::read, 2, 1, 0, 0, 1}, {"2+1", DiskCall::write, 2, 2, 0, 0, 2},
      {"2+1", DiskCall::read, 2, 5, 2, 0, 5}, {"2", DiskCall::read, 1, 2, 2, 0, 0},
      {"1", DiskCall::write, 1, 1, 1, 0, 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.lane) + " " + std::to_string(static_cast<int>(row.call)));
    Folders folders({row.lane}, memory_folder());
    FakeDisks disks(folders.names);
    Recorder recorder;
    Answers answers({7, 1, 2, 0, 0, 0});  // what is not offered is asked for again
    std::vector<u64> left(3, row.times);
    disks.set_rule([&](const DiskEvent& event) {
      if (event.call != row.call || event.drive < 0 || event.drive >= row.drives) return test::kGoesOn;
      u64& mine = left[static_cast<u64>(event.drive)];
      return mine == 0 ? test::kGoesOn : (mine--, EIO);
    });
    EXPECT_TRUE(work(folders.descriptor)) << recorder.text();
    EXPECT_EQ(recorder.count("A Raid-File operation has failed."), row.prompts) << recorder.text();
    EXPECT_EQ(recorder.count("Recovering from parity."), row.recovered);
    EXPECT_EQ(recorder.count("Faults have been detected in multiple drives."), row.several);
    EXPECT_EQ(folders.descriptor.groups()[0].paths[0].status, static_cast<s64>(row.recovered));
    EXPECT_EQ(answers.asked, row.prompts == 0 ? 0 : row.prompts + 3);
  }
}

// A write that never came to the disk, and what a power cut takes back, leave old data behind.
TEST(RaidFaults, OldDataShowInTheParity) {
  for (const bool cut : {false, true}) {
    Folders folders({"2+1"});
    FakeDisks disks(folders.names);
    disks.remembers = cut;
    Recorder recorder;
    Answers answers({0, 1, 0});
    SwapDescriptor disk(folders.descriptor);
    const u64 row = disk.geometry().row_bytes;
    std::vector<u8> bytes(2 * row, 1);
    const auto object = disk.allocate(bytes.size(), "orv_Ta.sf");
    object->store(bytes.data(), 0, bytes.size());
    std::fill(bytes.begin(), bytes.end(), 2);
    disks.set_rule([&](const DiskEvent& event) {
      return !cut && event.drive == 1 && event.call == DiskCall::write ? test::kLost : test::kGoesOn;
    });
    object->store(bytes.data(), row, row);
    if (cut) disks.cut_power(1);
    disks.set_rule(nullptr);
    FarTransfer transfer = object->start_load(bytes.data(), 0, bytes.size());
    try {
      transfer.wait();
      ADD_FAILURE();
    } catch (const Raid03Exception& e) {
      EXPECT_EQ(e.code(), 0x20000009);
    }
    EXPECT_EQ(recorder.count("A parity mismatch has been detected."), 3u) << recorder.text();
    EXPECT_THROW(object->store(bytes.data(), 0, 1), Raid03Exception) << "the user has decided to quit";
    EXPECT_EQ(answers.asked, 3u);
  }
}

// Each call of a computation fails once, in each way, and nobody answers: it ends right, or with path, function and number.
TEST(RaidFaults, EveryCallMayFailInEveryWay) {
  for (const char* lane : {"1", "1+1"}) {
    Folders folders({lane}, memory_folder());
    FakeDisks disks(folders.names);
    u64 calls = 0;
    {
      disks.set_rule(nullptr);
      ASSERT_TRUE(work(folders.descriptor));
      calls = disks.calls();
    }
    u64 refused = 0;
    const u64 threads = threads_now();
    for (u64 number = 0; number < calls; number += kCallStep) {
      for (const int way : {EIO, ENOSPC, test::kShort}) {
        Recorder recorder;
        DiskCall struck{};
        disks.set_rule([&](const DiskEvent& event) {
          if (event.number != number) return test::kGoesOn;
          struck = event.call;
          return way;
        });
        bool right = false;
        const std::string where = std::string(lane) + " call " + std::to_string(number) + " kind " +
                                  std::to_string(static_cast<int>(struck));
        try {
          right = work(folders.descriptor);
          EXPECT_TRUE(right) << where;
        } catch (const Raid03Exception& e) {
          refused++;
          EXPECT_EQ(e.path().find(folders.root.path()), 0u) << where;
          EXPECT_EQ(e.code(), way == test::kShort ? 0 : way) << where;
          EXPECT_FALSE(e.function().empty());
          EXPECT_EQ(recorder.count("A Raid-File operation has failed."), 1u) << where << recorder.text();
          EXPECT_EQ(recorder.count("option: 3\n"), 1u) << where;
        }
        // A file that could not be removed stays, and is in nobody's way.
        EXPECT_LE(folders.files_left(), struck == DiskCall::unlink ? 1u : 0u) << where;
        for (const std::string& folder : folders.names)
          for (const auto& entry : std::filesystem::directory_iterator(folder))
            std::filesystem::remove(entry);
      }
    }
    EXPECT_EQ(threads_now(), threads);
    EXPECT_GT(refused, 0u) << lane;
  }
}

// Files that cannot be opened are asked about, with what the group can still lose.
TEST(RaidFaults, ADriveThatTakesNoFileIsFlaggedByTheUser) {
  Folders folders({"1+1"});
  FakeDisks disks(folders.names);
  Recorder recorder;
  Answers answers({2, 0, 1});
  disks.set_rule([](const DiskEvent& event) {
    return event.drive == 0 && event.call == DiskCall::open ? EACCES : test::kGoesOn;
  });
  EXPECT_TRUE(work(folders.descriptor)) << recorder.text();
  const std::string path = folders.names[0] + "/orv_Ta.sf";
  const std::string prompt = "\nA Raid-File operation has failed.\nPath:  " + path +
                             "\n\nThis raid group can tolerate 1 more failure. (excluding this one)\n\n"
                             "What do you wish to do?\n\n"
                             "  0  -  Re-attempt the operation. (This may solve intermittent failures.)\n"
                             "  1  -  Flag the drive as failed and continue.\n"
                             "        (This raid group will not be able to tolerate anymore failures.)\n"
                             "  2  -  Rebuild this drive onto a new path and continue.\n"
                             "        (Not Implemented Yet)\n"
                             "  3  -  Quit.\n\n"
                             "option: ";
  EXPECT_EQ(recorder.count(prompt), 2u) << recorder.text();
  // Another drive of the group cannot be spared any more.
  disks.set_rule([](const DiskEvent& event) {
    return event.drive == 1 && event.call == DiskCall::read ? EIO : test::kGoesOn;
  });
  EXPECT_THROW(work(folders.descriptor), Raid03Exception);
  EXPECT_EQ(recorder.count("This raid group can tolerate 0 more failures. (excluding this one)\n\n"
                           "What do you wish to do?\n\n"
                           "  0  -  Re-attempt the operation. (This may solve intermittent failures.)\n"
                           "  1  -  Flag the drive as failed and continue.\n"
                           "  2  -  Rebuild the drive on a different path.\n"
                           "  3  -  Quit.\n\noption: 3\n"),
            1u)
      << recorder.text();
}

TEST(RaidFaults, FoldersAreTriedBeforeTheyAreUsed) {
  for (const char* lane : {"2+1", "2"}) {
    Recorder recorder;
    Folders folders({lane});
    EXPECT_EQ(recorder.text(), "");
    std::filesystem::remove(folders.names[1]);
    folders.descriptor.prepare();
    EXPECT_EQ(recorder.text(), "Unable to write to: " + folders.names[1] + "\nMarking drive as failed.\n");
    EXPECT_EQ(shown_status(folders.descriptor.groups()[0].paths[1].status), "   ( Status: Failed )");
    if (lane == std::string("2+1")) {
      EXPECT_TRUE(work(folders.descriptor));
    } else {
      EXPECT_THROW(work(folders.descriptor), InvalidParametersException) << "not ready to use";
    }
  }
  Raid03Descriptor fresh;
  EXPECT_THROW(SwapDescriptor{fresh}, InvalidParametersException) << "not prepared";
  RaidGroup group;
  group.mark_failed(0);
  EXPECT_THROW(group.mark_failed(0), Raid03Exception);
  EXPECT_EQ(shown_status(0), "   ( Status: ok )");
  EXPECT_EQ(shown_status(1), "   ( Status: 1 error )");
  EXPECT_EQ(shown_status(2), "   ( Status: 2 errors )");
}

TEST(RaidFaults, TwoPathsAreTwoFolders) {
  Folders folders({"2"});
  const std::string& a = folders.names[0];
  std::filesystem::create_directory_symlink(a, folders.root.file("link"));
  Raid03Descriptor descriptor;
  for (const std::string& same : {a, a + "/", a + "/../disk0", folders.root.file("link")}) {
    EXPECT_THROW(descriptor.set_group({RaidType::raid0, {a, same}}), InvalidParametersException) << same;
    EXPECT_THROW(descriptor.set_lanes({{RaidType::raid0, {a}}, {RaidType::raid0, {same}}}),
                 InvalidParametersException);
  }
  EXPECT_NO_THROW(descriptor.set_group({RaidType::raid0, {a, folders.names[1]}}));
  EXPECT_THROW(descriptor.set_group({RaidType::raid0, {"", "."}}), InvalidParametersException);
}

}  // namespace
}  // namespace orl::R03
