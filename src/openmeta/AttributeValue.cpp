#include "openmeta/AttributeValue.h"

#include <chrono>
#include <cmath>
#include <cstring>

#include "openmeta/OpenMeta.h"
#include "platform/plist/PropertyList.h"

namespace wf::openmeta {

Error storeError(long code, std::string info) {
  Error e;
  e.domain = OpenMeta::kErrorDomain;
  e.code = code;
  e.userInfo.emplace(OpenMeta::kInfoKey, Value(std::move(info)));
  return e;
}

Error posixError(int err) {
  Error e = Error::posix(err);
  e.userInfo.clear();
  e.userInfo.emplace(OpenMeta::kInfoKey, Value(OpenMeta::errnoString(err)));
  return e;
}

bool hasFileSystemRepresentation(const std::string& path) {
  return !path.empty() && path.find('\0') == std::string::npos;
}

bool writesXMLValues() { return std::floor(OpenMeta::appKitVersionNumber()) >= 1343; }

bool encodeAttributeValue(const Value& value, std::string& out, OptError* error) {
  std::string message;
  const plist::Format format = writesXMLValues() ? plist::Format::XML : plist::Format::Binary;
  if (plist::serialize(value, format, out, &message)) return true;
  if (error) *error = storeError(OpenMeta::kSerializationError, std::move(message));
  return false;
}

Value decodeAttributeValue(std::string_view bytes, OptError* error) {
  std::string message;
  Value v = plist::parse(bytes, &message);
  if (v.isNil() && error) *error = storeError(OpenMeta::kSerializationError, std::move(message));
  return v;
}

Date currentDate() {
  using namespace std::chrono;
  // 2001-01-01 00:00:00 UTC in Unix seconds.
  constexpr double kReferenceDate = 978307200.0;
  const double unix = duration<double>(system_clock::now().time_since_epoch()).count();
  return Date{unix - kReferenceDate};
}

}  // namespace wf::openmeta
