// Streams of digits on the disk: text files and sets of compressed files.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <thread>

#include "digits/digit_text.h"
#include "digits/digit_words.h"
#include "digits/digit_writer.h"
#include "digits/hashed_digits.h"
#include "digits/ovd_set.h"
#include "digits/text_file.h"
#include "support/child.h"
#include "support/fake_file_calls.h"
#include "support/files.h"
#include "support/multiplication.h"
#include "support/random_words.h"
#include "support/test_parallelizers.h"
#include "support/thrown.h"
#include "threads/frameworks.h"
#include "words/hash.h"

namespace orl::test {
namespace {

constexpr const char* kName = "Pi - Dec - Test";

struct Shape {
  u32 radix;
  u64 digits_per_file;
};

std::vector<u8> random_digits(Random& random, u32 radix, u64 count) {
  std::vector<u8> digits(count);
  for (u8& digit : digits) digit = static_cast<u8>(random.below(8) ? random.below(radix) : radix - 1);
  return digits;
}

using Window = GuardedBlock;  // of exactly as many bytes as are asked for

ReverseOrder& reversed() {
  static ReverseOrder framework;
  return framework;
}
ParallelContext one_task() { return {reversed(), 1}; }

void store(DigitWriter& writer, const std::vector<u8>& digits, u64 begin, u64 end,
           ParallelContext parallel = one_task()) {
  Window window(writer.buffer_bytes(end - begin));
  writer.store_digits(digits.data() + begin, begin, end - begin, window.buffer(), parallel);
  EXPECT_TRUE(window.intact());
}

std::unique_ptr<DigitWriter> make_writer(const TemporaryFolder& folder, Shape shape, u64 total) {
  return make_digit_writer(folder.path(), kName, "3.", shape.radix, shape.digits_per_file, total);
}

// A finished stream.
std::unique_ptr<DigitReader> write_stream(const TemporaryFolder& folder, Shape shape,
                                          const std::vector<u8>& digits) {
  const auto writer = make_writer(folder, shape, digits.size());
  store(*writer, digits, 0, digits.size());
  return writer->close_and_get_basic_reader();
}

std::vector<u8> load(DigitReader& reader, u64 begin, u64 end, ParallelContext parallel = one_task()) {
  std::vector<u8> digits(end - begin);
  Window window(reader.buffer_bytes(end - begin));
  reader.load_digits(digits.data(), begin, end - begin, window.buffer(), parallel);
  EXPECT_TRUE(window.intact());
  return digits;
}

bool looks_finished(const std::string& name) {
  return (name.ends_with(".txt") || name.ends_with(".ovd")) &&
         name.find(" (incomplete).") == std::string::npos && name.find(" (replaced).") == std::string::npos;
}
u64 finished_files(const TemporaryFolder& folder) {
  const auto names = folder.names();
  return static_cast<u64>(std::count_if(names.begin(), names.end(), looks_finished));
}

class DigitFiles : public testing::TestWithParam<Shape> {
 protected:
  // Through the cache, since a disk takes most of the time; some tests turn to unbuffered files.
  DigitFiles() { calls_.refuse_direct = true; }

