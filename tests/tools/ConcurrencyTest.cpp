// Several writers of this project on one file at once, each with its own
// key or tag: every write that reported success is in the file at the end,
// and none was refused because another writer was first.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <functional>

#include "ToolBinaries.h"
#include "ToolTestSupport.h"
#include "platform/plist/PropertyList.h"
#include "support/Fakes.h"

namespace wf::test {
namespace {

constexpr int kRounds = 100;

std::string emptyDictionary() {
  std::string xml;
  plist::toXML(Value(Dictionary{}), xml);
  return xml;
}

// The value of the attribute `name` of `path`, empty when there is none.
std::string attribute(const std::string& path, const std::string& name) {
  std::string value(65536, '\0');
  ssize_t n = ::getxattr(path.c_str(), name.c_str(), value.data(), value.size());
  value.resize(n > 0 ? static_cast<std::size_t>(n) : 0);
  return value;
}

struct Written {
  std::string name;  // the key or tag this writer added
  ToolRun run;
};

// `writers` processes at once, `kRounds` times; `argsFor(round, writer)`
// gives each its command line and `name` the key or tag it adds.
// `beforeRound` may start a fresh file.
std::vector<Written> runAtOnce(
    int writers, const std::string& binary,
    const std::function<std::vector<std::string>(const std::string& name)>& argsFor,
    const std::function<void(int round)>& beforeRound,
    const std::function<void(const std::vector<Written>& round)>& afterRound) {
  std::vector<Written> all;
  for (int round = 0; round < kRounds; ++round) {
    beforeRound(round);
    std::vector<std::pair<std::string, StartedTool>> started;
    for (int w = 0; w < writers; ++w) {
      std::string name = "k" + std::to_string(round) + "w" + std::to_string(w);
      started.emplace_back(name, startTool(binary, argsFor(name)));
    }
    std::vector<Written> done;
    for (auto& [name, tool] : started) done.push_back({name, finishTool(tool)});
    afterRound(done);
    all.insert(all.end(), done.begin(), done.end());
  }
  return all;
}

// Every writer exited 0 and what each wrote is in `has`.
void expectNoneLostNoneRefused(const std::vector<Written>& round,
                               const std::function<bool(const std::string&)>& has) {
  for (const Written& w : round) {
    EXPECT_EQ(w.run.status, 0) << w.name << " refused: " << w.run.err;
    if (w.run.status == 0) {
      EXPECT_TRUE(has(w.name)) << w.name << " was reported written but is lost";
    }
  }
}

class Concurrency : public ::testing::TestWithParam<int> {
 protected:
  TempDir home;
  TempDir dir{true};  // tmpfs: keeps user extended attributes
  std::string file = dir / "d.plist";
};

TEST_P(Concurrency, DefaultsWriteLosesNothing) {
  writeFile(file, emptyDictionary());
  auto all = runAtOnce(
      GetParam(), defaultsBinary(),
      [&](const std::string& key) {
        return std::vector<std::string>{"write", file, key, "-int", "1"};
      },
      [](int) {}, [](const std::vector<Written>&) {});
  const Value d = plist::readFile(file);
  ASSERT_TRUE(d.isDictionary());
  expectNoneLostNoneRefused(all, [&](const std::string& key) { return d.find(key) != nullptr; });
}

TEST_P(Concurrency, PlutilInsertLosesNothing) {
  writeFile(file, emptyDictionary());
  auto all = runAtOnce(
      GetParam(), plutilBinary(),
      [&](const std::string& key) {
        return std::vector<std::string>{"-insert", key, "-string", "v", file};
      },
      [](int) {}, [](const std::vector<Written>&) {});
  const Value d = plist::readFile(file);
  ASSERT_TRUE(d.isDictionary());
  expectNoneLostNoneRefused(all, [&](const std::string& key) { return d.find(key) != nullptr; });
}

TEST_P(Concurrency, OpenmetaAddTagsLosesNothing) {
  // A fresh file every ten rounds keeps the list far below the size limit;
  // each batch is checked before its file goes.
  std::vector<Written> batch;
  auto checkBatch = [&] {
    const Value list = plist::parse(attribute(file, "user.com.apple.metadata:kMDItemOMUserTags"));
    const std::string mirror = "," + attribute(file, "user.xdg.tags") + ",";
    expectNoneLostNoneRefused(batch, [&](const std::string& tag) {
      bool inList = false;
      if (list.isArray())
        for (const Value& t : list.asArray()) inList = inList || t == Value(tag);
      return inList && mirror.find("," + tag + ",") != std::string::npos;
    });
    batch.clear();
  };
  runAtOnce(
      GetParam(), openmetaBinary(),
      [&](const std::string& tag) {
        return std::vector<std::string>{"add-tags", "-t", tag, file};
      },
      [&](int round) {
        if (round % 10 != 0) return;
        if (round > 0) checkBatch();
        ::unlink(file.c_str());
        writeFile(file, "message");
      },
      [&](const std::vector<Written>& round) {
        batch.insert(batch.end(), round.begin(), round.end());
      });
  checkBatch();
}

// A writer that keeps the lock (stopped, or stuck on a slow disk) is waited
// for ten seconds; then the tool gives up, says so, and changes nothing.
TEST(LockWait, AWriterThatNeverLetsGoIsWaitedForThenNothingChanges) {
  TempDir home;
  TempDir dir{true};
  struct Case {
    std::string binary;
    std::vector<std::string> args;
    std::string file;
  };
  std::vector<Case> cases = {
      {defaultsBinary(), {"write", dir / "a.plist", "k", "-int", "1"}, dir / "a.plist"},
      {plutilBinary(), {"-insert", "k", "-string", "v", dir / "b.plist"}, dir / "b.plist"},
      {openmetaBinary(), {"add-tags", "-t", "k", dir / "c.emlx"}, dir / "c.emlx"},
  };
  std::vector<int> held;
  std::vector<FileState> before;
  for (const Case& c : cases) {
    writeFile(c.file, emptyDictionary());
    held.push_back(::open(c.file.c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(::flock(held.back(), LOCK_EX), 0);
    before.push_back(stateOf(c.file));
  }
  // All three wait at once: the test takes the ten seconds only once.
  std::vector<StartedTool> started;
  for (const Case& c : cases) started.push_back(startTool(c.binary, c.args, {}, "", 60));
  for (std::size_t i = 0; i < cases.size(); ++i) {
    ToolRun r = finishTool(started[i]);
    EXPECT_EQ(r.status, 1) << cases[i].binary << ": " << r.err;
    EXPECT_NE(r.err.find("Another writer held the file for 10 s; nothing was changed"),
              std::string::npos)
        << r.err;
    EXPECT_EQ(stateOf(cases[i].file), before[i]);
  }
  for (int fd : held) ::close(fd);
}

INSTANTIATE_TEST_SUITE_P(Writers, Concurrency, ::testing::Values(2, 8),
                         [](const auto& info) { return std::to_string(info.param) + "AtOnce"; });

}  // namespace
}  // namespace wf::test
