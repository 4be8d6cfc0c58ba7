// Tags, common tags, ratings, strings and arrays over the attribute codec.
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

Value tagTime(const std::string& path) {
  return OpenMeta::getXAttrMetaData("kMDItemOMUserTagTime", path, nullptr);
}

class UserTags : public ::testing::Test {
 protected:
  TempDir dir{true};
  std::string file = dir / "file";
  void SetUp() override { writeFile(file, "content"); }
  std::string another(const std::string& name) {
    const std::string p = dir / name;
    writeFile(p, name);
    return p;
  }
};

TEST_F(UserTags, NilIsASyncParameterError) {
  const OptError e = OpenMeta::setUserTags(Value(), file);
  ASSERT_TRUE(e.has_value());
  EXPECT_EQ(e->domain, "openmeta");
  EXPECT_EQ(e->code, -1);
  EXPECT_EQ(e->userInfo.at("info"), Value("Open Meta SYNC parameter error"));
  EXPECT_TRUE(tagTime(file).isNil()) << "nothing written";
  const OptError mixed = OpenMeta::setUserTags(Value(Array{Value("a"), Value(1)}), file, Date{5});
  ASSERT_TRUE(mixed.has_value());
  EXPECT_EQ(mixed->userInfo.at("info"), Value("Open Meta SYNC parameter error"));
  EXPECT_TRUE(tagTime(file).isNil());
}

TEST_F(UserTags, EmptyArrayIsStoredAndClearsTheFinderTags) {
  ASSERT_FALSE(OpenMeta::setUserTags(tags({"Red"}), file).has_value());
  ASSERT_TRUE(rawAttribute(file, "user.xdg.tags").has_value());
  ASSERT_FALSE(OpenMeta::setUserTags(Value(Array{}), file).has_value());
  EXPECT_EQ(storedTags(file), Value(Array{}));
  EXPECT_FALSE(rawAttribute(file, "user.xdg.tags").has_value());
}

TEST_F(UserTags, CaseDuplicatesAreDropped) {
  ASSERT_FALSE(OpenMeta::setUserTags(tags({"Work", "work", "Home"}), file).has_value());
  EXPECT_EQ(storedTags(file), tags({"Work", "Home"}));
  EXPECT_EQ(OpenMeta::getUserTags(file, nullptr), tags({"Work", "Home"}));
}

TEST_F(UserTags, DatedSetterWritesTheGivenTime) {
  ASSERT_FALSE(OpenMeta::setUserTags(tags({"a"}), file, Date{1234.0}).has_value());
  EXPECT_EQ(tagTime(file), Value(Date{1234.0}));
}

TEST_F(UserTags, UndatedSetterWritesTheCurrentTime) {
  ASSERT_FALSE(OpenMeta::setUserTags(tags({"a"}), file).has_value());
  const Value t = tagTime(file);
  ASSERT_TRUE(t.isDate());
  // 2020-01-01 is 599616000 s after the reference date.
  EXPECT_GT(t.asDate().seconds, 599616000.0);
}

TEST_F(UserTags, SeparateFinderTags) {
  ASSERT_FALSE(
      OpenMeta::setUserTags(tags({"a", "A"}), tags({"f", "F", "g"}), file, Date{9}).has_value());
  EXPECT_EQ(storedTags(file), tags({"a"}));
  EXPECT_EQ(rawAttribute(file, "user.xdg.tags"), std::string("f,g"));
  EXPECT_EQ(tagTime(file), Value(Date{9}));
  // Nil Finder tags leave none; the user tags must still be valid.
  ASSERT_FALSE(OpenMeta::setUserTags(tags({"b"}), Value(), file).has_value());
  EXPECT_FALSE(rawAttribute(file, "user.xdg.tags").has_value());
  EXPECT_EQ(OpenMeta::setUserTags(Value("b"), tags({"x"}), file)->userInfo.at("info"),
            Value("Open Meta SYNC parameter error"));
}

TEST_F(UserTags, ClearRemovesCaseInsensitivelyAndUpdatesTheTime) {
  ASSERT_FALSE(OpenMeta::setUserTags(tags({"Work", "Home"}), file, Date{100}).has_value());
  EXPECT_FALSE(OpenMeta::clearUserTags(tags({"WORK"}), file).has_value());
  EXPECT_EQ(storedTags(file), tags({"Home"}));
  EXPECT_EQ(OpenMeta::getUserTags(file, nullptr), tags({"Home"}));
  ASSERT_TRUE(tagTime(file).isDate());
  EXPECT_GT(tagTime(file).asDate().seconds, 100.0);
}

