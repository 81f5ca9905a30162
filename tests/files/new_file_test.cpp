#include "files/new_file.h"

#include <gtest/gtest.h>

#include "core/exceptions.h"
#include "support/fake_file_calls.h"
#include "support/files.h"

namespace orl::test {
namespace {

// Also where the file system knows no exclusive renaming.
TEST(NewFile, NeverTakesTheNameOfAnother) {
  for (const bool knows : {true, false}) {
    TemporaryFolder folder;
    FakeFileCalls calls;
    calls.knows_no_replace = knows;
    const std::string stem = folder.file("Report");
    EXPECT_EQ(write_new_file(stem, ".txt", "first"), stem + ".txt");
    EXPECT_EQ(write_new_file(stem, ".txt", "second"), stem + " - 2.txt");
    EXPECT_EQ(write_new_file(stem, ".txt", "third"), stem + " - 3.txt");
    EXPECT_EQ(write_new_file(stem, ".json", ""), stem + ".json");
    EXPECT_EQ(read_file(stem + ".txt"), "first");
    EXPECT_EQ(read_file(stem + " - 3.txt"), "third");
    EXPECT_EQ(folder.names(),
              (std::vector<std::string>{"Report - 2.txt", "Report - 3.txt", "Report.json", "Report.txt"}));
  }
}

// The name goes to the disk after the text, and the folder after the name; a call that was interrupted is made
// again; everybody may read a report.
TEST(NewFile, IsOnTheDiskBeforeItsNameIs) {
  TemporaryFolder folder;
  FakeFileCalls calls;
  calls.fail(FileCall::kWrite, EINTR, 0, 1);
  write_new_file(folder.file("Report"), ".txt", "text");
  EXPECT_EQ(calls.trace(), (std::vector<std::string>{"create 644", "write", "write", "sync", "close",
                                                     "rename", "open folder", "sync", "close"}));
  EXPECT_EQ(read_file(folder.file("Report.txt")), "text");
}

TEST(NewFile, IsThereWholeOrNotAtAll) {
  TemporaryFolder folder;
  const std::string text(10000, 'x');
  for (const FileCall call :
       {FileCall::kOpen, FileCall::kWrite, FileCall::kSync, FileCall::kClose, FileCall::kRenameNew}) {
    FakeFileCalls calls;
    calls.fail(call, EIO, 0, 1);
    EXPECT_THROW(write_new_file(folder.file("Report"), ".txt", text), FileIO::FileException);
    EXPECT_TRUE(folder.names().empty()) << static_cast<int>(call);
  }
  FakeFileCalls calls;
  calls.free_bytes = 6000;  // a short write, then a full disk
  EXPECT_THROW(write_new_file(folder.file("Report"), ".txt", text), FileIO::FileException);
  EXPECT_TRUE(folder.names().empty());
}

}  // namespace
}  // namespace orl::test
