// Spotlight items: the metadata attributes a file carries, as MDItem
// presents them (MDItemCreateWithURL, MDItemCopyAttributeNames,
// MDItemCopyAttributes). On Linux they are the file's extended attributes
// named "user.com.apple.metadata:" + K, each holding one property list,
// presented under the key K (platform/linux/SpotlightXattr.cpp).
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/plist/Value.h"

namespace wf::platform {

class SpotlightItem {
 public:
  // MDItemCreateWithURL: no item when nothing exists at the path.
  static std::optional<SpotlightItem> createWithPath(const std::string& path);
  // The item of a file the caller has just found at `path` (under its
  // update lock): no look-up of its own.
  static SpotlightItem forPresentFile(const std::string& path) { return SpotlightItem(path); }

  const std::string& path() const { return path_; }
  // MDItemCopyAttributeNames: empty when the file has no such attribute
  // (where Spotlight would hand back NULL).
  std::vector<std::string> copyAttributeNames() const;
  // MDItemCopyAttributes for the given names: a dictionary of the values
  // that could be read and decoded; nil when none could.
  Value copyAttributes(const std::vector<std::string>& names) const;
  // All attributes at once (copyAttributes of copyAttributeNames).
  Value copyAllAttributes() const { return copyAttributes(copyAttributeNames()); }

 private:
  explicit SpotlightItem(std::string path) : path_(std::move(path)) {}
  std::string path_;
};

}  // namespace wf::platform
