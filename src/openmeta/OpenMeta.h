// OpenMeta: tags, ratings, strings and arrays kept on files as extended
// attributes, one property list per attribute.
//
// Every metadata value lives in its own attribute, "user.com.apple.metadata:"
// followed by the metadata key (the "user." namespace is what Linux requires
// of unprivileged attributes; the rest of the name is the one other OpenMeta
// programs use). The value is one serialised property list of at most 4096
// bytes. Symbolic links are never followed: the attribute read or written is
// always that of the link itself.
//
// The class has only static members and keeps no state apart from the
// cached platform generation. Writers return their error (nullopt on
// success); readers return the value (nil, `Value()`, when there is none)
// and hand an error back through an optional out pointer. A missing
// attribute is not an error. Nothing throws.
//
// Errors have exactly one user-info entry, "info", holding a text:
//   domain "openmeta", code -1  "Open Meta parameter error"
//                               (empty path, a path with a NUL byte, an
//                               argument of the wrong kind)
//   domain "openmeta", code -1  "Open Meta SYNC parameter error"
//                               (the dated tag setters got no array of strings)
//   domain "openmeta", code -2  the property-list codec's own message
//                               (a value cannot be serialised, or attribute
//                               bytes are no property list)
//   domain "openmeta", code -5  kMetaDataTooBig (the serialised value is longer
//                               than 4096 bytes)
//   domain "NSPOSIXErrorDomain", code errno, errnoString(errno)
//                               (a system call failed; Linux errno values, so
//                               a missing attribute is ENODATA, 61)
//
// Finder tags are the freedesktop tags of the file: the attribute
// "user.xdg.tags", tag names joined by ",". That is where file managers and
// desktop search keep their tags, so tags set here show up there and tags set
// there are merged into the OpenMeta list. A "," inside a tag name would split
// it into two names in that list, so it is stored there as U+201A (SINGLE
// LOW-9 QUOTATION MARK, which looks the same) and turned back into "," when
// read. Empty names are left out of that list.
//
// Not thread-safe: use it from one thread at a time (the helper uses it from
// its main loop only).
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/foundation/Error.h"
#include "platform/plist/Value.h"

namespace wf {

namespace platform {
class ExtendedAttributes;
}

// Whether OpenMeta operations may show authentication dialogs. Initially
// true; getUserTags() turns it off for the length of its corrective writes.
// Nothing on Linux shows such dialogs; the flag is kept for callers that
// look at it.
extern bool gAllowOpenMetaAuthenticationDialogs;

class OpenMeta {
 public:
  static constexpr const char* kErrorDomain = "openmeta";
  static constexpr const char* kInfoKey = "info";
  static constexpr long kParameterError = -1;
  static constexpr long kSerializationError = -2;
  static constexpr long kTooBigError = -5;
  static constexpr const char* kParameterErrorText = "Open Meta parameter error";
  static constexpr const char* kSyncParameterErrorText = "Open Meta SYNC parameter error";
  static constexpr const char* kMetaDataTooBig =
      "Meta data is too big - size as binary plist must be less than (perhaps 4k?) some number "
      "of bytes";
  // Texts of the message set that no operation raises.
  static constexpr const char* kNotAPropertyListText =
      "The data requested or attempted to be set could not be made into a apple property list";
  static constexpr const char* kBadPathText =
      "The path appears not to point to a valid item on disk";

  // Largest serialised value written, and largest attribute read.
  static constexpr std::size_t kMaxValueSize = 4096;

  // Metadata keys.
  static constexpr const char* kUserTagsKey = "kMDItemOMUserTags";
  static constexpr const char* kUserTagTimeKey = "kMDItemOMUserTagTime";
  static constexpr const char* kStarRatingKey = "kMDItemStarRating";
  static constexpr const char* kRatingTimeKey = "kMDItemOMRatingTime";
  static constexpr const char* kSyncDoneName = "kOM109SyncDone";  // stored under its bare name
  static constexpr const char* kFinderTagsSearchKey = "kMDItemUserTags";

