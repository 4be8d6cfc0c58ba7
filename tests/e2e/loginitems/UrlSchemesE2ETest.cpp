// Mail as the handler of the plug-in's URL schemes, checked with the
// desktop's own tool.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>

#include "support/Fakes.h"
#include "support/Harness.h"

namespace wf::e2e {
namespace {

constexpr double kWait = 20;
const char* const kSchemes[] = {"wrenfoldlog", "wrenfoldkeyword", "wfkw", "wrenfoldproject"};

// `gio mime` run in the session's folders.
std::string defaultHandler(const Session& s, const std::string& scheme) {
  std::string cmd = "env HOME='" + s.home() + "' XDG_CONFIG_HOME='" + s.home() +
                    "/.config' XDG_DATA_HOME='" + s.home() + "/.local/share' XDG_DATA_DIRS='" +
                    s.home() + "/share' XDG_CURRENT_DESKTOP= gio mime x-scheme-handler/" + scheme +
                    " 2>&1";
  std::string out;
  FILE* pipe = popen(cmd.c_str(), "r");
  if (!pipe) return out;
  char buf[512];
  while (size_t n = fread(buf, 1, sizeof buf, pipe)) out.append(buf, n);
  pclose(pipe);
  return out;
}

void installMail(const Session& s) {
  std::string dir = s.home() + "/.local/share/applications";
  mkdir((s.home() + "/.local").c_str(), 0755);
  mkdir((s.home() + "/.local/share").c_str(), 0755);
  mkdir(dir.c_str(), 0755);
  test::writeFile(dir + "/com.apple.mail.desktop",
                  "[Desktop Entry]\nType=Application\nName=Mail\nExec=/bin/true %u\n"
                  "MimeType=x-scheme-handler/mailto;\n");
}

TEST(UrlSchemesE2E, WithMailInstalledTheFourSchemesGoToMail) {
  if (system("command -v gio >/dev/null 2>&1") != 0)
    GTEST_SKIP() << "gio (libglib2.0-bin) is not installed";
  Session s;
  installMail(s);
  s.startHelper();
  ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
  EXPECT_EQ(s.countInStderr("Couldn't set handler"), 0) << s.stderrText();
  for (const char* scheme : kSchemes) {
    std::string out = defaultHandler(s, scheme);
    EXPECT_NE(out.find("Default application for “x-scheme-handler/" + std::string(scheme) +
                       "”: com.apple.mail.desktop"),
              std::string::npos)
        << scheme << ": " << out;
  }
}

TEST(UrlSchemesE2E, WithoutMailTheFourFailuresAreLoggedAndTheHelperRunsOn) {
  Session s;
  s.startHelper();
  ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
  EXPECT_EQ(s.countInStderr("Couldn't set handler for Wrenfold wfdefaults: -10814\n"), 1)
      << s.stderrText();
  EXPECT_EQ(s.countInStderr("Couldn't set handler for Wrenfold Keyword Search: -10814\n"), 2);
  EXPECT_EQ(s.countInStderr("Couldn't set handler for Wrenfold Project Search: -10814\n"), 1);
  std::string err = s.stderrText();
  EXPECT_LT(err.find("wfdefaults: -10814"), err.find("Keyword Search: -10814"));
  EXPECT_LT(err.rfind("Keyword Search: -10814"), err.find("Project Search: -10814"));
  EXPECT_TRUE(s.roundTrip()) << s.stderrText();
  EXPECT_TRUE(s.helperRunning());
  EXPECT_FALSE(test::exists(s.home() + "/.config/mimeapps.list"));
}

}  // namespace
}  // namespace wf::e2e
