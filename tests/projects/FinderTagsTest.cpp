// The Finder's tag list mirrored into FinderTags.plist.
#include <gtest/gtest.h>
#include <unistd.h>

#include "ProjectsFixture.h"

namespace wf::test {
namespace {

constexpr const char* kNotice = "WrenfoldFinderTagsWereModified";

class FinderTagsTest : public ProjectsTest {
 protected:
  FinderTagsTest() { setPreference("logFinderTags", "YES"); }

  std::string finderFile() const {
    return platform.library() + "/SyncedPreferences/com.apple.finder.plist";
  }
  void writeFinderRoot(const Value& root, plist::Format format = plist::Format::XML) {
    mkdir((platform.library() + "/SyncedPreferences").c_str(), 0755);
    std::string bytes;
    ASSERT_TRUE(plist::serialize(root, format, bytes));
    writeFile(finderFile(), bytes);
  }
  void writeFinderTags(const Value& tags, plist::Format format = plist::Format::XML) {
    writeFinderRoot(
        Value(Dictionary{
            {"values",
             Value(Dictionary{
                 {"FinderTagDict",
                  Value(Dictionary{{"value", Value(Dictionary{{"FinderTags", tags}})}})}})}}),
        format);
  }
  static Value tag(const char* name, std::optional<long> colour) {
    Dictionary d{{"n", Value(name)}};
    if (colour) d["l"] = Value(*colour);
    return Value(std::move(d));
  }
  static Value imported(const char* name, long colour) {
    return Value(
        Dictionary{{"title", Value(name)}, {"colorNum", Value(colour)}, {"source", Value(2)}});
  }
  std::vector<std::string> lines() const { return keyed("logFinderTags", "_fetchFinderTags"); }
  std::size_t notices() const {
    return static_cast<std::size_t>(std::count(platform.notifications.posted.begin(),
                                               platform.notifications.posted.end(), kNotice));
  }
};

TEST_F(FinderTagsTest, TagsAreCopiedWithNameColourAndSource) {
  writeFinderTags(Value(Array{tag("Red", 6), tag("Work", 0), tag("Home", 4)}));
  delegate._fetchFinderTags();
  EXPECT_EQ(readList("FinderTags.plist"),
            Value(Array{imported("Red", 6), imported("Work", 0), imported("Home", 4)}));
  EXPECT_EQ(notices(), 1u);
  auto entry = readList("FinderTags.plist").asArray()[0];
  EXPECT_EQ(entry.count(), 3u);
  EXPECT_TRUE(entry.get("colorNum").isInteger());
  EXPECT_TRUE(entry.get("source").isInteger());
}

TEST_F(FinderTagsTest, ABinaryFinderFileIsRead) {
  writeFinderTags(Value(Array{tag("Red", 6)}), plist::Format::Binary);
  delegate._fetchFinderTags();
  EXPECT_EQ(readList("FinderTags.plist"), Value(Array{imported("Red", 6)}));
}

TEST_F(FinderTagsTest, EveryKindOfChangeRewritesAndAnnouncesOnce) {
  const std::vector<Value> versions{
      Value(Array{tag("Red", 6), tag("Work", 1)}),
      Value(Array{tag("Red", 6), tag("Work", 1), tag("Home", 2)}),  // added
      Value(Array{tag("Red", 6), tag("Home", 2)}),                  // removed
      Value(Array{tag("Rouge", 6), tag("Home", 2)}),                // renamed
      Value(Array{tag("Rouge", 5), tag("Home", 2)}),                // recoloured
      Value(Array{tag("Home", 2), tag("Rouge", 5)}),                // moved
  };
  std::size_t expected = 0;
  for (const auto& v : versions) {
    writeFinderTags(v);
    delegate._fetchFinderTags();
    ++expected;
    EXPECT_EQ(notices(), expected);
    delegate._fetchFinderTags();
    delegate._fetchFinderTags();
    EXPECT_EQ(notices(), expected) << "unchanged runs post nothing";
  }
  EXPECT_EQ(readList("FinderTags.plist"), Value(Array{imported("Home", 2), imported("Rouge", 5)}));
}

TEST_F(FinderTagsTest, AnUnchangedRunWritesNothing) {
  writeFinderTags(Value(Array{tag("Red", 6)}));
  delegate._fetchFinderTags();
  const ino_t first = inode("FinderTags.plist");
  platform.log.lines.clear();
  delegate._fetchFinderTags();
  EXPECT_EQ(inode("FinderTags.plist"), first);
  for (const auto& l : lines()) EXPECT_EQ(l.find("Recording changed"), std::string::npos);
}

TEST_F(FinderTagsTest, EntriesCarryingVAreNeverImported) {
  Array tags{tag("Keep", 1)};
  for (Value v : {Value(false), Value(0), Value(true), Value("x"), Value(Array{})}) {
    Dictionary d{{"n", Value("Skip")}, {"l", Value(2)}, {"v", v}};
    tags.emplace_back(std::move(d));
  }
  tags.push_back(Value(Dictionary{{"v", Value(false)}}));  // no name, but skipped before it matters
  writeFinderTags(Value(tags));
  delegate._fetchFinderTags();
  EXPECT_EQ(readList("FinderTags.plist"), Value(Array{imported("Keep", 1)}));
}

TEST_F(FinderTagsTest, ATagWithoutColourHasColourZero) {
  writeFinderTags(Value(Array{tag("Plain", std::nullopt)}));
  delegate._fetchFinderTags();
  EXPECT_EQ(readList("FinderTags.plist"), Value(Array{imported("Plain", 0)}));
}

TEST_F(FinderTagsTest, AColourGivenAsTextIsReadAsAnInteger) {
  writeFinderTags(Value(Array{Value(Dictionary{{"n", Value("T")}, {"l", Value("3")}})}));
  delegate._fetchFinderTags();
  EXPECT_EQ(readList("FinderTags.plist"), Value(Array{imported("T", 3)}));
}

TEST_F(FinderTagsTest, WithoutTheKeyPathAnEmptyListIsWrittenAndAnnouncedOnce) {
  writeFinderRoot(Value(Dictionary{{"values", Value(Dictionary{})}}));
  delegate._fetchFinderTags();
  delegate._fetchFinderTags();
  EXPECT_EQ(readList("FinderTags.plist"), Value(Array{}));
  EXPECT_EQ(notices(), 1u);
  EXPECT_TRUE(contains(lines(), "Recording changed Finder Tags current (null) -- new (\n)"));
}

TEST_F(FinderTagsTest, TheCopyFollowsTheFinderDownToNoTags) {
  writeFinderTags(Value(Array{tag("Red", 6)}));
  delegate._fetchFinderTags();
  writeFinderTags(Value(Array{}));
  delegate._fetchFinderTags();
  EXPECT_EQ(readList("FinderTags.plist"), Value(Array{}));
  EXPECT_EQ(notices(), 2u);
}

TEST_F(FinderTagsTest, WithoutAFinderFileNothingHappensOnAnyRun) {
  for (int i = 0; i < 3; ++i) delegate._fetchFinderTags();
  EXPECT_EQ(lines(), (std::vector<std::string>{"fetch finder tags", "fetch finder tags",
                                               "fetch finder tags"}));
  EXPECT_EQ(platform.log.lines.size(), 3u);
  EXPECT_FALSE(exists(listPath("FinderTags.plist")));
  EXPECT_TRUE(platform.notifications.posted.empty());
}

TEST_F(FinderTagsTest, AFinderFileThatIsNoPropertyListEndsTheImportSilently) {
  writeFinderTags(Value(Array{tag("Red", 6)}));
  delegate._fetchFinderTags();
  writeFile(finderFile(), "<?xml garbage");
  platform.log.lines.clear();
  delegate._fetchFinderTags();
  EXPECT_EQ(lines(), std::vector<std::string>{"fetch finder tags"});
  EXPECT_EQ(readList("FinderTags.plist"), Value(Array{imported("Red", 6)}));
  EXPECT_EQ(notices(), 1u);
}

TEST_F(FinderTagsTest, TheLogShowsWhatWasReadAndWhatChanged) {
  writeFinderTags(Value(Array{tag("Red", 6)}));
  delegate._fetchFinderTags();
  auto l = lines();
  ASSERT_EQ(l.size(), 4u);
  EXPECT_EQ(l[0], "fetch finder tags");
  EXPECT_EQ(l[1],
            "finderKeywordsDictionaries (\n    {\n        l = 6;\n        n = Red;\n    }\n)");
  EXPECT_EQ(l[2],
            "wfFinderKeywordArray (\n    {\n        colorNum = 6;\n        source = 2;\n        "
            "title = Red;\n    }\n)");
  EXPECT_EQ(l[3].rfind("Recording changed Finder Tags current (null) -- new (", 0), 0u);
}

TEST_F(FinderTagsTest, ATagWithoutANameRaisesAndWritesNothing) {
  writeFinderTags(Value(Array{tag("Red", 6)}));
  delegate._fetchFinderTags();
  writeFinderTags(Value(Array{tag("Blue", 1), Value(Dictionary{{"l", Value(2)}})}));
  EXPECT_THROW(delegate._fetchFinderTags(), NSException);
  EXPECT_EQ(readList("FinderTags.plist"), Value(Array{imported("Red", 6)}));
  EXPECT_EQ(notices(), 1u);
}

TEST_F(FinderTagsTest, AnElementThatIsNoDictionaryRaises) {
  writeFinderTags(Value(Array{tag("Blue", 1), Value("Green")}));
  EXPECT_THROW(delegate._fetchFinderTags(), NSException);
  EXPECT_FALSE(exists(listPath("FinderTags.plist")));
  EXPECT_TRUE(platform.notifications.posted.empty());
}

TEST_F(FinderTagsTest, ANoticeGoesOutEvenWhenTheWriteFails) {
  writeFinderTags(Value(Array{tag("Red", 6)}));
  delegate._fetchFinderTags();  // makes the folder
  // A folder in the file's place: it reads as no list, and no file can be
  // renamed over it.
  ASSERT_EQ(system(("rm -f '" + listPath("FinderTags.plist") + "'").c_str()), 0);
  ASSERT_EQ(mkdir(listPath("FinderTags.plist").c_str(), 0755), 0);
  writeFile(listPath("FinderTags.plist") + "/keep", "x");
  delegate._fetchFinderTags();
  delegate._fetchFinderTags();
  EXPECT_EQ(notices(), 3u) << "every run finds the copy different and announces it";
  EXPECT_EQ(readFile(listPath("FinderTags.plist") + "/keep"), "x");
}

}  // namespace
}  // namespace wf::test
