#include "arrays/raid_array.h"

#include <gtest/gtest.h>

#include <cstdio>

#include "arrays/array_fixture.h"
#include "arrays/bytes_per_seek.h"
#include "core/exceptions.h"
#include "core/unfinished_files.h"
#include "support/thrown.h"

namespace orl::R03 {
namespace {

constexpr u64 kMega = 1 << 20;

TEST(RaidArray, PutsEachByteWhereTheLayoutSays) {
  std::mt19937_64 random(1);
  Folders folders({"3", "4", "5+1"});
  SwapDescriptor disk(folders.descriptor);
  ASSERT_EQ(disk.geometry().row_bytes, 1966080u);
  const std::vector<u8> bytes = random_bytes(random, 6 * 1966080);
  const auto object = disk.allocate(bytes.size(), "orv_R.sf");
  object->store(bytes.data(), 0, bytes.size());
  const u64 first_path[] = {0, 3, 7};
  std::vector<std::string> files;
  for (u64 i = 0; i < folders.names.size(); i++) files.push_back(folders.file(i, "orv_R.sf"));
  for (u64 a = 0; a < bytes.size(); a++) {
    const BytePlace place = place_of(disk.geometry(), a);
    ASSERT_EQ(static_cast<u8>(files[first_path[place.lane] + place.file][place.offset]), bytes[a]) << a;
  }
  ASSERT_EQ(files[12].size(), files[7].size());
  for (u64 i = 0; i < files[12].size(); i++) {
    u8 sum = 0;
    for (u64 file = 7; file < 13; file++) sum ^= static_cast<u8>(files[file][i]);
    ASSERT_EQ(sum, 0xFF) << i;
  }
  EXPECT_EQ(disk.counters().modified_rows, 0u);
}

// The lines "$ xxd -s 0x7fffc -l 4 A/orv_R.sf      0007fffc: 0707 0707" of docs/disks.md hold of the object described there.
TEST(RaidArray, LiesAsTheDocumentShows) {
  Folders folders({"1", "2+1"});
  SwapDescriptor disk(folders.descriptor);
  std::vector<u8> bytes(1572864);
  for (u64 a = 0; a < bytes.size(); a++) bytes[a] = static_cast<u8>(a / 65536);
  const auto object = disk.allocate(bytes.size(), "orv_R.sf");
  object->store(bytes.data(), 0, bytes.size());
  const std::string document = test::read_file(ORVANE_DOCS "/disks.md");
  u64 lines = 0;
  for (std::size_t at = document.find("$ xxd"); at != std::string::npos;
       at = document.find("$ xxd", at + 1)) {
    unsigned offset, shown_offset, words[2];
    char name;
    ASSERT_EQ(std::sscanf(document.c_str() + at, "$ xxd -s 0x%x -l 4 %c/orv_R.sf %x: %x %x", &offset, &name,
                          &shown_offset, &words[0], &words[1]),
              5);
    const std::string file = folders.file(static_cast<u64>(name - 'A'), "orv_R.sf");
    ASSERT_EQ(shown_offset, offset);
    ASSERT_LE(offset + 4, file.size());
    for (u64 i = 0; i < 4; i++)
      EXPECT_EQ(static_cast<u8>(file[offset + i]), words[i / 2] >> (i % 2 == 0 ? 8 : 0) & 255)
          << name << offset;
    lines++;
  }
  EXPECT_EQ(lines, 9u);
}

// Against an array of bytes in memory. Where there is parity only rows that have been written can be read.
TEST(RaidArray, AgreesWithMemory) {
  const std::vector<std::vector<std::string>> arrangements{{"1"},   {"2"},      {"1+1"},
                                                           {"3+1"}, {"5", "3"}, {"2", "2+1"}};
  for (u64 index = 0; index < arrangements.size(); index++) {
    std::mt19937_64 random(100 + index);
    Folders folders(arrangements[index]);
    SwapDescriptor disk(folders.descriptor);
    const u64 row = disk.geometry().row_bytes, size = 5 * row + 12345;
    const auto object = disk.allocate(size);
    std::vector<u8> model(size);
    std::vector<bool> written(size / row + 1);
    for (int round = 0; round < 60; round++) {
      StridedRange range{random() % size, 1 + random() % (round % 4 == 0 ? 2 * row : 6000), 0,
                         1 + random() % 40};
      range.stride = range.length + (random() % 2 == 0 ? random() % 9000 : random() % row);
      if (random() % 3 == 0)
        range = {range.offset & ~u64{4095}, 4096 * (1 + random() % 99), 4096 * (100 + random() % 99),
                 range.count};
      if (range.length > size) continue;
      range.offset = std::min(range.offset, size - range.length);
      while (range.offset + range.stride * (range.count - 1) + range.length > size) range.count--;
      AlignedBytes buffer(random_bytes(random, range.bytes()));
      bool readable = true;
      const bool store = random() % 2 == 0;
      for (u64 i = 0; i < range.count; i++) {
        const u64 at = range.offset + i * range.stride;
        for (u64 r = at / row; r <= (at + range.length - 1) / row; r++) {
          readable = readable && written[r];
          if (store) written[r] = true;
        }
        if (store) std::memcpy(model.data() + at, buffer.data() + i * range.length, range.length);
      }
      if (store) {
        object->start_scatter(buffer.data(), range.offset, range.length, range.stride, range.count).wait();
      } else if (readable) {
        object->gather(buffer.data(), range.offset, range.length, range.stride, range.count);
        for (u64 i = 0; i < range.count; i++)
          ASSERT_EQ(std::memcmp(model.data() + range.offset + i * range.stride,
                                buffer.data() + i * range.length, range.length),
                    0)
              << "arrangement " << index << " round " << round;
      }
    }
    for (u64 r = 0; r * row < size; r++) {
      if (!written[r]) continue;
      std::vector<u8> buffer(std::min(row, size - r * row));
      object->load(buffer.data(), r * row, buffer.size());
      ASSERT_EQ(std::memcmp(model.data() + r * row, buffer.data(), buffer.size()), 0) << index << " " << r;
    }
  }
}

// Each store begins in the middle of a row that the one before wrote: one row of each is read, and no more.
TEST(RaidArray, ReadsOnlyTheRowsThatAStoreSharesWithOthers) {
  std::mt19937_64 random(3);
  for (const char* lane : {"1", "1+1", "2+1"}) {
    Folders folders({lane});
    SwapDescriptor disk(folders.descriptor);
    const u64 row = disk.geometry().row_bytes, block = 3 * row + 100;
    const auto object = disk.allocate(4 * block);
    const std::vector<u8> bytes = random_bytes(random, 4 * block);
    for (u64 i = 0; i < 4; i++) object->store(bytes.data() + i * block, i * block, block);
    EXPECT_EQ(disk.counters().modified_rows, 3u) << lane;
    if (lane == std::string("1")) {
      EXPECT_EQ(disk.counters().bytes_read, 3u * 4096);
    }
    std::vector<u8> back(4 * block);
    object->load(back.data(), 0, back.size());
    EXPECT_EQ(back, bytes);
    // Of the files of a row that is modified only those are written that change.
    const u64 written = disk.counters().bytes_written;
    object->store(bytes.data(), 0, 4096);
    EXPECT_EQ(disk.counters().bytes_written - written, (lane == std::string("1") ? 1u : 2u) * 4096) << lane;
  }
}

TEST(RaidArray, TransfersOverlapAndKeepTheirOrder) {
  std::mt19937_64 random(4);
  Folders folders({"2+1", "1"});
  SwapDescriptor disk(folders.descriptor);
  const auto object = disk.allocate(8 * kMega), other = disk.allocate(8 * kMega, "orv_T.sf");
  const std::vector<u8> bytes = random_bytes(random, 8 * kMega);
  std::vector<u8> back(8 * kMega), once(8 * kMega);
  {
    std::vector<FarTransfer> transfers;
    for (u64 i = 0; i < 8; i++)
      transfers.push_back(object->start_store(bytes.data() + i * kMega, i * kMega, kMega));
    transfers.push_back(other->start_store(bytes.data(), 0, 8 * kMega));
    for (u64 i = 0; i < 8; i++)
      transfers.push_back(object->start_load(back.data() + i * kMega, i * kMega, kMega));
    other->start_load(once.data(), 0, 8 * kMega).wait();
  }  // what was not waited for has ended here
  EXPECT_EQ(back, bytes);
  EXPECT_EQ(once, bytes);
}

TEST(RaidArray, LeavesNoFileBehindAndTakesNothingTwice) {
  Recorder recorder;
  Folders folders({"2+1"});
  {
    SwapDescriptor disk(folders.descriptor);
    const auto object = disk.allocate(kMega, "orv_R.sf");
    EXPECT_EQ(object->name(), "orv_R.sf");
    EXPECT_EQ(disk.allocate(0)->name().size(), 20u);
    EXPECT_EQ(disk.allocate(1)->name().substr(0, 4), "orv_");
    EXPECT_THROW(disk.allocate(1, "orv_R.sf"), InvalidParametersException) << "the files would be the same";
    EXPECT_THROW(disk.allocate(1, ""), InvalidParametersException);
    EXPECT_THROW(SwapDescriptor{folders.descriptor}, InvalidParametersException) << "in use";
    EXPECT_EQ(folders.files_left(), 3u);
    EXPECT_EQ(disk.usage().current(), kMega);
    EXPECT_EQ(disk.usage().peak(), kMega + 1);
  }
  EXPECT_EQ(folders.files_left(), 0u);
  auto disk = std::make_unique<SwapDescriptor>(folders.descriptor, 0, kMega);
  auto object = disk->allocate(kMega, "orv_Ta.sf");
  disk->allocate(1);
  disk->allocate(2);
  disk.reset();
  EXPECT_EQ(recorder.count("Swap usage exceeded estimated limit.\nCurrent 1,048,577"), 1u) << recorder.text();
  EXPECT_EQ(recorder.count("Attempting to destroy a SwapDescriptor with active allocations.\n    orv_Ta.sf"),
            1u);
  object.reset();
  EXPECT_EQ(folders.files_left(), 0u);
}

// A folder belongs to one array, whoever has the other; what a dead run left goes, but for checkpoints and what is not ours.
TEST(RaidArray, HasItsFoldersForItself) {
  Folders folders({"1+1"});
  for (const char* name :
       {"orv_R.sf", "orv_0123456789abcdef.sf", "orv_checkpoint3_1_R.sf", "R.sf", "orv_R.txt"})
    test::write_file(folders.names[1] + "/" + name, std::string(1000, 'x'));
  Recorder recorder;
  {
    SwapDescriptor disk(folders.descriptor);
    EXPECT_EQ(recorder.text(),
              "Removed 2 files of an earlier run, 2,000 (1.95 KiB), from: " + folders.names[1] + "\n");
    EXPECT_EQ(folders.files_left(), 3u);
    Raid03Descriptor other;
    other.set_group({RaidType::raid0, {folders.names[1]}});
    other.prepare();
    EXPECT_EQ(test::message_of([&] { SwapDescriptor second(other); }),
              "Another disk array is at work in this folder.\nPath: " + folders.names[1] +
                  "\nWait for its end, or choose another folder.");
  }
  EXPECT_NO_THROW(SwapDescriptor{folders.descriptor}) << "the lock has gone with the array";
}

// What a run keeps, the next one finds, under the name that it had last.
TEST(RaidArray, KeepsObjectsForALaterRun) {
  std::mt19937_64 random(8);
  Folders folders({"2+1", "1"});
  const std::vector<u8> bytes = random_bytes(random, 5 * kMega + 77);
  std::vector<u8> back(bytes.size());
  {
    SwapDescriptor disk(folders.descriptor);
    const auto object = disk.allocate(bytes.size(), "orv_R.sf"), other = disk.allocate(kMega, "orv_T.sf");
    object->store(bytes.data(), 0, bytes.size());
    object->flush();
    EXPECT_THROW(object->rename("orv_T.sf"), InvalidParametersException);
    object->rename("orv_checkpoint1_0_R.sf");
    EXPECT_EQ(object->name(), "orv_checkpoint1_0_R.sf");
    object->load(back.data(), 0, back.size());
    EXPECT_EQ(back, bytes);
    object->keep();
  }
  EXPECT_EQ(folders.files_left(), 4u);
  SwapDescriptor disk(folders.descriptor);
  {
    std::fill(back.begin(), back.end(), u8{0});
    const auto object = disk.reopen(bytes.size(), "orv_checkpoint1_0_R.sf");
    object->load(back.data(), 0, back.size());
    EXPECT_EQ(back, bytes);
    std::memset(back.data(), 7, 100);
    object->store(back.data(), 0, 100);  // the rest of the row is still there
    object->load(back.data(), 0, 200);
    EXPECT_EQ(std::memcmp(back.data() + 100, bytes.data() + 100, 100), 0);
    EXPECT_EQ(disk.counters().modified_rows, 1u);
    EXPECT_TRUE(object->kept());
  }
  Recorder recorder;
  EXPECT_THROW(disk.reopen(2 * bytes.size(), "orv_checkpoint1_0_R.sf"), Raid03Exception);
  EXPECT_EQ(recorder.count("bytes instead of"), 1u) << recorder.text();
  EXPECT_EQ(folders.files_left(), 4u) << "nothing is removed that does not fit";
  EXPECT_THROW(disk.reopen(kMega, "orv_S.sf"), Raid03Exception);
}

// What every early end of the program does.
TEST(RaidArray, OnlyKeptFilesOutliveASignal) {
  Folders folders({"1+1"});
  SwapDescriptor disk(folders.descriptor);
  const auto fresh = disk.allocate(kMega, "orv_R.sf"), kept = disk.allocate(kMega, "orv_S.sf");
  const auto named = disk.allocate(kMega, "orv_T.sf");
  kept->keep();
  kept->rename("orv_checkpoint1_0_S.sf");
  named->rename("orv_U.sf");
  remove_unfinished();
  EXPECT_EQ(folders.root.names(), (std::vector<std::string>{"disk0", "disk0/orv_checkpoint1_0_S.sf", "disk1",
                                                            "disk1/orv_checkpoint1_0_S.sf"}));
}

// Bytes that the system has moved between this process and disks, "read_bytes" or "write_bytes".
u64 system_bytes(const std::string& name) {
  const std::string text = test::read_file("/proc/self/io");
  const std::size_t at = text.find("\n" + name + ": ");
  return at == std::string::npos ? 0 : std::stoull(text.substr(at + name.size() + 3));
}

// Unbuffered, so that what is counted has been moved.
TEST(RaidArray, CountsWhatTheSystemCounts) {
  std::mt19937_64 random(6);
  Folders folders({"2+1"});
  SwapDescriptor disk(folders.descriptor);
  const std::vector<u8> bytes = random_bytes(random, 16 * kMega);
  std::vector<u8> back(bytes.size());
  const auto object = disk.allocate(bytes.size());
  const u64 read_before = system_bytes("read_bytes"), written_before = system_bytes("write_bytes");
  object->store(bytes.data(), 0, bytes.size());
  object->load(back.data(), 0, back.size());
  const u64 read = system_bytes("read_bytes") - read_before;
  const u64 written = system_bytes("write_bytes") - written_before;
  EXPECT_EQ(disk.counters().bytes_read, 24 * kMega);
  EXPECT_EQ(disk.counters().bytes_written, 24 * kMega);
  if (read == 0) GTEST_SKIP() << "the temporary folder is no disk";
  EXPECT_NEAR(static_cast<double>(read), 24.0 * kMega, 0.03 * 24 * kMega);
  EXPECT_NEAR(static_cast<double>(written), 24.0 * kMega, 0.03 * 24 * kMega);
}

TEST(RaidArray, BuffersTakeAnEighthOfTheMemory) {
  Folders folders({"7+1"});
  folders.descriptor.set_buffer_per_file(kDefaultBufferPerFile);
  EXPECT_EQ(geometry_of(folders.descriptor, 0).buffer_bytes(), 8 * 64 * kMega);
  EXPECT_LE(geometry_of(folders.descriptor, 256 * kMega).buffer_bytes(), 32 * kMega);
  EXPECT_GE(geometry_of(folders.descriptor, 256 * kMega).buffer_bytes(), 24 * kMega);
  EXPECT_EQ(geometry_of(folders.descriptor, 32 * kMega).lanes[0].blocks_per_buffer, 2u);
  folders.descriptor.set_buffer_per_file(32 * kMega);
  EXPECT_EQ(geometry_of(folders.descriptor, 32 * kMega).buffer_bytes(), 8 * 32 * kMega)
      << "chosen by the user";
}

TEST(FarMemory, ChecksBounds) {
  Folders folders({"1"});
  SwapDescriptor disk(folders.descriptor);
  const auto object = disk.allocate(10000);
  std::vector<u8> buffer(20000);
  u8* const to = buffer.data();
  sfb_t piece(*object, "orv_Ta.sf", 100, 8, 9000);
  object->store(to, 0, 10000);
  EXPECT_NO_THROW(object->load(to, 9000, 1000));
  EXPECT_NO_THROW(object->gather(to, ~u64{0}, ~u64{0}, 5, 0));
  EXPECT_NO_THROW(piece.start_gather(to, 0, 8, 16, 50).wait());
  const struct {
    std::function<void()> use;
    const char* function;
    u64 size, offset, length;
  } rows[] = {
      {[&] { object->load(to, 9000, 1001); }, "FarMemory::load()", 10000, 9000, 1001},
      {[&] { object->start_store(to, ~u64{0}, 2); }, "FarMemory::store()", 10000, ~u64{0}, 2},
      {[&] { object->gather(to, 10, 100, 1000, 11); }, "FarMemory::gather()", 10000, 10010, 100},
      {[&] { object->scatter(to, 0, 1, ~u64{0}, 3); }, "FarMemory::scatter()", 10000, ~u64{0}, 1},
      {[&] { piece.start_load(to, 0, 801); }, "sfb_t::check_load()", 800, 0, 801},
      {[&] { piece.start_store(to, 800, 1); }, "sfb_t::check_store()", 800, 800, 1},
      {[&] { piece.start_gather(to, 8, 8, 16, 51); }, "sfb_t::check_strided_load()", 800, 808, 8},
      {[&] { piece.start_scatter(to, 8, 8, 16, 51); }, "sfb_t::check_strided_store()", 800, 808, 8},
  };
  for (const auto& row : rows) {
    try {
      row.use();
      ADD_FAILURE() << row.function;
    } catch (const FarMemoryOutOfBoundsException& e) {
      EXPECT_EQ(e.function(), row.function);
      EXPECT_EQ(std::tuple(e.object_size(), e.offset(), e.length()),
                std::tuple(row.size, row.offset, row.length));
    }
  }
}

TEST(FarMemory, BytesPerSeekHasBoundsAndGrowsWithTheDrives) {
  Folders folders({"2+1", "3"});
  BytesPerSeek seek;
  EXPECT_EQ(seek.value(folders.descriptor), 5 * kMega);
  seek.set(4096);
  EXPECT_EQ(seek.value(folders.descriptor), 4096u);
  EXPECT_FALSE(seek.is_default());
  EXPECT_THROW(seek.set(4095), InvalidParametersException);
  EXPECT_THROW(seek.set(u64{1} << 63), InvalidParametersException);
  EXPECT_EQ(seek.setting(), 4096u);
  seek.reset();
  EXPECT_TRUE(seek.is_default());
}

}  // namespace
}  // namespace orl::R03
