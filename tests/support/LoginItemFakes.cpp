#include "support/LoginItemFakes.h"

#include <algorithm>

namespace wf::test {

bool FakeLoginItems::remove(const platform::LoginItem& item) {
  auto it = std::find_if(items.begin(), items.end(),
                         [&](const platform::LoginItem& i) { return i.token == item.token; });
  if (it == items.end()) return false;
  items.erase(it);
  removed.push_back(item.token);
  return true;
}

bool FakeLoginItems::insertLast(const std::string& displayName, const std::string& path,
                                const std::string& bundleIdentifier) {
  if (failInsert) return false;
  ++inserted;
  items.push_back({"inserted-" + std::to_string(inserted), displayName, path, bundleIdentifier});
  return true;
}

void FakeLoginItems::add(std::string token, std::optional<std::string> name,
                         std::optional<std::string> path, std::optional<std::string> identifier) {
  items.push_back({std::move(token), std::move(name), std::move(path), std::move(identifier)});
}

std::vector<std::string> FakeLoginItems::tokens() const {
  std::vector<std::string> out;
  for (const auto& i : items) out.push_back(i.token);
  return out;
}

long FakeUrlHandlers::setDefaultHandlerForURLScheme(const std::string& scheme,
                                                    const std::string& bundleIdentifier) {
  calls.emplace_back(scheme, bundleIdentifier);
  if (log_) linesBefore.push_back(log_->lines.size());
  for (const auto& [s, status] : failures)
    if (s == scheme) return status;
  return 0;
}

}  // namespace wf::test
