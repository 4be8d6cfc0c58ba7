// The Finder's tag list, reduced to name and colour, mirrored into
// "FinderTags.plist"; the plug-in is told whenever the copy changes.
#include "app/WFHelperAppDelegate.h"
#include "paths/Paths.h"
#include "platform/LogKeys.h"
#include "platform/base/Files.h"
#include "platform/plist/PropertyList.h"
#include "projects/ListFile.h"

namespace wf {
namespace {

constexpr const char* kFinderTagsKeyPath = "values.FinderTagDict.value.FinderTags";
constexpr int kFinderTagSource = 2;  // marks an entry as imported from the Finder

std::optional<std::string> contentsOfFile(const std::optional<std::string>& path) {
  if (!path) return std::nullopt;
  // A FIFO or a link to a device at the name must neither block nor fill
  // memory: only a regular file of a plausible size is read.
  auto bytes = sys::readRegularFile(*path, sys::kMaxPropertyListFileBytes);
  if (!bytes) return std::nullopt;
  return std::move(bytes.value());
}

// Fast enumeration of whatever the key path gave: nothing for nil, the
// elements of an array, the keys of a dictionary. Anything else cannot be
// enumerated and raises, as it does in Foundation.
Array enumerated(const Value& v) {
  if (v.isNil()) return {};
  if (v.isArray()) return v.asArray();
  if (v.isDictionary()) {
    Array keys;
    for (const auto& [key, value] : v.asDictionary()) keys.emplace_back(key);
    return keys;
  }
  throw NSException("-[" + describe(v) +
                    " countByEnumeratingWithState:objects:count:]: "
                    "unrecognized selector sent to instance");
}

// One imported tag. The tag is not guarded: an element that is no
// dictionary or has no name raises and ends the import.
Value importedTag(const Value& tag) {
  if (!tag.isDictionary())
    throw NSException("-[" + describe(tag) +
                      " objectForKey:]: unrecognized selector sent to instance");
  const Value colour = tag.get("l");
  if (!colour.isNil() && !colour.isNumber() && !colour.isString())
    throw NSException("-[" + describe(colour) +
                      " integerValue]: unrecognized selector sent to instance");
  const Value name = tag.get("n");
  if (name.isNil())
    throw NSException(
        "*** -[__NSPlaceholderDictionary initWithObjects:forKeys:count:]: attempt to insert nil "
        "object from objects[0]");
  const auto colorNum = static_cast<unsigned long long>(colour.integerValue());
  return Value(Dictionary{
      {"title", name}, {"colorNum", Value(colorNum)}, {"source", Value(kFinderTagSource)}});
}

}  // namespace

void WFHelperAppDelegate::_fetchFinderTags() {
  WFLogKeyed(kLogFinderTags, "fetch finder tags");
  const auto data = contentsOfFile(finderSideBarListsPath());
  if (!data) return;
  const Value root = plist::parse(*data);
  if (root.isNil()) return;

  const Value finderTags = root.valueForKeyPath(kFinderTagsKeyPath);
  WFLogKeyed(kLogFinderTags, "finderKeywordsDictionaries %@", finderTags);

  Array tags;
  for (const Value& tag : enumerated(finderTags)) {
    // Entries carrying "v" are not the user's tags, whatever its value.
    if (tag.isDictionary() && tag.find("v")) continue;
    tags.push_back(importedTag(tag));
  }
  const Value list(std::move(tags));
  WFLogKeyed(kLogFinderTags, "wfFinderKeywordArray %@", list);

  const auto path = externalProjectFilePath(kFinderTagsFile);
  const Value current = readListFile(path);
  if (!listFileDiffers(current, list)) return;
  WFLogKeyed(kLogFinderTags, "Recording changed Finder Tags current %@ -- new %@", current, list);
  writeListFile(path, list);
  // Announced whether or not the write succeeded.
  services().notifications->post("WrenfoldFinderTagsWereModified");
}

}  // namespace wf