TEST_F(UserTags, ClearOfATagNotCarriedWritesNothing) {
  ASSERT_FALSE(OpenMeta::setUserTags(tags({"Work", "Home"}), file, Date{100}).has_value());
  (void)OpenMeta::getUserTags(file, nullptr);  // settle the merge flag
  const auto before = rawAttribute(file, metadataAttribute("kMDItemOMUserTags"));
  EXPECT_FALSE(OpenMeta::clearUserTags(tags({"Play"}), file).has_value());
  EXPECT_EQ(tagTime(file), Value(Date{100}));
  EXPECT_EQ(rawAttribute(file, metadataAttribute("kMDItemOMUserTags")), before);
  const OptError bad = OpenMeta::clearUserTags(Value("Work"), file);
  ASSERT_TRUE(bad.has_value());
  EXPECT_EQ(bad->userInfo.at("info"), Value("Open Meta parameter error"));
}

TEST_F(UserTags, AddOfTagsAlreadyPresentWritesNothing) {
  ASSERT_FALSE(OpenMeta::setUserTags(tags({"Work", "Home"}), file, Date{100}).has_value());
  EXPECT_FALSE(OpenMeta::addUserTags(tags({"work", "HOME"}), file).has_value());
  EXPECT_EQ(tagTime(file), Value(Date{100}));
  EXPECT_EQ(storedTags(file), tags({"Work", "Home"}));
}

TEST_F(UserTags, AddAppendsNewTags) {
  ASSERT_FALSE(OpenMeta::setUserTags(tags({"Work"}), file, Date{100}).has_value());
  EXPECT_FALSE(OpenMeta::addUserTags(tags({"WORK", "Play"}), file).has_value());
  EXPECT_EQ(storedTags(file), tags({"Work", "Play"}));
  EXPECT_GT(tagTime(file).asDate().seconds, 100.0);
  const OptError bad = OpenMeta::addUserTags(Value(), file);
  ASSERT_TRUE(bad.has_value());
  EXPECT_EQ(bad->userInfo.at("info"), Value("Open Meta parameter error"));
}

TEST_F(UserTags, CommonTagsUseTheFirstFilesSpelling) {
  const std::string a = another("a"), b = another("b");
  ASSERT_FALSE(OpenMeta::setUserTags(tags({"A", "b"}), a).has_value());
  ASSERT_FALSE(OpenMeta::setUserTags(tags({"B", "c"}), b).has_value());
  OptError error;
  EXPECT_EQ(OpenMeta::getCommonUserTags({a, b}, &error), tags({"b"}));
  EXPECT_FALSE(error.has_value());
}

TEST_F(UserTags, CommonTagsKeepTheFirstFilesOrder) {
  const std::string a = another("a"), b = another("b"), c = another("c");
  ASSERT_FALSE(OpenMeta::setUserTags(tags({"z", "Y", "x", "w"}), a).has_value());
  ASSERT_FALSE(OpenMeta::setUserTags(tags({"X", "y", "z"}), b).has_value());
  ASSERT_FALSE(OpenMeta::setUserTags(tags({"x", "z", "y", "q"}), c).has_value());
  EXPECT_EQ(OpenMeta::getCommonUserTags({a, b, c}, nullptr), tags({"z", "Y", "x"}));
  EXPECT_EQ(OpenMeta::getCommonUserTags({a}, nullptr), tags({"z", "Y", "x", "w"}));
  EXPECT_EQ(OpenMeta::getCommonUserTags({}, nullptr), Value(Array{}));
}

TEST_F(UserTags, CommonTagsOfAFileWithoutTagsAreEmptyAndTheErrorOutHoldsNil) {
  const std::string a = another("a"), b = another("b");
  ASSERT_FALSE(OpenMeta::setUserTags(tags({"A"}), a).has_value());
  Error marker;
  marker.domain = "sentinel";
  OptError error = marker;
  EXPECT_EQ(OpenMeta::getCommonUserTags({a, b}, &error), Value(Array{}));
  EXPECT_FALSE(error.has_value());
}

