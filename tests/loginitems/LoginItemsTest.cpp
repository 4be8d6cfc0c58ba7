// Adding and removing the helper's login item, over an in-memory list.
#include <gtest/gtest.h>

#include <memory>

#include "app/LoginItems.h"
#include "app/WFHelperAppDelegate.h"
#include "support/KeyedLines.h"
#include "support/LoginItemFakes.h"

namespace wf {
namespace {

using test::FakeLoginItems;
using test::FakePlatform;

class LoginItemsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    p.defaults.arguments = {{"WFloginItems", Value("YES")}};
    platform::Services services = p.services();
    services.loginItems = &list;
    delegate = std::make_unique<WFHelperAppDelegate>(services);
    helper = p.environment.bundlePath();
  }
  std::vector<std::string> added() const {
    return test::keyedMessages(p.log, "loginItems", "addWrenfoldHelperToLoginItems");
  }
  std::vector<std::string> removedLines() const {
    return test::keyedMessages(p.log, "loginItems", "removeWrenfoldHelperFromLoginItems");
  }

  FakePlatform p;
  FakeLoginItems list;
  std::unique_ptr<WFHelperAppDelegate> delegate;
  std::string helper;
  const std::string id = "org.ardel.WrenfoldHelper";
};

TEST_F(LoginItemsTest, EmptyListAddsOneEntryAtTheEnd) {
  EXPECT_TRUE(addWrenfoldHelperToLoginItems());
  EXPECT_EQ(added(),
            (std::vector<std::string>{"Found items: (\n)", "Adding WrenfoldHelper To LoginItems"}));
  ASSERT_EQ(list.items.size(), 1u);
  EXPECT_EQ(list.items[0].displayName, "Wrenfold Helper");
  EXPECT_EQ(list.items[0].resolvedPath, helper);
  EXPECT_EQ(list.items[0].bundleIdentifier, id);
}

TEST_F(LoginItemsTest, NewEntryGoesAfterTheOthers) {
  list.add("a", "Editor", "/usr/bin/editor", "org.example.Editor");
  EXPECT_TRUE(addWrenfoldHelperToLoginItems());
  EXPECT_EQ(list.tokens(), (std::vector<std::string>{"a", "inserted-1"}));
}

TEST_F(LoginItemsTest, EntryAlreadyPresentChangesNothing) {
  list.add("helper", "Wrenfold Helper", helper, id);
  EXPECT_FALSE(addWrenfoldHelperToLoginItems());
  std::vector<std::string> lines = added();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[1], "Not changing LoginItems");
  EXPECT_EQ(list.inserted, 0);
  EXPECT_TRUE(list.removed.empty());
}

TEST_F(LoginItemsTest, RepeatedAddingNeverMakesASecondEntry) {
  EXPECT_TRUE(addWrenfoldHelperToLoginItems());
  for (int i = 0; i < 5; ++i) EXPECT_FALSE(addWrenfoldHelperToLoginItems());
  EXPECT_EQ(list.items.size(), 1u);
  EXPECT_EQ(list.inserted, 1);
}

TEST_F(LoginItemsTest, OldCopyElsewhereIsReplaced) {
  list.add("old", "Wrenfold Helper", "/opt/old/wrenfold-helper", id);
  EXPECT_TRUE(addWrenfoldHelperToLoginItems());
  EXPECT_EQ(list.removed, (std::vector<std::string>{"old"}));
  EXPECT_EQ(
      added(),
      (std::vector<std::string>{
          "Removing extraneous WrenfoldHelper From LoginItems (found item with same identifier)",
          "Found items: (\n    \"Wrenfold Helper (org.ardel.WrenfoldHelper) path: "
          "/opt/old/wrenfold-helper\"\n)",
          "Adding WrenfoldHelper To LoginItems"}));
  ASSERT_EQ(list.items.size(), 1u);
  EXPECT_EQ(list.items[0].resolvedPath, helper);
}

TEST_F(LoginItemsTest, OldCopyIsRemovedEvenWhenTheRunningOneIsPresent) {
  list.add("a-old", "Wrenfold Helper", "/opt/old/wrenfold-helper", id);
  list.add("b-current", "Wrenfold Helper", helper, id);
  EXPECT_FALSE(addWrenfoldHelperToLoginItems());
  EXPECT_EQ(list.tokens(), (std::vector<std::string>{"b-current"}));
  EXPECT_EQ(added().back(), "Not changing LoginItems");
}

TEST_F(LoginItemsTest, EntriesMatchingByPathAreAllKept) {
  list.add("one", "Wrenfold Helper", helper, id);
  list.add("two", "Another name", helper, std::nullopt);
  EXPECT_FALSE(addWrenfoldHelperToLoginItems());
  EXPECT_EQ(list.tokens(), (std::vector<std::string>{"one", "two"}));
}

