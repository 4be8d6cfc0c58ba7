// Test support for login items: an in-memory login-item list, and reading
// the keyed "loginItems" lines out of a fake log.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/LoginItems.h"
#include "platform/UrlHandlers.h"
#include "support/Fakes.h"

namespace wf::test {

class FakeLoginItems : public platform::LoginItems {
 public:
  std::vector<platform::LoginItem> snapshot() override { return items; }
  bool remove(const platform::LoginItem& item) override;
  bool insertLast(const std::string& displayName, const std::string& path,
                  const std::string& bundleIdentifier) override;

  // Adds an entry as the user's session would have it.
  void add(std::string token, std::optional<std::string> name, std::optional<std::string> path,
           std::optional<std::string> identifier);
  std::vector<std::string> tokens() const;

  std::vector<platform::LoginItem> items;
  std::vector<std::string> removed;  // tokens, in the order of removal
  int inserted = 0;
  bool failInsert = false;
};

// The messages of the keyed lines of `key` written by `function`, in order,
// without their "(key)function: line: " head.
std::vector<std::string> keyedMessages(const FakeLog& log, const std::string& key,
                                       const std::string& function);

class FakeUrlHandlers : public platform::UrlHandlers {
 public:
  long setDefaultHandlerForURLScheme(const std::string& scheme,
                                     const std::string& bundleIdentifier) override;
  std::vector<std::pair<std::string, std::string>> calls;
  std::vector<std::pair<std::string, long>> failures;  // scheme -> status
};

}  // namespace wf::test
