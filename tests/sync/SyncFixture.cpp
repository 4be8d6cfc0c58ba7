#include "sync/SyncFixture.h"

#include <cctype>

#include "paths/Paths.h"

namespace wf::test {

namespace {
std::size_t countKeyed(const std::vector<std::string>& lines, const std::string& head,
                       const std::string& message) {
  std::size_t n = 0;
  for (const std::string& line : lines) {
    if (line.rfind(head, 0) != 0) continue;
    std::size_t at = head.size();
    std::size_t digits = at;
    while (digits < line.size() && std::isdigit(static_cast<unsigned char>(line[digits]))) ++digits;
    if (digits == at || line.compare(digits, 2, ": ") != 0) continue;
    if (line.compare(digits + 2, std::string::npos, message) == 0) ++n;
  }
  return n;
}
}  // namespace

void SyncTest::SetUp() {
  delegate = std::make_unique<WFHelperAppDelegate>(platform.services());
  // The plug-in's support folder, made as the helper makes it.
  local = ardelSyncSettingsPathCreateIfNeeded().value_or("");
  ASSERT_EQ(local, platform.library() + "/Mail/Ardel");
  sync = platform.dir / "Shared/Sync";
  setPreference("settingsSyncMethod", "2");
  setPreference("syncFolderPath", sync);
  setPreference("logSettingsSync", "YES");
}

void SyncTest::TearDown() { delegate.reset(); }

void SyncTest::setPreference(const std::string& key, const std::string& value) {
  platform.defaults.arguments["WF" + key] = Value(value);
}

void SyncTest::removePreference(const std::string& key) {
  platform.defaults.arguments.erase("WF" + key);
}

std::size_t SyncTest::keyed(const std::string& method, const std::string& message) const {
  return countKeyed(platform.log.lines, "(logSettingsSync)" + delegateMethodName(method) + ": ",
                    message);
}

std::size_t SyncTest::keyedFree(const std::string& function, const std::string& message) const {
  return countKeyed(platform.log.lines, "(logSettingsSync)" + function + ": ", message);
}

std::size_t SyncTest::keyedLines() const {
  return platform.log.startingWith("(logSettingsSync)").size();
}

}  // namespace wf::test
