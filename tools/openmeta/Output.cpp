#include "Output.h"

#include <glib.h>

#include <cstdio>

#include "Json.h"
#include "platform/foundation/Format.h"
#include "platform/plist/PropertyList.h"

namespace openmeta_tool {

namespace {

std::string lineOf(const wf::Value& v) { return v.isString() ? v.asString() : wf::describe(v); }

const char kPosixDomain[] = "NSPOSIXErrorDomain";

}  // namespace

void printLines(const wf::Value& value, const std::string& prefix) {
  if (value.isNil()) return;
  if (value.isArray()) {
    for (const wf::Value& item : value.asArray())
      std::printf("%s%s\n", prefix.c_str(), lineOf(item).c_str());
    return;
  }
  std::printf("%s%s\n", prefix.c_str(), lineOf(value).c_str());
}

bool printStructured(const wf::Value& value, OutputFormat format) {
  if (value.isNil()) return true;
  std::string text, error;
  bool ok = format == OutputFormat::Json ? wf::tools::toJSON(value, true, text, error)
                                         : wf::plist::toXML(value, text, &error);
  if (!ok) {
    std::fprintf(stderr, "openmeta: cannot print the value as %s: %s\n",
                 format == OutputFormat::Json ? "JSON" : "a property list", error.c_str());
    return false;
  }
  std::fwrite(text.data(), 1, text.size(), stdout);
  return true;
}

std::string reasonOf(const wf::Error& error) {
  // The tool's own errors (a lock it could not have) say more than errno.
  if (auto it = error.userInfo.find("reason"); it != error.userInfo.end() && it->second.isString())
    return it->second.asString();
  if (error.domain == kPosixDomain) return g_strerror(static_cast<int>(error.code));
  if (auto it = error.userInfo.find("info"); it != error.userInfo.end())
    return it->second.isString() ? it->second.asString() : wf::describe(it->second);
  return error.localizedDescription();
}

void printError(const std::string& subject, const wf::Error& error) {
  std::fprintf(stderr, "openmeta: %s: %s (%s %ld)\n", subject.c_str(), reasonOf(error).c_str(),
               error.domain.c_str(), error.code);
}

void printUsageError(const std::string& command, const std::string& message) {
  if (command.empty())
    std::fprintf(stderr, "openmeta: %s\nTry 'openmeta --help'.\n", message.c_str());
  else
    std::fprintf(stderr, "openmeta %s: %s\nTry 'openmeta %s --help'.\n", command.c_str(),
                 message.c_str(), command.c_str());
}

}  // namespace openmeta_tool
