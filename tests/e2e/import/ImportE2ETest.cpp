// The helper watching Mail's message store: message files written and
// tagged by other processes get their attributes or their stub. The store
// lives on tmpfs (/dev/shm), linked into the temporary home as
// Library/Mail/V2.
#include <fcntl.h>
#include <glib.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "platform/plist/PropertyList.h"
#include "support/Attributes.h"
#include "support/Fakes.h"
#include "support/Harness.h"
#include "support/Messages.h"

namespace wf::e2e {
namespace {

constexpr const char* kPrefix = "user.com.apple.metadata:";
// A bound on an import: the stream's latency (kTestStreamLatency here, 5 s
// installed) and the delayed import (0.5 s), with room for a loaded machine.
constexpr double kImportWait = 7.0;

// Runs a program as a separate process and waits for it.
bool run(const std::vector<std::string>& argv) {
  std::vector<char*> args;
  for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  gint status = 0;
  GError* error = nullptr;
  bool ok = g_spawn_sync(nullptr, args.data(), nullptr, G_SPAWN_SEARCH_PATH, nullptr, nullptr,
                         nullptr, nullptr, &status, &error);
  if (error) g_error_free(error);
  return ok && g_spawn_check_wait_status(status, nullptr);
}

std::string hex(const std::string& bytes) {
  static const char* digits = "0123456789abcdef";
  std::string out = "0x";
  for (unsigned char c : bytes) {
    out += digits[c >> 4];
    out += digits[c & 15];
  }
  return out;
}

// Sets a Spotlight attribute from another process, as a tagging
// application would.
bool setAttributeElsewhere(const std::string& path, const std::string& key, const Value& value) {
  std::string xml;
  if (!plist::toXML(value, xml)) return false;
  return run({"setfattr", "-h", "-n", kPrefix + key, "-v", hex(xml), path});
}

std::string message(const Dictionary& wrenfold) {
  std::string body = "From: someone@example.org\r\nSubject: hello\r\n\r\nHello.\r\n";
  return test::wrenfoldMessage(body, wrenfold);
}

Value strings(std::initializer_list<const char*> items) {
  Array a;
  for (const char* s : items) a.emplace_back(s);
  return Value(std::move(a));
}

class ImportEndToEnd : public ::testing::Test {
 protected:
  Session s;
  test::TempDir store{true};  // the message store, on tmpfs
  test::TempDir outside{true};
  std::string mailbox;

  void SetUp() override {
    ASSERT_TRUE(run({"mkdir", "-p", s.library() + "/Mail"}));
    ASSERT_EQ(symlink(store.path().c_str(), (s.library() + "/Mail/V2").c_str()), 0);
    mailbox = s.library() + "/Mail/V2/INBOX.mbox/Messages";
    ASSERT_TRUE(run({"mkdir", "-p", mailbox}));
    s.writePreferences({{"logOpenMeta", Value(true)}, {"recognizeOpenMetaTags", Value(true)}});
    s.startHelper();
    ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
    ASSERT_TRUE(s.waitForLine("Successfully set up OpenMeta Listener", 10)) << s.stderrText();
  }

