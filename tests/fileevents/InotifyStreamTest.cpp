#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>

#include "platform/foundation/FileManager.h"
#include "platform/linux/Dispatch.h"
#include "platform/linux/InotifyFileEventStream.h"
#include "support/EventBatches.h"
#include "support/Fakes.h"
#include "support/MainLoopPump.h"

using namespace wf;
using namespace wf::test;
using platform::InotifyFileEventStream;
using platform::InotifyFileEventStreamFactory;

namespace {

class InotifyStreamTest : public ::testing::Test {
 protected:
  FakeLog log;
  InotifyFileEventStreamFactory factory{log};
  TempDir tmp{true};
  std::string root = tmp / "watched";
  Batches batches;
  std::unique_ptr<platform::FileEventStream> stream;

  void SetUp() override { ASSERT_EQ(mkdir(root.c_str(), 0755), 0); }

  bool startStream(const std::string& path, double latency = 0.2, bool ignoreSelf = false,
                   bool merge = false) {
    platform::FileEventStreamParams params;
    params.paths = {path};
    params.latency = latency;
    params.ignoreSelf = ignoreSelf;
    params.mergeRepeatedPaths = merge;
    stream = factory.create(
        params, [this](const std::vector<std::string>& paths) { batches.calls.push_back(paths); });
    return stream && stream->start();
  }
  bool waitFor(const std::string& path) {
    return runUntil([&] { return batches.contains(path); }, 5);
  }
  InotifyFileEventStream& inotify() { return dynamic_cast<InotifyFileEventStream&>(*stream); }
  std::size_t logLinesContaining(const std::string& text) const {
    std::size_t n = 0;
    for (const auto& l : log.lines) n += l.find(text) != std::string::npos;
    return n;
  }
};

std::vector<std::string> pathsUnder(const std::vector<std::string>& all, const std::string& part) {
  std::vector<std::string> out;
  for (const auto& p : all)
    if (p.find(part) != std::string::npos) out.push_back(p);
  return out;
}

}  // namespace

TEST_F(InotifyStreamTest, ABurstArrivesAsOneCallbackInArrivalOrderWithDuplicates) {
  ASSERT_TRUE(startStream(root));
  std::string a = root + "/a", b = root + "/b";
  foreignWrite(a);  // created, closed after writing
  foreignWrite(b);
  foreignWrite(a);  // closed after writing again
  ASSERT_TRUE(runUntil([&] { return !batches.calls.empty(); }, 5));
  ASSERT_EQ(batches.calls.size(), 1u);
  EXPECT_EQ(batches.calls[0], (std::vector<std::string>{a, a, b, b, a}));

  // After the callback, the next change starts a new batch.
  foreignWrite(root + "/c");
  ASSERT_TRUE(runUntil([&] { return batches.calls.size() == 2; }, 5));
  EXPECT_EQ(batches.calls[1], (std::vector<std::string>{root + "/c", root + "/c"}));
}

TEST_F(InotifyStreamTest, AttributeChangesRemovalsAndRenamesAreEvents) {
  std::string f = root + "/f";
  foreignWrite(f);
  ASSERT_TRUE(startStream(root));
  ASSERT_EQ(chmod(f.c_str(), 0600), 0);
  ASSERT_EQ(rename(f.c_str(), (root + "/g").c_str()), 0);
  ASSERT_EQ(unlink((root + "/g").c_str()), 0);
  ASSERT_TRUE(runUntil([&] { return batches.all().size() >= 4; }, 5));
  EXPECT_EQ(batches.all(), (std::vector<std::string>{f, f, root + "/g", root + "/g"}));
}

TEST_F(InotifyStreamTest, ARenameIntoTheFolderIsReportedUnderTheFinalName) {
  TempDir outside(true);
  ASSERT_TRUE(startStream(root));
  // How sync clients write: a temporary name, then a rename into place.
  std::string temporary = root + "/.WrenfoldKeywords.plist.syncing";
  std::string final = root + "/WrenfoldKeywords.plist";
  foreignWrite(temporary);
  ASSERT_EQ(rename(temporary.c_str(), final.c_str()), 0);
  // And a file written elsewhere and moved in.
  foreignWrite(outside / "moved");
  ASSERT_EQ(rename((outside / "moved").c_str(), (root + "/moved").c_str()), 0);
  ASSERT_TRUE(waitFor(root + "/moved"));
  auto all = batches.all();
  ASSERT_FALSE(all.empty());
  EXPECT_TRUE(batches.contains(final));
  EXPECT_EQ(all.back(), root + "/moved");
  EXPECT_TRUE(pathsUnder(all, outside.path()).empty());
}

