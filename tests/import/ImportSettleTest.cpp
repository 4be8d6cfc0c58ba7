// Imports that settle: values the store does not keep are not handed to it
// again until the message changes; a tag time ahead of the clock is
// followed by a stamp later than it; an import cut short is taken up again
// at the next change; a name that is not UTF-8 is skipped.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cmath>

#include "ImportSupport.h"
#include "import/ImportRecord.h"
#include "import/OpenMetaFolderWatcher.h"
#include "openmeta/OpenMeta.h"
#include "platform/Spotlight.h"
#include "platform/plist/PropertyList.h"

namespace wf {
namespace {

using test::AttributeWrite;
using test::emlxBytes;
using test::exists;
using test::setSpotlightAttribute;
using test::spotlightAttribute;
using test::wrenfoldTrailer;

const char* kStampKey = "kMDItemWrenfoldTimeStamp";

class ImportSettle : public ::testing::Test, protected test::ImportFixture {
 protected:
  void SetUp() override { setLogOpenMeta(true); }
  Value attributesOf(const std::string& path) {
    auto item = platform::SpotlightItem::createWithPath(path);
    return item ? item->copyAllAttributes() : Value();
  }
  // What the watcher does for a changed message: the import with the
  // file's current metadata. Returns the metadata writes it made.
  std::vector<AttributeWrite> importAgain(const std::string& path) {
    test::startRecordingAttributeWrites();
    delegate->importWrenfoldMetadataAtPath(path, attributesOf(path));
    return test::stopRecordingAttributeWrites();
  }
  std::string message(const std::string& name, const Dictionary& wrenfold) {
    return writeMessage(name, emlxBytes("From: a@b\r\n\r\nHi\n", wrenfoldTrailer(wrenfold)));
  }
  double nowSeconds() const { return fake.clock.now_; }
};

TEST_F(ImportSettle, NoteTooBigIsTriedOnceAndTheRestIsKept) {
  std::string path = message("1.emlx", {{"wrenfoldAnnotation", Value(std::string(3990, 'n'))},
                                        {"wrenfoldPriority", Value(2)}});
  auto first = importAgain(path);
  EXPECT_FALSE(first.empty());
  EXPECT_EQ(spotlightAttribute(path, "kMDItemStarRating"), Value(2));
  EXPECT_FALSE(test::hasSpotlightAttribute(path, "kMDItemComment"));
  // The helper's own writes bring the message back: nothing is written.
  EXPECT_TRUE(importAgain(path).empty());
  EXPECT_TRUE(importAgain(path).empty());
  auto lines = importMessages();
  EXPECT_NE(std::find(lines.begin(), lines.end(),
                      "OpenMeta Importing... not kept before, not tried again: (\n"
                      "    kMDItemComment\n)"),
            lines.end());
}

TEST_F(ImportSettle, ChangeByAnotherHandBringsTheValuesBack) {
  std::string path = message("2.emlx", {{"wrenfoldKeyWords", Value(Array(200, Value("kw")))}});
  importAgain(path);
  ASSERT_TRUE(importAgain(path).empty());
  // Another program changes one of the message's attributes.
  setSpotlightAttribute(path, "kMDItemStarRating", Value(5));
  auto writes = importAgain(path);
  ASSERT_FALSE(writes.empty());
  EXPECT_EQ(writes.front().key, kStampKey);
  EXPECT_TRUE(importAgain(path).empty());
  // The trailer changes: the new value is written.
  writeMessage("2.emlx",
               emlxBytes("From: a@b\r\n\r\nHi\n",
                         wrenfoldTrailer({{"wrenfoldKeyWords", Value(Array{Value("short")})}})));
  importAgain(path);
  EXPECT_EQ(spotlightAttribute(path, "kMDItemKeywords"), Value(Array{Value("short")}));
  // Everything kept: the note on the file is gone.
  EXPECT_FALSE(readImportRecord(path));
}

TEST_F(ImportSettle, DateWithAFractionAndAValueOfAnotherKindSettle) {
  std::string trailer;
  plist::toBinary(Value(Dictionary{{"wrenfold", Value(Dictionary{
                                                    {"wrenfoldDueDate", Value(Date{8e8 + 0.25})},
                                                    {"wrenfoldAnnotation", Value(7)},
                                                })}}),
                  trailer);
  std::string path = writeMessage("3.emlx", emlxBytes("From: a@b\r\n\r\nHi\n", trailer));
  EXPECT_FALSE(importAgain(path).empty());
  EXPECT_EQ(spotlightAttribute(path, "kMDItemComment"), Value(7));
  EXPECT_TRUE(importAgain(path).empty());
}

TEST_F(ImportSettle, ValuesKeptLeaveNoNoteOnTheFile) {
  std::string path = message("4.emlx", {{"wrenfoldPriority", Value(1)}});
  importAgain(path);
  EXPECT_FALSE(readImportRecord(path));
  char buffer[16];
  EXPECT_LT(lgetxattr(path.c_str(), "user.org.ardel.wrenfold.import", buffer, sizeof buffer), 0);
}

TEST_F(ImportSettle, TagTimeAheadOfTheClockIsFollowedByALaterStamp) {
  setRecognizeOpenMetaTags(true);
  std::string path = message("5.emlx", {});
  double ahead = nowSeconds() + 3600.5;
  setSpotlightAttribute(path, kStampKey, Value(Date{100.0}));
  setSpotlightAttribute(path, "kMDItemOMUserTags", Value(Array{Value("om")}));
  setSpotlightAttribute(path, "kMDItemOMUserTagTime", Value(Date{ahead}));
  // Set as another program may: a binary value keeps the fraction.
  std::string bytes;
  plist::toBinary(Value(Date{ahead}), bytes);
  lsetxattr(path.c_str(), "user.com.apple.metadata:kMDItemOMUserTagTime", bytes.data(),
            bytes.size(), 0);

  importAgain(path);
  ASSERT_TRUE(exists(stubFolder() + "/5"));
  Value stamp = spotlightAttribute(path, kStampKey);
  ASSERT_TRUE(stamp.isDate());
  EXPECT_EQ(stamp.asDate().seconds, std::floor(ahead) + 1);
  unlink((stubFolder() + "/5").c_str());
  // The follow-up takes the plug-in's way and finds nothing to do.
  EXPECT_TRUE(importAgain(path).empty());
  EXPECT_FALSE(exists(stubFolder() + "/5"));
}

TEST_F(ImportSettle, PlugInWayKeepsTheStampLaterThanATagTimeAhead) {
  std::string path = message("6.emlx", {{"wrenfoldPriority", Value(1)}});
  double ahead = nowSeconds() + 100;
  Value attributes(Dictionary{{kStampKey, Value(Date{ahead + 10})},
                              {"kMDItemOMUserTagTime", Value(Date{ahead})}});
  delegate->importWrenfoldMetadataAtPath(path, attributes);
  EXPECT_EQ(spotlightAttribute(path, kStampKey), Value(Date{ahead + 1}));
}

TEST_F(ImportSettle, TagTimeBehindTheClockStillGetsNow) {
  setRecognizeOpenMetaTags(true);
  std::string path = message("7.emlx", {});
  Value attributes(Dictionary{{kStampKey, Value(Date{100.0})},
                              {"kMDItemOMUserTagTime", Value(Date{nowSeconds() - 5})}});
  delegate->importWrenfoldMetadataAtPath(path, attributes);
  EXPECT_EQ(spotlightAttribute(path, kStampKey), Value(Date{nowSeconds()}));
}

// Interrupted imports

class InterruptedImport : public ImportSettle {
 protected:
  // The file as an import leaves it when its writer dies after the
  // distant-future stamp.
  std::string interrupted(const std::string& name, const std::string& owner) {
    std::string path = message(name, {{"wrenfoldKeyWords", Value(Array{Value("k")})}});
    setSpotlightAttribute(path, kStampKey, Value(Date::distantFuture()));
    Dictionary note{{"owner", Value(owner)}, {"previousStamp", Value(Date{100.0})}};
    EXPECT_FALSE(OpenMeta::setXAttr(Value(note), kImportRecordName, path));
    return path;
  }
  std::string goneOwner() const {
    std::string own = currentImportOwner();
    // This boot, a process id that cannot exist.
    return own.substr(0, own.find(' ')) + " 999999999 1";
  }
};

TEST_F(InterruptedImport, WriterGoneIsImportedAtTheNextChange) {
  std::string path = interrupted("10.emlx", goneOwner());
  delegate->delayedImport({path});
  EXPECT_EQ(spotlightAttribute(path, "kMDItemKeywords"), Value(Array{Value("k")}));
  EXPECT_EQ(spotlightAttribute(path, kStampKey), Value(Date{nowSeconds()}));
  EXPECT_FALSE(readImportRecord(path));
  EXPECT_EQ(
      keyedMessages("resumeInterruptedImport"),
      std::vector<std::string>{"OpenMeta Importing... resuming an interrupted import of " + path});
}

TEST_F(InterruptedImport, ValuesWrittenBeforeTheCrashAreWrittenWithTheRest) {
  std::string path = interrupted("11.emlx", goneOwner());
  // Killed after the first of the keywords' four attributes.
  setSpotlightAttribute(path, "kMDItemKeywords", Value(Array{Value("k")}));
  delegate->delayedImport({path});
  for (const char* key : {"kMDItemKeywords", "kMDItemOMUserTags", "kOMUserTags", "kMDItemUserTags"})
    EXPECT_EQ(spotlightAttribute(path, key), Value(Array{Value("k")})) << key;
  EXPECT_EQ(spotlightAttribute(path, kStampKey), Value(Date{nowSeconds()}));
}

TEST_F(InterruptedImport, NothingLeftToWriteRestoresTheStampFromBefore) {
  std::string path = interrupted("14.emlx", goneOwner());
  writeMessage("14.emlx", emlxBytes("From: a@b\r\n\r\nHi\n", wrenfoldTrailer({})));
  delegate->delayedImport({path});
  EXPECT_EQ(spotlightAttribute(path, kStampKey), Value(Date{100.0}));
  EXPECT_FALSE(readImportRecord(path));
}

TEST_F(InterruptedImport, TagsNewerThanTheStampFromBeforeGetTheirStubAgain) {
  setRecognizeOpenMetaTags(true);
  // Killed between the stub and the final stamp of the OpenMeta way.
  std::string path = interrupted("15.emlx", goneOwner());
  setSpotlightAttribute(path, "kMDItemOMUserTags", Value(Array{Value("om")}));
  setSpotlightAttribute(path, "kMDItemOMUserTagTime", Value(Date{200.0}));
  delegate->delayedImport({path});
  Value stub = plist::dictionaryWithContentsOfFile(stubFolder() + "/15");
  EXPECT_EQ(stub.get("Tags"), Value(Array{Value("om")}));
  EXPECT_EQ(spotlightAttribute(path, kStampKey), Value(Date{nowSeconds()}));
  EXPECT_FALSE(readImportRecord(path));
}

TEST_F(InterruptedImport, WriterStillRunningIsLeftAlone) {
  // The test's parent process runs, and so does its import.
  std::string owner = importOwnerOf(getppid());
  ASSERT_TRUE(importOwnerIsRunning(owner));
  std::string path = interrupted("12.emlx", owner);
  delegate->delayedImport({path});
  EXPECT_EQ(spotlightAttribute(path, kStampKey), Value(Date::distantFuture()));
  EXPECT_FALSE(test::hasSpotlightAttribute(path, "kMDItemKeywords"));
}

TEST_F(InterruptedImport, DistantFutureWithoutNoteIsLeftAlone) {
  std::string path = message("13.emlx", {{"wrenfoldKeyWords", Value(Array{Value("k")})}});
  setSpotlightAttribute(path, kStampKey, Value(Date::distantFuture()));
  delegate->delayedImport({path});
  EXPECT_FALSE(test::hasSpotlightAttribute(path, "kMDItemKeywords"));
}

TEST(ImportOwner, ThisProcessCountsAsGoneAndAReusedIdDoesNotPass) {
  EXPECT_FALSE(importOwnerIsRunning(currentImportOwner()));
  std::string parent = importOwnerOf(getppid());
  EXPECT_TRUE(importOwnerIsRunning(parent));
  EXPECT_FALSE(importOwnerIsRunning(parent + "0"));  // another start time
  EXPECT_FALSE(importOwnerIsRunning("other-boot " + std::to_string(getppid()) + " 1"));
  EXPECT_FALSE(importOwnerIsRunning(""));
  EXPECT_FALSE(importOwnerIsRunning("a b"));
}

TEST(ImportOwner, AKilledWriterNotYetReapedCountsAsGone) {
  // A helper killed inside an import stays a zombie until its parent (or a
  // tracer holding it) lets go; it writes nothing more all the same.
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    char c;
    close(ready[1]);
    (void)!read(ready[0], &c, 1);
    _exit(0);
  }
  close(ready[0]);
  std::string owner = importOwnerOf(child);
  EXPECT_TRUE(importOwnerIsRunning(owner));
  close(ready[1]);  // the child reads the end of the pipe and exits
  siginfo_t info{};
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT), 0);  // not reaped
  EXPECT_FALSE(importOwnerIsRunning(owner));
  waitpid(child, nullptr, 0);
}