TEST_F(LoginItemsTest, FoundItemsDescribesEveryResolvableEntry) {
  list.add("a", "Editor", "/usr/bin/editor", "org.example.Editor");
  list.add("b", "Script", "/home/u/bin/start-things", std::nullopt);
  list.add("c", std::nullopt, "/usr/bin/noname", std::nullopt);
  list.add("d", "Gone", std::nullopt, "org.example.Gone");
  addWrenfoldHelperToLoginItems();
  EXPECT_EQ(added().front(),
            "Found items: (\n"
            "    \"Editor (org.example.Editor) path: /usr/bin/editor\",\n"
            "    \"Script ((null)) path: /home/u/bin/start-things\",\n"
            "    \"(null) ((null)) path: /usr/bin/noname\"\n"
            ")");
}

TEST_F(LoginItemsTest, EntryThatIsNoBundleIsDescribedAndLeftAlone) {
  list.add("script", "Script", "/home/u/bin/start-things", std::nullopt);
  EXPECT_TRUE(addWrenfoldHelperToLoginItems());
  EXPECT_NE(added().front().find("Script ((null)) path: /home/u/bin/start-things"),
            std::string::npos);
  EXPECT_TRUE(list.removed.empty());
  EXPECT_TRUE(removeWrenfoldHelperFromLoginItems());  // the new entry only
  EXPECT_EQ(list.tokens(), (std::vector<std::string>{"script"}));
}

TEST_F(LoginItemsTest, UnresolvableEntriesAreSkipped) {
  // Even one that names the helper: it may come back when its disk does.
  list.add("gone", "Wrenfold Helper", std::nullopt, id);
  EXPECT_TRUE(addWrenfoldHelperToLoginItems());
  EXPECT_EQ(added().front(), "Found items: (\n)");
  EXPECT_TRUE(list.removed.empty());
  list.removed.clear();
  EXPECT_TRUE(removeWrenfoldHelperFromLoginItems());  // the new entry only
  EXPECT_EQ(list.tokens(), (std::vector<std::string>{"gone"}));
}

TEST_F(LoginItemsTest, FailedInsertionGivesNo) {
  list.failInsert = true;
  EXPECT_FALSE(addWrenfoldHelperToLoginItems());
  EXPECT_EQ(added().back(), "Adding WrenfoldHelper To LoginItems");
}

TEST_F(LoginItemsTest, RemovingTwoEntriesLaterOneFirst) {
  list.add("a", "Editor", "/usr/bin/editor", "org.example.Editor");
  list.add("b", "Wrenfold Helper", helper, id);
  list.add("c", "Old", "/opt/old/wrenfold-helper", id);
  EXPECT_TRUE(removeWrenfoldHelperFromLoginItems());
  EXPECT_EQ(list.removed, (std::vector<std::string>{"c", "b"}));
  EXPECT_EQ(removedLines(),
            (std::vector<std::string>{
                "Removing WrenfoldHelper From LoginItems (found item with same identifier)",
                "Removing WrenfoldHelper From LoginItems (found item with same path)"}));
  EXPECT_EQ(list.tokens(), (std::vector<std::string>{"a"}));
}

TEST_F(LoginItemsTest, RemovingWithNothingOfTheHelperSaysNothing) {
  list.add("a", "Editor", "/usr/bin/editor", "org.example.Editor");
  EXPECT_FALSE(removeWrenfoldHelperFromLoginItems());
  EXPECT_TRUE(removedLines().empty());
  EXPECT_EQ(list.items.size(), 1u);
}

TEST_F(LoginItemsTest, RemovingFromAnEmptyList) {
  EXPECT_FALSE(removeWrenfoldHelperFromLoginItems());
  EXPECT_TRUE(p.log.lines.empty());
}

TEST_F(LoginItemsTest, PathMatchIsExact) {
  list.add("a", "Wrenfold Helper", helper + "/", std::nullopt);
  list.add("b", "Wrenfold Helper", helper + "-2", std::nullopt);
  EXPECT_TRUE(addWrenfoldHelperToLoginItems());
  EXPECT_TRUE(removeWrenfoldHelperFromLoginItems());  // the new entry only
  EXPECT_EQ(list.tokens(), (std::vector<std::string>{"a", "b"}));
}

TEST(LoginItemsLogging, LinesOnlyWhenTheKeyIsOn) {
  FakePlatform p;
  FakeLoginItems list;
  platform::Services services = p.services();
  services.loginItems = &list;
  WFHelperAppDelegate delegate(services);
  EXPECT_TRUE(addWrenfoldHelperToLoginItems());
  EXPECT_TRUE(removeWrenfoldHelperFromLoginItems());
  EXPECT_TRUE(p.log.lines.empty());
  EXPECT_TRUE(list.items.empty());
}

TEST(LoginItemsWithoutApplication, DoNothing) {
  ASSERT_EQ(WFHelperAppDelegate::shared(), nullptr);
  EXPECT_FALSE(addWrenfoldHelperToLoginItems());
  EXPECT_FALSE(removeWrenfoldHelperFromLoginItems());
}

}  // namespace
}  // namespace wf
