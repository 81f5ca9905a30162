// Sets of more files than take their names together.
#include "viewer/digit_passes.h"

#include <gtest/gtest.h>

#include "core/exceptions.h"
#include "digits/digit_text.h"
#include "digits/text_file.h"
#include "support/fake_file_calls.h"
#include "support/files.h"
#include "support/multiplication.h"
#include "support/random_words.h"
#include "threads/parallelism.h"

namespace orvane {
namespace {

using orl::test::FakeFileCalls;
using orl::test::FileCall;
using orl::test::TemporaryFolder;

constexpr u64 kDigitsPerFile = 100;
constexpr u64 kMoreFiles = 150;  // than one batch
constexpr u64 kFiles = kFilesAtOnce + kMoreFiles;
constexpr u64 kDigits = kFiles * kDigitsPerFile - 1;

// Thousands of files: on a disk they would take seconds.
std::filesystem::path fast_folder() {
  const std::filesystem::path memory = "/dev/shm";
  return std::filesystem::is_directory(memory) ? memory : std::filesystem::temp_directory_path();
}

class LargeSet : public testing::Test {
 protected:
  LargeSet() : digits_(kDigits, '0') {
    calls_.refuse_direct = true;
    for (char& digit : digits_) digit = static_cast<char>('0' + random_.below(10));
    orl::test::write_file(folder_.file("digits.txt"), "3." + digits_);
  }

  // The batches that took their names, as "first-last ", and the failure behind them.
  std::string write(u64 first_id) {
    std::string batches;
    orl::BasicTextReader reader(folder_.file("digits.txt"), 10);
    orl::test::GuardedBlock window(u64{1} << 20);
    orl::Parallelism parallelism;
    try {
      copy_to_set(reader, {folder_.path(), "Set", kDigitsPerFile, kDigits, first_id, kFiles - 1},
                  {parallelism.context(), window.buffer(), orl::silent_status()}, [&](u64 first, u64 last) {
                    batches += std::to_string(first) + "-" + std::to_string(last) + " ";
                  });
    } catch (const orl::Exception& e) {
      batches += e.message();
    }
    return batches;
  }

  std::string file(u64 id) const { return folder_.file("Set/Set - " + std::to_string(id) + ".ovd"); }

  // How many files look finished, which must be the first ones.
  u64 finished() const {
    u64 count = 0;
    while (count < kFiles && std::filesystem::exists(file(count))) count++;
    for (u64 id = count; id < kFiles; id++) EXPECT_FALSE(std::filesystem::exists(file(id))) << id;
    return count;
  }

  void expect_digits(u64 begin, u64 end) const {
    orl::BasicOvdSetReader reader(file(0));
    std::vector<orl::u8> digits(end - begin);
    orl::test::GuardedBlock window(reader.buffer_bytes(end - begin));
    orl::Parallelism parallelism;
    reader.load_digits(digits.data(), begin, end - begin, window.buffer(), parallelism.context());
    std::string text(end - begin, ' ');
    orl::digits_to_text(text.data(), digits.data(), end - begin);
    EXPECT_TRUE(text == digits_.substr(begin, end - begin));
  }

  orl::test::Random random_;
  FakeFileCalls calls_;
  TemporaryFolder folder_{fast_folder()};
  std::string digits_;
};

// Whole batches stay when a later one fails, of which nothing looks finished; the rest can be written behind
// them.
TEST_F(LargeSet, TakesItsNamesBatchByBatch) {
  // A file is renamed twice: an older one of its name is set aside (here is none), then the new one is named.
  constexpr u64 kRenames = 2 * kFilesAtOnce + kMoreFiles + kMoreFiles / 2;
  calls_.fail(FileCall::kRename, EACCES, kRenames, 1);
  EXPECT_EQ(write(0), "0-4095 Unable to rename file.\n\nAccess Denied");
  EXPECT_EQ(calls_.count(FileCall::kRename), kRenames + 1 + kMoreFiles / 2) << "named ones are given back";
  calls_.heal();
  EXPECT_EQ(finished(), kFilesAtOnce);
  expect_digits(0, kFilesAtOnce * kDigitsPerFile);

  EXPECT_EQ(write(kFilesAtOnce), "4096-4245 ");
  EXPECT_EQ(finished(), kFiles);
  expect_digits(kFilesAtOnce * kDigitsPerFile - 10, kDigits);
  for (const auto& entry : std::filesystem::directory_iterator(folder_.file("Set")))
    EXPECT_EQ(entry.path().string().find('('), std::string::npos) << entry.path();
}

}  // namespace
}  // namespace orvane
