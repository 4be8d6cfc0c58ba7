#include <gtest/gtest.h>

#include "sync/ConflictCopies.h"
#include "sync/SyncListFiles.h"

namespace wf {
namespace {

std::optional<ConflictCopyName> of(std::string_view name) {
  return conflictCopyOf(name, syncListFileNames());
}

TEST(ConflictCopies, EachEnginesCopyIsKnownWithItsList) {
  struct Row {
    std::string name, list, engine;
  };
  std::vector<Row> rows{
      {"WrenfoldKeywords.sync-conflict-20261124-101010-ABCDEFG.plist", "WrenfoldKeywords.plist",
       "Syncthing"},
      {"WrenfoldKeywords (conflicted copy 2026-11-24 101010).plist", "WrenfoldKeywords.plist",
       "Nextcloud/ownCloud"},
      {"WrenfoldProjects (conflicted copy anna 2026-11-24 101010).plist", "WrenfoldProjects.plist",
       "Nextcloud/ownCloud"},
      {"WrenfoldInboxRules_conflict-20261124-101010.plist", "WrenfoldInboxRules.plist",
       "Nextcloud/ownCloud"},
      {"WrenfoldKeywords (Laptop's conflicted copy 2026-11-24).plist", "WrenfoldKeywords.plist",
       "Dropbox"},
      {"WrenfoldKeywords (Laptop's conflicted copy 2026-11-24 (1)).plist", "WrenfoldKeywords.plist",
       "Dropbox"},
      {"WrenfoldSmartMailboxes (Case Conflict).plist", "WrenfoldSmartMailboxes.plist", "Dropbox"},
      {"WrenfoldKeywords.Conflict.plist", "WrenfoldKeywords.plist", "Resilio"},
      {"WrenfoldKeywords.Conflict1.plist", "WrenfoldKeywords.plist", "Resilio"},
      {"WrenfoldProjects (SFConflict anna@example.org 2026-11-24-10-10-10).plist",
       "WrenfoldProjects.plist", "Seafile"},
      {"WrenfoldKeywords-LAPTOP.plist", "WrenfoldKeywords.plist", "OneDrive"},
  };
  for (const Row& row : rows) {
    auto copy = of(row.name);
    ASSERT_TRUE(copy) << row.name;
    EXPECT_EQ(copy->list, row.list) << row.name;
    EXPECT_EQ(copy->engine, row.engine) << row.name;
  }
}

TEST(ConflictCopies, TheListsAndOtherFilesAreNoCopies) {
  for (const std::string& list : syncListFileNames()) EXPECT_FALSE(of(list)) << list;
  for (const char* name :
       {"notes.txt", "WrenfoldKeywords.plist.syncing-tmp", ".WrenfoldKeywords.plist.wfcopy-abc",
        "WrenfoldKeywords.sync-conflict-20261124-101010-ABCDEFG.txt", "Keywords.Conflict.plist",
        "OtherKeywords (conflicted copy 2026-11-24 101010).plist", "WrenfoldKeywords.plist~",
        "WrenfoldKeywords (conflicted copy 2026-11-24 101010).plist.part", ""})
    EXPECT_FALSE(of(name)) << name;
}

}  // namespace
}  // namespace wf