TEST_F(InotifyStreamTest, OwnChangesAreLeftOutWhenAsked) {
  TempDir outside(true);
  writeFile(outside / "source", "list");
  ASSERT_TRUE(startStream(root, 0.2, /*ignoreSelf=*/true));
  auto& files = FileManager::defaultManager();
  ASSERT_TRUE(files.copyItemAtPath(outside / "source", root + "/WrenfoldKeywords.plist"));
  ASSERT_TRUE(files.removeItemAtPath(root + "/WrenfoldKeywords.plist"));
  ASSERT_TRUE(files.copyItemAtPath(outside / "source", root + "/WrenfoldKeywords.plist"));
  ASSERT_TRUE(files.createDirectoryAtPath(root + "/sub/deeper", true));
  foreignWrite(root + "/marker");
  ASSERT_TRUE(waitFor(root + "/marker"));
  EXPECT_EQ(batches.all(), (std::vector<std::string>{root + "/marker", root + "/marker"}));

  // A folder the process made itself is still watched for others' changes.
  foreignWrite(root + "/sub/deeper/theirs");
  EXPECT_TRUE(waitFor(root + "/sub/deeper/theirs"));
}

TEST_F(InotifyStreamTest, ForeignChangesQueuedBeforeAnOwnChangeOfTheSamePathStay) {
  ASSERT_TRUE(startStream(root, 0.2, /*ignoreSelf=*/true));
  std::string list = root + "/WrenfoldKeywords.plist";
  foreignWrite(list);  // someone else, not yet read from the queue
  ASSERT_TRUE(FileManager::defaultManager().removeItemAtPath(list));
  foreignWrite(root + "/marker");
  ASSERT_TRUE(waitFor(root + "/marker"));
  EXPECT_EQ(batches.all(),
            (std::vector<std::string>{list, list, root + "/marker", root + "/marker"}));
}

TEST_F(InotifyStreamTest, WithoutIgnoreSelfOwnChangesAreDelivered) {
  TempDir outside(true);
  writeFile(outside / "source", "list");
  ASSERT_TRUE(startStream(root));
  ASSERT_TRUE(FileManager::defaultManager().copyItemAtPath(outside / "source",
                                                           root + "/WrenfoldKeywords.plist"));
  EXPECT_TRUE(waitFor(root + "/WrenfoldKeywords.plist"));
}

TEST_F(InotifyStreamTest, AFolderMadeAndFilledAtOnceLosesNothing) {
  ASSERT_TRUE(startStream(root));
  // mkdir -p a/b && touch a/b/f, with no chance for the stream to run between.
  ASSERT_EQ(mkdir((root + "/a").c_str(), 0755), 0);
  ASSERT_EQ(mkdir((root + "/a/b").c_str(), 0755), 0);
  foreignWrite(root + "/a/b/f");
  ASSERT_TRUE(waitFor(root + "/a/b/f"));
  EXPECT_TRUE(batches.contains(root + "/a"));
  EXPECT_TRUE(batches.contains(root + "/a/b"));
  // And the new folders are watched from now on.
  foreignWrite(root + "/a/b/later");
  EXPECT_TRUE(waitFor(root + "/a/b/later"));
}

TEST_F(InotifyStreamTest, AFolderMovedInWholeIsReportedEntryByEntryAndWatched) {
  TempDir outside(true);
  ASSERT_EQ(mkdir((outside / "tree").c_str(), 0755), 0);
  ASSERT_EQ(mkdir((outside / "tree/x").c_str(), 0755), 0);
  foreignWrite(outside / "tree/x/file");
  foreignWrite(outside / "tree/top");
  ASSERT_TRUE(startStream(root));
  ASSERT_EQ(rename((outside / "tree").c_str(), (root + "/tree").c_str()), 0);
  ASSERT_TRUE(waitFor(root + "/tree/x/file"));
  EXPECT_TRUE(batches.contains(root + "/tree"));
  EXPECT_TRUE(batches.contains(root + "/tree/x"));
  EXPECT_TRUE(batches.contains(root + "/tree/top"));
  foreignWrite(root + "/tree/x/new");
  EXPECT_TRUE(waitFor(root + "/tree/x/new"));
}

