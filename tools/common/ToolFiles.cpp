#include "ToolFiles.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Json.h"
#include "platform/plist/PropertyList.h"

namespace wf::tools {

std::string programName(const char* argv0, const char* fallback) {
  if (!argv0 || !*argv0) return fallback;
  std::string name = argv0;
  if (auto slash = name.rfind('/'); slash != std::string::npos) name.erase(0, slash + 1);
  return name.empty() ? fallback : name;
}

bool readInput(const std::string& path, std::string& bytes, std::string& error,
               std::optional<sys::FileIdentity>* identity) {
  if (path == "-") {
    auto r = sys::readAll(STDIN_FILENO, sys::kMaxPropertyListFileBytes);
    if (!r) {
      error = r.error().message;
      return false;
    }
    bytes = std::move(r.value());
    return true;
  }
  auto fd = sys::openRegularFile(path, sys::Links::Follow);
  if (!fd) {
    error = fd.error().message;
    return false;
  }
  struct stat st {};
  if (identity && ::fstat(fd->get(), &st) == 0) *identity = sys::FileIdentity{st.st_dev, st.st_ino};
  auto r = sys::readAll(fd->get(), sys::kMaxPropertyListFileBytes);
  if (!r) {
    error = r.error().isErrno(EFBIG) ? "File too large for a property list" : r.error().message;
    return false;
  }
  bytes = std::move(r.value());
  return true;
}

bool parseDocument(std::string_view bytes, Value& out, std::string& error, DocumentFormat* format) {
  std::size_t first = bytes.find_first_not_of(" \t\r\n");
  if (first != std::string_view::npos && (bytes[first] == '{' || bytes[first] == '[')) {
    if (format) *format = DocumentFormat::JSON;
    return parseJSON(bytes, out, error);
  }
  std::string message;
  plist::Format f = plist::Format::XML;
  out = plist::parse(bytes, &message, &f);
  if (format) *format = f == plist::Format::Binary ? DocumentFormat::Binary : DocumentFormat::XML;
  if (out.isNil()) {
    error = message.empty() ? "Not a property list" : message;
    return false;
  }
  return true;
}

bool readDocument(const std::string& path, Value& out, std::string& error, DocumentFormat* format,
                  std::optional<sys::FileIdentity>* identity) {
  std::string bytes;
  return readInput(path, bytes, error, identity) && parseDocument(bytes, out, error, format);
}

bool writeOutput(const std::string& path, std::string_view bytes, std::string& error,
                 const std::optional<sys::FileIdentity>& readFrom) {
  if (path == "-") {
    if (std::fwrite(bytes.data(), 1, bytes.size(), stdout) != bytes.size() ||
        std::fflush(stdout) != 0) {
      error = std::string("cannot write standard output: ") + std::strerror(errno);
      return false;
    }
    return true;
  }
  sys::AtomicWriteOptions options;
  // A person editing a linked file means the file the link leads to.
  options.finalLink = sys::Links::Follow;
  options.keepMetadata = true;
  options.expected = readFrom;
  auto r = sys::writeFileAtomically(path, bytes, options);
  if (!r) {
    error = r.error().message;
    return false;
  }
  return true;
}

bool lockForUpdate(const std::string& path, sys::Links links, sys::UpdateLock& lock,
                   std::string& error) {
  if (path == "-") return true;
  auto r = sys::lockForUpdate(path, links);
  if (!r) {
    error = r.error().message;
    return false;
  }
  lock = std::move(r.value());
  return true;
}

bool pathExists(const std::string& path) {
  struct stat st {};
  return ::lstat(path.c_str(), &st) == 0;
}

}  // namespace wf::tools