TEST_F(UserTags, CommonTagsReportTheFirstReadError) {
  const std::string a = another("a");
  ASSERT_FALSE(OpenMeta::setUserTags(tags({"A"}), a).has_value());
  OptError error;
  EXPECT_EQ(OpenMeta::getCommonUserTags({a, dir / "absent"}, &error), Value(Array{}));
  ASSERT_TRUE(error.has_value());
  EXPECT_EQ(error->domain, "NSPOSIXErrorDomain");
  EXPECT_EQ(error->code, ENOENT);
}

TEST_F(UserTags, SetCommonTagsReplacesTheOriginalOnes) {
  ASSERT_FALSE(OpenMeta::setUserTags(tags({"a", "B"}), file).has_value());
  EXPECT_FALSE(OpenMeta::setCommonUserTags({file}, tags({"b"}), tags({"x"})).has_value());
  EXPECT_EQ(storedTags(file), tags({"a", "x"}));
}

TEST_F(UserTags, SetCommonTagsOnSeveralFilesGoesOnAfterAFailure) {
  const std::string a = another("a"), b = another("b");
  ASSERT_FALSE(OpenMeta::setUserTags(tags({"k", "Old"}), a).has_value());
  ASSERT_FALSE(OpenMeta::setUserTags(tags({"old", "m"}), b).has_value());
  const OptError e =
      OpenMeta::setCommonUserTags({a, dir / "absent", b}, tags({"OLD"}), tags({"New"}));
  ASSERT_TRUE(e.has_value());
  EXPECT_EQ(e->code, ENOENT);
  EXPECT_EQ(storedTags(a), tags({"k", "New"}));
  EXPECT_EQ(storedTags(b), tags({"m", "New"}));
}

TEST_F(UserTags, SetCommonTagsLeavesFilesThatAlreadyHoldTheReplacement) {
  ASSERT_FALSE(OpenMeta::setUserTags(tags({"x"}), file, Date{7}).has_value());
  EXPECT_FALSE(OpenMeta::setCommonUserTags({file}, tags({"b"}), tags({"x"})).has_value());
  EXPECT_EQ(tagTime(file), Value(Date{7}));
  EXPECT_FALSE(OpenMeta::setCommonUserTags({file}, Value(Array{}), Value()).has_value());
  EXPECT_EQ(tagTime(file), Value(Date{7}));
}

TEST_F(UserTags, RatingIsCappedAndZeroOrLessRemovesIt) {
  EXPECT_FALSE(OpenMeta::setRating(7, file).has_value());
  EXPECT_EQ(OpenMeta::getXAttrMetaData("kMDItemStarRating", file, nullptr), Value(5.0));
  EXPECT_EQ(OpenMeta::getRating(file, nullptr), 5.0);
  const Value time = OpenMeta::getXAttrMetaData("kMDItemOMRatingTime", file, nullptr);
  EXPECT_TRUE(time.isDate());
  EXPECT_FALSE(OpenMeta::setRating(2.5, file).has_value());
  EXPECT_EQ(OpenMeta::getRating(file, nullptr), 2.5);

  const Value timeBefore = OpenMeta::getXAttrMetaData("kMDItemOMRatingTime", file, nullptr);
  EXPECT_FALSE(OpenMeta::setRating(0, file).has_value());
  EXPECT_FALSE(rawAttribute(file, metadataAttribute("kMDItemStarRating")).has_value());
  EXPECT_EQ(OpenMeta::getRating(file, nullptr), 0.0);
  EXPECT_EQ(OpenMeta::getXAttrMetaData("kMDItemOMRatingTime", file, nullptr), timeBefore);

  ASSERT_FALSE(OpenMeta::setRating(1, file).has_value());
  EXPECT_FALSE(OpenMeta::setRating(-1, file).has_value());
  EXPECT_FALSE(rawAttribute(file, metadataAttribute("kMDItemStarRating")).has_value());
  // Removing a rating that is not there is the system's error.
  const OptError again = OpenMeta::setRating(-1, file);
  ASSERT_TRUE(again.has_value());
  EXPECT_EQ(again->code, ENODATA);
}

