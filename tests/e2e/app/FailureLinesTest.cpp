// Failures whose lines speak in macOS terms get one more line, once per
// launch, that says in this system's terms what is missing and what to do.
// The lines of old stay as they are.
#include <gtest/gtest.h>

#include "support/Harness.h"

namespace wf::e2e {
namespace {

constexpr double kWait = 20;

TEST(FailureLines, MissingMailDesktopEntryIsNamedWithTheSchemesThatKeepTheirHandler) {
  Session s;
  s.startHelper();
  ASSERT_TRUE(s.waitForLaunch()) << s.stderrText();
  ASSERT_TRUE(s.roundTrip());
  EXPECT_EQ(s.countInStderr("Couldn't set handler for Wrenfold wfdefaults: -10814\n"), 1);
  EXPECT_EQ(s.countInStderr("Couldn't set handler for Wrenfold Keyword Search: -10814\n"), 2);
  EXPECT_EQ(s.countInStderr("Couldn't set handler for Wrenfold Project Search: -10814\n"), 1);
  std::string line = "URL scheme handlers: no desktop entry com.apple.mail.desktop in " + s.home() +
                     "/.local/share/applications, " + s.home() +
                     "/share/applications; wrenfoldlog, wrenfoldkeyword, wfkw, wrenfoldproject "
                     "keep their current handler in " +
                     s.home() + "/.config/mimeapps.list. ";
  EXPECT_EQ(s.countInStderr(line), 1) << s.stderrText();
  EXPECT_EQ(s.countInStderr("URL scheme handlers: "), 1);
}

TEST(FailureLines, MissingPlugInNamesThePathLookedAt) {
  Session s;
  s.removePlugIn();
  s.startHelper();
  ASSERT_EQ(s.waitForExit(kWait), 0);
  EXPECT_EQ(s.countInStderr("Wrenfold is not installed -- Quitting Wrenfold Helper App and "
                            "removing from login items\n"),
            1);
  EXPECT_EQ(s.countInStderr("The Wrenfold plug-in was looked for at " + s.home() +
                            "/Library/Mail/Bundles/Wrenfold.mailbundle and nothing is there"),
            1)
      << s.stderrText();
}

}  // namespace
}  // namespace wf::e2e
