// The tag import of one changed message file: either a stub for the
// plug-in (another application tagged the message) or the plug-in's own
// metadata copied from the message's trailer into its attributes.
#include <cmath>
#include <initializer_list>
#include <string>
#include <string_view>

#include "app/WFHelperAppDelegate.h"
#include "import/EmlxTrailer.h"
#include "import/ImportRecord.h"
#include "import/OpenMetaFolderWatcher.h"
#include "import/StringCompare.h"
#include "openmeta/OpenMeta.h"
#include "paths/Paths.h"
#include "platform/LogKeys.h"
#include "platform/Spotlight.h"
#include "platform/foundation/FileManager.h"
#include "platform/foundation/Strings.h"
#include "platform/plist/PropertyList.h"
#include "prefs/PreferenceKeys.h"

namespace wf {

namespace {

// The first of `names` present in the attributes, else nil.
Value firstPresent(const Value& attributes, std::initializer_list<std::string_view> names) {
  for (auto name : names)
    if (const Value* v = attributes.find(name)) return *v;
  return {};
}

// -[NSDate compare:] of the OpenMeta tag time with the plug-in's stamp: 0
// when there is no tag time. A time that is no date cannot be ordered and
// counts as the same time, so it never selects the OpenMeta way.
long compareTimes(const Value& tagTime, const Value& stamp) {
  if (!tagTime.isDate() || !stamp.isDate()) return 0;
  double a = tagTime.asDate().seconds, b = stamp.asDate().seconds;
  return a < b ? -1 : (a > b ? 1 : 0);
}

// The stub is named after the message; a name that could leave the stub
// folder (or name the folder itself) gets no stub.
bool isSafeStubName(const std::string& name) {
  return !name.empty() && name != "." && name != ".." &&
         name.find_first_of(std::string_view("/\0", 2)) == std::string::npos;
}

bool isEqualString(const Value& a, const Value& b) {
  return a.isString() && b.isString() && a.asString() == b.asString();
}

// The plug-in's values (its "wrenfold" dictionary) that differ from the
// file's metadata, under the keys they are written to.
Dictionary valuesToImport(const Value& wrenfold, const Value& attributes) {
  Dictionary result;
  if (const Value* keywords = wrenfold.find("wrenfoldKeyWords")) {
    if (!isEqualToArray(*keywords, attributes.get("kMDItemKeywords"), 0)) {
      for (const char* key :
           {"kMDItemKeywords", "kMDItemOMUserTags", "kOMUserTags", "kMDItemUserTags"})
        result.insert_or_assign(key, *keywords);
    }
  }
  if (const Value* project = wrenfold.find("wrenfoldProject")) {
    Value projects = project->isString() ? Value(Array{*project}) : *project;
    if (!isEqualToArray(projects, attributes.get("kMDItemProjects"), 0))
      result.insert_or_assign("kMDItemProjects", projects);
  }
  if (const Value* priority = wrenfold.find("wrenfoldPriority")) {
    if (*priority != attributes.get("kMDItemStarRating"))
      result.insert_or_assign("kMDItemStarRating", *priority);
  }
  if (const Value* note = wrenfold.find("wrenfoldAnnotation")) {
    if (!isEqualString(*note, attributes.get("kMDItemComment")))
      result.insert_or_assign("kMDItemComment", *note);
  }
  if (const Value* due = wrenfold.find("wrenfoldDueDate")) {
    Value dueDates(Array{*due});
    if (dueDates != attributes.get("wrenfoldItemDueDate"))
      result.insert_or_assign("wrenfoldItemDueDate", dueDates);
  }
  return result;
}

// The stamp that closes an import: now, unless the tag time handed over is
// not earlier (another computer's clock ahead of this one). Then the next
// whole second after the tag time, so that the stamp is still later than
// it once stored (a stored date keeps whole seconds) and the same tags do
// not come back as a new stub at every change.
Value finalStamp(double now, const Value& tagTime) {
  if (tagTime.isDate() && !(now > tagTime.asDate().seconds)) {
    double later = std::floor(tagTime.asDate().seconds) + 1.0;
    if (std::isfinite(later) && later > tagTime.asDate().seconds) return Value(Date{later});
  }
  return Value(Date{now});
}

// Whether an earlier import left these same values unkept on this file
// and nobody has changed the file's metadata since.
bool leftUnkeptBefore(const std::string& path, const Value& wrenfold, const Value& attributes) {
  std::optional<ImportRecord> record = readImportRecord(path);
  return record && !record->isOpen() && record->holdsUnkeptValues() &&
         record->unkeptValues == fingerprint(wrenfold) &&
         record->leftAttributes == fingerprint(attributes);
}

// The attributes as they were, with the written keys as the store now
// holds them.
Value keptValues(const std::string& path, const Dictionary& written, const Value& attributes) {
  Dictionary kept = attributes.isDictionary() ? attributes.asDictionary() : Dictionary{};
  for (const auto& entry : written) {
    Value stored = OpenMeta::getXAttrMetaData(entry.first, path, nullptr);
    if (stored.isNil())
      kept.erase(entry.first);
    else
      kept.insert_or_assign(entry.first, std::move(stored));
  }
  return Value(std::move(kept));
}

Value keysOf(const Dictionary& d) {
  Array keys;
  for (const auto& entry : d) keys.emplace_back(entry.first);
  return Value(std::move(keys));
}

}  // namespace

void WFHelperAppDelegate::importWrenfoldMetadataAtPath(const std::string& path,
                                                       const Value& existingAttributes) {
  importWrenfoldMetadataAtPath(path, existingAttributes, -1, 0);
}

void WFHelperAppDelegate::importWrenfoldMetadataAtPath(const std::string& path,
                                                       const Value& existingAttributes,
                                                       int openMessage, std::uint64_t messageSize) {
  Value stampBefore =
      firstPresent(existingAttributes, {kTimeStampKey, ":EA:kMDItemWrenfoldTimeStamp"});
  Value stamp = stampBefore.isNil() ? Value(Date::distantPast()) : stampBefore;
  Value tagTime =
      firstPresent(existingAttributes, {"kMDItemOMUserTagTime", ":EA:kMDItemOMUserTagTime"});
  long order = compareTimes(tagTime, stamp);
  WFLogKeyed(kLogOpenMeta, "OpenMeta Importing... TimeStamps OM: %@ WF: %@ order: %ld (%ld)",
             tagTime, stamp, order, 1L);

  Value tags = firstPresent(existingAttributes, {"kMDItemOMUserTags", "kOMUserTags",
                                                 ":EA:kMDItemOMUserTags", ":EA:kOMUserTags"});
  if (tags.isNil()) tags = Value(Array{});

  if (defaultForKey(kRecognizeOpenMetaTags).boolValue() && !tagTime.isNil() && order == 1) {
    // Another application tagged the message: the plug-in applies the
    // tags itself, from the stub.
    std::string libraryID = ns::stringByDeletingPathExtension(ns::lastPathComponent(path));
    Value stub(
        Dictionary{{"LibraryID", Value(libraryID)}, {"FilePath", Value(path)}, {"Tags", tags}});
    std::optional<std::string> folder = WFopenMetaPathCreateIfNeeded();
    Value stubPath;
    if (folder) {
      if (!FileManager::defaultManager().fileExistsAtPath(*folder))
        FileManager::defaultManager().createDirectoryAtPath(*folder, true);
      stubPath = Value(ns::stringByAppendingPathComponent(*folder, libraryID));
      if (isSafeStubName(libraryID)) plist::writeToFile(stub, stubPath.asString(), false);
    }
    WFLogKeyed(kLogOpenMeta, "OpenMeta Importing... saving Stub OPENMETA %@", stubPath);
    ++mailStoreStatus.stubsLeft;

    Value now = finalStamp(services().clock->now(), tagTime);
    openImportRecord(path, stampBefore);
    OpenMeta::setXAttrMetaData(Value(Date::distantFuture()), kTimeStampKey, path);
    if (succeeded(OpenMeta::setXAttrMetaData(now, kTimeStampKey, path))) removeImportRecord(path);
    return;
  }

  Value trailer = openMessage >= 0 ? readEmlxTrailerFromDescriptor(openMessage, messageSize)
                                   : readEmlxTrailer(path);
  if (trailer.isNil()) return noteNothingToImport();

  Dictionary attributesToImport;
  Value wrenfold = trailer.get("wrenfold");
  if (wrenfold.isDictionary()) attributesToImport = valuesToImport(wrenfold, existingAttributes);
  // Values the store did not keep are not handed to it again until the
  // message changes by another hand: the helper's own stamps would
  // otherwise bring the message back every few seconds for good.
  if (!attributesToImport.empty() && leftUnkeptBefore(path, wrenfold, existingAttributes)) {
    WFLogKeyed(kLogOpenMeta, "OpenMeta Importing... not kept before, not tried again: %@",
               keysOf(attributesToImport));
    attributesToImport = Dictionary{};
  }
  WFLogKeyed(kLogOpenMeta, "OpenMeta Importing... attributesToImport %@",
             Value(attributesToImport));
  if (attributesToImport.empty()) return noteNothingToImport();

  // The distant-future stamp tells the watcher to leave the message alone
  // while it is written; the final stamp is later than the tag time that
  // was handed over, so the same tags do not come back as a stub. The
  // record opened first tells a crash's leftover from a write in progress.
  ++mailStoreStatus.imported;
  Value now = finalStamp(services().clock->now(), tagTime);
  openImportRecord(path, stampBefore);
  OpenMeta::setXAttrMetaData(Value(Date::distantFuture()), kTimeStampKey, path);
  for (const auto& [key, value] : attributesToImport) {
    WFLogKeyed(kLogOpenMeta, "OpenMeta Importing... setting attribute %@", key);
    OpenMeta::setXAttrMetaData(value, key, path);
  }
  if (failed(OpenMeta::setXAttrMetaData(now, kTimeStampKey, path)))
    return;  // the record stays open

  // What the store kept: values that still differ were refused or changed
  // on the way (a date's fraction, a value of another kind). Only the
  // written keys are read back; the whole metadata is read for the note,
  // in the rare case that something was not kept.
  if (valuesToImport(wrenfold, keptValues(path, attributesToImport, existingAttributes)).empty()) {
    removeImportRecord(path);
    return;
  }
  Value left;
  if (auto item = platform::SpotlightItem::createWithPath(path)) left = item->copyAllAttributes();
  closeImportRecord(path, fingerprint(wrenfold), fingerprint(left));
  noteImportRefused(path + ": the store did not keep " + describe(keysOf(attributesToImport)));
}

void WFHelperAppDelegate::logSpotlightDataForPath(const std::string& path) {
  std::optional<platform::SpotlightItem> item = platform::SpotlightItem::createWithPath(path);
  if (!item) return;
  Value attributes = item->copyAllAttributes();
  if (attributes.isNil()) return;
  NSLog("Path: %@\nSpotlightData %@\n------------\n", path, attributes);
}

}  // namespace wf
