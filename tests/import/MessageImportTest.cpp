#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>

#include "ImportSupport.h"
#include "platform/plist/PropertyList.h"

namespace wf {
namespace {

using test::AttributeWrite;
using test::emlxBytes;
using test::exists;
using test::folderEntries;
using test::hasSpotlightAttribute;
using test::spotlightAttribute;
using test::spotlightKeys;
using test::wrenfoldTrailer;

Value strings(std::initializer_list<const char*> items) {
  Array a;
  for (const char* s : items) a.emplace_back(s);
  return Value(std::move(a));
}

const Date kStamp{790000000.0};    // the plug-in's last write
const Date kLater{795000000.0};    // another application's tag time
const Date kEarlier{780000000.0};  // a tag time before the plug-in's write

class MessageImport : public ::testing::Test, protected test::ImportFixture {
 protected:
  void SetUp() override {
    setLogOpenMeta(true);
    test::startRecordingAttributeWrites();
  }
  std::vector<AttributeWrite> writes() { return test::stopRecordingAttributeWrites(); }
  std::string timeStampsLine(const Value& tagTime, const Value& stamp, long order) {
    return "OpenMeta Importing... TimeStamps OM: " + describe(tagTime) + " WF: " + describe(stamp) +
           " order: " + std::to_string(order) + " (1)";
  }
  Value now() const { return Value(Date{fake.clock.now_}); }
  Value openMetaAttributes(const Value& tags, Date tagTime) {
    return Value(Dictionary{{"kMDItemWrenfoldTimeStamp", Value(kStamp)},
                            {"kMDItemOMUserTagTime", Value(tagTime)},
                            {"kMDItemOMUserTags", tags}});
  }
  // A message whose trailer carries the plug-in's metadata.
  std::string taggedMessage(const std::string& name, const Dictionary& wrenfold) {
    return writeMessage(name, emlxBytes("From: a@b\r\n\r\nHi\n", wrenfoldTrailer(wrenfold)));
  }
  const Dictionary fullMetadata{
      {"wrenfoldKeyWords", strings({"Work", "Urgent"})},
      {"wrenfoldProject", strings({"Launch"})},
      {"wrenfoldPriority", Value(3)},
      {"wrenfoldAnnotation", Value("call back")},
      {"wrenfoldDueDate", Value(Date{800100000.0})},
  };
};

// The plug-in's way

TEST_F(MessageImport, NoAttributesTakesThePlugInWayAndWritesEverything) {
  std::string path = taggedMessage("1.emlx", fullMetadata);
  delegate->importWrenfoldMetadataAtPath(path, Value());
  auto lines = importMessages();
  ASSERT_GE(lines.size(), 2u);
  EXPECT_EQ(lines[0], timeStampsLine(Value(), Value(Date::distantPast()), 0));
  EXPECT_EQ(spotlightAttribute(path, "kMDItemKeywords"), strings({"Work", "Urgent"}));
  EXPECT_EQ(spotlightAttribute(path, "kMDItemOMUserTags"), strings({"Work", "Urgent"}));
  EXPECT_EQ(spotlightAttribute(path, "kOMUserTags"), strings({"Work", "Urgent"}));
  EXPECT_EQ(spotlightAttribute(path, "kMDItemUserTags"), strings({"Work", "Urgent"}));
  EXPECT_EQ(spotlightAttribute(path, "kMDItemProjects"), strings({"Launch"}));
  EXPECT_EQ(spotlightAttribute(path, "kMDItemStarRating"), Value(3));
  EXPECT_EQ(spotlightAttribute(path, "kMDItemComment"), Value("call back"));
  EXPECT_EQ(spotlightAttribute(path, "wrenfoldItemDueDate"),
            Value(Array{Value(Date{800100000.0})}));
  EXPECT_EQ(spotlightAttribute(path, "kMDItemWrenfoldTimeStamp"), now());
  EXPECT_FALSE(exists(stubFolder() + "/1"));
}

TEST_F(MessageImport, WritesAreBracketedByTheTimeStamp) {
  std::string path = taggedMessage("2.emlx", fullMetadata);
  delegate->importWrenfoldMetadataAtPath(path, Value());
  auto w = writes();
  ASSERT_EQ(w.size(), 10u);
  EXPECT_EQ(w.front().key, "kMDItemWrenfoldTimeStamp");
  EXPECT_EQ(w.front().value, Value(Date::distantFuture()));
  EXPECT_EQ(w.back().key, "kMDItemWrenfoldTimeStamp");
  EXPECT_EQ(w.back().value, now());
  std::vector<std::string> middle;
  for (std::size_t i = 1; i + 1 < w.size(); ++i) {
    EXPECT_EQ(w[i].path, path);
    middle.push_back(w[i].key);
  }
  std::vector<std::string> logged;
  for (const auto& line : importMessages())
    if (line.rfind("OpenMeta Importing... setting attribute ", 0) == 0)
      logged.push_back(line.substr(std::string("OpenMeta Importing... setting attribute ").size()));
  EXPECT_EQ(middle, logged);
  std::sort(middle.begin(), middle.end());
  EXPECT_EQ(middle,
            (std::vector<std::string>{"kMDItemComment", "kMDItemKeywords", "kMDItemOMUserTags",
                                      "kMDItemProjects", "kMDItemStarRating", "kMDItemUserTags",
                                      "kOMUserTags", "wrenfoldItemDueDate"}));
}

TEST_F(MessageImport, AttributesToImportAreLoggedBeforeTheWrites) {
  std::string path = taggedMessage("3.emlx", {{"wrenfoldPriority", Value(2)}});
  delegate->importWrenfoldMetadataAtPath(path, Value());
  EXPECT_EQ(importMessages(), (std::vector<std::string>{
                                  timeStampsLine(Value(), Value(Date::distantPast()), 0),
                                  "OpenMeta Importing... attributesToImport " +
                                      describe(Value(Dictionary{{"kMDItemStarRating", Value(2)}})),
                                  "OpenMeta Importing... setting attribute kMDItemStarRating"}));
}

TEST_F(MessageImport, TrailerEqualToTheCurrentAttributesWritesNothing) {
  std::string path = taggedMessage("4.emlx", fullMetadata);
  Value current(Dictionary{{"kMDItemWrenfoldTimeStamp", Value(kStamp)},
                           {"kMDItemKeywords", strings({"Work", "Urgent"})},
                           {"kMDItemProjects", strings({"Launch"})},
                           {"kMDItemStarRating", Value(3.0)},
                           {"kMDItemComment", Value("call back")},
                           {"wrenfoldItemDueDate", Value(Array{Value(Date{800100000.0})})}});
  delegate->importWrenfoldMetadataAtPath(path, current);
  EXPECT_TRUE(writes().empty());
  EXPECT_TRUE(spotlightKeys(path).empty());
  EXPECT_EQ(importMessages(),
            (std::vector<std::string>{timeStampsLine(Value(), Value(kStamp), 0),
                                      "OpenMeta Importing... attributesToImport {\n}"}));
}

TEST_F(MessageImport, TrailerWithoutPlugInDictionaryLogsAnEmptyImport) {
  std::string path = writeMessage(
      "5.emlx", emlxBytes("body", test::xmlTrailer(Value(Dictionary{{"flags", Value(1)}}))));
  delegate->importWrenfoldMetadataAtPath(path, Value());
  EXPECT_TRUE(writes().empty());
  EXPECT_EQ(importMessages().back(), "OpenMeta Importing... attributesToImport {\n}");
}

TEST_F(MessageImport, PlugInEntryThatIsNoDictionaryIsIgnored) {
  std::string path = writeMessage(
      "5b.emlx",
      emlxBytes("body", test::xmlTrailer(Value(Dictionary{{"wrenfold", strings({"x"})}}))));
  delegate->importWrenfoldMetadataAtPath(path, Value());
  EXPECT_TRUE(writes().empty());
  EXPECT_EQ(importMessages().back(), "OpenMeta Importing... attributesToImport {\n}");
}

TEST_F(MessageImport, KeywordsDifferingOnlyInCaseAreImported) {
  std::string path = taggedMessage("6.emlx", {{"wrenfoldKeyWords", strings({"work"})}});
  Value current(Dictionary{{"kMDItemWrenfoldTimeStamp", Value(kStamp)},
                           {"kMDItemKeywords", strings({"Work"})}});
  delegate->importWrenfoldMetadataAtPath(path, current);
  EXPECT_EQ(spotlightAttribute(path, "kMDItemKeywords"), strings({"work"}));
  EXPECT_EQ(spotlightAttribute(path, "kMDItemUserTags"), strings({"work"}));
  EXPECT_EQ(spotlightAttribute(path, "kMDItemWrenfoldTimeStamp"), now());
}

TEST_F(MessageImport, ProjectGivenAsAStringIsWrittenAsAOneElementArray) {
  std::string path = taggedMessage("7.emlx", {{"wrenfoldProject", Value("Garden")}});
  delegate->importWrenfoldMetadataAtPath(path, Value());
  EXPECT_EQ(spotlightAttribute(path, "kMDItemProjects"), strings({"Garden"}));
}

TEST_F(MessageImport, ProjectStringEqualToTheCurrentArrayIsNotWritten) {
  std::string path = taggedMessage("8.emlx", {{"wrenfoldProject", Value("Garden")}});
  Value current(Dictionary{{"kMDItemWrenfoldTimeStamp", Value(kStamp)},
                           {"kMDItemProjects", strings({"Garden"})}});
  delegate->importWrenfoldMetadataAtPath(path, current);
  EXPECT_TRUE(writes().empty());
}

TEST_F(MessageImport, OnlyTheChangedEntriesAreWritten) {
  std::string path = taggedMessage("9.emlx", fullMetadata);
  Value current(Dictionary{{"kMDItemWrenfoldTimeStamp", Value(kStamp)},
                           {"kMDItemKeywords", strings({"Work", "Urgent"})},
                           {"kMDItemProjects", strings({"Launch"})},
                           {"kMDItemStarRating", Value(1)},
                           {"kMDItemComment", Value("call back")},
                           {"wrenfoldItemDueDate", Value(Array{Value(Date{800100000.0})})}});
  delegate->importWrenfoldMetadataAtPath(path, current);
  std::vector<std::string> keys;
  for (const auto& w : writes()) keys.push_back(w.key);
  EXPECT_EQ(keys, (std::vector<std::string>{"kMDItemWrenfoldTimeStamp", "kMDItemStarRating",
                                            "kMDItemWrenfoldTimeStamp"}));
}

TEST_F(MessageImport, NoteThatIsNoStringAlwaysDiffers) {
  std::string path = taggedMessage("10.emlx", {{"wrenfoldAnnotation", Value(5)}});
  Value current(
      Dictionary{{"kMDItemWrenfoldTimeStamp", Value(kStamp)}, {"kMDItemComment", Value(5)}});
  delegate->importWrenfoldMetadataAtPath(path, current);
  EXPECT_EQ(spotlightAttribute(path, "kMDItemComment"), Value(5));
}

TEST_F(MessageImport, CountLineLongerThanTenDigitsImportsNothing) {
  std::string path = writeMessage("11.emlx", "000000000004\nbody" + wrenfoldTrailer(fullMetadata));
  delegate->importWrenfoldMetadataAtPath(path, Value());
  EXPECT_TRUE(writes().empty());
  EXPECT_TRUE(spotlightKeys(path).empty());
  // No trailer: nothing is logged after the time stamps.
  EXPECT_EQ(importMessages(),
            std::vector<std::string>{timeStampsLine(Value(), Value(Date::distantPast()), 0)});
}

TEST_F(MessageImport, TagTimeEqualToTheStampTakesThePlugInWay) {
  setRecognizeOpenMetaTags(true);
  std::string path = taggedMessage("12.emlx", {{"wrenfoldPriority", Value(4)}});
  delegate->importWrenfoldMetadataAtPath(path, openMetaAttributes(strings({"om"}), kStamp));
  EXPECT_EQ(importMessages()[0], timeStampsLine(Value(kStamp), Value(kStamp), 0));
  EXPECT_FALSE(exists(stubFolder() + "/12"));
  EXPECT_EQ(spotlightAttribute(path, "kMDItemStarRating"), Value(4));
}

TEST_F(MessageImport, EarlierTagTimeTakesThePlugInWay) {
  setRecognizeOpenMetaTags(true);
  std::string path = taggedMessage("13.emlx", {{"wrenfoldPriority", Value(4)}});
  delegate->importWrenfoldMetadataAtPath(path, openMetaAttributes(strings({"om"}), kEarlier));
  EXPECT_EQ(importMessages()[0], timeStampsLine(Value(kEarlier), Value(kStamp), -1));
  EXPECT_FALSE(exists(stubFolder() + "/13"));
  EXPECT_EQ(spotlightAttribute(path, "kMDItemStarRating"), Value(4));
}

TEST_F(MessageImport, LaterTagTimeWithRecognitionOffTakesThePlugInWay) {
  setRecognizeOpenMetaTags(false);
  std::string path = taggedMessage("14.emlx", {{"wrenfoldPriority", Value(4)}});
  delegate->importWrenfoldMetadataAtPath(path, openMetaAttributes(strings({"om"}), kLater));
  EXPECT_EQ(importMessages()[0], timeStampsLine(Value(kLater), Value(kStamp), 1));
  EXPECT_FALSE(exists(stubFolder() + "/14"));
  EXPECT_EQ(spotlightAttribute(path, "kMDItemStarRating"), Value(4));
}

TEST_F(MessageImport, TagTimeThatIsNoDateTakesThePlugInWay) {
  setRecognizeOpenMetaTags(true);
  std::string path = taggedMessage("15.emlx", {{"wrenfoldPriority", Value(4)}});
  Value attributes(Dictionary{{"kMDItemWrenfoldTimeStamp", Value(kStamp)},
                              {"kMDItemOMUserTagTime", Value("tomorrow")}});
  delegate->importWrenfoldMetadataAtPath(path, attributes);
  EXPECT_EQ(importMessages()[0], timeStampsLine(Value("tomorrow"), Value(kStamp), 0));
  EXPECT_FALSE(exists(stubFolder() + "/15"));
}

// The OpenMeta way

TEST_F(MessageImport, LaterTagTimeLeavesAStubForThePlugIn) {
  setRecognizeOpenMetaTags(true);
  std::string path = taggedMessage("812.emlx", fullMetadata);
  delegate->importWrenfoldMetadataAtPath(path, openMetaAttributes(strings({"a", "b"}), kLater));
  std::string stub = stubFolder() + "/812";
  ASSERT_TRUE(exists(stub));
  std::string bytes = test::readFile(stub);
  EXPECT_EQ(bytes.rfind("<?xml", 0), 0u) << "the stub is an XML property list";
  EXPECT_EQ(plist::readFile(stub), Value(Dictionary{{"LibraryID", Value("812")},
                                                    {"FilePath", Value(path)},
                                                    {"Tags", strings({"a", "b"})}}));
  EXPECT_EQ(importMessages(),
            (std::vector<std::string>{timeStampsLine(Value(kLater), Value(kStamp), 1),
                                      "OpenMeta Importing... saving Stub OPENMETA " + stub}));
  // Only the stamp is written, distant future first.
  auto w = writes();
  ASSERT_EQ(w.size(), 2u);
  EXPECT_EQ(w[0].key, "kMDItemWrenfoldTimeStamp");
  EXPECT_EQ(w[0].value, Value(Date::distantFuture()));
  EXPECT_EQ(w[1].key, "kMDItemWrenfoldTimeStamp");
  EXPECT_EQ(w[1].value, now());
  EXPECT_EQ(spotlightKeys(path), std::vector<std::string>{"kMDItemWrenfoldTimeStamp"});
}

TEST_F(MessageImport, LaterTagTimeWithoutTagsWritesAStubWithEmptyTags) {
  setRecognizeOpenMetaTags(true);
  std::string path = taggedMessage("20.emlx", {});
  Value attributes(Dictionary{{"kMDItemWrenfoldTimeStamp", Value(kStamp)},
                              {"kMDItemOMUserTagTime", Value(kLater)}});
  delegate->importWrenfoldMetadataAtPath(path, attributes);
  EXPECT_EQ(plist::readFile(stubFolder() + "/20").get("Tags"), Value(Array{}));
}

TEST_F(MessageImport, PartialMessageGetsItsStubNamedWithoutTheLastExtension) {
  setRecognizeOpenMetaTags(true);
  std::string path = taggedMessage("812.partial.emlx", {});
  delegate->importWrenfoldMetadataAtPath(path, openMetaAttributes(strings({"x"}), kLater));
  Value stub = plist::readFile(stubFolder() + "/812.partial");
  EXPECT_EQ(stub.get("LibraryID"), Value("812.partial"));
  EXPECT_EQ(stub.get("FilePath"), Value(path));
}

TEST_F(MessageImport, OlderStubIsOverwritten) {
  setRecognizeOpenMetaTags(true);
  std::string path = taggedMessage("21.emlx", {});
  delegate->importWrenfoldMetadataAtPath(path,
                                         openMetaAttributes(strings({"old", "longer"}), kLater));
  delegate->importWrenfoldMetadataAtPath(path, openMetaAttributes(strings({"new"}), kLater));
  EXPECT_EQ(plist::readFile(stubFolder() + "/21").get("Tags"), strings({"new"}));
}

TEST_F(MessageImport, MissingStubFolderIsCreatedAgain) {
  setRecognizeOpenMetaTags(true);
  std::string path = taggedMessage("22.emlx", {});
  delegate->importWrenfoldMetadataAtPath(path, openMetaAttributes(strings({"x"}), kLater));
  ASSERT_EQ(system(("rm -rf '" + stubFolder() + "'").c_str()), 0);
  delegate->importWrenfoldMetadataAtPath(path, openMetaAttributes(strings({"y"}), kLater));
  EXPECT_EQ(plist::readFile(stubFolder() + "/22").get("Tags"), strings({"y"}));
}

TEST_F(MessageImport, StubNameThatWouldLeaveTheFolderIsNotWritten) {
  setRecognizeOpenMetaTags(true);
  for (const char* name : {"..emlx", ".emlx", "...emlx"}) {
    std::string path = taggedMessage(name, {});
    delegate->importWrenfoldMetadataAtPath(path, openMetaAttributes(strings({"x"}), kLater));
    EXPECT_EQ(spotlightAttribute(path, "kMDItemWrenfoldTimeStamp"), now()) << name;
  }
  // Nothing appeared beside the stub folder, which is still a folder of
  // plain files.
  EXPECT_EQ(folderEntries(fake.library() + "/Mail/Ardel"),
            std::vector<std::string>{"OpenMetaUpdates"});
  for (const auto& entry : folderEntries(stubFolder())) {
    struct stat st;
    ASSERT_EQ(lstat((stubFolder() + "/" + entry).c_str(), &st), 0);
    EXPECT_TRUE(S_ISREG(st.st_mode)) << entry;
  }
}

// The fallbacks of the attribute names

TEST_F(MessageImport, ExtendedAttributeNamesAreTriedWhenThePlainOnesAreAbsent) {
  setRecognizeOpenMetaTags(true);
  std::string path = taggedMessage("30.emlx", {});
  Value attributes(Dictionary{{":EA:kMDItemWrenfoldTimeStamp", Value(kStamp)},
                              {":EA:kMDItemOMUserTagTime", Value(kLater)},
                              {":EA:kOMUserTags", strings({"ea"})}});
  delegate->importWrenfoldMetadataAtPath(path, attributes);
  EXPECT_EQ(importMessages()[0], timeStampsLine(Value(kLater), Value(kStamp), 1));
  EXPECT_EQ(plist::readFile(stubFolder() + "/30").get("Tags"), strings({"ea"}));
}

TEST_F(MessageImport, PlainNamesWinOverExtendedAttributeNames) {
  setRecognizeOpenMetaTags(true);
  std::string path = taggedMessage("31.emlx", {});
  Value attributes(Dictionary{{"kMDItemWrenfoldTimeStamp", Value(kStamp)},
                              {":EA:kMDItemWrenfoldTimeStamp", Value(kLater)},
                              {"kMDItemOMUserTagTime", Value(kLater)},
                              {":EA:kMDItemOMUserTagTime", Value(kEarlier)},
                              {"kOMUserTags", strings({"plain"})},
                              {":EA:kMDItemOMUserTags", strings({"ea"})}});
  delegate->importWrenfoldMetadataAtPath(path, attributes);
  EXPECT_EQ(importMessages()[0], timeStampsLine(Value(kLater), Value(kStamp), 1));
  EXPECT_EQ(plist::readFile(stubFolder() + "/31").get("Tags"), strings({"plain"}));
}

TEST_F(MessageImport, TagNamesAreTriedInOrder) {
  setRecognizeOpenMetaTags(true);
  std::string path = taggedMessage("32.emlx", {});
  Value attributes(Dictionary{{"kMDItemWrenfoldTimeStamp", Value(kStamp)},
                              {"kMDItemOMUserTagTime", Value(kLater)},
                              {"kMDItemOMUserTags", strings({"first"})},
                              {"kOMUserTags", strings({"second"})}});
  delegate->importWrenfoldMetadataAtPath(path, attributes);
  EXPECT_EQ(plist::readFile(stubFolder() + "/32").get("Tags"), strings({"first"}));

  Value fallback(Dictionary{{"kMDItemWrenfoldTimeStamp", Value(kStamp)},
                            {"kMDItemOMUserTagTime", Value(kLater)},
                            {":EA:kMDItemOMUserTags", strings({"third"})},
                            {":EA:kOMUserTags", strings({"fourth"})}});
  delegate->importWrenfoldMetadataAtPath(path, fallback);
  EXPECT_EQ(plist::readFile(stubFolder() + "/32").get("Tags"), strings({"third"}));
}

TEST_F(MessageImport, MissingStampIsTheDistantPast) {
  setRecognizeOpenMetaTags(true);
  std::string path = taggedMessage("33.emlx", {});
  Value attributes(Dictionary{{"kMDItemOMUserTagTime", Value(kEarlier)}});
  delegate->importWrenfoldMetadataAtPath(path, attributes);
  EXPECT_EQ(importMessages()[0], timeStampsLine(Value(kEarlier), Value(Date::distantPast()), 1));
  EXPECT_TRUE(exists(stubFolder() + "/33"));
}

// Logging

TEST_F(MessageImport, NothingIsLoggedWhenLogOpenMetaIsOff) {
  setLogOpenMeta(false);
  std::string path = taggedMessage("40.emlx", fullMetadata);
  delegate->importWrenfoldMetadataAtPath(path, Value());
  EXPECT_TRUE(fake.log.lines.empty());
  EXPECT_EQ(spotlightAttribute(path, "kMDItemStarRating"), Value(3));
}

TEST_F(MessageImport, LogSpotlightDataWritesThePathAndTheAttributes) {
  setLogOpenMeta(false);
  std::string path = taggedMessage("41.emlx", {});
  test::setSpotlightAttribute(path, "kMDItemStarRating", Value(2));
  delegate->logSpotlightDataForPath(path);
  EXPECT_EQ(fake.log.lines,
            std::vector<std::string>{"Path: " + path + "\nSpotlightData " +
                                     describe(Value(Dictionary{{"kMDItemStarRating", Value(2)}})) +
                                     "\n------------\n"});
}

TEST_F(MessageImport, LogSpotlightDataIsSilentWithoutAttributesOrFile) {
  std::string path = taggedMessage("42.emlx", {});
  delegate->logSpotlightDataForPath(path);
  delegate->logSpotlightDataForPath(messages / "missing.emlx");
  EXPECT_TRUE(fake.log.lines.empty());
}

}  // namespace
}  // namespace wf
