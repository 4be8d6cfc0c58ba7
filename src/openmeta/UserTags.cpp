// User tags: the OpenMeta list, its time stamp, and its mirror in the
// Finder tags, which wins once the two have been merged on a file.
#include <array>
#include <set>

#include "openmeta/AttributeUndo.h"
#include "openmeta/AttributeValue.h"
#include "openmeta/OpenMeta.h"
#include "platform/ExtendedAttributes.h"
#include "platform/foundation/Strings.h"
#include "platform/plist/PropertyList.h"

namespace wf {

using openmeta::AttributeUndo;
using openmeta::metaDataAttribute;
using openmeta::storeError;

namespace {

// The strings of a tag list; anything else (nil, other elements) is left out.
std::vector<std::string> stringsOf(const Value& list) {
  std::vector<std::string> out;
  if (!list.isArray()) return out;
  for (const Value& v : list.asArray())
    if (v.isString()) out.push_back(v.asString());
  return out;
}

Array concatenated(const Value& a, const Value& b) {
  Array out;
  if (a.isArray()) out = a.asArray();
  if (b.isArray()) out.insert(out.end(), b.asArray().begin(), b.asArray().end());
  return out;
}

bool isEmptyList(const Value& list) { return list.isNil() || list.count() == 0; }

// The merge flag as getXAttr reads it (nil when missing, unreadable or no
// property list). Nearly every flag is the one this store wrote, `true` in
// one of the two formats: those bytes are recognised without parsing them.
Value readSyncFlag(const std::string& path) {
  if (!openmeta::hasFileSystemRepresentation(path)) return Value();
  static const std::string kName =
      std::string(OpenMeta::kAttributeNamespace) + OpenMeta::kSyncDoneName;
  auto bytes = openmeta::attributes().get(path, kName, OpenMeta::kMaxValueSize);
  if (!bytes || bytes->empty()) return Value();
  static const std::array<std::string, 2> kWrittenTrue = [] {
    std::array<std::string, 2> out;
    plist::serialize(Value(true), plist::Format::XML, out[0]);
    plist::serialize(Value(true), plist::Format::Binary, out[1]);
    return out;
  }();
  if (*bytes == kWrittenTrue[0] || *bytes == kWrittenTrue[1]) return Value(true);
  return openmeta::decodeAttributeValue(*bytes, nullptr);
}

// Restores the authentication-dialog flag however the merge ends.
class DialogsSuppressed {
 public:
  DialogsSuppressed() : saved_(gAllowOpenMetaAuthenticationDialogs) {
    gAllowOpenMetaAuthenticationDialogs = false;
  }
  ~DialogsSuppressed() { gAllowOpenMetaAuthenticationDialogs = saved_; }
  DialogsSuppressed(const DialogsSuppressed&) = delete;
  DialogsSuppressed& operator=(const DialogsSuppressed&) = delete;