TEST_F(InotifyStreamTest, FoldersThatExistAtStartAreWatchedButNotReported) {
  ASSERT_EQ(mkdir((root + "/p").c_str(), 0755), 0);
  ASSERT_EQ(mkdir((root + "/p/q").c_str(), 0755), 0);
  foreignWrite(root + "/p/old");
  ASSERT_TRUE(startStream(root));
  foreignWrite(root + "/p/q/f");
  ASSERT_TRUE(waitFor(root + "/p/q/f"));
  EXPECT_FALSE(batches.contains(root + "/p/old"));
  EXPECT_FALSE(batches.contains(root + "/p"));
}

TEST_F(InotifyStreamTest, AFolderMovedOutIsNoLongerWatchedAndARenamedOneUnderItsNewName) {
  TempDir outside(true);
  ASSERT_EQ(mkdir((root + "/leaving").c_str(), 0755), 0);
  ASSERT_EQ(mkdir((root + "/renamed").c_str(), 0755), 0);
  ASSERT_TRUE(startStream(root));
  ASSERT_EQ(rename((root + "/leaving").c_str(), (outside / "left").c_str()), 0);
  ASSERT_EQ(rename((root + "/renamed").c_str(), (root + "/newname").c_str()), 0);
  ASSERT_TRUE(runUntil([&] { return batches.contains(root + "/newname"); }, 5));
  foreignWrite(outside / "left/after");
  foreignWrite(root + "/newname/inside");
  ASSERT_TRUE(waitFor(root + "/newname/inside"));
  auto all = batches.all();
  EXPECT_TRUE(pathsUnder(all, "after").empty());
  EXPECT_TRUE(pathsUnder(all, "/renamed/").empty());
}

TEST_F(InotifyStreamTest, SymbolicLinksAreNotFollowed) {
  TempDir outside(true);
  ASSERT_EQ(symlink(outside.path().c_str(), (root + "/link").c_str()), 0);
  ASSERT_TRUE(startStream(root));
  foreignWrite(outside / "behind-the-link");
  foreignWrite(root + "/marker");
  ASSERT_TRUE(waitFor(root + "/marker"));
  EXPECT_TRUE(pathsUnder(batches.all(), "behind-the-link").empty());
}

TEST_F(InotifyStreamTest, ATrailingSlashIsKeptInReportedPaths) {
  ASSERT_TRUE(startStream(root + "/"));
  foreignWrite(root + "/f");
  EXPECT_TRUE(waitFor(root + "//f"));
}

TEST_F(InotifyStreamTest, AfterAQueueOverflowTheStreamRescansLogsAndGoesOn) {
  long maxQueued = 0;
  std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> maxQueued;
  if (maxQueued <= 0 || maxQueued > 200000)
    GTEST_SKIP() << "fs.inotify.max_queued_events is " << maxQueued
                 << "; filling a queue that long would take too long here";
  ASSERT_TRUE(startStream(root));
  // The loop does not run meanwhile, so nothing reads the queue: two events
  // per file overflow it.
  for (long i = 0; i < maxQueued / 2 + 100; ++i) foreignWrite(root + "/f" + std::to_string(i));
  ASSERT_EQ(mkdir((root + "/late").c_str(), 0755), 0);
  foreignWrite(root + "/late/inside");

  ASSERT_TRUE(waitFor(root + "/late/inside"));
  EXPECT_TRUE(batches.contains(root + "/late"));
  ASSERT_EQ(logLinesContaining("fs.inotify.max_queued_events"), 1u);
  EXPECT_NE(logLinesContaining("File events were lost in " + root), 0u);
  // The folder made during the loss is watched now.
  foreignWrite(root + "/late/after");
  EXPECT_TRUE(waitFor(root + "/late/after"));
}

