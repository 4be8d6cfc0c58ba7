// In-memory login items and URL-scheme handlers.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
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

class FakeUrlHandlers : public platform::UrlHandlers {
 public:
  FakeUrlHandlers() = default;
  // Also notes how many lines `log` held at each call.
  explicit FakeUrlHandlers(const FakeLog& log) : log_(&log) {}

  long setDefaultHandlerForURLScheme(const std::string& scheme,
                                     const std::string& bundleIdentifier) override;
  std::vector<std::pair<std::string, std::string>> calls;
  std::vector<std::pair<std::string, long>> failures;  // scheme -> status
  std::vector<std::size_t> linesBefore;

 private:
  const FakeLog* log_ = nullptr;
};

}  // namespace wf::test
