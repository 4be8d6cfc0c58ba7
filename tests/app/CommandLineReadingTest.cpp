// Reading the command line, the priority of each kind of record, and
// whether standard error is the journal.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "app/CommandLine.h"
#include "platform/linux/LogPriority.h"
#include "platform/linux/SystemLog.h"

namespace wf {
namespace {

using Action = CommandLine::Action;

TEST(CommandLineReading, HelpInEveryForm) {
  for (const char* word : {"-h", "-help", "--help"})
    EXPECT_EQ(readCommandLine({word}).action, Action::Help) << word;
  EXPECT_EQ(readCommandLine({"-WFlogOpenMeta", "YES", "-h"}).action, Action::Help);
}

TEST(CommandLineReading, StatusAloneOrWithJson) {
  CommandLine line = readCommandLine({"--status"});
  EXPECT_EQ(line.action, Action::Status);
  EXPECT_FALSE(line.json);
  for (auto words : {std::vector<std::string>{"--status", "--json"},
                     std::vector<std::string>{"--json", "--status"}}) {
    line = readCommandLine(words);
    EXPECT_EQ(line.action, Action::Status);
    EXPECT_TRUE(line.json);
  }
  // Nothing else goes with it, and --json alone means nothing.
  EXPECT_EQ(readCommandLine({"--status", "-WFlogOpenMeta", "YES"}).action, Action::Misuse);
  EXPECT_EQ(readCommandLine({"--status", "--verbose"}).action, Action::Misuse);
  EXPECT_EQ(readCommandLine({"--json"}).action, Action::Misuse);
  EXPECT_EQ(readCommandLine({"--json"}).offending, "--json");
}

TEST(CommandLineReading, AValueIsTakenAsItStands) {
  CommandLine line = readCommandLine({"-WFsyncFolderPath", "-h", "-a", "--help"});
  EXPECT_EQ(line.action, Action::Launch);
  EXPECT_EQ(line.pairs, (std::vector<std::string>{"-WFsyncFolderPath", "-h", "-a", "--help"}));
}

TEST(CommandLineReading, WrongWordsAreNamed) {
  struct Case {
    std::vector<std::string> words;
    std::string offending;
  };
  for (const Case& c :
       {Case{{"-v"}, "-v"}, Case{{"status"}, "status"}, Case{{"--x"}, "--x"}, Case{{"-"}, "-"},
        Case{{"-a", "1", "-b"}, "-b"}, Case{{"-a", "1", "b", "2"}, "b"}, Case{{"---"}, "---"}}) {
    CommandLine line = readCommandLine(c.words);
    EXPECT_EQ(line.action, Action::Misuse) << c.offending;
    EXPECT_EQ(line.offending, c.offending);
  }
  EXPECT_EQ(misuseLine("-v").back(), '\n');
  EXPECT_EQ(misuseLine("-v").find('\n'), misuseLine("-v").size() - 1);
}

TEST(CommandLineReading, VerboseAddsEveryKeyTheLineDoesNotSet) {
  CommandLine line = readCommandLine({"--verbose", "-WFlogOpenMeta", "NO"});
  ASSERT_EQ(line.action, Action::Launch);
  EXPECT_TRUE(line.verbose);
  std::vector<std::string> words = argumentDomainWords(line);
  ASSERT_EQ(words.size(), 2u + 2u * 6u);
  EXPECT_EQ(words[0], "-WFlogOpenMeta");
  EXPECT_EQ(words[1], "NO");
  for (std::size_t i = 2; i < words.size(); i += 2) {
    EXPECT_NE(words[i], "-WFlogOpenMeta");
    EXPECT_EQ(words[i + 1], "YES");
  }
  EXPECT_EQ(argumentDomainWords(readCommandLine({"-a", "1"})),
            (std::vector<std::string>{"-a", "1"}));
}

TEST(RecordPriority, KeyedLinesCarryTheirKey) {
  auto kind = platform::classifyRecord("(logOpenMeta)-[WFHelperAppDelegate x]: 12: text");
  EXPECT_EQ(kind.priority, platform::LogPriority::Info);
  EXPECT_EQ(kind.key, "logOpenMeta");
  // A parenthesis that is no log key is no keyed line.
  EXPECT_EQ(platform::classifyRecord("(other) text").key, "");
}

TEST(RecordPriority, FailuresLaunchAndDiagnostics) {
  using platform::classifyRecord;
  using platform::LogPriority;
  EXPECT_EQ(classifyRecord("Couldn't set handler for Wrenfold wfdefaults: -10814").priority,
            LogPriority::Warning);
  EXPECT_EQ(classifyRecord("Problem removing old file: /s/x \n\tError: e").priority,
            LogPriority::Warning);
  EXPECT_EQ(classifyRecord("lost the session bus: gone").priority, LogPriority::Error);
  EXPECT_EQ(classifyRecord("WrenfoldHelper 1.0.0 Launched \nWrenfoldHelper supports").priority,
            LogPriority::Notice);
  EXPECT_EQ(classifyRecord("External OpenMeta Scanning DISABLED\nUse").priority,
            LogPriority::Notice);
  EXPECT_EQ(classifyRecord("syncFilesDidChange x").priority, LogPriority::Info);
}

TEST(JournalStream, OnlyTheFileOpenOnTheDescriptor) {
  char path[] = "/tmp/wf-journal-stream-XXXXXX";
  int fd = mkstemp(path);
  ASSERT_GE(fd, 0);
  struct stat st;
  ASSERT_EQ(fstat(fd, &st), 0);
  std::string stream = std::to_string(st.st_dev) + ":" + std::to_string(st.st_ino);
  setenv("JOURNAL_STREAM", stream.c_str(), 1);
  EXPECT_TRUE(platform::streamIsJournal(fd));
  setenv("JOURNAL_STREAM", (stream + "1").c_str(), 1);
  EXPECT_FALSE(platform::streamIsJournal(fd));
  setenv("JOURNAL_STREAM", "garbage", 1);
  EXPECT_FALSE(platform::streamIsJournal(fd));
  unsetenv("JOURNAL_STREAM");
  EXPECT_FALSE(platform::streamIsJournal(fd));
  close(fd);
  unlink(path);
}

}  // namespace
}  // namespace wf