TEST_F(InotifyStreamTest, TheWatchLimitIsLoggedOnceAndTheStreamWatchesWhatItCan) {
  for (int i = 0; i < 5; ++i) ASSERT_EQ(mkdir((root + "/s" + std::to_string(i)).c_str(), 0755), 0);
  factory.setWatchLimitForTesting(3);
  ASSERT_TRUE(startStream(root));
  EXPECT_EQ(inotify().watchCount(), 3u);
  EXPECT_EQ(logLinesContaining("sysctl fs.inotify.max_user_watches=524288"), 1u);

  ASSERT_EQ(mkdir((root + "/s9").c_str(), 0755), 0);
  foreignWrite(root + "/s9/f");  // cannot be watched, still found by reading it
  foreignWrite(root + "/top");
  ASSERT_TRUE(waitFor(root + "/top"));
  EXPECT_TRUE(batches.contains(root + "/s9/f"));
  EXPECT_EQ(logLinesContaining("fs.inotify.max_user_watches"), 1u);
}

TEST_F(InotifyStreamTest, NoRoomForTheFolderItselfMeansTheStartFails) {
  factory.setWatchLimitForTesting(0);
  EXPECT_FALSE(startStream(root));
  EXPECT_EQ(logLinesContaining("fs.inotify.max_user_watches"), 1u);
}

TEST_F(InotifyStreamTest, AMissingFolderOrAFileCannotBeStarted) {
  EXPECT_FALSE(startStream(tmp / "missing"));
  writeFile(tmp / "plain", "x");
  EXPECT_FALSE(startStream(tmp / "plain"));
}

TEST_F(InotifyStreamTest, AnUnreadableFolderCannotBeStarted) {
  if (geteuid() == 0)
    GTEST_SKIP() << "running as root, which may watch any folder whatever its mode";
  ASSERT_EQ(chmod(root.c_str(), 0), 0);
  EXPECT_FALSE(startStream(root));
}

TEST_F(InotifyStreamTest, ADeletedRootIsWatchedAgainWhenItComesBack) {
  foreignWrite(root + "/f");
  ASSERT_EQ(mkdir((root + "/sub").c_str(), 0755), 0);
  ASSERT_TRUE(startStream(root));
  ASSERT_EQ(std::system(("rm -rf '" + root + "'").c_str()), 0);
  ASSERT_TRUE(waitFor(root + "/f"));
  ASSERT_TRUE(runUntil([&] { return inotify().watchCount() == 0; }, 5));
  EXPECT_TRUE(log.lines.empty());

  // Made again and filled at once: what is in it is reported, and watched.
  ASSERT_EQ(mkdir(root.c_str(), 0755), 0);
  ASSERT_EQ(mkdir((root + "/new").c_str(), 0755), 0);
  foreignWrite(root + "/new/again");
  ASSERT_TRUE(waitFor(root + "/new/again"));
  EXPECT_EQ(inotify().watchCount(), 2u);
  foreignWrite(root + "/later");
  EXPECT_TRUE(waitFor(root + "/later"));
}

TEST_F(InotifyStreamTest, ARootMovedAwayIsNotFollowedButAwaited) {
  ASSERT_TRUE(startStream(root));
  std::string away = tmp / "away";
  ASSERT_EQ(rename(root.c_str(), away.c_str()), 0);
  ASSERT_TRUE(runUntil([&] { return inotify().watchCount() == 0; }, 5));
  foreignWrite(away + "/elsewhere");
  ASSERT_EQ(rename(away.c_str(), root.c_str()), 0);  // moved back
  foreignWrite(root + "/home-again");
  ASSERT_TRUE(waitFor(root + "/home-again"));
  EXPECT_TRUE(batches.contains(root + "/elsewhere"));  // reported as found on return
  EXPECT_TRUE(pathsUnder(batches.all(), away).empty());
}

TEST_F(InotifyStreamTest, ARootWhoseParentGoesTooStaysQuiet) {
  std::string parent = tmp / "parent";
  std::string inner = parent + "/inner";
  ASSERT_EQ(mkdir(parent.c_str(), 0755), 0);
  ASSERT_EQ(mkdir(inner.c_str(), 0755), 0);
  ASSERT_TRUE(startStream(inner));
  ASSERT_EQ(std::system(("rm -rf '" + parent + "'").c_str()), 0);
  ASSERT_TRUE(runUntil([&] { return inotify().watchCount() == 0; }, 5));
  ASSERT_EQ(mkdir(parent.c_str(), 0755), 0);
  ASSERT_EQ(mkdir(inner.c_str(), 0755), 0);
  foreignWrite(inner + "/f");
  runFor(0.5);
  EXPECT_TRUE(batches.calls.empty());
  EXPECT_TRUE(log.lines.empty());
}

