// wf-plutil: checks, prints, converts, extracts and edits property lists
// with the helper's own codec, as plutil does on systems that have it.
#include <glib.h>

#include <cstdio>
#include <string>
#include <vector>

#include "Dates.h"
#include "Json.h"
#include "KeyPath.h"
#include "Options.h"
#include "PrettyPrint.h"
#include "ToolFiles.h"
#include "platform/foundation/Format.h"
#include "platform/glib/Owners.h"
#include "platform/plist/PropertyList.h"

using wf::Value;
using wf::plutil::Command;
using wf::plutil::Options;
using wf::tools::DocumentFormat;

namespace {

int usageError(const std::string& message) {
  std::fprintf(stderr, "wf-plutil: %s\n\n%s", message.c_str(), wf::plutil::kUsage);
  return 1;
}

bool report(const std::string& path, const std::string& reason) {
  std::fprintf(stderr, "%s: %s\n", path.c_str(), reason.c_str());
  return false;
}

// The value in one of plutil's formats.
bool encode(const Value& v, const std::string& format, bool readable, std::string& out,
            std::string& error) {
  if (format == "xml1") return wf::plist::toXML(v, out, &error);
  if (format == "binary1") return wf::plist::toBinary(v, out, &error);
  if (format == "json") return wf::tools::toJSON(v, readable, out, error);
  // raw: a scalar as text.
  switch (v.type()) {
    case Value::Type::String:
      out = v.asString();
      break;
    case Value::Type::Boolean:
      out = v.asBool() ? "true" : "false";
      break;
    case Value::Type::Date:
      out = wf::tools::iso8601(v.asDate());
      break;
    case Value::Type::Data: {
      out = wf::sys::adoptG(g_base64_encode(v.asData().data(), v.asData().size())).get();
      break;
    }
    case Value::Type::Integer:
    case Value::Type::Unsigned:
    case Value::Type::Real:
      out = wf::describe(v);
      break;
    default:
      error = "a " + wf::tools::typeName(v) + " has no raw form";
      return false;
  }
  out.push_back('\n');
  return true;
}

const char* formatName(DocumentFormat f) {
  switch (f) {
    case DocumentFormat::Binary:
      return "binary1";
    case DocumentFormat::JSON:
      return "json";
    default:
      return "xml1";
  }
}

// Where the result for `path` goes: -o, the path with -e's extension, or
// the file itself.
std::string destination(const Options& o, const std::string& path) {
  if (!o.output.empty()) return o.output;
  if (path == "-") return "-";
  if (!o.extension.empty()) {
    std::string base = path;
    auto slash = base.rfind('/');
    auto dot = base.rfind('.');
    if (dot != std::string::npos && (slash == std::string::npos || dot > slash + 1))
      base.erase(dot);
    return base + "." + o.extension;
  }
  return path;
}

// Whether the command writes its result back over the file it read.
bool changesInPlace(const Options& o, const std::string& path) {
  if (path == "-") return false;
  switch (o.command) {
    case Command::Extract:
      return !(o.format == "raw" && o.output.empty()) && destination(o, path) == path;
    case Command::Convert:
    case Command::Insert:
    case Command::Replace:
    case Command::Remove:
      return destination(o, path) == path;
    default:
      return false;
  }
}

bool processFile(const Options& o, const std::string& path) {
  // Another writer of this project changing the same file waits for this
  // one (and this one for it) instead of one losing the other's change.
  wf::sys::UpdateLock lock;
  std::string lockError;
  if (changesInPlace(o, path) &&
      !wf::tools::lockForUpdate(path, wf::sys::Links::Follow, lock, lockError))
    return report(path, lockError);
  Value root;
  std::string error;
  DocumentFormat format = DocumentFormat::XML;
  std::optional<wf::sys::FileIdentity> identity;
  if (!wf::tools::readDocument(path, root, error, &format, &identity)) return report(path, error);

  const std::vector<std::string> keys = wf::tools::splitKeyPath(o.keyPath);
  auto noValue = [&] {
    return report(path,
                  "Could not extract value, error: No value at that key path or invalid key "
                  "path: " +
                      o.keyPath);
  };
  std::string bytes, target;
  switch (o.command) {
    case Command::Lint:
      if (!o.silent) std::printf("%s: OK\n", path.c_str());
      return true;
    case Command::Print: {
      std::string text = wf::plutil::prettyPrint(root);
      std::fwrite(text.data(), 1, text.size(), stdout);
      return true;
    }
    case Command::Type: {
      const Value* v = wf::tools::valueAtKeyPath(root, keys);
      if (!v) return noValue();
      std::printf("%s\n", wf::tools::typeName(*v).c_str());
      return true;
    }
    case Command::Extract: {
      const Value* v = wf::tools::valueAtKeyPath(root, keys);
      if (!v) return noValue();
      if (!encode(*v, o.format, o.readable, bytes, error)) {
        if (o.format == "raw")
          error = "Value at [" + o.keyPath + "] is a " + wf::tools::typeName(*v) +
                  "; raw output is for strings, numbers, booleans, dates and data";
        return report(path, "Could not extract value, error: " + error);
      }
      target = o.format == "raw" && o.output.empty() ? "-" : destination(o, path);
      break;
    }
    case Command::Convert:
      if (!encode(root, o.format, o.readable, bytes, error)) return report(path, error);
      target = destination(o, path);
      break;
    case Command::Insert:
    case Command::Replace:
    case Command::Remove: {
      wf::tools::Edit edit = o.command == Command::Remove    ? wf::tools::Edit::Remove
                             : o.command == Command::Replace ? wf::tools::Edit::Replace
                             : o.append                      ? wf::tools::Edit::Append
                                                             : wf::tools::Edit::Insert;
      Value changed = wf::tools::editAtKeyPath(root, keys, edit, o.value, o.keyPath, error);
      if (changed.isNil()) return report(path, "Could not modify plist, error: " + error);
      // The file keeps the format it was in.
      if (!encode(changed, formatName(format), o.readable, bytes, error))
        return report(path, error);
      target = destination(o, path);
      break;
    }
    default:
      return false;
  }
  // In place: refuse to overwrite a file someone put there since it was read.
  if (!wf::tools::writeOutput(target, bytes, error, target == path ? identity : std::nullopt))
    return report(target == "-" ? path : target, error);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  Options options;
  std::string error;
  if (!wf::plutil::parseOptions(args, options, error)) return usageError(error);
  if (options.command == Command::Help) {
    std::fputs(wf::plutil::kUsage, stdout);
    return 0;
  }
  if (options.command == Command::Version) {
    std::printf("wf-plutil (WrenfoldHelper) %s\n", WF_VERSION);
    return 0;
  }
  int status = 0;
  for (const std::string& path : options.files)
    if (!processFile(options, path)) status = 1;
  return status;
}
