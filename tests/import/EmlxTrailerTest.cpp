#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "ImportSupport.h"
#include "import/EmlxTrailer.h"
#include "platform/plist/PropertyList.h"

namespace wf {
namespace {

using test::emlxBytes;
using test::TempDir;
using test::writeFile;
using test::xmlTrailer;

const Value kTrailer(Dictionary{{"flags", Value(1)}, {"wrenfold", Value(Dictionary{})}});

TEST(EmlxTrailerOffset, CountAfterTheLineFeed) {
  EXPECT_EQ(emlxTrailerOffset("12\nFrom: a@"), 15);
  EXPECT_EQ(emlxTrailerOffset("0\n"), 2);
}

TEST(EmlxTrailerOffset, NoLineFeedMeansNoTrailer) {
  EXPECT_EQ(emlxTrailerOffset("12345678901"), std::nullopt);
}

TEST(EmlxTrailerOffset, NulByteEndsTheHead) {
  EXPECT_EQ(emlxTrailerOffset(std::string_view("12\0\nabcdefg", 11)), std::nullopt);
}

TEST(EmlxTrailerOffset, OverflowingCountMeansNoTrailer) {
  // A count that saturates cannot be added to.
  EXPECT_EQ(emlxTrailerOffset("99999999999999999999999\n"), std::nullopt);
}

class EmlxTrailerFile : public ::testing::Test {
 protected:
  TempDir dir{true};
  std::string write(const std::string& bytes) {
    std::string path = dir / "1.emlx";
    writeFile(path, bytes);
    return path;
  }
};

TEST_F(EmlxTrailerFile, ReadsTheTrailerAfterTheMessage) {
  std::string path = write(emlxBytes("From: a@b\r\n\r\nHello\n", xmlTrailer(kTrailer)));
  EXPECT_EQ(readEmlxTrailer(path), kTrailer);
}

TEST_F(EmlxTrailerFile, BodyThatLooksLikeAPropertyListIsSkipped) {
  std::string body = xmlTrailer(Value(Dictionary{{"wrenfold", Value("from the body")}}));
  std::string path = write(emlxBytes(body, xmlTrailer(kTrailer)));
  EXPECT_EQ(readEmlxTrailer(path), kTrailer);
}

TEST_F(EmlxTrailerFile, BinaryTrailerIsAccepted) {
  std::string binary;
  ASSERT_TRUE(plist::toBinary(kTrailer, binary));
  EXPECT_EQ(readEmlxTrailer(write(emlxBytes("body", binary))), kTrailer);
}

TEST_F(EmlxTrailerFile, CountLineLongerThanTenDigitsGivesNoTrailer) {
  std::string path = write("00000000004\nbody" + xmlTrailer(kTrailer));
  EXPECT_TRUE(readEmlxTrailer(path).isNil());
}

TEST_F(EmlxTrailerFile, TenDigitCountIsRead) {
  std::string path = write("0000000004\nbody" + xmlTrailer(kTrailer));
  EXPECT_EQ(readEmlxTrailer(path), kTrailer);
}

TEST_F(EmlxTrailerFile, FileShorterThanElevenBytesGivesNoTrailer) {
  EXPECT_TRUE(readEmlxTrailer(write("0\n<a/>")).isNil());
  EXPECT_TRUE(readEmlxTrailer(write("")).isNil());
}

TEST_F(EmlxTrailerFile, CountPastTheEndGivesNoTrailer) {
  EXPECT_TRUE(readEmlxTrailer(write("900\nshort body" + xmlTrailer(kTrailer))).isNil());
}

TEST_F(EmlxTrailerFile, FourGibibyteCountGivesNoTrailer) {
  EXPECT_TRUE(readEmlxTrailer(write("4294967296\nbody" + xmlTrailer(kTrailer))).isNil());
}

TEST_F(EmlxTrailerFile, NegativeCountGivesNoTrailer) {
  EXPECT_TRUE(readEmlxTrailer(write("-99999\nbody" + xmlTrailer(kTrailer))).isNil());
  EXPECT_TRUE(readEmlxTrailer(write("-2\nbodybody" + xmlTrailer(kTrailer))).isNil());
}

TEST_F(EmlxTrailerFile, GarbageTrailerGivesNoTrailer) {
  EXPECT_TRUE(readEmlxTrailer(write(emlxBytes("body", "<plist><dict><key>"))).isNil());
  EXPECT_TRUE(readEmlxTrailer(write(emlxBytes("body", "\xff\xfe garbage"))).isNil());
}

TEST_F(EmlxTrailerFile, EmptyTrailerGivesNoTrailer) {
  EXPECT_TRUE(readEmlxTrailer(write(emlxBytes("some body text", ""))).isNil());
}

TEST_F(EmlxTrailerFile, TrailerAboveTheCapIsNotRead) {
  // A sparse file: a count of 0 makes everything after the first line the
  // trailer, which is larger than the cap.
  std::string path = write("0\n");
  ASSERT_EQ(truncate(path.c_str(), kEmlxMaxTrailerSize + 3), 0);
  EXPECT_TRUE(readEmlxTrailer(path).isNil());
}

TEST_F(EmlxTrailerFile, LargeBodyIsSkipped) {
  // 64 MiB of body, never written (sparse), followed by the trailer.
  std::string path = dir / "big.emlx";
  const std::int64_t bodySize = 64LL * 1024 * 1024;
  std::string head = std::to_string(bodySize) + "\n";
  std::string trailer = xmlTrailer(kTrailer);
  int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(::write(fd, head.data(), head.size()), static_cast<ssize_t>(head.size()));
  off_t at = static_cast<off_t>(head.size() + bodySize);
  ASSERT_EQ(pwrite(fd, trailer.data(), trailer.size(), at), static_cast<ssize_t>(trailer.size()));
  close(fd);
  EXPECT_EQ(readEmlxTrailer(path), kTrailer);
}

TEST_F(EmlxTrailerFile, MissingFileGivesNoTrailer) {
  EXPECT_TRUE(readEmlxTrailer(dir / "none.emlx").isNil());
}

TEST_F(EmlxTrailerFile, FolderGivesNoTrailer) {
  std::string path = dir / "folder.emlx";
  ASSERT_EQ(mkdir(path.c_str(), 0755), 0);
  EXPECT_TRUE(readEmlxTrailer(path).isNil());
}

TEST_F(EmlxTrailerFile, FifoIsNotWaitedOn) {
  // Opening a FIFO without a writer would block a plain read-only open.
  std::string path = dir / "fifo.emlx";
  ASSERT_EQ(mkfifo(path.c_str(), 0644), 0);
  EXPECT_TRUE(readEmlxTrailer(path).isNil());
}

TEST_F(EmlxTrailerFile, UnreadableFileGivesNoTrailer) {
  if (geteuid() == 0) GTEST_SKIP() << "root reads files whatever their mode";
  std::string path = write(emlxBytes("body", xmlTrailer(kTrailer)));
  ASSERT_EQ(chmod(path.c_str(), 0), 0);
  EXPECT_TRUE(readEmlxTrailer(path).isNil());
}

}  // namespace
}  // namespace wf