TEST_F(InotifyStreamTest, ARootReplacedByALinkIsWatchedThroughTheLink) {
  std::string other = tmp / "other", real = tmp / "real";
  ASSERT_EQ(mkdir(other.c_str(), 0755), 0);
  foreignWrite(other + "/there-before");
  ASSERT_TRUE(startStream(root));
  ASSERT_EQ(rename(root.c_str(), real.c_str()), 0);
  ASSERT_TRUE(runUntil([&] { return !stream->watchesCurrentFolders(); }, 5));
  ASSERT_EQ(symlink(other.c_str(), root.c_str()), 0);
  // What it names now is new as a whole, and watched, under the path given.
  ASSERT_TRUE(waitFor(root + "/there-before"));
  EXPECT_TRUE(stream->watchesCurrentFolders());
  foreignWrite(real + "/moved-away");
  foreignWrite(other + "/later");
  ASSERT_TRUE(waitFor(root + "/later"));
  EXPECT_TRUE(pathsUnder(batches.all(), "moved-away").empty());
  EXPECT_TRUE(log.lines.empty());
}

TEST_F(InotifyStreamTest, ARootSwappedWithAnotherFolderIsWatchedInItsNewContents) {
  std::string other = tmp / "other";
  ASSERT_EQ(mkdir(other.c_str(), 0755), 0);
  ASSERT_TRUE(startStream(root));
  // One rename exchanges both: the path never names nothing.
  ASSERT_EQ(renameat2(AT_FDCWD, other.c_str(), AT_FDCWD, root.c_str(), RENAME_EXCHANGE), 0);
  foreignWrite(other + "/old-folder");
  foreignWrite(root + "/new-folder");
  ASSERT_TRUE(waitFor(root + "/new-folder"));
  EXPECT_TRUE(stream->watchesCurrentFolders());
  runFor(0.3);
  EXPECT_TRUE(pathsUnder(batches.all(), "old-folder").empty());
}

TEST_F(InotifyStreamTest, ALinkPointedElsewhereIsFollowedToItsNewTarget) {
  std::string a = tmp / "a", b = tmp / "b", link = tmp / "link", fresh = tmp / "link.new";
  ASSERT_EQ(mkdir(a.c_str(), 0755), 0);
  ASSERT_EQ(mkdir(b.c_str(), 0755), 0);
  ASSERT_EQ(symlink(a.c_str(), link.c_str()), 0);
  ASSERT_TRUE(startStream(link));
  // As `ln -sfn` does it: a new link renamed over the old one.
  ASSERT_EQ(symlink(b.c_str(), fresh.c_str()), 0);
  ASSERT_EQ(rename(fresh.c_str(), link.c_str()), 0);
  ASSERT_TRUE(runUntil([&] { return stream->watchesCurrentFolders(); }, 5));
  foreignWrite(a + "/old-target");
  foreignWrite(b + "/new-target");
  ASSERT_TRUE(waitFor(link + "/new-target"));
  runFor(0.3);
  EXPECT_TRUE(pathsUnder(batches.all(), "old-target").empty());
}

TEST_F(InotifyStreamTest, TheFolderHoldingTheRootIsWatchedForItOnly) {
  ASSERT_TRUE(startStream(root));
  foreignWrite(tmp / "beside-the-root");
  ASSERT_EQ(mkdir((tmp / "another-folder").c_str(), 0755), 0);
  foreignWrite(root + "/inside");
  ASSERT_TRUE(waitFor(root + "/inside"));
  EXPECT_EQ(batches.all(), (std::vector<std::string>{root + "/inside", root + "/inside"}));
  EXPECT_TRUE(stream->watchesCurrentFolders());
}

TEST_F(InotifyStreamTest, MergingKeepsOnePathPerLatencyWindowInFirstArrivalOrder) {
  ASSERT_TRUE(startStream(root, 0.3, false, true));
  std::string a = root + "/a", b = root + "/b";
  for (int i = 0; i < 50; ++i) {
    foreignWrite(a);
    foreignWrite(b);
  }
  ASSERT_TRUE(runUntil([&] { return !batches.calls.empty(); }, 5));
  EXPECT_EQ(batches.calls[0], (std::vector<std::string>{a, b}));
  // A later window reports the path again.
  foreignWrite(a);
  ASSERT_TRUE(runUntil([&] { return batches.calls.size() == 2; }, 5));
  EXPECT_EQ(batches.calls[1], (std::vector<std::string>{a}));
}