  // Linux attribute names.
  static constexpr const char* kAttributeNamespace = "user.";
  static constexpr const char* kFinderTagsAttribute = "user.xdg.tags";

  // ---- Attribute codec -------------------------------------------------

  // "com.apple.metadata:" + key.
  static std::string spotlightKey(std::string_view key);
  // "org.openmetainfo:" + key (no operation of the store uses this prefix).
  static std::string openmetaKey(std::string_view key);
  // "errno error: %d, %s" with the number and the system's text for it.
  static std::string errnoString(int value);

  // Writes the property list `plist` into the attribute "user." + `name` of
  // `path`; a nil plist removes the attribute (removing a missing one fails
  // with ENODATA). The value is serialised as the platform generation says
  // (XML on current generations, binary below 1343).
  static OptError setXAttr(const Value& plist, const std::string& name, const std::string& path);
  // Reads the attribute "user." + `name` of `path` and parses it (XML or
  // binary). A missing attribute gives nil and leaves *error untouched; on
  // success *error is reset; on failure it receives the error.
  static Value getXAttr(const std::string& name, const std::string& path, OptError* error);
  // setXAttr() / getXAttr() with the name spotlightKey(metaDataKey).
  static OptError setXAttrMetaData(const Value& plist, const std::string& metaDataKey,
                                   const std::string& path);
  static Value getXAttrMetaData(const std::string& metaDataKey, const std::string& path,
                                OptError* error);
  // For tests: read and write the values through `attributes` instead of
  // the file system's own calls; nullptr goes back to those.
  static void setExtendedAttributesForTesting(platform::ExtendedAttributes* attributes);

  // ---- Platform generation ---------------------------------------------

  // Stands in for the system's AppKit version number. The default is a
  // current generation (above 1343): XML values and the Finder-tag mirror.
  static constexpr double kDefaultAppKitVersionNumber = 2299.0;
  static double appKitVersionNumber();
  // For tests and tools: pretend to run on another generation (for example
  // 1265: binary values with the Finder-tag mirror; 1187: binary values and
  // no Finder tags). Also forgets the cached
  // generation so that MavericksOrLater() is computed afresh.
  static void setAppKitVersionNumberForTesting(double version);

  // Whether the Finder-tag generation (9 or later) is running; computed once.
  static bool MavericksOrLater();
  // The search key of user tags: "kMDItemUserTags" or "kMDItemOMUserTags".
  static std::string tagsToSearchFor();

  // ---- Tags ------------------------------------------------------------

  // The file's Finder tags (an array of strings), nil when it has none or on
  // error. Below Mavericks: the OpenMeta tag array.
  static Value getAppleTags(const std::string& path, OptError* error);
  // Replaces the Finder tags by `tags` (an array of strings; nil or an empty
  // array removes them). Below Mavericks: writes the OpenMeta tag array.
  static OptError setAppleTags(const Value& tags, const std::string& path);

  // Normalises `tags` (removeDuplicateTags), writes the tag time, mirrors the
  // tags to the Finder tags (Mavericks or later), and stores them under
  // "kMDItemOMUserTags". `tags` must be an array of strings ("Open Meta SYNC
  // parameter error" otherwise); an empty array is stored as such. All or
  // none: the list's size is checked first, and when a write fails the
  // attributes already written are put back as they were.
  static OptError setUserTags(const Value& tags, const std::string& path);  // now
  static OptError setUserTags(const Value& tags, const std::string& path, Date date);
  // The same, with a separate list for the Finder tags (normalised, not
  // validated; nil leaves no Finder tags).
  static OptError setUserTags(const Value& tags, const Value& finderTags,
                              const std::string& path);  // now
  static OptError setUserTags(const Value& tags, const Value& finderTags, const std::string& path,
                              Date date);
  // Removes the given tags (compared by lowercaseString); writes only when a
  // tag was removed. A failed write also puts back what reading the tags
  // merged (so do addUserTags and the rating's two writes below).
  static OptError clearUserTags(const Value& tags, const std::string& path);
  // Adds the given tags after the current ones; writes only on a change.
  static OptError addUserTags(const Value& tags, const std::string& path);
  // The file's tags. Merges the Finder tags and the OpenMeta tags: the first
  // time both are met on a file their union is written to both stores (and
  // the attribute "kOM109SyncDone" records it); after that the Finder tags
  // win whenever the two differ. Nil when the file has no tags.
  static Value getUserTags(const std::string& path, OptError* error);