  // Writes a message file through another process (cp of a file made
  // outside the store).
  std::string deliver(const std::string& folder, const std::string& name,
                      const std::string& bytes) {
    std::string source = outside / name;
    test::writeFile(source, bytes);
    std::string path = folder + "/" + name;
    EXPECT_TRUE(run({"cp", source, path}));
    return path;
  }
};

TEST_F(ImportEndToEnd, MessageWrittenByAnotherProcessGetsItsAttributes) {
  std::string path = deliver(mailbox, "101.emlx",
                             message({{"wrenfoldKeyWords", strings({"Work", "Urgent"})},
                                      {"wrenfoldProject", Value("Launch")},
                                      {"wrenfoldPriority", Value(4)}}));
  auto written = std::chrono::steady_clock::now();
  ASSERT_TRUE(s.waitForFiles(
      [&] {
        return !test::spotlightAttribute(path, "kMDItemWrenfoldTimeStamp").isNil() &&
               test::spotlightAttribute(path, "kMDItemWrenfoldTimeStamp") !=
                   Value(Date::distantFuture());
      },
      kImportWait))
      << s.stderrText();
  double took = std::chrono::duration<double>(std::chrono::steady_clock::now() - written).count();
  EXPECT_LT(took, kImportWait);
  EXPECT_EQ(test::spotlightAttribute(path, "kMDItemKeywords"), strings({"Work", "Urgent"}));
  EXPECT_EQ(test::spotlightAttribute(path, "kMDItemOMUserTags"), strings({"Work", "Urgent"}));
  EXPECT_EQ(test::spotlightAttribute(path, "kMDItemProjects"), strings({"Launch"}));
  EXPECT_EQ(test::spotlightAttribute(path, "kMDItemStarRating"), Value(4));
  EXPECT_GE(s.countInStderr("emlx file changed: " + path + "\n"), 1) << s.stderrText();
  EXPECT_GE(s.countInStderr("OpenMeta Importing... setting attribute kMDItemKeywords\n"), 1);
}

TEST_F(ImportEndToEnd, MessageTaggedByAnotherApplicationGetsAStub) {
  std::string path = deliver(mailbox, "202.emlx", message({}));
  // The plug-in stamped the message earlier; another application tags it
  // later.
  ASSERT_TRUE(setAttributeElsewhere(path, "kMDItemWrenfoldTimeStamp", Value(Date{700000000.0})));
  ASSERT_TRUE(setAttributeElsewhere(path, "kMDItemOMUserTags", strings({"from", "elsewhere"})));
  ASSERT_TRUE(setAttributeElsewhere(path, "kMDItemOMUserTagTime", Value(Date{710000000.0})));
  std::string stub = s.library() + "/Mail/Ardel/OpenMetaUpdates/202";
  ASSERT_TRUE(s.waitForFiles([&] { return test::exists(stub); }, kImportWait)) << s.stderrText();
  // The stub is written in place: wait until it is whole.
  Value content;
  ASSERT_TRUE(s.waitForFiles(
      [&] {
        content = plist::readFile(stub);
        return content.isDictionary();
      },
      2.0));
  EXPECT_EQ(content, Value(Dictionary{{"LibraryID", Value("202")},
                                      {"FilePath", Value(path)},
                                      {"Tags", strings({"from", "elsewhere"})}}));
  EXPECT_TRUE(s.waitForFiles(
      [&] {
        Value stamp = test::spotlightAttribute(path, "kMDItemWrenfoldTimeStamp");
        return stamp.isDate() && stamp.asDate().seconds > 710000000.0 &&
               !(stamp.asDate() == Date::distantFuture());
      },
      2.0));
  EXPECT_GE(s.countInStderr("OpenMeta Importing... saving Stub OPENMETA " + stub + "\n"), 1);
}

TEST_F(ImportEndToEnd, UpperCaseExtensionAndVanishedFileAreSkipped) {
  std::string upper = deliver(mailbox, "301.EMLX", message({{"wrenfoldPriority", Value(1)}}));
  std::string gone = deliver(mailbox, "302.emlx", message({{"wrenfoldPriority", Value(2)}}));
  ASSERT_TRUE(run({"rm", gone}));
  // A message after them: once it is imported, the earlier events have
  // been handled too.
  std::string last = deliver(mailbox, "303.emlx", message({{"wrenfoldPriority", Value(3)}}));
  ASSERT_TRUE(s.waitForFiles(
      [&] { return test::spotlightAttribute(last, "kMDItemStarRating") == Value(3); }, kImportWait))
      << s.stderrText();
  EXPECT_TRUE(test::spotlightAttribute(upper, "kMDItemStarRating").isNil());
  EXPECT_EQ(s.countInStderr("emlx file changed: " + upper), 0) << s.stderrText();
  EXPECT_EQ(s.countInStderr("emlx file changed: " + gone), 0) << s.stderrText();
  EXPECT_GE(s.countInStderr("emlx file changed: " + last + "\n"), 1);
}

TEST_F(ImportEndToEnd, MailboxCreatedAfterLaunchIsWatched) {
  std::string fresh = s.library() + "/Mail/V2/Archive.mbox/Messages";
  std::string source = outside / "401.emlx";
  test::writeFile(source, message({{"wrenfoldAnnotation", Value("new mailbox")}}));
  // Made and filled at once by another process.
  ASSERT_TRUE(run({"sh", "-c", "mkdir -p \"$1\" && cp \"$2\" \"$1/\"", "sh", fresh, source}));
  std::string path = fresh + "/401.emlx";
  ASSERT_TRUE(s.waitForFiles(
      [&] { return test::spotlightAttribute(path, "kMDItemComment") == Value("new mailbox"); },
      kImportWait))
      << s.stderrText();
}

TEST_F(ImportEndToEnd, OwnWritesDoNotFeedOnThemselves) {
  // Renamed into the store: a single event, so the first import runs once.
  std::string source = outside / "501.emlx";
  test::writeFile(source, message({{"wrenfoldPriority", Value(5)}}));
  std::string path = mailbox + "/501.emlx";
  ASSERT_TRUE(run({"mv", source, path}));
  ASSERT_TRUE(s.waitForFiles(
      [&] { return test::spotlightAttribute(path, "kMDItemStarRating") == Value(5); },
      kImportWait));
  // The helper's own attribute writes come back as events; the second
  // import finds everything in place and writes nothing.
  ASSERT_TRUE(s.waitForLine("emlx file changed: " + path + "\n", kImportWait, 2)) << s.stderrText();
  ASSERT_TRUE(s.waitForLine("OpenMeta Importing... attributesToImport {\n}\n", 2.0))
      << s.stderrText();
  EXPECT_EQ(s.countInStderr("OpenMeta Importing... setting attribute kMDItemStarRating\n"), 1);
}

TEST_F(ImportEndToEnd, AMessageATagWriterHoldsIsImportedOnceItIsFree) {
  // The lock every writer of tags takes, held here as a tool holds it
  // while it reads, changes and writes the message's attributes.
  std::string source = outside / "601.emlx";
  test::writeFile(source, message({{"wrenfoldPriority", Value(4)}}));
  int held = ::open(source.c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_GE(held, 0);
  ASSERT_EQ(::flock(held, LOCK_EX), 0);
  std::string path = mailbox + "/601.emlx";
  ASSERT_TRUE(run({"mv", source, path}));
  ASSERT_TRUE(s.waitForLine(
      "OpenMeta import: " + path + " held by another writer; tried again shortly\n", kImportWait))
      << s.stderrText();
  EXPECT_TRUE(test::spotlightAttribute(path, "kMDItemStarRating").isNil())
      << "imported while another writer held the message";
  ::close(held);
  EXPECT_TRUE(s.waitForFiles(
      [&] { return test::spotlightAttribute(path, "kMDItemStarRating") == Value(4); }, 3.0))
      << s.stderrText();
}

}  // namespace
}  // namespace wf::e2e
