// The lowest layer of the store: attribute names, the size limit, the
// system calls and their errors.
#include <cerrno>
#include <cstring>

#include "openmeta/AttributeValue.h"
#include "openmeta/OpenMeta.h"
#include "platform/ExtendedAttributes.h"

namespace wf {

using openmeta::attributes;
using openmeta::posixError;
using openmeta::storeError;

namespace {

std::string systemName(const std::string& name) { return OpenMeta::kAttributeNamespace + name; }

platform::ExtendedAttributes* gTestAttributes = nullptr;

}  // namespace

platform::ExtendedAttributes& openmeta::attributes() {
  return gTestAttributes ? *gTestAttributes : platform::systemExtendedAttributes();
}

void OpenMeta::setExtendedAttributesForTesting(platform::ExtendedAttributes* replacement) {
  gTestAttributes = replacement;
}

std::string OpenMeta::spotlightKey(std::string_view key) {
  return std::string("com.apple.metadata:").append(key);
}

std::string OpenMeta::openmetaKey(std::string_view key) {
  return std::string("org.openmetainfo:").append(key);
}

std::string OpenMeta::errnoString(int value) {
  char buffer[1024];
  buffer[0] = '\0';
  // The GNU strerror_r may return a static text instead of filling the buffer.
  const char* text = strerror_r(value, buffer, sizeof buffer);
  if (!text) text = "";
  std::string s = "errno error: ";
  s += std::to_string(value);
  s += ", ";
  s += text;
  return s;
}

OptError OpenMeta::setXAttr(const Value& plist, const std::string& name, const std::string& path) {
  if (!openmeta::hasFileSystemRepresentation(path))
    return storeError(kParameterError, kParameterErrorText);
  const std::string attribute = systemName(name);

  std::string bytes;
  bool haveBytes = false;
  if (!plist.isNil()) {
    OptError error;
    if (!openmeta::encodeAttributeValue(plist, bytes, &error)) return error;
    haveBytes = true;
  }

  sys::Result<void> result = sys::success();
  if (haveBytes) {
    if (bytes.size() > kMaxValueSize) return storeError(kTooBigError, kMetaDataTooBig);
    result = attributes().set(path, attribute, bytes);
  } else {
    result = attributes().remove(path, attribute);
  }
  if (!result) return posixError(result.error().errnoValue());
  return std::nullopt;
}

Value OpenMeta::getXAttr(const std::string& name, const std::string& path, OptError* error) {
  if (!openmeta::hasFileSystemRepresentation(path)) {
    if (error) *error = storeError(kParameterError, kParameterErrorText);
    return Value();
  }
  const std::string attribute = systemName(name);
  const sys::Result<std::string> value = attributes().get(path, attribute, kMaxValueSize);
  if (!value || value->empty()) {
    // A zero-length attribute is an error with no errno (0).
    const int err = value ? 0 : value.error().errnoValue();
    if (err == ENODATA || err == EINVAL) return Value();
    if (error) *error = posixError(err);
    return Value();
  }
  OptError parseError;
  Value v = openmeta::decodeAttributeValue(*value, &parseError);
  if (v.isNil()) {
    if (error) *error = std::move(parseError);
    return Value();
  }
  if (error) error->reset();
  return v;
}

OptError OpenMeta::setXAttrMetaData(const Value& plist, const std::string& metaDataKey,
                                    const std::string& path) {
  return setXAttr(plist, spotlightKey(metaDataKey), path);
}

Value OpenMeta::getXAttrMetaData(const std::string& metaDataKey, const std::string& path,
                                 OptError* error) {
  return getXAttr(spotlightKey(metaDataKey), path, error);
}

}  // namespace wf