TEST_F(InotifyStreamTest, NothingIsDeliveredAfterStop) {
  ASSERT_TRUE(startStream(root));
  foreignWrite(root + "/f");
  // Let the stream read the event; its latency has not passed yet.
  ASSERT_TRUE(runUntil([&] { return g_main_context_pending(nullptr) == FALSE; }, 1));
  stream->stop();
  runFor(0.5);
  EXPECT_TRUE(batches.calls.empty());
  EXPECT_FALSE(stream->start());
}

TEST_F(InotifyStreamTest, ACallbackMayEndItsOwnStream) {
  platform::FileEventStreamParams params;
  params.paths = {root};
  params.latency = 0.1;
  int calls = 0;
  stream = factory.create(params, [&](const std::vector<std::string>&) {
    ++calls;
    stream.reset();
  });
  ASSERT_TRUE(stream && stream->start());
  foreignWrite(root + "/f");
  ASSERT_TRUE(runUntil([&] { return calls == 1; }, 5));
  EXPECT_EQ(stream, nullptr);
}

TEST_F(InotifyStreamTest, NoStreamWhenNoInotifyInstanceCanBeMade) {
  rlimit saved{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &saved), 0);
  rlimit none = saved;
  none.rlim_cur = 0;  // no new descriptor at all
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  platform::FileEventStreamParams params;
  params.paths = {root};
  auto made = factory.create(params, [](const std::vector<std::string>&) {});
  setrlimit(RLIMIT_NOFILE, &saved);
  EXPECT_EQ(made, nullptr);
}

TEST_F(InotifyStreamTest, AFolderWithoutSubfoldersAtStartStillSeesOnesMadeLater) {
  ASSERT_EQ(mkdir((root + "/leaf").c_str(), 0755), 0);
  foreignWrite(root + "/leaf/old");
  ASSERT_TRUE(startStream(root));
  ASSERT_EQ(mkdir((root + "/leaf/sub").c_str(), 0755), 0);
  foreignWrite(root + "/leaf/sub/f");
  ASSERT_TRUE(waitFor(root + "/leaf/sub/f"));
  EXPECT_TRUE(batches.contains(root + "/leaf/sub"));
  EXPECT_FALSE(batches.contains(root + "/leaf/old"));
}

TEST_F(InotifyStreamTest, FoldersOnDiskAreWatchedToo) {
  // The same tree on the file system of the work tree rather than tmpfs.
  TempDir disk(false);
  ASSERT_EQ(mkdir((disk / "w").c_str(), 0755), 0);
  ASSERT_EQ(mkdir((disk / "w/a").c_str(), 0755), 0);
  ASSERT_EQ(mkdir((disk / "w/a/b").c_str(), 0755), 0);
  ASSERT_TRUE(startStream(disk / "w"));
  foreignWrite(disk / "w/a/b/f");
  ASSERT_EQ(mkdir((disk / "w/a/c").c_str(), 0755), 0);
  foreignWrite(disk / "w/a/c/g");
  ASSERT_TRUE(waitFor(disk / "w/a/c/g"));
  EXPECT_TRUE(batches.contains(disk / "w/a/b/f"));
}

TEST_F(InotifyStreamTest, AnExceptionInACallbackIsLoggedAndTheStreamGoesOn) {
  wf::setNSLogSink(&log);
  platform::FileEventStreamParams params;
  params.paths = {root};
  params.latency = 0.1;
  int calls = 0;
  stream = factory.create(params, [&](const std::vector<std::string>& paths) {
    batches.calls.push_back(paths);
    if (++calls == 1) throw NSException("the other application went away");
  });
  ASSERT_TRUE(stream && stream->start());
  foreignWrite(root + "/first");
  ASSERT_TRUE(runUntil([&] { return calls == 1; }, 5));
  foreignWrite(root + "/second");
  ASSERT_TRUE(waitFor(root + "/second"));
  wf::setNSLogSink(nullptr);
  EXPECT_EQ(
      log.count(platform::uncaughtExceptionMessage(NSException("the other application went away"))),
      1u);
}