  // The tags every file carries (compared by lowercaseString), in the first
  // file's order and spelling. Empty when a file has none or a read fails
  // (*error then holds that read's error, or nullopt).
  static Value getCommonUserTags(const std::vector<std::string>& paths, OptError* error);
  // On every file, replaces the tags of `originalCommonTags` by
  // `replaceWith`. Returns the last error met; one failure does not stop the
  // other files.
  static OptError setCommonUserTags(const std::vector<std::string>& paths,
                                    const Value& originalCommonTags, const Value& replaceWith);

  // ---- Ratings, strings, arrays ------------------------------------------

  // A rating above 0 is capped at 5.0 and stored with the rating time; 0 or
  // less removes the rating.
  static OptError setRating(double rating, const std::string& path);
  // The stored rating, 0 when there is none.
  static double getRating(const std::string& path, OptError* error);

  // Any property-list value under a metadata key (nil removes it).
  static OptError setString(const Value& value, const std::string& keyName,
                            const std::string& path);
  static Value getString(const std::string& keyName, const std::string& path, OptError* error);

  // The value under the key if it is an array, else nil.
  static Value getNSArrayMetaData(const std::string& metaDataKey, const std::string& path,
                                  OptError* error);
  // Writes an array; anything else (nil included) is a parameter error.
  static OptError setNSArrayMetaData(const Value& array, const std::string& metaDataKey,
                                     const std::string& path);
  // Appends the items that the stored array does not yet hold (exact
  // equality); writes only on a change.
  static OptError addToNSArrayMetaData(const Value& items, const std::string& metaDataKey,
                                       const std::string& path);

  // ---- Tag-list normalisation --------------------------------------------

  // From comparison key (lowercaseString of a tag) to tag. Enumerated in
  // ascending byte order of the key, so leftovers of orderedArrayWithDict()
  // come out in a deterministic order.
  using TagTable = std::map<std::string, std::string, std::less<>>;

  // True for an array whose elements are all strings (an empty array too).
  static bool validateAsArrayOfStrings(const Value& object);
  // The strings of the array in canonical decomposition (form D); other
  // elements are dropped.
  static Value decomposeArrayOfStrings(const Value& array);
  // Form D, one tag per case-insensitive group (the first one met, in its
  // spelling and position). Nil gives nil.
  static Value removeDuplicateTags(const Value& tags);
  // The table's tags in the order of the hint (the hint's own spelling),
  // then the tags the hint did not name, in the table's order.
  static Value orderedArrayWithDict(const TagTable& dict, const Value& sortHint);

  // ---- Schema registration -----------------------------------------------

  // Registers the usual OpenMeta attributes for this program (its name is the
  // last component of the executable's real path).
  static void registerUsualOMAttributes();
  // Writes `attributes` (a dictionary of example values) to
  // "~/Library/Application Support/OpenMeta/schemaregister/<appName>.openmetaschema"
  // and removes the file again 2.0 s later, by a one-shot timeout on the
  // calling thread's default main context (GLib's global default context
  // when the thread has none). The removal happens only while that context
  // is iterated.
  static void registerOMAttributes(const Value& attributes, const std::string& appName);
  // Removes the item at `path`, only if the path contains
  // "Library/Application Support/OpenMeta/schemaregister"; errors are ignored.
  static void removeSchemaFile(const std::string& path);
  // The register folder, with the home folder of $HOME.
  static std::string schemaRegisterFolder();
};

}  // namespace wf
