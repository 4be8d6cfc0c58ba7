#include "FakeScripting.h"

#include <algorithm>

namespace wf::test {

const FakeSBObject::Property* FakeSBObject::read(const std::string& name) {
  ++reads;
  if (std::find(failing.begin(), failing.end(), name) != failing.end())
    throw NSException("reading " + name + " failed");
  auto it = properties.find(name);
  return it == properties.end() ? nullptr : &it->second;
}

std::string FakeSBObject::className() {
  if (std::find(failing.begin(), failing.end(), "Class") != failing.end())
    throw NSException("reading Class failed");
  return cls_;
}

std::optional<std::string> FakeSBObject::stringProperty(const std::string& name) {
  auto* p = read(name);
  if (!p || !std::holds_alternative<std::string>(*p)) return std::nullopt;
  return std::get<std::string>(*p);
}

std::shared_ptr<platform::SBObject> FakeSBObject::objectProperty(const std::string& name) {
  auto* p = read(name);
  if (!p || !std::holds_alternative<std::shared_ptr<platform::SBObject>>(*p)) return nullptr;
  return std::get<std::shared_ptr<platform::SBObject>>(*p);
}

FakeSBObject::Elements FakeSBObject::elementsProperty(const std::string& name) {
  auto* p = read(name);
  if (!p || !std::holds_alternative<Elements>(*p)) return {};
  return std::get<Elements>(*p);
}

std::shared_ptr<FakeSBObject> hitListList(const std::string& name) {
  auto list = std::make_shared<FakeSBObject>("TheHitListList");
  list->properties["name"] = name;
  return list;
}

std::shared_ptr<FakeSBObject> hitListFolder(const std::string& name, FakeSBObject::Elements lists) {
  auto folder = std::make_shared<FakeSBObject>("TheHitListFolder");
  folder->properties["name"] = name;
  folder->properties["lists"] = std::move(lists);
  return folder;
}

bool FakeSBApplication::isRunning() {
  const auto& running = scripting_.workspace.running;
  return std::find(running.begin(), running.end(), id_) != running.end();
}

namespace {

class FakeScript : public platform::AppleScript {
 public:
  FakeScript(FakeScripting& s, std::string id, std::optional<std::string> source)
      : s_(s), id_(std::move(id)), source_(std::move(source)) {}

  bool compile(std::string* error) override {
    ++s_.compiles;
    if (source_ && answer().compiles && running()) return true;
    if (error) *error = "Expected end of line but found identifier.";
    return false;
  }

  std::unique_ptr<platform::AppleEventDescriptor> execute(std::string* error) override {
    ++s_.executions;
    s_.executedFor.push_back(id_);
    const FakeScriptAnswer& a = answer();
    if (!source_ || !running() || a.executionError) {
      if (error) *error = a.executionError ? *a.executionError : "Application isn't running.";
      return nullptr;
    }
    if (a.notAList)
      return std::make_unique<platform::ValueDescriptor>(platform::ValueDescriptor::text("x"));
    return std::make_unique<Result>(a);
  }

 private:
  // A list that can raise when one of its items is read.
  class Result : public platform::AppleEventDescriptor {
   public:
    explicit Result(FakeScriptAnswer a) : a_(std::move(a)) {}
    long numberOfItems() const override { return static_cast<long>(a_.items.size()); }
    std::unique_ptr<platform::AppleEventDescriptor> descriptorAtIndex(long i) const override {
      if (a_.throwAtItem && *a_.throwAtItem == i) throw NSException("connection invalid");
      if (i < 1 || i > numberOfItems()) return nullptr;
      const auto& item = a_.items[static_cast<std::size_t>(i - 1)];
      return std::make_unique<platform::ValueDescriptor>(
          item ? platform::ValueDescriptor::text(*item) : platform::ValueDescriptor::none());
    }
    std::optional<std::string> stringValue() const override { return std::nullopt; }

   private:
    FakeScriptAnswer a_;
  };

  const FakeScriptAnswer& answer() { return s_.answers[id_]; }
  bool running() {
    const auto& r = s_.workspace.running;
    return std::find(r.begin(), r.end(), id_) != r.end();
  }

  FakeScripting& s_;
  std::string id_;
  std::optional<std::string> source_;
};

}  // namespace

std::unique_ptr<platform::AppleScript> FakeScripting::scriptWithSource(
    const std::string& id, std::optional<std::string> source) {
  ++scriptsMade;
  sources.emplace_back(id, source);
  return std::make_unique<FakeScript>(*this, id, std::move(source));
}

std::shared_ptr<platform::SBApplication> FakeScripting::applicationWithBundleIdentifier(
    const std::string& id) {
  if (!workspace.desktopEntryPathForIdentifier(id)) return nullptr;
  linksMade.push_back(id);
  auto app = std::make_shared<FakeSBApplication>(*this, id);
  // The application's content, shared by every link to it.
  if (auto it = applications.find(id); it != applications.end()) app->root = it->second->root;
  return app;
}

void FakeScripting::install(const std::string& id) {
  workspace.installed[id] = workspace.installed.count(id)
                                ? workspace.installed[id]
                                : "/usr/share/applications/" + id + ".desktop";
  if (!applications.count(id)) applications[id] = std::make_shared<FakeSBApplication>(*this, id);
}

}  // namespace wf::test
