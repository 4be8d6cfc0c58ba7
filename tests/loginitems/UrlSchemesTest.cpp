// Mail becomes the handler of the plug-in's four URL schemes at launch.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <memory>

#include "app/WFHelperAppDelegate.h"
#include "platform/linux/MimeAppsUrlHandlers.h"
#include "support/KeyedLines.h"
#include "support/LoginItemFakes.h"

namespace wf {
namespace {

using Calls = std::vector<std::pair<std::string, std::string>>;

class UrlSchemesTest : public ::testing::Test {
 protected:
  void make(platform::UrlHandlers* handlers) {
    platform::Services services = p.services();
    services.urlHandlers = handlers;
    delegate = std::make_unique<WFHelperAppDelegate>(services);
  }
  test::FakePlatform p;
  test::FakeUrlHandlers fake;
  std::unique_ptr<WFHelperAppDelegate> delegate;
};

TEST_F(UrlSchemesTest, FourSchemesInOrderAllToMail) {
  make(&fake);
  delegate->registerWrenfoldUrlSchema();
  EXPECT_EQ(fake.calls, (Calls{{"wrenfoldlog", "com.apple.mail"},
                               {"wrenfoldkeyword", "com.apple.mail"},
                               {"wfkw", "com.apple.mail"},
                               {"wrenfoldproject", "com.apple.mail"}}));
}

TEST_F(UrlSchemesTest, AllSucceedingLogsNothing) {
  make(&fake);
  delegate->registerWrenfoldUrlSchema();
  EXPECT_TRUE(p.log.lines.empty());
}

TEST_F(UrlSchemesTest, ShortKeywordSchemeLogsTheLongOnesText) {
  fake.failures = {{"wfkw", -54}};
  make(&fake);
  delegate->registerWrenfoldUrlSchema();
  EXPECT_EQ(p.log.lines,
            (std::vector<std::string>{"Couldn't set handler for Wrenfold Keyword Search: -54"}));
  EXPECT_EQ(fake.calls.size(), 4u);  // the last one still went
}

TEST_F(UrlSchemesTest, EachFailureHasItsOwnLine) {
  fake.failures = {{"wrenfoldlog", -10814},
                   {"wrenfoldkeyword", -10814},
                   {"wfkw", -10814},
                   {"wrenfoldproject", 12345678901L}};
  make(&fake);
  delegate->registerWrenfoldUrlSchema();
  EXPECT_EQ(p.log.lines, (std::vector<std::string>{
                             "Couldn't set handler for Wrenfold wfdefaults: -10814",
                             "Couldn't set handler for Wrenfold Keyword Search: -10814",
                             "Couldn't set handler for Wrenfold Keyword Search: -10814",
                             "Couldn't set handler for Wrenfold Project Search: 12345678901"}));
}

TEST_F(UrlSchemesTest, WithoutMailInstalledOnTheRealList) {
  platform::MimeAppsUrlHandlers real(p.environment, p.workspace);
  make(&real);
  delegate->registerWrenfoldUrlSchema();
  ASSERT_EQ(p.log.lines.size(), 5u);
  EXPECT_EQ(std::vector<std::string>(p.log.lines.begin(), p.log.lines.begin() + 4),
            (std::vector<std::string>{"Couldn't set handler for Wrenfold wfdefaults: -10814",
                                      "Couldn't set handler for Wrenfold Keyword Search: -10814",
                                      "Couldn't set handler for Wrenfold Keyword Search: -10814",
                                      "Couldn't set handler for Wrenfold Project Search: -10814"}));
  // Then once, in this system's terms, what is missing and what stays.
  const std::string& last = p.log.lines[4];
  EXPECT_EQ(last.rfind("URL scheme handlers: no desktop entry com.apple.mail.desktop in ", 0), 0u)
      << last;
  EXPECT_NE(last.find("; wrenfoldlog, wrenfoldkeyword, wfkw, wrenfoldproject keep their current "
                      "handler in " +
                      p.environment.xdgConfigHome() + "/mimeapps.list. "),
            std::string::npos)
      << last;
  EXPECT_FALSE(test::exists(p.environment.xdgConfigHome() + "/mimeapps.list"));
}

TEST_F(UrlSchemesTest, WithMailInstalledOnTheRealList) {
  p.workspace.installed["com.apple.mail"] = "/usr/share/applications/com.apple.mail.desktop";
  platform::MimeAppsUrlHandlers real(p.environment, p.workspace);
  make(&real);
  delegate->registerWrenfoldUrlSchema();
  EXPECT_TRUE(p.log.lines.empty());
  EXPECT_EQ(test::readFile(p.environment.xdgConfigHome() + "/mimeapps.list"),
            "[Default Applications]\n"
            "x-scheme-handler/wrenfoldlog=com.apple.mail.desktop\n"
            "x-scheme-handler/wrenfoldkeyword=com.apple.mail.desktop\n"
            "x-scheme-handler/wfkw=com.apple.mail.desktop\n"
            "x-scheme-handler/wrenfoldproject=com.apple.mail.desktop\n");
}

TEST_F(UrlSchemesTest, UserChoiceIsUndoneAtLaunch) {
  p.workspace.installed["com.apple.mail"] = "/usr/share/applications/com.apple.mail.desktop";
  std::string config = p.environment.xdgConfigHome();
  mkdir(config.c_str(), 0700);
  test::writeFile(config + "/mimeapps.list",
                  "[Default Applications]\nx-scheme-handler/wfkw=thunderbird.desktop\n");
  platform::MimeAppsUrlHandlers real(p.environment, p.workspace);
  make(&real);
  delegate->registerWrenfoldUrlSchema();
  std::string after = test::readFile(config + "/mimeapps.list");
  EXPECT_NE(after.find("x-scheme-handler/wfkw=com.apple.mail.desktop\n"), std::string::npos);
  EXPECT_EQ(after.find("thunderbird"), std::string::npos);
}

TEST_F(UrlSchemesTest, NoHandlersDoesNothing) {
  make(nullptr);
  delegate->registerWrenfoldUrlSchema();
  EXPECT_TRUE(p.log.lines.empty());
}

}  // namespace
}  // namespace wf
