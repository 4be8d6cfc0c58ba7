// The Finder-tag mirror: the freedesktop attribute "user.xdg.tags" that file
// managers read and write, and its merge with the OpenMeta list.
#include <gtest/gtest.h>

#include "XAttrTestSupport.h"
#include "openmeta/OpenMeta.h"
#include "support/Fakes.h"

namespace wf::test {
namespace {

Value tags(std::initializer_list<const char*> names) {
  Array a;
  for (const char* n : names) a.emplace_back(n);
  return Value(std::move(a));
}

Value storedTags(const std::string& path) {
  return OpenMeta::getXAttrMetaData("kMDItemOMUserTags", path, nullptr);
}

// What a desktop sees: getfattr's value of "user.xdg.tags".
std::string desktopTags(const std::string& path) {
  const ToolRun r =
      runTool("getfattr", {"--absolute-names", "--only-values", "-n", "user.xdg.tags", path});
  return r.status == 0 ? r.out : "<absent>";
}

// What a file manager does when the user edits the tags.
void fileManagerSetsTags(const std::string& path, const std::string& joined) {
  const ToolRun r = runTool("setfattr", {"-n", "user.xdg.tags", "-v", joined, path});
  ASSERT_EQ(r.status, 0) << r.err;
}

class FinderTags : public ::testing::Test {
 protected:
  TempDir dir{true};
  std::string file = dir / "file";
  void SetUp() override { writeFile(file, "content"); }
};

TEST_F(FinderTags, TagsSetHereAreWhatTheDesktopReads) {
  ASSERT_FALSE(OpenMeta::setUserTags(tags({"Work", "Home", "Café"}), file).has_value());
  // Stored in form D, as every tag write normalises.
  EXPECT_EQ(desktopTags(file), "Work,Home,Cafe\xCC\x81");
  ASSERT_FALSE(OpenMeta::setUserTags(Value(Array{}), file).has_value());
  EXPECT_EQ(desktopTags(file), "<absent>");
}

TEST_F(FinderTags, AbsentAttributeIsNoTags) {
  OptError error;
  EXPECT_TRUE(OpenMeta::getAppleTags(file, &error).isNil());
  EXPECT_FALSE(error.has_value());
  EXPECT_TRUE(OpenMeta::getUserTags(file, &error).isNil());
  EXPECT_FALSE(error.has_value());
  EXPECT_FALSE(rawAttribute(file, "user.kOM109SyncDone").has_value())
      << "a file without tags is not marked";
  // Removing tags that are not there succeeds.
  EXPECT_FALSE(OpenMeta::setAppleTags(Value(Array{}), file).has_value());
  EXPECT_FALSE(OpenMeta::setAppleTags(Value(), file).has_value());
}

TEST_F(FinderTags, ReadingSkipsEmptyNamesAndATrailingNul) {
  ASSERT_TRUE(setRawAttribute(file, "user.xdg.tags", std::string("a,,b,", 5) + '\0'));
  EXPECT_EQ(OpenMeta::getAppleTags(file, nullptr), tags({"a", "b"}));
  ASSERT_TRUE(setRawAttribute(file, "user.xdg.tags", ""));
  EXPECT_TRUE(OpenMeta::getAppleTags(file, nullptr).isNil());
}

TEST_F(FinderTags, LongTagListIsReadWhole) {
  Array many;
  std::string joined;
  for (int i = 0; i < 400; ++i) {
    many.emplace_back("tag" + std::to_string(i));
    joined += (i ? "," : "") + many.back().asString();
  }
  ASSERT_GT(joined.size(), 2000u);
  fileManagerSetsTags(file, joined);
  EXPECT_EQ(OpenMeta::getAppleTags(file, nullptr), Value(many));
}

TEST_F(FinderTags, CommaInsideANameSurvivesTheRoundTrip) {
  ASSERT_FALSE(OpenMeta::setUserTags(tags({"a,b", "c"}), file).has_value());
  EXPECT_EQ(rawAttribute(file, "user.xdg.tags"), std::string("a\xE2\x80\x9A"
                                                             "b,c"));
  EXPECT_EQ(OpenMeta::getAppleTags(file, nullptr), tags({"a,b", "c"}));
  const auto before = rawAttribute(file, metadataAttribute("kMDItemOMUserTags"));
  EXPECT_EQ(OpenMeta::getUserTags(file, nullptr), tags({"a,b", "c"}));
  EXPECT_EQ(OpenMeta::getUserTags(file, nullptr), tags({"a,b", "c"}));
  EXPECT_EQ(rawAttribute(file, metadataAttribute("kMDItemOMUserTags")), before)
      << "no corrective write";
}

TEST_F(FinderTags, WrongKindOfTagListIsAParameterError) {
  for (const Value& bad : {Value("a"), Value(Array{Value(1)})}) {
    const OptError e = OpenMeta::setAppleTags(bad, file);
    ASSERT_TRUE(e.has_value());
    EXPECT_EQ(e->code, -1);
    EXPECT_EQ(e->userInfo.at("info"), Value("Open Meta parameter error"));
  }
  EXPECT_FALSE(rawAttribute(file, "user.xdg.tags").has_value());
}

TEST_F(FinderTags, FirstMeetingMergesBothListsIntoBothStores) {
  fileManagerSetsTags(file, "Red");
  ASSERT_FALSE(OpenMeta::setNSArrayMetaData(tags({"Blue"}), "kMDItemOMUserTags", file).has_value());
  ASSERT_FALSE(rawAttribute(file, "user.kOM109SyncDone").has_value());

  EXPECT_EQ(OpenMeta::getUserTags(file, nullptr), tags({"Red", "Blue"}));
  EXPECT_EQ(desktopTags(file), "Red,Blue");
  EXPECT_EQ(storedTags(file), tags({"Red", "Blue"}));
  EXPECT_EQ(OpenMeta::getXAttr("kOM109SyncDone", file, nullptr), Value(true));
  EXPECT_TRUE(gAllowOpenMetaAuthenticationDialogs) << "restored after the merge";

  // The user then changes the tags in the file manager: its list wins.
  fileManagerSetsTags(file, "Green");
  EXPECT_EQ(OpenMeta::getUserTags(file, nullptr), tags({"Green"}));
  EXPECT_EQ(storedTags(file), tags({"Green"}));
  EXPECT_EQ(desktopTags(file), "Green");
  EXPECT_TRUE(gAllowOpenMetaAuthenticationDialogs);
}

TEST_F(FinderTags, MergeDropsCaseDuplicatesAndTakesTheTimeAsItIs) {
  ASSERT_FALSE(OpenMeta::setXAttrMetaData(Value(Date{42}), "kMDItemOMUserTagTime", file));
  fileManagerSetsTags(file, "Red,blue");
  ASSERT_FALSE(OpenMeta::setNSArrayMetaData(tags({"Blue", "Green"}), "kMDItemOMUserTags", file));
  EXPECT_EQ(OpenMeta::getUserTags(file, nullptr), tags({"Red", "blue", "Green"}));
  EXPECT_EQ(desktopTags(file), "Red,blue,Green");
  EXPECT_EQ(OpenMeta::getXAttrMetaData("kMDItemOMUserTagTime", file, nullptr), Value(Date{42}));
}

TEST_F(FinderTags, OpenMetaTagsAloneAreMirroredOnFirstRead) {
  ASSERT_FALSE(OpenMeta::setNSArrayMetaData(tags({"Blue"}), "kMDItemOMUserTags", file));
  EXPECT_EQ(OpenMeta::getUserTags(file, nullptr), tags({"Blue"}));
  EXPECT_EQ(desktopTags(file), "Blue");
}

TEST_F(FinderTags, AfterTheMergeRemovingAllDesktopTagsLeavesTheOpenMetaList) {
  ASSERT_FALSE(OpenMeta::setUserTags(tags({"Blue"}), file).has_value());
  ASSERT_EQ(OpenMeta::getUserTags(file, nullptr), tags({"Blue"}));  // marks the file
  ASSERT_EQ(runTool("setfattr", {"-x", "user.xdg.tags", file}).status, 0);
  EXPECT_TRUE(OpenMeta::getUserTags(file, nullptr).isNil());
  EXPECT_EQ(storedTags(file), tags({"Blue"}));
}

TEST_F(FinderTags, SyncFlagSetToFalseMergesEveryTime) {
  ASSERT_FALSE(OpenMeta::setXAttr(Value(false), "kOM109SyncDone", file));
  fileManagerSetsTags(file, "Red");
  ASSERT_FALSE(OpenMeta::setNSArrayMetaData(tags({"Blue"}), "kMDItemOMUserTags", file));
  EXPECT_EQ(OpenMeta::getUserTags(file, nullptr), tags({"Red", "Blue"}));
  fileManagerSetsTags(file, "Green");
  EXPECT_EQ(OpenMeta::getUserTags(file, nullptr), tags({"Green", "Red", "Blue"}));
}

TEST_F(FinderTags, OlderGenerationsKeepOnlyTheOpenMetaList) {
  GenerationGuard older(1187);
  fileManagerSetsTags(file, "Red");
  ASSERT_FALSE(OpenMeta::setUserTags(tags({"Blue"}), file).has_value());
  EXPECT_EQ(desktopTags(file), "Red") << "not mirrored";
  EXPECT_EQ(OpenMeta::getUserTags(file, nullptr), tags({"Blue"}));
  EXPECT_EQ(OpenMeta::getAppleTags(file, nullptr), tags({"Blue"}));
  ASSERT_FALSE(OpenMeta::setAppleTags(tags({"x"}), file).has_value());
  EXPECT_EQ(storedTags(file), tags({"x"}));
  EXPECT_FALSE(rawAttribute(file, "user.kOM109SyncDone").has_value());
}

TEST_F(FinderTags, MavericksWithBinaryValuesMirrorsToo) {
  GenerationGuard mavericks(1265);
  ASSERT_FALSE(OpenMeta::setUserTags(tags({"Blue"}), file).has_value());
  EXPECT_EQ(desktopTags(file), "Blue");
  EXPECT_EQ(rawAttribute(file, metadataAttribute("kMDItemOMUserTags"))->substr(0, 8), "bplist00");
}

}  // namespace
}  // namespace wf::test
