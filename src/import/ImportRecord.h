// The helper's own note on a message file, kept in one private attribute
// beside the metadata ("user.org.ardel.wrenfold.import", outside the
// Spotlight names, so the import never sees it among a file's metadata).
//
// While an import writes the file, the note names the process doing it and
// the stamp the file had before. A distant-future stamp whose note names a
// process that is gone is the remainder of a crash, not a write in progress,
// and the message can be imported again.
//
// After an import whose values the store did not keep as handed over (too
// big, a date with a fraction, a value of another type), the note holds the
// fingerprints of the plug-in's values and of the metadata the import left
// behind. As long as both are unchanged nobody else touched the message, and
// the import does not try the same values again.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/plist/Value.h"

namespace wf {

// The attribute's name, without the "user." namespace.
inline constexpr const char* kImportRecordName = "org.ardel.wrenfold.import";

// Who writes: boot id, process id and the process's start time, so that a
// reused process id does not pass for the writer.
std::string currentImportOwner();
// The owner text of another running process (empty start time when it is
// not running).
std::string importOwnerOf(int pid);
// Whether the process named by an owner text still runs. The owner of this
// process counts as gone: the import runs on the main thread from start to
// end, so an open note of its own is one whose final write failed.
bool importOwnerIsRunning(const std::string& owner);

// A fingerprint of a value's content (64-bit FNV-1a of its binary property
// list); equal values give equal fingerprints in any process.
std::string fingerprint(const Value& value);

struct ImportRecord {
  // Open while an import writes.
  std::string owner;
  Value previousStamp;  // a date, or nil when the file had none
  // Left by an import whose values were not all kept.
  std::string unkeptValues;    // fingerprint of the plug-in's dictionary
  std::string leftAttributes;  // fingerprint of the metadata afterwards

  bool isOpen() const { return !owner.empty(); }
  bool holdsUnkeptValues() const { return !unkeptValues.empty(); }
};

// The note on the file; nullopt when there is none or it cannot be read.
std::optional<ImportRecord> readImportRecord(const std::string& path);
// Opens the note before the first write of an import. True when written.
bool openImportRecord(const std::string& path, const Value& previousStamp);
// Ends it after the final stamp: keeps the fingerprints when values were not
// kept, removes the note otherwise.
void closeImportRecord(const std::string& path, const std::string& unkeptValues,
                       const std::string& leftAttributes);
// Removes the note, whatever it holds.
void removeImportRecord(const std::string& path);

}  // namespace wf
