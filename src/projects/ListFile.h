// List files: XML property lists whose root is an array, in the
// external-projects folder. Written atomically and only when the content
// changed, so a file's modification date moves only with its content.
#pragma once

#include <optional>
#include <string>

#include "platform/plist/Value.h"

namespace wf {

inline constexpr const char* kOmniFocusProjectsFile = "OmniFocusProjects.plist";
inline constexpr const char* kHitListProjectsFile = "HitListProjects.plist";
inline constexpr const char* kThingsProjectsFile = "ThingsProjects.plist";
inline constexpr const char* kFinderTagsFile = "FinderTags.plist";

// The external-projects folder with the file name appended (nullopt when
// there is no Library folder).
std::optional<std::string> externalProjectFilePath(const std::string& fileName);

// The array in the file; nil when the file is missing, unreadable or its
// root is no array.
Value readListFile(const std::optional<std::string>& path);

// Whether a list read from the file must be replaced by `list`.
inline bool listFileDiffers(const Value& current, const Value& list) {
  return current.isNil() || current != list;
}

// Writes the list as XML, atomically. The result is not examined by
// callers: a failed write leaves the file different, so the next run
// writes again.
bool writeListFile(const std::optional<std::string>& path, const Value& list);

// List writes since the tally was last reset: the interval run resets it
// before each source and reads it after, to tell "written" from "unchanged"
// and a failed write in the source's outcome.
struct ListWriteTally {
  int written = 0;
  int failed = 0;
};
ListWriteTally& listWriteTally();

}  // namespace wf
