#include "Output.h"

#include <cstdio>

#include "platform/foundation/Format.h"
#include "platform/plist/PropertyList.h"

namespace openmeta_tool {

namespace {

std::string lineOf(const wf::Value& v) { return v.isString() ? v.asString() : wf::describe(v); }

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

bool printPropertyList(const wf::Value& value) {
  if (value.isNil()) return true;
  std::string xml, error;
  if (!wf::plist::toXML(value, xml, &error)) {
    std::fprintf(stderr, "openmeta: cannot print the value as a property list: %s\n",
                 error.c_str());
    return false;
  }
  std::fwrite(xml.data(), 1, xml.size(), stdout);
  return true;
}

void printError(const std::string& subject, const wf::Error& error) {
  std::string info;
  if (auto it = error.userInfo.find("info"); it != error.userInfo.end())
    info = it->second.isString() ? it->second.asString() : wf::describe(it->second);
  else
    info = error.localizedDescription();
  std::fprintf(stderr, "openmeta: %s: %s %ld: %s\n", subject.c_str(), error.domain.c_str(),
               error.code, info.c_str());
}

void printUsageError(const std::string& command, const std::string& message) {
  if (command.empty())
    std::fprintf(stderr, "openmeta: %s\nTry 'openmeta --help'.\n", message.c_str());
  else
    std::fprintf(stderr, "openmeta %s: %s\nTry 'openmeta %s --help'.\n", command.c_str(),
                 message.c_str(), command.c_str());
}

}  // namespace openmeta_tool
