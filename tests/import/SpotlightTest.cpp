#include <gtest/gtest.h>
#include <sys/xattr.h>

#include <algorithm>

#include "ImportSupport.h"
#include "platform/Spotlight.h"

namespace wf {
namespace {

using platform::SpotlightItem;
using test::setSpotlightAttribute;
using test::TempDir;
using test::writeFile;

class SpotlightAttributes : public ::testing::Test {
 protected:
  TempDir dir{true};
  std::string file = dir / "1.emlx";
  void SetUp() override { writeFile(file, "0\n"); }
};

TEST_F(SpotlightAttributes, NoItemForAMissingFile) {
  EXPECT_FALSE(SpotlightItem::createWithPath(dir / "missing.emlx").has_value());
  EXPECT_FALSE(SpotlightItem::createWithPath("").has_value());
}

TEST_F(SpotlightAttributes, NoNamesAndNoAttributesForABareFile) {
  auto item = SpotlightItem::createWithPath(file);
  ASSERT_TRUE(item.has_value());
  EXPECT_TRUE(item->copyAttributeNames().empty());
  EXPECT_TRUE(item->copyAllAttributes().isNil());
}

TEST_F(SpotlightAttributes, ValuesAppearUnderTheirKeys) {
  Date stamp{800000000.0};
  setSpotlightAttribute(file, "kMDItemWrenfoldTimeStamp", Value(stamp));
  setSpotlightAttribute(file, "kMDItemKeywords", Value(Array{Value("a"), Value("b")}));
  auto item = SpotlightItem::createWithPath(file);
  ASSERT_TRUE(item.has_value());
  auto names = item->copyAttributeNames();
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{"kMDItemKeywords", "kMDItemWrenfoldTimeStamp"}));
  Value all = item->copyAllAttributes();
  EXPECT_EQ(all, Value(Dictionary{{"kMDItemWrenfoldTimeStamp", Value(stamp)},
                                  {"kMDItemKeywords", Value(Array{Value("a"), Value("b")})}}));
}

TEST_F(SpotlightAttributes, OtherAttributesAreNotSpotlightAttributes) {
  ASSERT_EQ(lsetxattr(file.c_str(), "user.xdg.tags", "a,b", 3, 0), 0);
  ASSERT_EQ(lsetxattr(file.c_str(), "user.com.apple.metadata", "x", 1, 0), 0);
  auto item = SpotlightItem::createWithPath(file);
  ASSERT_TRUE(item.has_value());
  EXPECT_TRUE(item->copyAttributeNames().empty());
  EXPECT_TRUE(item->copyAllAttributes().isNil());
}

TEST_F(SpotlightAttributes, UndecodableValueIsLeftOut) {
  std::string name = "user.com.apple.metadata:kMDItemComment";
  ASSERT_EQ(lsetxattr(file.c_str(), name.c_str(), "not a plist", 11, 0), 0);
  setSpotlightAttribute(file, "kMDItemStarRating", Value(3));
  auto item = SpotlightItem::createWithPath(file);
  ASSERT_TRUE(item.has_value());
  EXPECT_EQ(item->copyAttributeNames().size(), 2u);
  EXPECT_EQ(item->copyAllAttributes(), Value(Dictionary{{"kMDItemStarRating", Value(3)}}));
}

TEST_F(SpotlightAttributes, OnlyUndecodableValuesGiveNil) {
  std::string name = "user.com.apple.metadata:kMDItemComment";
  ASSERT_EQ(lsetxattr(file.c_str(), name.c_str(), "", 0, 0), 0);
  auto item = SpotlightItem::createWithPath(file);
  ASSERT_TRUE(item.has_value());
  EXPECT_EQ(item->copyAttributeNames(), std::vector<std::string>{"kMDItemComment"});
  EXPECT_TRUE(item->copyAllAttributes().isNil());
}

TEST_F(SpotlightAttributes, LargestValueIsRead) {
  // A value of the full 4096 bytes, as the metadata store may write it.
  std::string text(4096 - 200, 'x');
  setSpotlightAttribute(file, "kMDItemComment", Value(text));
  auto item = SpotlightItem::createWithPath(file);
  ASSERT_TRUE(item.has_value());
  EXPECT_EQ(item->copyAllAttributes().get("kMDItemComment"), Value(text));
}

TEST_F(SpotlightAttributes, ValueLongerThanTheFirstReadIsReadWhole) {
  // Values are read through a small buffer first; a longer one is asked
  // for its size and read again.
  std::string text(20000, 'y');
  setSpotlightAttribute(file, "kMDItemComment", Value(text));
  setSpotlightAttribute(file, "kMDItemProjects", Value(Array{Value("short")}));
  auto item = SpotlightItem::createWithPath(file);
  ASSERT_TRUE(item.has_value());
  const Value all = item->copyAllAttributes();
  EXPECT_EQ(all.get("kMDItemComment"), Value(text));
  EXPECT_EQ(all.get("kMDItemProjects"), Value(Array{Value("short")}));
}

}  // namespace
}  // namespace wf
