// Headers of compressed files: what is written, what is taken, what is refused.
#include "digits/ovd_header.h"

#include <gtest/gtest.h>

#include "digits/digit_words.h"
#include "digits/ovd_set.h"
#include "support/files.h"
#include "support/test_parallelizers.h"
#include "support/thrown.h"

namespace orl::test {
namespace {

constexpr const char* kGood =
    "#Compressed Digit File\r\n\r\n"
    "FileVersion:\t1.1.0\r\n\r\n"
    "Base:\t10\r\n\r\n"
    "FirstDigits:\t3.\r\n\r\n"
    "TotalDigits:\t2500000\r\n\r\n"
    "Blocksize:\t1000000\r\n"
    "BlockID:\t2\r\n\r\n"
    "EndHeader\r\n\r\n";

std::string header_text(const char* text = kGood) { return std::string(text) + '\0'; }

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  const auto at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  return text.replace(at, from.size(), to);
}

OvdHeader parse(const std::string& text) {
  TemporaryFolder folder;
  write_file(folder.file("x.ovd"), text);
  return parse_header(RawFile(folder.file("x.ovd"), RawFile::Mode::kRead));
}

std::string refusal(const std::string& text) {
  return message_of([&] { parse(text); });
}

TEST(OvdHeader, IsWrittenToTheByte) {
  OvdHeader header;
  header.first_digits = "3.";
  header.total_digits = 2500000;
  header.block_size = 1000000;
  header.block_id = 2;
  EXPECT_EQ(format_header(header), header_text());
}

TEST(OvdHeader, GivesTheFilesPlaceInItsStream) {
  const OvdHeader header = parse(header_text());
  EXPECT_EQ(header.radix, 10u);
  EXPECT_EQ(header.first_digits, "3.");
  EXPECT_EQ(header.begin(), 2000000u);
  EXPECT_EQ(header.end(), 2500000u);
  EXPECT_EQ(header.digits(), 500000u);
  EXPECT_EQ(header.data_offset, header_text().size());
  EXPECT_EQ(words_for(header.radix, header.digits()), 26316u);
  const OvdHeader unbounded = parse(replaced(header_text(), "2500000", "0"));
  EXPECT_EQ(unbounded.end(), 3000000u);
  const OvdHeader larger = parse(replaced(replaced(header_text(), "1000000", "9000000"), "ID:\t2", "ID:\t0"));
  EXPECT_EQ(larger.block_size, 2500000u);
}

TEST(OvdHeader, IsReadInEveryFormThatOthersWrite) {
  EXPECT_EQ(parse(replaced(header_text(), "1.1.0", "1.0.0")).version, "1.0.0");
  EXPECT_EQ(parse(replaced(header_text(), "Base:", "Author:\tnobody\r\n\r\nBase:")).radix, 10u);
  EXPECT_EQ(parse(replaced(header_text(), "#Compressed", "# compressed by hand, a")).block_id, 2u);
  std::string bare;
  for (char c : header_text())
    if (c != '\r') bare.push_back(c);
  EXPECT_EQ(parse(bare).data_offset, bare.size());
  // Anything may stand between the last line and the zero byte, even pages of it.
  const std::string padded =
      replaced(header_text(), "EndHeader\r\n", "EndHeader\r\n" + std::string(9000, '-'));
  EXPECT_EQ(parse(padded).data_offset, padded.size());
}

TEST(OvdHeader, IsRefusedWithItsReason) {
  const std::string later =
      "This .ovd file is of a later format version.\n"
      "This version of the digit viewer is unable to view this file.";
  const std::string good = header_text();
  EXPECT_EQ(refusal(replaced(good, "1.1.0", "1.2.0")), later);
  EXPECT_EQ(refusal(replaced(good, "1.1.0", "1.1.0 ")), later);
  EXPECT_EQ(refusal(replaced(good, "1.1.0", "")), "No version # found.");
  EXPECT_EQ(refusal(replaced(good, "FileVersion:\t1.1.0", "")), "No version # found.");
  EXPECT_EQ(refusal(replaced(good, "Blocksize:\t1000000", "")), "Invalid Digits per File");
  EXPECT_EQ(refusal(replaced(good, "1000000", "99")), "Invalid Digits per File");
  EXPECT_EQ(refusal(replaced(good, "1000000", "0")), "Invalid Digits per File");
  EXPECT_EQ(refusal(replaced(good, "Base:\t10", "Base:\t8")), "Unsupported Radix");
  EXPECT_EQ(refusal(replaced(good, "Base:\t10", "")), "accepted") << "10 is understood";
  for (const std::string number : {"12x", "-1", "+100", " 100", "1,000,000", "", "18446744073709551616"})
    for (const char* key : {"Base:\t10", "TotalDigits:\t2500000", "Blocksize:\t1000000", "BlockID:\t2"}) {
      const std::string line = key;
      EXPECT_EQ(refusal(replaced(good, line, line.substr(0, line.find('\t') + 1) + number)),
                "Invalid Number: " + number);
    }
  EXPECT_EQ(
      refusal(replaced(good, "ID:\t2", "ID:\t3")),
      "This file is out of range.\nStart:        3000000\nEnd:          4000000\nTotal Digits: 2500000");
  // Its first digit would be the one behind the stream's last; one digit more, and it has one.
  EXPECT_EQ(refusal(replaced(good, "2500000", "2000000")).find("This file is out of range.\n"), 0u);
  EXPECT_EQ(refusal(replaced(good, "2500000", "2000001")), "accepted");
  EXPECT_EQ(
      refusal(replaced(good, "ID:\t2", "ID:\t18446744073709551615")).find("This file is out of range.\n"),
      0u);
  const std::string unbounded = replaced(good, "2500000", "0");
  for (const std::string& far : {replaced(unbounded, "ID:\t2", "ID:\t18446744073709551615"),
                                 replaced(unbounded, "1000000", "6148914691236517206")})
    EXPECT_EQ(refusal(far), "This file is out of range: it would end beyond 2^64 - 1 digits.");
  EXPECT_EQ(refusal(good.substr(0, good.size() - 1)), "Unexpected end of file.");
  EXPECT_EQ(refusal("3.14"), "Unexpected end of file.");
  EXPECT_EQ(refusal(""), "Unexpected end of file.");
}

alignas(64) u8 window[32768];

ParallelContext one_task() {
  static ReverseOrder framework;
  return {framework, 1};
}

// A set of two files of 100 digits by hand, the way the format is described: no code of the writers.
std::string hand_made(u64 id, const std::string& version = "1.1.0", const std::string& radix = "10",
                      u64 block_size = 100, u64 total = 200) {
  std::string text = "#Compressed Digit File\r\n\r\nFileVersion:\t" + version + "\r\n\r\nBase:\t" + radix +
                     "\r\n\r\nFirstDigits:\t3.\r\n\r\nTotalDigits:\t" + std::to_string(total) +
                     "\r\n\r\nBlocksize:\t" + std::to_string(block_size) + "\r\nBlockID:\t" +
                     std::to_string(id) + "\r\n\r\nEndHeader\r\n\r\n";
  text.push_back('\0');
  for (u64 word = 0; word < 7; word++)
    for (int byte = 0; byte < 8; byte++)
      text.push_back(static_cast<char>((1415926535897932384 + id * 7 + word) >> 8 * byte));
  return text;
}

TEST(OvdSetReader, ReadsASetThatWasMadeByHand) {
  TemporaryFolder folder;
  for (u64 id = 0; id < 2; id++) write_file(folder.file("x - " + std::to_string(id) + ".ovd"), hand_made(id));
  BasicOvdSetReader reader(folder.file("x - 1.ovd"));
  EXPECT_EQ(reader.file_count(), 2u);
  u8 digits[40];
  reader.load_digits(digits, 81, 39, LinearHeapBuffer(window, sizeof window), one_task());
  std::string text;
  for (int i = 0; i < 39; i++) text.push_back(static_cast<char>('0' + digits[i]));
  // The end of word 4 and the first five digits of word 5 of file 0, then word 0 of file 1 and a digit.
  EXPECT_EQ(text,
            "26535897932388"
            "14159"
            "1415926535897932391"
            "1");
  BasicOvdFileReader file(folder.file("x - 1.ovd"));
  const u64* words = file.read_words(1, 2, LinearHeapBuffer(window, sizeof window));
  EXPECT_EQ(words[0], 1415926535897932384u + 8);
  EXPECT_EQ(words[1], 1415926535897932384u + 9);
  EXPECT_THROW(file.read_words(1, 2, LinearHeapBuffer(window, 2048)), BufferTooSmallException);
}

TEST(OvdSetReader, SaysWhatDoesNotMatch) {
  TemporaryFolder folder;
  write_file(folder.file("x - 0.ovd"), hand_made(0));
  const auto loaded = [&](const std::string& second, u64 count = 10) {
    write_file(folder.file("x - 1.ovd"), second);
    BasicOvdSetReader reader(folder.file("x - 0.ovd"));
    u8 digits[100];
    const std::string message = message_of(
        [&] { reader.load_digits(digits, 100, count, LinearHeapBuffer(window, sizeof window), one_task()); });
    const std::string head = "Inconsistent Metadata: \"" + folder.file("x - 1.ovd") + "\"\n\n";
    return message.starts_with(head) ? message.substr(head.size()) : message;
  };
  EXPECT_EQ(loaded(hand_made(1)), "accepted");
  EXPECT_EQ(loaded(hand_made(1, "1.0.0")), "File version does not match.");
  EXPECT_EQ(loaded(hand_made(1, "1.1.0", "16")), "Radix does not match.");
  EXPECT_EQ(loaded(hand_made(1, "1.1.0", "10", 101)), "Digits per file does not match.");
  EXPECT_EQ(loaded(hand_made(1, "1.1.0", "10", 100, 201)), "Total digit does not match.");
  EXPECT_EQ(loaded(hand_made(0)), "File id does not match.");
  const u64 whole = hand_made(1).size() - 8;  // its last word holds no digit
  EXPECT_EQ(loaded(hand_made(1).substr(0, whole - 44)), "Read error.\n\nThe file is too short: it has " +
                                                            std::to_string(whole - 44) + " bytes, and " +
                                                            std::to_string(whole) + " are needed.");
  // A word that was never written: the first of a part, in the middle, the last.
  for (const int word : {0, 3, 5}) {
    std::string unwritten = hand_made(1);
    std::fill_n(unwritten.end() - 56 + 8 * word, 8, '\xff');
    const std::string place = "The word of the digits " + std::to_string(101 + 19 * word) + " to ";
    EXPECT_TRUE(loaded(unwritten, 100).starts_with("Invalid Digit\n\n" + place)) << word;
  }
}

TEST(OvdSetReader, TakesTheStreamsNameFromTheFiles) {
  TemporaryFolder folder;
  const std::string digits7 = folder.file("folder9");
  std::filesystem::create_directory(digits7);
  EXPECT_EQ(ovd_stem(digits7 + "/Pi - Dec - Chudnovsky - 0.ovd"), digits7 + "/Pi - Dec - Chudnovsky - ");
  EXPECT_EQ(ovd_stem(digits7 + "/x.ovd"), digits7 + "/x");
  EXPECT_EQ(ovd_stem(digits7 + "/12.ovd"), digits7 + "/");
  EXPECT_EQ(ovd_stem("a\\12.ovd"), "a\\");
  // "x.ovd" describes the stream whose files are x0.ovd, x1.ovd and so on.
  for (const char* name : {"x.ovd", "x0.ovd"}) write_file(folder.file(name), hand_made(0));
  BasicOvdSetReader reader(folder.file("x.ovd"));
  u8 digit;
  reader.load_digits(&digit, 0, 1, LinearHeapBuffer(window, sizeof window), one_task());
  EXPECT_EQ(digit, 1);
}

}  // namespace
}  // namespace orl::test
