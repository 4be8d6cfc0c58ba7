// Each tool's --help and its manual page name the same options.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "ToolBinaries.h"
#include "ToolTestSupport.h"

namespace wf::test {
namespace {

std::string manPage(const std::string& name) {
  std::ifstream f(std::string(WF_MAN_PAGES) + "/" + name);
  std::ostringstream s;
  s << f.rdbuf();
  return s.str();
}

std::vector<std::string> missingFrom(const std::vector<std::string>& wanted,
                                     const std::vector<std::string>& have) {
  std::vector<std::string> missing;
  for (const std::string& w : wanted)
    if (std::find(have.begin(), have.end(), w) == have.end()) missing.push_back(w);
  return missing;
}

std::string joined(const std::vector<std::string>& v) {
  std::string s;
  for (const std::string& x : v) s += (s.empty() ? "" : " ") + x;
  return s;
}

// All help texts of a tool: the program's, and each subcommand's for openmeta.
std::string helpOf(const std::string& binary, const std::vector<std::string>& subcommands) {
  ToolRun r = runTool(binary, {"--help"});
  EXPECT_EQ(r.status, 0) << binary;
  std::string all = r.out;
  for (const std::string& c : subcommands) {
    ToolRun sub = runTool(binary, {c, "--help"});
    EXPECT_EQ(sub.status, 0) << c;
    all += sub.out;
  }
  return all;
}

void expectSameOptions(const std::string& page, const std::string& help) {
  const std::vector<std::string> inPage = optionsInManPage(manPage(page));
  const std::vector<std::string> inHelp = optionsInText(help);
  ASSERT_FALSE(inPage.empty()) << page << " lists no options";
  EXPECT_EQ(joined(missingFrom(inPage, inHelp)), "") << "in " << page << " but not in --help";
  EXPECT_EQ(joined(missingFrom(inHelp, inPage)), "") << "in --help but not in " << page;
}

TEST(HelpAndManual, PlutilOptionsAgree) {
  expectSameOptions("wf-plutil.1", helpOf(plutilBinary(), {}));
}

TEST(HelpAndManual, DefaultsOptionsAgree) {
  expectSameOptions("wf-defaults.1", helpOf(defaultsBinary(), {}));
}

TEST(HelpAndManual, OpenmetaOptionsAgree) {
  const std::vector<std::string> commands = {
      "get-tags",       "set-tags",        "add-tags",    "clear-tags",
      "common-tags",    "set-common-tags", "finder-tags", "import-finder-tags",
      "get-rating",     "set-rating",      "get",         "set-string",
      "remove",         "get-array",       "set-array",   "add-to-array",
      "register-schema"};
  expectSameOptions("openmeta.1", helpOf(openmetaBinary(), commands));
}

// "defaults" is offered through the alternatives; its manual page goes with it.
TEST(HelpAndManual, DefaultsPageComesWithTheAlternative) {
  EXPECT_NE(manPage("wf-defaults.1").find("wf-defaults, defaults \\-"), std::string::npos);
  std::ifstream f(std::string(WF_PACKAGING) + "/postinst");
  std::ostringstream s;
  s << f.rdbuf();
  EXPECT_NE(s.str().find("--slave /usr/share/man/man1/defaults.1.gz defaults.1.gz "
                         "/usr/share/man/man1/wf-defaults.1.gz"),
            std::string::npos)
      << s.str();
}

// The bash completion offers what the program's help lists.
TEST(HelpAndManual, OpenmetaCompletionOffersCommandsAndOptions) {
  auto complete = [](const std::vector<std::string>& words) {
    std::string script = std::string("source '") + WF_OPENMETA_COMPLETION + "'; COMP_WORDS=(";
    for (const std::string& w : words) script += "'" + w + "' ";
    script += "); COMP_CWORD=" + std::to_string(words.size() - 1) +
              "; _openmeta; printf '%s\\n' \"${COMPREPLY[@]}\"";
    return runTool("/bin/bash", {"--norc", "-c", script});
  };
  ToolRun r = complete({openmetaBinary(), "imp"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "import-finder-tags\n");
  r = complete({openmetaBinary(), "get-tags", "--j"});
  EXPECT_EQ(r.out, "--json\n");
  r = complete({openmetaBinary(), "set-tags", "-"});
  EXPECT_EQ(r.out, "-h\n--help\n-t\n--tag\n");
}

}  // namespace
}  // namespace wf::test
