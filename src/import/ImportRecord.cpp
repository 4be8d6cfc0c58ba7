#include "import/ImportRecord.h"

#include <unistd.h>

#include <cstdio>

#include "openmeta/OpenMeta.h"
#include "platform/base/Files.h"
#include "platform/plist/PropertyList.h"

namespace wf {

namespace {

// A small file of /proc, whole; empty when it cannot be read.
std::string readProcFile(const std::string& path) {
  auto text = sys::readRegularFile(path, 8192);
  return text ? std::move(*text) : std::string();
}

std::string bootId() {
  std::string id = readProcFile("/proc/sys/kernel/random/boot_id");
  while (!id.empty() && (id.back() == '\n' || id.back() == ' ')) id.pop_back();
  return id;
}

// Field 22 of /proc/<pid>/stat, the start time in clock ticks since boot.
// The command name (field 2) may hold blanks and parentheses, so fields
// are counted after its last ')'.
std::string startTime(const std::string& pid) {
  std::string stat = readProcFile("/proc/" + pid + "/stat");
  std::size_t at = stat.rfind(')');
  if (at == std::string::npos) return {};
  int field = 2;
  std::size_t i = at + 1;
  while (i < stat.size()) {
    while (i < stat.size() && stat[i] == ' ') ++i;
    std::size_t end = stat.find(' ', i);
    if (end == std::string::npos) end = stat.size();
    if (++field == 22) return stat.substr(i, end - i);
    i = end;
  }
  return {};
}

std::string ownerOf(const std::string& pid) { return bootId() + " " + pid + " " + startTime(pid); }

// Field 3 of /proc/<pid>/stat: Z (zombie) and X (dead) are processes that
// ended and wait only to be reaped.
bool hasEnded(const std::string& pid) {
  std::string stat = readProcFile("/proc/" + pid + "/stat");
  std::size_t at = stat.rfind(')');
  if (at == std::string::npos || at + 2 >= stat.size()) return true;
  char state = stat[at + 2];
  return state == 'Z' || state == 'X';
}

const std::string& thisOwner() {
  static const std::string owner = ownerOf(std::to_string(getpid()));
  return owner;
}

std::string stringAt(const Value& dictionary, std::string_view key) {
  const Value* v = dictionary.find(key);
  return v && v->isString() ? v->asString() : std::string();
}

}  // namespace

std::string currentImportOwner() { return thisOwner(); }

std::string importOwnerOf(int pid) { return ownerOf(std::to_string(pid)); }

bool importOwnerIsRunning(const std::string& owner) {
  if (owner == thisOwner()) return false;
  std::size_t first = owner.find(' ');
  std::size_t second = first == std::string::npos ? first : owner.find(' ', first + 1);
  if (second == std::string::npos) return false;
  std::string pid = owner.substr(first + 1, second - first - 1);
  if (pid.empty() || pid.find_first_not_of("0123456789") != std::string::npos) return false;
  std::string running = ownerOf(pid);
  // A writer killed inside an import is not reaped at once (a tracer may
  // hold it); it writes nothing more all the same.
  return running.back() != ' ' && running == owner && !hasEnded(pid);
}

std::string fingerprint(const Value& value) {
  std::string bytes;
  if (!plist::toBinary(value, bytes)) bytes = "nil";
  std::uint64_t hash = 14695981039346656037ULL;
  for (unsigned char c : bytes) {
    hash ^= c;
    hash *= 1099511628211ULL;
  }
  char text[17];
  std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(hash));
  return text;
}

std::optional<ImportRecord> readImportRecord(const std::string& path) {
  OptError error;
  Value note = OpenMeta::getXAttr(kImportRecordName, path, &error);
  if (!note.isDictionary()) return std::nullopt;
  ImportRecord record;
  record.owner = stringAt(note, "owner");
  if (const Value* stamp = note.find("previousStamp"); stamp && stamp->isDate())
    record.previousStamp = *stamp;
  record.unkeptValues = stringAt(note, "unkeptValues");
  record.leftAttributes = stringAt(note, "leftAttributes");
  return record;
}

bool openImportRecord(const std::string& path, const Value& previousStamp) {
  Dictionary note{{"owner", Value(currentImportOwner())}};
  if (previousStamp.isDate()) note.insert_or_assign("previousStamp", previousStamp);
  return succeeded(OpenMeta::setXAttr(Value(std::move(note)), kImportRecordName, path));
}

void closeImportRecord(const std::string& path, const std::string& unkeptValues,
                       const std::string& leftAttributes) {
  if (unkeptValues.empty()) {
    removeImportRecord(path);
    return;
  }
  Dictionary note{{"unkeptValues", Value(unkeptValues)}, {"leftAttributes", Value(leftAttributes)}};
  OpenMeta::setXAttr(Value(std::move(note)), kImportRecordName, path);
}

void removeImportRecord(const std::string& path) {
  OpenMeta::setXAttr(Value(), kImportRecordName, path);
}

}  // namespace wf
