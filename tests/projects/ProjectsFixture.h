// A delegate on fake platform services with a fake scripting layer, and
// helpers to read what the imports logged and wrote.
#pragma once

#include <glib.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <string>
#include <vector>

#include "FakeScripting.h"
#include "app/WFHelperAppDelegate.h"
#include "platform/plist/PropertyList.h"
#include "projects/ProjectImportState.h"
#include "support/Fakes.h"

namespace wf::test {

class ProjectsTest : public ::testing::Test {
 protected:
  ProjectsTest() : scripting(platform.workspace), delegate(services()) {}

  platform::Services services() {
    auto s = platform.services();
    s.scripting = &scripting;
    return s;
  }

  // A plug-in preference given on the command line, as "-WFkey value".
  void setPreference(const std::string& key, const std::string& value) {
    platform.defaults.arguments["WF" + key] = Value(value);
  }
  void logAll() {
    for (const char* key : {"logExternalProjects", "logOmniFocusProjects", "logFinderTags"})
      setPreference(key, "YES");
  }

  // The messages of keyed lines of one key from one method, in order.
  std::vector<std::string> keyed(const std::string& key, const std::string& method) const {
    const std::string head = "(" + key + ")-[WFHelperAppDelegate " + method + "]: ";
    std::vector<std::string> out;
    for (const auto& line : platform.log.lines) {
      if (line.rfind(head, 0) != 0) continue;
      auto rest = line.substr(head.size());
      auto colon = rest.find(": ");
      out.push_back(colon == std::string::npos ? rest : rest.substr(colon + 2));
    }
    return out;
  }
  static std::size_t count(const std::vector<std::string>& lines, const std::string& line) {
    std::size_t n = 0;
    for (const auto& l : lines) n += l == line;
    return n;
  }
  static bool contains(const std::vector<std::string>& lines, const std::string& line) {
    return count(lines, line) > 0;
  }
  std::size_t console(const std::string& line) const { return platform.log.count(line); }

  std::string projectsFolder() const { return platform.library() + "/Mail/Ardel/ExternalProjects"; }
  std::string listPath(const std::string& name) const { return projectsFolder() + "/" + name; }
  Value readList(const std::string& name) const {
    return plist::arrayWithContentsOfFile(listPath(name));
  }
  void writeList(const std::string& name, const Value& v) {
    g_mkdir_with_parents(projectsFolder().c_str(), 0755);
    ASSERT_TRUE(plist::writeToFile(v, listPath(name), true));
  }
  // Identity of the file: an atomic write replaces it by another inode.
  ino_t inode(const std::string& name) const {
    struct stat st {};
    if (stat(listPath(name).c_str(), &st) != 0) return 0;
    return st.st_ino;
  }
  static Value strings(std::initializer_list<const char*> names) {
    Array a;
    for (const char* n : names) a.emplace_back(n);
    return Value(std::move(a));
  }

  void run(const std::string& id, std::vector<std::optional<std::string>> items) {
    scripting.install(id);
    scripting.answers[id].items = std::move(items);
    if (std::find(platform.workspace.running.begin(), platform.workspace.running.end(), id) ==
        platform.workspace.running.end())
      platform.workspace.running.push_back(id);
  }
  void quit(const std::string& id) {
    auto& r = platform.workspace.running;
    r.erase(std::remove(r.begin(), r.end(), id), r.end());
  }

  FakePlatform platform;
  FakeScripting scripting;
  WFHelperAppDelegate delegate;
};

}  // namespace wf::test
