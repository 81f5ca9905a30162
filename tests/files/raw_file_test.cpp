#include "files/raw_file.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>

#include "core/exceptions.h"
#include "files/buffered_reader.h"
#include "files/path_check.h"
#include "files/raw_io_buffer.h"
#include "support/child.h"
#include "support/fake_file_calls.h"
#include "support/files.h"

namespace orl::test {
namespace {

using FileIO::FileException;

class RawFileTest : public testing::Test {
 protected:
  RawFileTest() {
    for (u64 i = 0; i < sizeof bytes_; i++) bytes_[i] = static_cast<u8>(i * 37 + i / 251);
  }
  std::string path() const { return folder_.file("data.sf"); }
  /// A file that holds the pattern.
  RawFile filled() {
    RawFile file(path(), RawFile::Mode::kCreate);
    file.store(bytes_, 0, sizeof bytes_);
    return file;
  }

  TemporaryFolder folder_;
  alignas(4096) u8 bytes_[4 * 4096];
  alignas(4096) u8 read_[4 * 4096] = {};
};

// The exception's function, message and code.
struct Fault {
  std::string function, message;
  int code;
};
Fault fault_of(const std::function<void()>& body) {
  try {
    body();
  } catch (const FileException& e) {
    return {e.function(), e.message(), e.code()};
  } catch (const Exception& e) {
    return {e.function(), e.message(), 0};
  }
  return {"", "nothing was thrown", 0};
}
void expect_fault(const std::function<void()>& body, const char* function, const std::string& message,
                  int code = 0) {
  const Fault fault = fault_of(body);
  EXPECT_EQ(fault.function, function);
  EXPECT_EQ(fault.message, message);
  EXPECT_EQ(fault.code, code);
}

TEST_F(RawFileTest, KeepsWhatIsStoredAtItsOffset) {
  {
    FakeFileCalls calls;
    RawFile file = filled();
    EXPECT_EQ(calls.trace().at(0), "create 600") << "only its owner reads it";
    file.store(bytes_, 8192, 4096);
    file.close();
  }
  RawFile file(path(), RawFile::Mode::kRead);
  EXPECT_EQ(file.size(), sizeof bytes_);
  EXPECT_EQ(file.load(read_, 0, sizeof read_), sizeof read_);
  EXPECT_EQ(std::memcmp(read_, bytes_, 8192), 0);
  EXPECT_EQ(std::memcmp(read_ + 8192, bytes_, 4096), 0);
  EXPECT_EQ(file.load_up_to(read_, 12288, 8192), 4096u);
}

TEST_F(RawFileTest, RefusesMisalignmentBeforeAnythingElse) {
  RawFile closed;
  const char* const function = "RawFile::check_alignment()";
  expect_fault([&] { closed.load(read_ + 1, 0, 4096); }, function, "Buffer is misaligned.");
  expect_fault([&] { closed.load(read_, 1, 4096); }, function, "Offset is misaligned.");
  expect_fault([&] { closed.store(read_, 0, 4097); }, function, "Length is misaligned.");
  expect_fault([&] { closed.load(read_, 0, 4096); }, "RawFile::read()", "File isn't open.");
  expect_fault([&] { closed.store(read_, 0, 0); }, "RawFile::write()", "File isn't open.");
  expect_fault([&] { closed.set_size(0); }, "RawFile::set_size()", "File isn't open.");
  expect_fault([&] { RawIoBuffer(read_ + 64, 4096); }, "RawIoBuffer::RawIoBuffer()", "Buffer is misaligned.");
  expect_fault([&] { RawIoBuffer(read_, 100); }, "RawIoBuffer::RawIoBuffer()", "Length is misaligned.");
}

TEST_F(RawFileTest, DoesNotTouchTheFileForNoBytes) {
  RawFile file = filled();
  FakeFileCalls calls;
  EXPECT_EQ(file.load(read_, 4096, 0), 0u);
  EXPECT_EQ(calls.count(FileCall::kSeek) + calls.count(FileCall::kRead), 0u);
}

TEST_F(RawFileTest, TurnsEveryFailedCallIntoAnException) {
  FakeFileCalls calls;
  calls.fail(FileCall::kOpen, ENOENT);
  expect_fault([&] { RawFile(path(), RawFile::Mode::kRead); }, "RawFile::RawFile()",
               "Unable to open file.\n\nPath does not exist.", ENOENT);
  calls.fail(FileCall::kOpen, EACCES);
  expect_fault([&] { RawFile(path(), RawFile::Mode::kCreate); }, "RawFile::RawFile()",
               "Unable to create file.\n\nAccess Denied", EACCES);
  calls.heal();
  const std::string folder = std::filesystem::path(path()).parent_path();
  expect_fault([&] { RawFile(folder, RawFile::Mode::kRead); }, "RawFile::RawFile()",
               "Unable to open file. A folder has this name.\n\nUnknown C/C++ Error: Is a directory", EISDIR);
  RawFile file = filled();
  const struct {
    FileCall call;
    int code;
    std::function<void()> use;
    const char *function, *message;
  } rows[] = {
      {FileCall::kSeek, EINVAL, [&] { file.load(read_, 0, 4096); }, "RawFile::load()",
       "lseek64() failed.\n\nUnknown C/C++ Error: Invalid argument"},
      {FileCall::kRead, EIO, [&] { file.load(read_, 0, 4096); }, "RawFile::load()",
       "read() failed.\n\nHardware Error"},
      {FileCall::kWrite, ENOSPC, [&] { file.store(read_, 0, 4096); }, "RawFile::store()",
       "write() failed.\n\nDisk is Full"},
      {FileCall::kTruncate, ENOMEM, [&] { file.set_size(1); }, "RawFile::set_size()",
       "ftruncate() failed.\n\nNot Enough Memory"},
      {FileCall::kTruncate, EIO, [&] { filled().close_and_set_size(5); }, "RawFile::close_and_set_size()",
       "ftruncate() failed.\n\nHardware Error"},
      {FileCall::kSync, EIO, [&] { filled().close_and_set_size(5); }, "RawFile::close_and_set_size()",
       "Unable to flush file.\n\nHardware Error"},
      {FileCall::kSync, EIO, [&] { filled().close(); }, "RawFile::close()",
       "Unable to flush file.\n\nHardware Error"},
      {FileCall::kClose, EIO, [&] { filled().close(); }, "RawFile::close()",
       "Unable to close file.\n\nHardware Error"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.message);
    calls.fail(row.call, row.code);
    expect_fault(row.use, row.function, row.message, row.code);
    calls.heal();
  }
  // Opening again, and closing that, are steps of their own.
  RawFile again = filled();
  calls.fail(FileCall::kOpen, EACCES);
  expect_fault([&] { again.close_and_set_size(5); }, "RawFile::close_and_set_size()",
               "Unable to open file.\n\nAccess Denied", EACCES);
  calls.heal();
  again = filled();
  calls.fail(FileCall::kClose, EIO, 1);
  expect_fault([&] { again.close_and_set_size(5); }, "RawFile::close_and_set_size()",
               "RawFile::close_and_set_size(): Unable to close file.\n\nHardware Error", EIO);
}

TEST_F(RawFileTest, CallsAShortTransferAFault) {
  RawFile file = filled();
  FakeFileCalls calls;
  calls.read_limit = 4096;
  expect_fault([&] { file.load(read_, 0, 12288); }, "RawFile::load()", "Incomplete Read: 4096 / 12288");
  calls.read_limit = 0;
  expect_fault([&] { file.load(read_, 0, 4096); }, "RawFile::load()", "Incomplete Read: 0 / 4096");
  calls.free_bytes = 8192;
  expect_fault([&] { file.store(bytes_, 0, 12288); }, "RawFile::store()",
               "Incomplete Write: 8192 / 12288\n\nDisk is Full", ENOSPC);
  expect_fault([&] { file.store(bytes_, 0, 4096); }, "RawFile::store()", "write() failed.\n\nDisk is Full",
               ENOSPC);
}

TEST_F(RawFileTest, EndsAtAnOddSize) {
  filled().close_and_set_size(4097);
  EXPECT_EQ(read_file(path()), std::string(reinterpret_cast<char*>(bytes_), 4097));
  filled().close_and_set_size(100000);
  EXPECT_EQ(read_file(path()).size(), 100000u);
}

TEST_F(RawFileTest, RenamesOverWhatStandsThere) {
  write_file(folder_.file("new.sf"), "old");
  RawFile file = filled();
  FakeFileCalls calls;
  calls.fail(FileCall::kRename, EEXIST, 0, 1);
  file.rename(folder_.file("new.sf"));
  EXPECT_EQ(calls.count(FileCall::kRename), 2u);
  EXPECT_EQ(folder_.names(), std::vector<std::string>{"new.sf"});
  file.load(read_, 0, sizeof read_);
  EXPECT_EQ(std::memcmp(read_, bytes_, sizeof read_), 0);
}

TEST_F(RawFileTest, EndsTheProgramWhenARenameFails) {
  const auto rename_with = [&](FileCall call, int code) {
    return run_child("\n", [&, call, code]() -> int {
      RawFile file = filled();
      FakeFileCalls calls;
      calls.fail(FileCall::kRename, EEXIST, 0, 1);
      calls.fail(call, code);
      file.rename(folder_.file("new.sf"));
      return 0;
    });
  };
  for (const auto& [call, code, words] :
       {std::tuple{FileCall::kRename, EACCES, "Unable to rename file."},
        std::tuple{FileCall::kUnlink, EACCES,
                   "Unable to rename file because the existing one can't be deleted."}}) {
    const auto result = rename_with(call, code);
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.output.find(words), std::string::npos) << result.output;
    EXPECT_NE(result.output.find("File renaming exceptions are unrecoverable because the swap file\n"
                                 "cannot be reliably returned to a consistent state."),
              std::string::npos);
  }
}

TEST_F(RawFileTest, SaysOnceWhatOnlyCostsSpeed) {
  const auto result = run_child("", [&] {
    FakeFileCalls calls;
    calls.refuse_direct = true;
    calls.fail(FileCall::kAllocate, EOPNOTSUPP);
    calls.fail(FileCall::kTruncate, EIO);
    for (int i = 0; i < 2; i++) {
      RawFile file(8192, path());
      if (file.direct() || (calls.last_open_flags & O_DIRECT) != 0) return 2;
      file.store(bytes_, 0, 8192);
      file.close();
      RawFile back(path(), RawFile::Mode::kRead);
      back.load(read_, 0, 8192);
      if (std::memcmp(bytes_, read_, 8192) != 0) return 3;
    }
    return 0;
  });
  EXPECT_EQ(result.status, 0);
  const std::string tail = "Path: " + path() + "\nFurther messages for this warning will be suppressed.\n";
  EXPECT_EQ(result.output,
            "\nO_DIRECT has failed. Expect performance degradation.\n"
            "If the file system has journaling enabled, try disabling it.\n" +
                tail + "\nfallocate() is not supported on this volume. Expect performance degradation.\n" +
                tail + "\nftruncate() has failed. Expect performance degradation.\n" + tail);
  for (const int code : {EPERM, ENOSPC}) {
    const auto other = run_child("", [&] {
      FakeFileCalls calls;
      calls.fail(FileCall::kAllocate, code);
      try {
        return RawFile(8192, path()).size() == 8192 ? 0 : 1;
      } catch (const FileIO::FileException& e) {
        return e.code() == ENOSPC ? 2 : 3;
      }
    });
    EXPECT_EQ(other.status, code == ENOSPC ? 2 : 0) << "a full disk costs more than speed";
    EXPECT_EQ(other.output, "\nfallocate() has failed. (errno = " + std::to_string(code) +
                                ")  Expect performance degradation.\n" + tail);
  }
}

TEST_F(RawFileTest, PrintsWhatItsDestructorMeets) {
  const auto result = run_child("", [&] {
    FakeFileCalls calls;
    calls.fail(FileCall::kSync, EIO);
    calls.fail(FileCall::kClose, EIO);
    filled();
    return 0;
  });
  EXPECT_EQ(result.output, "RawFile::~RawFile(): Unable to flush file.\nPath: " + path() +
                               "\nRawFile::~RawFile(): Unable to close file.\nPath: " + path() + "\n");
}

TEST_F(RawFileTest, GivesItsDescriptorAway) {
  RawFile file = filled();
  FakeFileCalls calls;
  RawFile other(std::move(file));
  EXPECT_FALSE(file.is_open());
  file = std::move(other);
  EXPECT_TRUE(file.is_open());
  file = RawFile();
  EXPECT_EQ(calls.count(FileCall::kClose), 1u);
}

TEST_F(RawFileTest, BufferedReaderGoesThroughAFileToItsLastByte) {
  filled().close_and_set_size(2 * 4096 + 3);
  RawFile file(path(), RawFile::Mode::kRead);
  BufferedReader reader(file, RawIoBuffer(read_, 4096));
  for (u64 i = 0; i < 2 * 4096 + 3; i++) {
    ASSERT_FALSE(reader.at_end());
    ASSERT_EQ(reader.read_byte(), bytes_[i]);
    ASSERT_EQ(reader.position(), i + 1);
  }
  EXPECT_TRUE(reader.at_end());
  expect_fault([&] { reader.read_byte(); }, "BufferedReader()", "Unexpected end of file.");
  BufferedReader without(file, RawIoBuffer(read_, 0));
  expect_fault([&] { without.read_byte(); }, "BufferedReader()", "Unexpected end of file.");
}

TEST_F(RawFileTest, PathCheckLeavesNothingBehind) {
  EXPECT_TRUE(path_is_writable(folder_.path()));
  EXPECT_TRUE(path_is_writable(folder_.path() + "/"));
  EXPECT_FALSE(path_is_writable(folder_.file("missing")));
  write_file(path(), "a file");
  EXPECT_FALSE(path_is_writable(path()));
  for (const FileCall call : {FileCall::kOpen, FileCall::kSync, FileCall::kClose, FileCall::kUnlink}) {
    FakeFileCalls calls;
    calls.fail(call, EROFS);
    EXPECT_FALSE(path_is_writable(folder_.path()));
  }
  EXPECT_EQ(with_separator(""), "");
  EXPECT_EQ(with_separator("a"), "a/");
  EXPECT_EQ(with_separator("a\\"), "a\\");
}

}  // namespace
}  // namespace orl::test