TEST(ImportFingerprint, EqualValuesAgreeAndAFractionCounts) {
  EXPECT_EQ(fingerprint(Value(Date{1.0})), fingerprint(Value(Date{1.0})));
  EXPECT_NE(fingerprint(Value(Date{1.0})), fingerprint(Value(Date{1.25})));
  EXPECT_NE(fingerprint(Value("7")), fingerprint(Value(7)));
  EXPECT_EQ(fingerprint(Value()).size(), 16u);
}

// Names that are not UTF-8

TEST(EscapedPath, BytesThatAreNoTextAreEscaped) {
  EXPECT_EQ(escapedPath("/m/\xff\xfe.emlx"), "/m/\\xff\\xfe.emlx");
  EXPECT_EQ(escapedPath("/Bo\xc3\xaete/1.emlx"), "/Bo\xc3\xaete/1.emlx");
  EXPECT_EQ(escapedPath("a\\b\nc"), "a\\\\b\\x0ac");
  EXPECT_EQ(escapedPath("\xc3"), "\\xc3");
}

TEST_F(ImportSettle, NameThatIsNotUtf8IsSkippedWithOneLine) {
  setRecognizeOpenMetaTags(true);
  std::string path = message("\xff\xfe.emlx", {{"wrenfoldPriority", Value(1)}});
  setSpotlightAttribute(path, kStampKey, Value(Date{100.0}));
  setSpotlightAttribute(path, "kMDItemOMUserTagTime", Value(Date{200.0}));
  test::startRecordingAttributeWrites();
  delegate->delayedImport({path});
  EXPECT_TRUE(test::stopRecordingAttributeWrites().empty());
  EXPECT_EQ(fake.log.lines, std::vector<std::string>{"emlx file name is not UTF-8, not imported: " +
                                                     escapedPath(path)});
  EXPECT_FALSE(exists(stubFolder()));
}

}  // namespace
}  // namespace wf