  Random random_;
  FakeFileCalls calls_;
  TemporaryFolder folder_;
};
INSTANTIATE_TEST_SUITE_P(Shapes, DigitFiles,
                         testing::Values(Shape{10, 0}, Shape{16, 0}, Shape{10, 100}, Shape{10, 4097},
                                         Shape{16, 1000}, Shape{10, kSingleFile}, Shape{16, kSingleFile}),
                         [](const auto& shape) {
                           const u64 size = shape.param.digits_per_file;
                           return (shape.param.radix == 10 ? "Dec" : "Hex") + (size == 0 ? std::string("Text")
                                                                               : size == kSingleFile
                                                                                   ? std::string("One")
                                                                                   : std::to_string(size));
                         });

// Sizes around words, pages (a text file begins with two characters), and files.
constexpr u64 kSizes[] = {100, 101, 113, 114, 115, 4093, 4094, 4095, 8191, 9727};

TEST_P(DigitFiles, HoldWhatWasStoredInAnyOrder) {
  for (const u64 size : kSizes) {
    SCOPED_TRACE(size);
    calls_.refuse_direct = size % 2 == 0;
    const TemporaryFolder folder;
    const std::vector<u8> digits = random_digits(random_, GetParam().radix, size);
    const auto writer = make_writer(folder, GetParam(), size);
    EXPECT_EQ(writer->radix(), GetParam().radix);
    std::vector<std::pair<u64, u64>> pieces;
    const u64 longest = random_.coin() ? 40 : 3000;
    for (u64 at = 0; at < size;) {
      const u64 end = std::min(size, at + 1 + random_.below(longest));
      pieces.emplace_back(at, end);
      at = end;
    }
    while (!pieces.empty()) {
      const u64 pick = random_.below(pieces.size());
      store(*writer, digits, pieces[pick].first, pieces[pick].second);
      pieces.erase(pieces.begin() + static_cast<s64>(pick));
    }
    EXPECT_EQ(finished_files(folder), 0u) << "before the close";
    const auto reader = writer->close_and_get_basic_reader();
    EXPECT_EQ(reader->radix(), GetParam().radix);
    EXPECT_EQ(reader->first_digits(), "3.");
    EXPECT_EQ(reader->total_digits(), size);
    EXPECT_TRUE(load(*reader, 0, size) == digits);
    for (int i = 0; i < 20; i++) {
      const u64 begin = random_.below(size), end = begin + random_.below(size - begin + 1);
      EXPECT_TRUE(load(*reader, begin, end) == std::vector<u8>(digits.begin() + static_cast<s64>(begin),
                                                               digits.begin() + static_cast<s64>(end)));
    }
    EXPECT_NO_THROW(reader->check_as_written("3.", GetParam().digits_per_file, size));
    EXPECT_TRUE(load(*open_digits(writer->path()), 0, size) == digits);
  }
}

TEST_P(DigitFiles, MayBeWrittenByManyThreads) {
  const u64 size = 150000, piece = 1013;  // neither words nor pages
  const std::vector<u8> digits = random_digits(random_, GetParam().radix, size);
  Shape shape = GetParam();
  if (shape.digits_per_file == 100) shape.digits_per_file = 20000;
  const auto writer = make_writer(folder_, shape, size);
  const auto store_piece = [&](u64 i, ParallelContext parallel) {
    store(*writer, digits, i * piece, std::min(size, (i + 1) * piece), parallel);
  };
  const u64 pieces = (size + piece - 1) / piece;
  // A work-stealing framework may hand a waiting thread another piece of the same file.
  const auto stealing = create_framework("tbb");
  fork_range(*stealing, 0, pieces / 2, [&](u64 i) { store_piece(i, {*stealing, 4}); });
  std::vector<std::thread> threads;
  for (u64 t = 0; t < 4; t++)
    threads.emplace_back([&, t] {
      for (u64 i = pieces / 2 + t; i < pieces; i += 4) store_piece(i, one_task());
    });
  for (std::thread& thread : threads) thread.join();
  const auto reader = writer->close_and_get_basic_reader();
  std::vector<u8> back(size);
  fork_range(*stealing, 0, 8, [&](u64 i) {
    const auto part = load(*reader, i * size / 8, (i + 1) * size / 8, {*stealing, 4});
    std::copy(part.begin(), part.end(), back.begin() + static_cast<s64>(i * size / 8));
  });
  EXPECT_TRUE(back == digits);
}

TEST_P(DigitFiles, GiveTheirStatisticsThroughAnyWindow) {
  const u64 size = 9000;
  const std::vector<u8> digits = random_digits(random_, GetParam().radix, size);
  const auto reader = write_stream(folder_, GetParam(), digits);
  DigitStats expected(GetParam().radix);
  expected.append(digits.data() + 7, size - 8);
  std::string text(size, ' ');
  digits_to_text(text.data(), digits.data(), size);
  const HashedDigits whole = [&] {
    DigitHasher hasher(3);
    hasher.append(digits.data() + 3, size - 3);
    return hasher.finish();
  }();
  for (const u64 bytes : {u64{4096 + 8320}, u64{20000}, u64{1} << 20}) {
    Window window(bytes);
    DigitStats stats(GetParam().radix);
    reader->load_stats(stats, 7, size - 8, window.buffer(), {reversed(), 3});
    EXPECT_EQ(hash_canon(stats.hash), hash_canon(expected.hash));
    EXPECT_EQ(stats.counts, expected.counts);
    EXPECT_EQ(HashedDigits(*reader, 3, size - 3, window.buffer(), one_task()).sha256(), whole.sha256());
    EXPECT_TRUE(window.intact());
  }
  Window small(4096);
  DigitStats stats(GetParam().radix);
  EXPECT_THROW(reader->load_stats(stats, 0, size, small.buffer(), one_task()), BufferTooSmallException);
  EXPECT_THROW(HashedDigits(*reader, 0, size, small.buffer(), one_task()), BufferTooSmallException);
}

// One use of a call fails: the writer says so, or the stream is there and right. Either way what looks
// finished is the old stream or the new one, whole, unless a set had begun to change its names.
TEST_P(DigitFiles, SurviveAFailureOfEachCall) {
  const u64 size = 9000;
  const std::vector<u8> old_digits = random_digits(random_, GetParam().radix, size);
  const std::vector<u8> digits = random_digits(random_, GetParam().radix, size);
  Shape shape = GetParam();
  if (shape.digits_per_file != 0 && shape.digits_per_file < 3001) shape.digits_per_file = 3001;
  for (const FileCall call :
       {FileCall::kOpen, FileCall::kClose, FileCall::kRead, FileCall::kWrite, FileCall::kSeek,
        FileCall::kTruncate, FileCall::kSync, FileCall::kRename, FileCall::kUnlink, FileCall::kMkdir}) {
    bool struck = true;
    for (u64 n = 0; struck; n++) {
      SCOPED_TRACE("call " + std::to_string(static_cast<int>(call)) + ", use " + std::to_string(n));
      TemporaryFolder folder;
      const bool replaces = n % 2 == 0;
      if (replaces) write_stream(folder, shape, old_digits);
      const u64 uses = calls_.count(call);
      calls_.fail(call, EIO, n, 1);
      bool failed = false;
      std::string path;
      try {
        const auto writer = make_writer(folder, shape, size);
        path = writer->path();
        store(*writer, digits, 0, 3005);
        store(*writer, digits, 3005, size);
        writer->close_and_get_basic_reader();
      } catch (const FileIO::FileException& e) {
        failed = true;
        EXPECT_EQ(e.code(), EIO);
      }
      struck = calls_.count(call) - uses > n;
      calls_.heal();
      EXPECT_TRUE(struck || !failed);
      if (path.empty()) continue;
      std::vector<u8> found;
      try {
        found = load(*open_digits(path, shape.radix), 0, size);
      } catch (const Exception& e) {
        EXPECT_TRUE(failed) << e.message();
        EXPECT_TRUE(!replaces || (call == FileCall::kRename && path.ends_with(".ovd"))) << e.message();
        EXPECT_TRUE(replaces || finished_files(folder) == 0) << "half a set looks finished";
        continue;
      }
      EXPECT_TRUE(found == digits || (failed && found == old_digits));
    }
  }
}

TEST_P(DigitFiles, SayThatTheDiskIsFull) {
  const u64 size = 9000;
  const std::vector<u8> digits = random_digits(random_, GetParam().radix, size);
  for (const u64 room : {u64{0}, u64{4096}, u64{8191}, u64{12288}, u64{14000}}) {
    TemporaryFolder folder;
    const auto write = [&] { write_stream(folder, GetParam(), digits); };
    calls_.free_bytes = ~u64{0};
    const u64 before = calls_.written;
    write();
    calls_.free_bytes = std::min(room, calls_.written - before - 1);
    EXPECT_NE(refusal(write).find("\n\nDisk is Full"), std::string::npos) << room;
    for (const std::string& name : folder.names())
      EXPECT_EQ(name.find("(incomplete)"), std::string::npos) << "room is not given back";
  }
}

TEST_P(DigitFiles, DoNotGoWhereAFolderHasTheirName) {
  const std::vector<u8> digits(200, 1);
  const std::string path = make_writer(folder_, GetParam(), digits.size())->path();
  std::filesystem::create_directories(path);
  const auto names = folder_.names();
  EXPECT_NE(refusal([&] { write_stream(folder_, GetParam(), digits); }).find("A folder has this name."),
            std::string::npos);
  EXPECT_EQ(folder_.names(), names);
}

TEST_P(DigitFiles, KeepACompleteStreamThatCannotTakeItsName) {
  const std::vector<u8> digits = random_digits(random_, GetParam().radix, 300);
  const auto writer = make_writer(folder_, GetParam(), digits.size());
  store(*writer, digits, 0, digits.size());
  calls_.fail(FileCall::kRename, EACCES);
  EXPECT_THROW(writer->close_and_get_basic_reader(), FileIO::FileException);
  EXPECT_EQ(finished_files(folder_), 0u);
  const auto names = folder_.names();
  EXPECT_NE(
      std::find_if(names.begin(), names.end(),
                   [](const std::string& name) { return name.find(" (incomplete).") != std::string::npos; }),
      names.end());
}

// Whoever writes the same names meanwhile, or left them unfinished, does not write into this stream's files.
TEST_P(DigitFiles, AreNotSharedWithAnUnfinishedStream) {
  const auto earlier = random_digits(random_, GetParam().radix, 950);
  const auto later = random_digits(random_, GetParam().radix, 950);
  const auto unfinished = make_writer(folder_, GetParam(), earlier.size());
  store(*unfinished, earlier, 0, earlier.size());
  const auto writer = make_writer(folder_, GetParam(), later.size());
  store(*writer, later, 0, later.size());
  store(*unfinished, earlier, 0, earlier.size());
  const auto reader = writer->close_and_get_basic_reader();
  EXPECT_TRUE(load(*reader, 0, later.size()) == later);
}

TEST_P(DigitFiles, LeaveAnOlderStreamWholeWhenARenameFails) {
  const auto older = random_digits(random_, GetParam().radix, 950);
  const auto newer = random_digits(random_, GetParam().radix, 950);
  const std::string path = make_writer(folder_, GetParam(), older.size())->path();
  write_stream(folder_, GetParam(), older);
  const u64 files = finished_files(folder_);
  const u64 renames = GetParam().digits_per_file == 0 ? 1 : 2 * files;
  for (u64 n = 0; n <= renames; n++) {
    SCOPED_TRACE(n);
    const u64 before = calls_.count(FileCall::kRename);
    calls_.fail(FileCall::kRename, EACCES, n, 1);
    EXPECT_EQ(refusal([&] { write_stream(folder_, GetParam(), newer); }) != "accepted", n < renames);
    calls_.heal();
    if (n == renames) {
      EXPECT_EQ(calls_.count(FileCall::kRename) - before, renames);
    }
    EXPECT_EQ(finished_files(folder_), files);
    for (const std::string& name : folder_.names()) EXPECT_EQ(name.find("(replaced)"), std::string::npos);
    EXPECT_EQ(load(*open_digits(path, GetParam().radix), 0, older.size()), n < renames ? older : newer);
  }
}

TEST_P(DigitFiles, RefuseRangesThatTheyDoNotHold) {
  const std::vector<u8> digits(300, 1);
  const auto writer = make_writer(folder_, GetParam(), digits.size());
  Window window(65536);
  const auto put = [&](u64 offset, u64 count) {
    return refusal([&] { writer->store_digits(digits.data(), offset, count, window.buffer(), one_task()); });
  };
  for (const auto& [offset, count] : {std::pair{u64{0}, u64{301}}, std::pair{u64{301}, u64{1}},
                                      std::pair{u64{300}, u64{1}}, std::pair{~u64{0}, u64{2}}})
    EXPECT_NE(put(offset, count).find("() Out of range."), std::string::npos) << offset;
  EXPECT_EQ(put(0, 300), "accepted");
  const auto reader = writer->close_and_get_basic_reader();
  std::vector<u8> back(400);
  const char* const words =
      GetParam().digits_per_file == 0
          ? "BasicTextReader::load_digits() Out of range."
          : "BasicOvdSetReader::make_commands() This digit stream does not have enough digits.";
  for (const auto& [offset, count] : {std::pair{u64{0}, u64{301}}, std::pair{~u64{0}, u64{2}}}) {
    EXPECT_EQ(refusal([&] { reader->load_digits(back.data(), offset, count, window.buffer(), one_task()); }),
              words);
  }
  EXPECT_EQ(refusal([&] { reader->load_digits(back.data(), 300, 0, window.buffer(), one_task()); }),
            "accepted");
  Window small(4096 - 64);
  EXPECT_THROW(reader->load_digits(back.data(), 0, 300, small.buffer(), one_task()), BufferTooSmallException);
}

TEST_P(DigitFiles, ShowEveryFlippedBit) {
  const u64 size = 150;
  const std::vector<u8> digits = random_digits(random_, GetParam().radix, size);
  const auto writer = make_writer(folder_, GetParam(), size);
  store(*writer, digits, 0, size);
  const std::string path = writer->path();
  writer->close_and_get_basic_reader();
  DigitStats expected(GetParam().radix);
  expected.append(digits.data(), size);
  // What a read-back does with a stream that it opens anew.
  const auto is_right = [&] {
    try {
      const auto reader = open_digits(path, GetParam().radix);
      Window window(1 << 16);
      DigitStats stats(GetParam().radix);
      reader->load_stats(stats, 0, size, window.buffer(), one_task());
      reader->check_as_written("3.", GetParam().digits_per_file, size);
      return hash_canon(stats.hash) == hash_canon(expected.hash) && stats.counts == expected.counts;
    } catch (const Exception&) {
      return false;
    }
  };
  ASSERT_TRUE(is_right());
  const std::string good = read_file(path);
  for (u64 bit = 0; bit < good.size() * 8; bit++) {
    put_byte(path, bit / 8, static_cast<char>(good[bit / 8] ^ (1 << bit % 8)));
    ASSERT_FALSE(is_right()) << "byte " << bit / 8 << " of " << good.size();
    put_byte(path, bit / 8, good[bit / 8]);
  }
  ASSERT_TRUE(is_right());
  for (const char* more : {"0", "\n", "\r\n"}) {  // a reader passes over line ends, this check does not
    write_file(path, good + more);
    EXPECT_FALSE(is_right()) << "bytes more";
  }
  write_file(path, good.substr(0, good.size() - 1));
  EXPECT_FALSE(is_right()) << "a byte less";
}

TEST_P(DigitFiles, CanBeReadBeforeTheyHaveTheirNameAndThenReplaceAllOfAnOlderStream) {
  const auto older = random_digits(random_, GetParam().radix, 9000);
  const auto newer = random_digits(random_, GetParam().radix, 950);
  const std::string path =
      write_stream(folder_, GetParam(), older) ? make_writer(folder_, GetParam(), 950)->path() : "";
  const u64 old_files = finished_files(folder_);
  const auto writer = make_writer(folder_, GetParam(), newer.size());
  store(*writer, newer, 0, newer.size());
  writer->seal();
  EXPECT_EQ(load(*open_digits(writer->unfinished_path(), GetParam().radix), 0, newer.size()), newer);
  EXPECT_EQ(load(*open_digits(path, GetParam().radix), 0, older.size()), older);
  calls_.fail(FileCall::kRename, EACCES, old_files, 1);
  if (GetParam().digits_per_file != 0) {
    EXPECT_THROW(writer->publish(DigitWriter::Pieces::kRemoved), FileIO::FileException);
  }
  calls_.heal();
  EXPECT_EQ(finished_files(folder_), old_files);
  writer->publish(DigitWriter::Pieces::kRemoved);
  EXPECT_EQ(load(*open_digits(path, GetParam().radix), 0, newer.size()), newer);
  const auto names = folder_.names();
  EXPECT_EQ(static_cast<u64>(
                std::count_if(names.begin(), names.end(),
                              [](const std::string& name) { return name.find('.') != std::string::npos; })),
            GetParam().digits_per_file == 0 || GetParam().digits_per_file == kSingleFile
                ? 1
                : (950 - 1) / GetParam().digits_per_file + 1)
      << "a piece of the older stream is left";
}

// The format as docs/file-formats.md has it, read without any of the code that writes it: the digits of one
// file as characters, after its header's lines.
std::string decoded(const std::string& file, u32 radix, u64 digits, std::vector<std::string>& lines) {
  lines.clear();
  std::size_t at = 0;
  for (std::size_t end; at < file.size() && file[at] != 0; at = end + 2) {
    end = file.find("\r\n", at);
    lines.push_back(file.substr(at, end - at));
  }
  std::string text;
  const u64 width = radix == 10 ? 19 : 16;
  for (at++; at + 8 <= file.size(); at += 8) {
    u64 word = 0;
    for (u64 byte = 8; byte-- > 0;) word = word << 8 | static_cast<u8>(file[at + byte]);
    std::string word_text(width, '0');
    for (u64 i = width; i-- > 0; word /= radix) word_text[i] = "0123456789abcdef"[word % radix];
    EXPECT_EQ(word, 0u) << "a word above the largest";
    text += word_text;
  }
  EXPECT_EQ(at, file.size()) << "words of eight bytes up to the end";
  EXPECT_LT(text.size() - digits, width);
  EXPECT_EQ(text.find_first_not_of('0', digits), std::string::npos)
      << "the last word is filled up with zeros";
  return text.substr(0, digits);
}

TEST_P(DigitFiles, CanBeReadByAnyoneWhoHasTheFormat) {
  const u64 size = 9000;
  const std::vector<u8> digits = random_digits(random_, GetParam().radix, size);
  const std::string path = make_writer(folder_, GetParam(), size)->path();
  write_stream(folder_, GetParam(), digits);
  std::string text(size, '0');
  for (u64 i = 0; i < size; i++) text[i] = "0123456789abcdef"[digits[i]];
  if (GetParam().digits_per_file == 0) {
    EXPECT_EQ(read_file(path), "3." + text);
    return;
  }
  const u64 block = std::min(GetParam().digits_per_file, size);
  std::vector<std::string> lines;
  for (u64 id = 0; id * block < size; id++) {
    const std::string file = read_file(ovd_stem(path) + std::to_string(id) + ".ovd");
    const std::string expected = text.substr(id * block, block);
    EXPECT_EQ(decoded(file, GetParam().radix, expected.size(), lines), expected);
    EXPECT_EQ(lines,
              (std::vector<std::string>{"#Compressed Digit File", "", "FileVersion:\t1.1.0", "",
                                        "Base:\t" + std::to_string(GetParam().radix), "", "FirstDigits:\t3.",
                                        "", "TotalDigits:\t9000", "", "Blocksize:\t" + std::to_string(block),
                                        "BlockID:\t" + std::to_string(id), "", "EndHeader", ""}));
  }
}

// What only one of the two forms does.

TEST(TextFile, HoldsThePointAndOneCharacterADigit) {
  TemporaryFolder folder;
  const auto writer = make_digit_writer(folder.path() + "/", kName, "a1.", 16, 0, 5);
  EXPECT_EQ(writer->path(), folder.file("Pi - Dec - Test.txt"));
  store(*writer, {0, 9, 10, 15, 1}, 0, 5);
  EXPECT_EQ(folder.names(),
            std::vector<std::string>{"Pi - Dec - Test (" + std::to_string(getpid()) + ") (incomplete).txt"});
  writer->close_and_get_basic_reader();
  EXPECT_EQ(read_file(writer->path()), "a1.09af1");
  EXPECT_EQ(refusal([&] { BasicTextWriter(folder.file("x.txt"), "3", 10, 1); }),
            "BasicTextWriter() No decimal place was found.");
  EXPECT_EQ(refusal([&] { BasicTextWriter(folder.file("x.txt"), "", 10, 1); }),
            "BasicTextWriter() No decimal place was found.");
  EXPECT_EQ(refusal([&] { BasicTextWriter(folder.file("x.txt"), "3.", 8, 1); }),
            "BasicTextWriter() Invalid radix.");
}

TEST(TextFile, TellsItsRadixFromItsStart) {
  TemporaryFolder folder;
  const std::string path = folder.file("x.txt");
  const auto opened = [&](const std::string& text, u32 radix = 0) -> std::string {
    write_file(path, text);
    std::string found;
    const std::string refused = message_of([&] {
      const BasicTextReader reader(path, radix);
      found = std::to_string(reader.radix()) + " " + reader.first_digits() + " " +
              std::to_string(reader.total_digits());
    });
    return found.empty() ? refused.substr(0, refused.find('\n')) : found;
  };
  const std::string no_point = "A decimal place was not found within the first 63 bytes of the file.";
  EXPECT_EQ(opened("3.14159"), "10 3. 5");
  EXPECT_EQ(opened("3.243f6"), "16 3. 5");
  EXPECT_EQ(opened("b.5"), "16 b. 1");
  EXPECT_EQ(opened("3.243", 16), "16 3. 3");
  EXPECT_EQ(opened("3." + std::string(3000, '1') + "a"), "16 3. 3001");
  EXPECT_EQ(opened(std::string(63, '1') + ".5"), "10 " + std::string(63, '1') + ". 1");
  EXPECT_EQ(opened(std::string(64, '1') + ".5"), no_point);
  EXPECT_EQ(opened("314159"), no_point);
  EXPECT_EQ(opened(""), no_point);
  EXPECT_EQ(opened("3.14\n"), "10 3. 2") << "a line end closes the file, however short it is";
  EXPECT_EQ(opened("3.a\r\n\n"), "16 3. 1");
  EXPECT_EQ(opened("3.\n"), "There are no digits after the decimal place in this file.");
  EXPECT_EQ(opened("3.14\n15"), "Invalid Digit");
  EXPECT_EQ(opened("3.14x"), "Invalid Digit");
  EXPECT_EQ(opened("3.14F"), "Invalid Digit");
}

TEST(TextFile, RefusesACharacterThatIsNoDigit) {
  TemporaryFolder folder;
  write_file(folder.file("x.txt"), "3." + std::string(99, '1') + "a");
  BasicTextReader reader(folder.file("x.txt"), 10);
  EXPECT_EQ(load(reader, 0, 99), std::vector<u8>(99, 1));
  EXPECT_EQ(refusal([&] { load(reader, 50, 100); }),
            "BasicTextReader::process_txt() Invalid Digit\n\n\"a\" stands at digit 100 after the point, byte "
            "102 of "
            "the file.\nPath: " +
                folder.file("x.txt"));
  write_file(folder.file("x.txt"), "3.1");
  EXPECT_EQ(refusal([&] { load(reader, 0, 50); }),
            "BasicTextReader::load_digits() Read error.\n\nThe file is too short: it has 3 bytes, and 52 are "
            "needed.");
}

TEST(OvdSet, NamesItsFiles) {
  TemporaryFolder folder;
  const std::vector<u8> digits(250, 1);
  const auto many = make_digit_writer(folder.path(), kName, "3.", 10, 100, 250);
  store(*many, digits, 0, 1);
  const std::string base = std::string(kName) + "/" + kName + " - ";
  EXPECT_EQ(folder.names(), (std::vector<std::string>{
                                kName, base + "0 (" + std::to_string(getpid()) + ") (incomplete).ovd"}));
  store(*many, digits, 0, 250);
  many->close_and_get_basic_reader();
  EXPECT_EQ(folder.names(),
            (std::vector<std::string>{kName, base + "0.ovd", base + "1.ovd", base + "2.ovd"}));
  struct stat folder_status {};
  ASSERT_EQ(stat(folder.file(kName).c_str(), &folder_status), 0);
  const mode_t mask = umask(0);
  umask(mask);
  EXPECT_EQ(folder_status.st_mode & 0777u, 0775u & ~mask);

  TemporaryFolder other;
  write_stream(other, {10, kSingleFile}, digits);
  EXPECT_EQ(other.names(), std::vector<std::string>{std::string(kName) + " - 0.ovd"});
}

TEST(OvdSet, RefusesWhatItCannotHold) {
  TemporaryFolder folder;
  const auto made = [&](u32 radix, u64 per_file, u64 total) {
    return refusal([&] { BasicOvdSetWriter(folder.path(), kName, "3.", radix, per_file, total); });
  };
  EXPECT_EQ(made(8, 100, 1000), "BasicOvdSetWriter() Invalid Parameters");
  EXPECT_EQ(made(10, kSingleFile, 0),
            "BasicOvdSetWriter() Single-file is incompatible with unbounded output.");
  BasicOvdSetWriter writer(folder.path(), kName, "3.", 10, 100, 1000);
  EXPECT_EQ(refusal([&] { writer.close_and_get_basic_reader(); }),
            "BasicOvdSetWriter::close_and_get_basic_reader() No files open.");
  const u8 digit = 1;
  Window window(writer.buffer_bytes(1));
  EXPECT_EQ(refusal([&] { writer.store_digits(&digit, 5, 0, window.buffer(), one_task()); }),
            "BasicOvdSetWriter::make_commands() Internal Overflow");
  EXPECT_EQ(refusal([] { BasicOvdSetReader("ovd"); }), "BasicOvdSetReader() File name is too short.");
  EXPECT_EQ(refusal([] { BasicOvdSetReader("x.txt"); }), "BasicOvdSetReader() Invalid Extension");
}

TEST(OvdSet, HoldsAnUnboundedStream) {
  TemporaryFolder folder;
  BasicOvdSetWriter writer(folder.path(), kName, "3.", 16, 100, 0);
  std::vector<u8> digits(350, 0);
  for (u64 i = 100; i < 350; i++) digits[i] = static_cast<u8>(i % 16);
  store(writer, digits, 120, 350);
  const auto reader = writer.close_and_get_basic_reader();
  EXPECT_EQ(reader->total_digits(), 0u);
  for (u64 i = 100; i < 120; i++) digits[i] = 0;  // never stored
  EXPECT_TRUE(load(*reader, 100, 350) == std::vector<u8>(digits.begin() + 100, digits.end()));
}

TEST(OvdSet, KeepsTheDigitsOfAWordThatIsWrittenTwice) {
  TemporaryFolder folder;
  const auto writer = make_writer(folder, {10, 100}, 100);
  const std::vector<u8> sevens(100, 7), eights(100, 8);
  store(*writer, sevens, 0, 100);
  store(*writer, eights, 40, 45);
  store(*writer, eights, 60, 61);
  std::vector<u8> bad(100, 1);
  for (const u64 at : {0, 5, 50, 70, 99}) {  // in a part of a word at either end, in a whole one
    bad[at] = 10;
    for (const u64 begin : {0, 3})
      EXPECT_EQ(refusal([&] { store(*writer, bad, std::min(begin, at), 100); }),
                "BasicOvdFileWriter::store_digits_B() Invalid Digit");
    bad[at] = 1;
  }
  std::vector<u8> expected = sevens;
  std::fill(expected.begin() + 40, expected.begin() + 45, 8);
  expected[60] = 8;
  EXPECT_EQ(load(*writer->close_and_get_basic_reader(), 0, 100), expected);
}

TEST(OvdSet, NamesEveryMissingFileAtOnce) {
  const auto result = run_child("", [] {
    TemporaryFolder folder;
    const std::vector<u8> digits(500, 3);
    const auto reader = write_stream(folder, {10, 100}, digits);
    const std::string stem = folder.file(std::string(kName) + "/" + kName + " - ");
    std::filesystem::remove(stem + "1.ovd");
    std::filesystem::remove(stem + "3.ovd");
    if (load(*reader, 200, 300) != std::vector<u8>(100, 3)) return 2;
    const std::string message = refusal([&] { load(*reader, 150, 500); });
    return message == "BasicOvdSetReader::make_commands() Missing required files." ? 0 : 3;
  });
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output.find("The following needed files are missing or inaccessible:\n"), 0u)
      << result.output;
  EXPECT_NE(result.output.find(" - 1.ovd\n"), std::string::npos);
  EXPECT_NE(result.output.find(" - 3.ovd\n"), std::string::npos);
  EXPECT_EQ(result.output.find(" - 2.ovd"), std::string::npos);
}

TEST(OvdSet, TellsWhichFilesOfAnOlderSetCouldNotComeBack) {
  const auto result = run_child("", [] {
    TemporaryFolder folder;
    FakeFileCalls calls;
    const std::vector<u8> digits(200, 3);
    write_stream(folder, {10, 100}, digits);
    calls.fail(FileCall::kRename, EACCES, 2);  // from when both older files are aside
    return refusal([&] { write_stream(folder, {10, 100}, digits); }) == "accepted" ? 1 : 0;
  });
  EXPECT_EQ(result.status, 0);
  for (const char* id : {"0", "1"}) {
    const std::string file = std::string(kName) + " - " + id;
    const std::size_t from = result.output.find(file + " (replaced).ovd\n    to: ");
    EXPECT_NE(from, std::string::npos) << result.output;
    EXPECT_NE(result.output.find(file + ".ovd\n", from), std::string::npos) << result.output;
  }
}

TEST(OvdSet, MayHaveMoreFilesThanAProcessMayOpen) {
  TemporaryFolder folder;
  Random random;
  const std::vector<u8> digits = random_digits(random, 10, 30000);
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  const rlimit low{40, limit.rlim_max};
  setrlimit(RLIMIT_NOFILE, &low);
  {
    FakeFileCalls calls;  // spares the flushes
    const auto writer = make_writer(folder, {10, 200}, digits.size());
    for (u64 at = 0; at < digits.size(); at += 7500) store(*writer, digits, at + 10, at + 7500);
    for (u64 at = 0; at < digits.size(); at += 7500) store(*writer, digits, at, at + 10);
    const auto reader = writer->close_and_get_basic_reader();
    EXPECT_TRUE(load(*reader, 0, digits.size()) == digits);
    EXPECT_NO_THROW(reader->check_as_written("3.", 200, digits.size()));
  }
  setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace
}  // namespace orl::test