TEST_F(UserTags, StringsAreAnyValueUnderAKey) {
  EXPECT_FALSE(OpenMeta::setString(Value("note"), "kMDItemComment", file).has_value());
  EXPECT_EQ(OpenMeta::getString("kMDItemComment", file, nullptr), Value("note"));
  EXPECT_FALSE(OpenMeta::setString(Value(12), "kMDItemComment", file).has_value());
  EXPECT_EQ(OpenMeta::getString("kMDItemComment", file, nullptr), Value(12));
  EXPECT_FALSE(OpenMeta::setString(Value(), "kMDItemComment", file).has_value());
  EXPECT_FALSE(rawAttribute(file, metadataAttribute("kMDItemComment")).has_value());
}

TEST_F(UserTags, ArraysAreOnlyArrays) {
  EXPECT_FALSE(OpenMeta::setNSArrayMetaData(tags({"p"}), "kMDItemProjects", file).has_value());
  EXPECT_EQ(OpenMeta::getNSArrayMetaData("kMDItemProjects", file, nullptr), tags({"p"}));
  for (const Value& notArray : {Value(), Value("p"), Value(Dictionary{})}) {
    const OptError e = OpenMeta::setNSArrayMetaData(notArray, "kMDItemProjects", file);
    ASSERT_TRUE(e.has_value());
    EXPECT_EQ(e->code, -1);
    EXPECT_EQ(e->userInfo.at("info"), Value("Open Meta parameter error"));
  }
  EXPECT_EQ(OpenMeta::getNSArrayMetaData("kMDItemProjects", file, nullptr), tags({"p"}));
  ASSERT_FALSE(OpenMeta::setString(Value("p"), "kMDItemProjects", file).has_value());
  EXPECT_TRUE(OpenMeta::getNSArrayMetaData("kMDItemProjects", file, nullptr).isNil());
}

TEST_F(UserTags, AddToArrayComparesExactly) {
  ASSERT_FALSE(OpenMeta::setNSArrayMetaData(tags({"A"}), "kMDItemBookmarks", file).has_value());
  EXPECT_FALSE(OpenMeta::addToNSArrayMetaData(tags({"a"}), "kMDItemBookmarks", file).has_value());
  EXPECT_EQ(OpenMeta::getNSArrayMetaData("kMDItemBookmarks", file, nullptr), tags({"A", "a"}));
}

TEST_F(UserTags, AddToArrayWithoutChangeWritesNothingAndReturnsTheReadError) {
  EXPECT_FALSE(OpenMeta::addToNSArrayMetaData(Value(Array{}), "kNew", file).has_value());
  EXPECT_FALSE(rawAttribute(file, metadataAttribute("kNew")).has_value());
  ASSERT_TRUE(setRawAttribute(file, metadataAttribute("kBad"), "junk"));
  const OptError e = OpenMeta::addToNSArrayMetaData(Value(Array{}), "kBad", file);
  ASSERT_TRUE(e.has_value());
  EXPECT_EQ(e->code, -2);
  // With something to add, the write goes ahead even after a failed read.
  EXPECT_FALSE(OpenMeta::addToNSArrayMetaData(tags({"x"}), "kBad", file).has_value());
  EXPECT_EQ(OpenMeta::getNSArrayMetaData("kBad", file, nullptr), tags({"x"}));
}

TEST_F(UserTags, WrongPathsAreParameterErrors) {
  const OptError e = OpenMeta::setUserTags(tags({"a"}), "");
  ASSERT_TRUE(e.has_value());
  EXPECT_EQ(e->userInfo.at("info"), Value("Open Meta parameter error"));
  OptError error;
  EXPECT_TRUE(OpenMeta::getUserTags("", &error).isNil());
  ASSERT_TRUE(error.has_value());
  EXPECT_EQ(error->code, -1);
}

TEST(OpenMetaGeneration, MavericksAndSearchKey) {
  EXPECT_TRUE(OpenMeta::MavericksOrLater());
  EXPECT_EQ(OpenMeta::tagsToSearchFor(), "kMDItemUserTags");
  {
    GenerationGuard older(1187.9);
    EXPECT_FALSE(OpenMeta::MavericksOrLater());
    EXPECT_EQ(OpenMeta::tagsToSearchFor(), "kMDItemOMUserTags");
  }
  {
    GenerationGuard mavericks(1265.5);
    EXPECT_TRUE(OpenMeta::MavericksOrLater());
  }
  EXPECT_TRUE(gAllowOpenMetaAuthenticationDialogs);
}

}  // namespace
}  // namespace wf::test
