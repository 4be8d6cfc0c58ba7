#include "app/LoginItems.h"

#include <optional>
#include <string>

#include "app/WFHelperAppDelegate.h"
#include "platform/LogKeys.h"
#include "platform/LoginItems.h"

namespace wf {
namespace {

Value orNil(const std::optional<std::string>& s) { return s ? Value(*s) : Value(); }

// The list and the helper's identity, or nothing when the application
// object is not set up.
struct Context {
  platform::LoginItems* list = nullptr;
  std::string bundlePath;
  std::string bundleIdentifier;
};

std::optional<Context> loginItemsContext() {
  WFHelperAppDelegate* delegate = WFHelperAppDelegate::shared();
  if (!delegate) return std::nullopt;
  platform::Services& services = delegate->services();
  if (!services.loginItems) return std::nullopt;
  return Context{services.loginItems, services.environment->bundlePath(),
                 services.environment->bundleIdentifier()};
}

}  // namespace

bool addWrenfoldHelperToLoginItems() {
  std::optional<Context> context = loginItemsContext();
  if (!context) return false;
  bool alreadyPresent = false;
  Array descriptions;
  for (const platform::LoginItem& item : context->list->snapshot()) {
    // An entry that does not resolve may be on its way back (a moved
    // program, an unmounted disk): it is neither described, kept nor removed.
    if (!item.resolvedPath) continue;
    descriptions.push_back(Value(format("%@ (%@) path: %@", orNil(item.displayName),
                                        orNil(item.bundleIdentifier), *item.resolvedPath)));
    if (*item.resolvedPath == context->bundlePath) {
      alreadyPresent = true;
    } else if (item.bundleIdentifier && *item.bundleIdentifier == context->bundleIdentifier) {
      WFLogKeyedFree(kLogLoginItems,
                     "Removing extraneous WrenfoldHelper From LoginItems (found item with same "
                     "identifier)");
      context->list->remove(item);
    }
  }
  WFLogKeyedFree(kLogLoginItems, "Found items: %@", Value(std::move(descriptions)));
  if (alreadyPresent) {
    WFLogKeyedFree(kLogLoginItems, "Not changing LoginItems");
    return false;
  }
  WFLogKeyedFree(kLogLoginItems, "Adding WrenfoldHelper To LoginItems");
  return context->list->insertLast("Wrenfold Helper", context->bundlePath,
                                   context->bundleIdentifier);
}

bool removeWrenfoldHelperFromLoginItems() {
  std::optional<Context> context = loginItemsContext();
  if (!context) return false;
  bool removed = false;
  std::vector<platform::LoginItem> items = context->list->snapshot();
  for (auto it = items.rbegin(); it != items.rend(); ++it) {
    if (!it->resolvedPath) continue;
    if (*it->resolvedPath == context->bundlePath) {
      WFLogKeyedFree(kLogLoginItems,
                     "Removing WrenfoldHelper From LoginItems (found item with same path)");
      context->list->remove(*it);
      removed = true;
    } else if (it->bundleIdentifier && *it->bundleIdentifier == context->bundleIdentifier) {
      WFLogKeyedFree(kLogLoginItems,
                     "Removing WrenfoldHelper From LoginItems (found item with same identifier)");
      context->list->remove(*it);
      removed = true;
    }
  }
  return removed;
}

}  // namespace wf