 private:
  bool saved_;
};

// Keeps the attributes a tag write may change: the time, the file
// manager's list, the OpenMeta list and the merge flag.
OptError rememberTagAttributes(AttributeUndo& undo, const std::string& path) {
  for (const std::string& name :
       {metaDataAttribute(OpenMeta::kUserTagTimeKey), std::string(OpenMeta::kFinderTagsAttribute),
        metaDataAttribute(OpenMeta::kUserTagsKey),
        std::string(OpenMeta::kAttributeNamespace) + OpenMeta::kSyncDoneName})
    if (OptError e = undo.remember(path, name)) return e;
  return std::nullopt;
}

// The tag time, the file manager's tags and the OpenMeta list, all or none:
// every value is encoded and checked before the first write, and a failed
// write puts back what the others changed. Only what is replaced before the
// last write is kept, and on a file that never had tags the writes
// themselves tell that nothing was there: no read precedes them.
OptError writeUserTags(const Value& tags, const Value& finderTags, const std::string& path,
                       Date date) {
  std::string list, time;
  OptError e;
  if (!openmeta::encodeAttributeValue(tags, list, &e)) return e;
  if (list.size() > OpenMeta::kMaxValueSize)
    return storeError(OpenMeta::kTooBigError, OpenMeta::kMetaDataTooBig);
  if (!openmeta::hasFileSystemRepresentation(path))
    return storeError(OpenMeta::kParameterError, OpenMeta::kParameterErrorText);
  if (!openmeta::encodeAttributeValue(Value(date), time, &e)) return e;
  const bool mirrored = OpenMeta::MavericksOrLater();
  if (mirrored && !finderTags.isNil() && !OpenMeta::validateAsArrayOfStrings(finderTags))
    return storeError(OpenMeta::kParameterError, OpenMeta::kParameterErrorText);
  const std::string joined =
      mirrored && !finderTags.isNil() ? openmeta::joinedFinderTags(finderTags.asArray()) : "";
  const std::string mirror = OpenMeta::kFinderTagsAttribute;

  AttributeUndo undo;
  bool untagged = false;
  e = undo.write(path, metaDataAttribute(OpenMeta::kUserTagTimeKey), time, true, &untagged);
  if (!e && mirrored)
    e = joined.empty() ? undo.remove(path, mirror) : undo.write(path, mirror, joined, untagged);
  if (!e) {
    // A write that fails changes nothing: the last one needs nothing kept.
    auto written =
        openmeta::attributes().set(path, metaDataAttribute(OpenMeta::kUserTagsKey), list);
    if (!written) e = openmeta::posixError(written.error().errnoValue());
  }
  if (e) undo.restore();
  return e;
}

// setUserTags, putting back what `undo` kept when it fails.
OptError setUserTagsOrUndo(const Value& tags, const std::string& path, const AttributeUndo& undo) {
  OptError e = OpenMeta::setUserTags(tags, path);
  if (e) undo.restore();
  return e;
}

}  // namespace

OptError OpenMeta::setUserTags(const Value& tags, const std::string& path) {
  return setUserTags(tags, path, openmeta::currentDate());
}

OptError OpenMeta::setUserTags(const Value& tags, const std::string& path, Date date) {
  if (!validateAsArrayOfStrings(tags)) return storeError(kParameterError, kSyncParameterErrorText);
  const Value normalised = removeDuplicateTags(tags);
  return writeUserTags(normalised, normalised, path, date);
}

OptError OpenMeta::setUserTags(const Value& tags, const Value& finderTags,
                               const std::string& path) {
  return setUserTags(tags, finderTags, path, openmeta::currentDate());
}

OptError OpenMeta::setUserTags(const Value& tags, const Value& finderTags, const std::string& path,
                               Date date) {
  if (!validateAsArrayOfStrings(tags)) return storeError(kParameterError, kSyncParameterErrorText);
  return writeUserTags(removeDuplicateTags(tags), removeDuplicateTags(finderTags), path, date);
}

Value OpenMeta::getUserTags(const std::string& path, OptError* error) {
  if (!MavericksOrLater()) return getNSArrayMetaData(kUserTagsKey, path, error);

  Value finderTags = getAppleTags(path, error);
  const Value openMetaTags = getNSArrayMetaData(kUserTagsKey, path, error);
  if (isEmptyList(finderTags) && isEmptyList(openMetaTags)) return Value();

  bool synchronised;
  const Value flag = readSyncFlag(path);
  if (flag.isNil()) {
    (void)setXAttr(Value(true), kSyncDoneName, path);
    synchronised = false;
  } else {
    synchronised = flag.boolValue();
  }

  if (finderTags == openMetaTags) return finderTags;

  DialogsSuppressed suppressed;
  if (synchronised) {
    // The file manager is where tags are edited now: its list wins. A nil
    // list is refused by the array setter, so the OpenMeta list then stays.
    (void)setNSArrayMetaData(finderTags, kUserTagsKey, path);
    return finderTags;
  }
  // First meeting of the two lists on this file: keep the union in both.
  Value merged = removeDuplicateTags(Value(concatenated(finderTags, openMetaTags)));
  if (merged != finderTags) (void)setAppleTags(merged, path);
  if (merged != openMetaTags) (void)setNSArrayMetaData(merged, kUserTagsKey, path);
  return merged;
}

OptError OpenMeta::clearUserTags(const Value& tags, const std::string& path) {
  if (!validateAsArrayOfStrings(tags)) return storeError(kParameterError, kParameterErrorText);
  // Reading the tags may merge the two lists; a failed write undoes that too.
  AttributeUndo undo;
  if (OptError e = rememberTagAttributes(undo, path)) return e;
  OptError readError;
  const Value current = getUserTags(path, &readError);
  if (readError) return readError;

  std::set<std::string, std::less<>> removed;
  for (const Value& tag : tags.asArray()) removed.insert(ns::lowercaseString(tag.asString()));
  Array remaining;
  std::size_t read = 0;
  if (current.isArray()) {
    read = current.count();
    for (const Value& tag : current.asArray()) {
      if (tag.isString() && removed.count(ns::lowercaseString(tag.asString()))) continue;
      remaining.push_back(tag);
    }
  }
  if (remaining.size() < read) return setUserTagsOrUndo(Value(std::move(remaining)), path, undo);
  return std::nullopt;
}

OptError OpenMeta::addUserTags(const Value& tags, const std::string& path) {
  if (!validateAsArrayOfStrings(tags)) return storeError(kParameterError, kParameterErrorText);
  // Reading the tags may merge the two lists; a failed write undoes that too.
  AttributeUndo undo;
  if (OptError e = rememberTagAttributes(undo, path)) return e;
  OptError readError;
  const Value current = getUserTags(path, &readError);
  if (readError) return readError;
  const Value merged = removeDuplicateTags(Value(concatenated(current, tags)));
  if (merged != current) return setUserTagsOrUndo(merged, path, undo);
  return std::nullopt;
}

Value OpenMeta::getCommonUserTags(const std::vector<std::string>& paths, OptError* error) {
  if (paths.size() == 1) return getUserTags(paths.front(), error);

  TagTable table;
  Value hint;
  if (paths.empty()) return orderedArrayWithDict(table, hint);
  for (std::size_t i = 0; i < paths.size(); ++i) {
    OptError readError;
    const Value tags = getUserTags(paths[i], &readError);
    if (isEmptyList(tags) || readError) {
      if (error) *error = readError;
      return Value(Array());
    }
    const std::vector<std::string> names = stringsOf(tags);
    if (i == 0) {
      hint = tags;
      for (const std::string& name : names) table.insert_or_assign(ns::lowercaseString(name), name);
    } else {
      std::set<std::string, std::less<>> keys;
      for (const std::string& name : names) keys.insert(ns::lowercaseString(name));
      std::erase_if(table, [&](const auto& entry) { return !keys.count(entry.first); });
    }
    if (table.empty()) return Value(Array());
  }
  return orderedArrayWithDict(table, hint);
}

OptError OpenMeta::setCommonUserTags(const std::vector<std::string>& paths,
                                     const Value& originalCommonTags, const Value& replaceWith) {
  if (originalCommonTags.count() == 0 && replaceWith.count() == 0) return std::nullopt;

  std::set<std::string, std::less<>> originalKeys;
  for (const std::string& tag : stringsOf(originalCommonTags))
    originalKeys.insert(ns::lowercaseString(tag));

  OptError lastError;
  for (const std::string& path : paths) {
    OptError ignored;
    const Value tags = getUserTags(path, &ignored);
    // A missing list never equals the replacement, even a missing one.
    if (!tags.isNil() && tags == replaceWith) continue;

    Array updated;
    if (tags.isArray()) {
      for (const Value& tag : tags.asArray()) {
        if (tag.isString() && originalKeys.count(ns::lowercaseString(tag.asString()))) continue;
        updated.push_back(tag);
      }
    }
    if (replaceWith.isArray())
      updated.insert(updated.end(), replaceWith.asArray().begin(), replaceWith.asArray().end());
    if (OptError e = setUserTags(Value(std::move(updated)), path)) lastError = std::move(e);
  }
  return lastError;
}

}  // namespace wf
