// Talking to other applications: scripts (NSAppleScript and the
// descriptors of their results) and scripting-bridge objects (SBApplication
// and the objects reached from it). Every call is a synchronous exchange
// with the other application and blocks the main thread until it answers.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace wf::platform {

// NSAppleEventDescriptor: the result of executing a script.
class AppleEventDescriptor {
 public:
  virtual ~AppleEventDescriptor() = default;
  // Items of a list; 0 for anything that is not a list.
  virtual long numberOfItems() const = 0;
  // One-based; nullptr outside 1...numberOfItems(). May raise wf::NSException.
  virtual std::unique_ptr<AppleEventDescriptor> descriptorAtIndex(long index) const = 0;
  // The text of a string; nullopt for anything else.
  virtual std::optional<std::string> stringValue() const = 0;
};

// A descriptor whose whole content is already at hand.
class ValueDescriptor : public AppleEventDescriptor {
 public:
  static ValueDescriptor text(std::string s) {
    ValueDescriptor d;
    d.text_ = std::move(s);
    return d;
  }
  static ValueDescriptor list(std::vector<ValueDescriptor> items) {
    ValueDescriptor d;
    d.items_ = std::move(items);
    return d;
  }
  static ValueDescriptor none() { return {}; }  // neither text nor list

  long numberOfItems() const override { return items_ ? static_cast<long>(items_->size()) : 0; }
  std::unique_ptr<AppleEventDescriptor> descriptorAtIndex(long index) const override {
    if (!items_ || index < 1 || index > numberOfItems()) return nullptr;
    return std::make_unique<ValueDescriptor>((*items_)[static_cast<std::size_t>(index - 1)]);
  }
  std::optional<std::string> stringValue() const override { return text_; }

 private:
  std::optional<std::string> text_;
  std::optional<std::vector<ValueDescriptor>> items_;
};

// NSAppleScript. A script is made for the application it talks to, named by
// its bundle identifier: on the bus that is where it is compiled and run.
class AppleScript {
 public:
  virtual ~AppleScript() = default;
  // compileAndReturnError: false, with the error's description, when the
  // script does not compile against its application.
  virtual bool compile(std::string* errorDescription) = 0;
  // executeAndReturnError: nullptr, with the error's description, on an
  // execution error. Compiles first when not yet compiled.
  virtual std::unique_ptr<AppleEventDescriptor> execute(std::string* errorDescription) = 0;
};

// A scripting-bridge object. Every read is an exchange with the
// application; a failed one raises wf::NSException. A property of another
// type than the one asked for reads as absent (nil, as messaging nil gives).
class SBObject {
 public:
  virtual ~SBObject() = default;
  // The scripting class name ("TheHitListList", "TheHitListFolder").
  virtual std::string className() = 0;
  // A text property; nullopt when absent.
  virtual std::optional<std::string> stringProperty(const std::string& name) = 0;
  // A property holding one object; nullptr when absent.
  virtual std::shared_ptr<SBObject> objectProperty(const std::string& name) = 0;
  // An element array, already concrete (what `get` gives); empty when absent.
  virtual std::vector<std::shared_ptr<SBObject>> elementsProperty(const std::string& name) = 0;
};

// SBApplication: the application's root object.
class SBApplication : public SBObject {
 public:
  // Whether the application runs now (asked afresh on every call).
  virtual bool isRunning() = 0;
};

class Scripting {
 public:
  virtual ~Scripting() = default;
  // initWithSource: a script for the application `bundleIdentifier`.
  // A source of nullopt (text that could not be read) makes a script that
  // never compiles and never runs.
  virtual std::unique_ptr<AppleScript> scriptWithSource(const std::string& bundleIdentifier,
                                                        std::optional<std::string> source) = 0;
  // initWithBundleIdentifier: nullptr when no link can be made (the
  // application is not installed). Running or not does not matter.
  virtual std::shared_ptr<SBApplication> applicationWithBundleIdentifier(
      const std::string& bundleIdentifier) = 0;
};

}  // namespace wf::platform
