// A scripting stand-in for unit tests: applications are told installed and
// running by the fake workspace, answer scripts as configured, and count
// what they were asked.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "platform/Scripting.h"
#include "support/Fakes.h"

namespace wf::test {

// A scripting object with a class and properties. Reading a property named
// in `failing` raises, as a failed exchange does.
class FakeSBObject : public platform::SBObject {
 public:
  using Elements = std::vector<std::shared_ptr<platform::SBObject>>;
  using Property = std::variant<std::string, std::shared_ptr<platform::SBObject>, Elements>;

  explicit FakeSBObject(std::string cls = {}) : cls_(std::move(cls)) {}
  std::string className() override;
  std::optional<std::string> stringProperty(const std::string& name) override;
  std::shared_ptr<platform::SBObject> objectProperty(const std::string& name) override;
  Elements elementsProperty(const std::string& name) override;

  std::map<std::string, Property> properties;
  std::vector<std::string> failing;
  int reads = 0;

 private:
  const Property* read(const std::string& name);
  std::string cls_;
};

std::shared_ptr<FakeSBObject> hitListList(const std::string& name);
std::shared_ptr<FakeSBObject> hitListFolder(const std::string& name, FakeSBObject::Elements lists);

// What an application answers to scripts.
struct FakeScriptAnswer {
  bool compiles = true;
  std::optional<std::string> executionError;      // an execution error with this description
  std::vector<std::optional<std::string>> items;  // list items (nullopt: an item without text)
  bool notAList = false;                          // the result is a plain text
  std::optional<long> throwAtItem;                // reading this item raises
};

class FakeScripting;

class FakeSBApplication : public platform::SBApplication {
 public:
  FakeSBApplication(FakeScripting& scripting, std::string id)
      : scripting_(scripting), id_(std::move(id)) {}
  bool isRunning() override;
  std::string className() override { return root->className(); }
  std::optional<std::string> stringProperty(const std::string& n) override {
    return root->stringProperty(n);
  }
  std::shared_ptr<platform::SBObject> objectProperty(const std::string& n) override {
    return root->objectProperty(n);
  }
  std::vector<std::shared_ptr<platform::SBObject>> elementsProperty(const std::string& n) override {
    return root->elementsProperty(n);
  }
  std::shared_ptr<FakeSBObject> root = std::make_shared<FakeSBObject>("application");

 private:
  FakeScripting& scripting_;
  std::string id_;
};

class FakeScripting : public platform::Scripting {
 public:
  explicit FakeScripting(FakeWorkspace& workspace) : workspace(workspace) {}
  std::unique_ptr<platform::AppleScript> scriptWithSource(
      const std::string& id, std::optional<std::string> source) override;
  std::shared_ptr<platform::SBApplication> applicationWithBundleIdentifier(
      const std::string& id) override;

  // Installs the application (a desktop entry) and, optionally, runs it.
  void install(const std::string& id);

  FakeWorkspace& workspace;
  std::map<std::string, FakeScriptAnswer> answers;                         // by identifier
  std::map<std::string, std::shared_ptr<FakeSBApplication>> applications;  // the objects' content
  // Counts and records.
  int scriptsMade = 0, compiles = 0, executions = 0;
  std::vector<std::string> linksMade;                                       // identifiers, in order
  std::vector<std::pair<std::string, std::optional<std::string>>> sources;  // identifier, source
  std::vector<std::string> executedFor;
};

}  // namespace wf::test
