#include "platform/plist/PropertyList.h"

#include <cerrno>

#include "platform/FileEvents.h"
#include "platform/base/Files.h"
#include "platform/plist/Codec.h"

namespace wf::plist {

namespace {

void setError(std::string* error, std::string message) {
  if (error) *error = std::move(message);
}

}  // namespace

Value parse(std::string_view bytes, std::string* error, Format* format) {
  if (bytes.size() >= 8 && bytes.substr(0, 6) == "bplist") {
    if (format) *format = Format::Binary;
    return detail::parseBinary(bytes, error);
  }
  if (format) *format = Format::XML;
  return detail::parseXML(bytes, error);
}

bool toXML(const Value& v, std::string& out, std::string* error) {
  return detail::writeXML(v, out, error);
}

bool toBinary(const Value& v, std::string& out, std::string* error) {
  return detail::writeBinary(v, out, error);
}

bool serialize(const Value& v, Format f, std::string& out, std::string* error) {
  return f == Format::Binary ? toBinary(v, out, error) : toXML(v, out, error);
}

Value readFile(const std::string& path, std::string* error) {
  auto bytes = sys::readRegularFile(path, sys::kMaxPropertyListFileBytes);
  if (!bytes) {
    const sys::SysError& e = bytes.error();
    if (e.isErrno(EFBIG))
      setError(error, path + ": file too large for a property list");
    else
      setError(error, "cannot read " + path + ": " + e.message);
    return Value();
  }
  std::string message;
  Value v = parse(bytes.value(), &message);
  if (v.isNil()) setError(error, path + ": " + message);
  return v;
}

Value dictionaryWithContentsOfFile(const std::string& path) {
  Value v = readFile(path);
  return v.isDictionary() ? v : Value();
}

Value arrayWithContentsOfFile(const std::string& path) {
  Value v = readFile(path);
  return v.isArray() ? v : Value();
}

bool writeFileAtomically(const std::string& path, std::string_view bytes, std::string* error) {
  // Streams that leave out this process's own changes must not see this one.
  platform::OwnChange own(path);
  auto written = sys::writeFileAtomically(path, bytes);
  if (!written) setError(error, "cannot write " + path + ": " + written.error().message);
  return written.ok();
}

bool writeToFile(const Value& v, const std::string& path, bool atomically, std::string* error) {
  std::string bytes;
  if (!toXML(v, bytes, error)) return false;
  if (atomically) return writeFileAtomically(path, bytes, error);
  platform::OwnChange own(path);
  // In place, but never through a link planted at the name and never
  // waiting on a FIFO there.
  auto fd = sys::openForOverwrite(path);
  if (!fd) {
    setError(error, "cannot write " + path + ": " + fd.error().message);
    return false;
  }
  auto written = sys::writeAll(fd->get(), bytes);
  if (written && fd->closeChecked() != 0) written = sys::SysError::fromErrno(errno);
  if (!written) setError(error, "cannot write " + path + ": " + written.error().message);
  return written.ok();
}

}  // namespace wf::plist
