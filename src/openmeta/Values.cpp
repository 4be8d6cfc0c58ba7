// Ratings, plain values and arrays under metadata keys.
#include "openmeta/AttributeUndo.h"
#include "openmeta/AttributeValue.h"
#include "openmeta/OpenMeta.h"

namespace wf {

using openmeta::storeError;

OptError OpenMeta::setRating(double rating, const std::string& path) {
  // Removing a rating leaves its time stamp as it was.
  if (!(rating > 0)) return setXAttrMetaData(Value(), kStarRatingKey, path);
  if (rating > 5.0) rating = 5.0;
  // The time and the rating, both or neither.
  openmeta::AttributeUndo undo;
  for (const char* key : {kRatingTimeKey, kStarRatingKey})
    if (OptError e = undo.remember(path, openmeta::metaDataAttribute(key))) return e;
  OptError e = setXAttrMetaData(Value(openmeta::currentDate()), kRatingTimeKey, path);
  if (!e) e = setXAttrMetaData(Value(rating), kStarRatingKey, path);
  if (e) undo.restore();
  return e;
}

double OpenMeta::getRating(const std::string& path, OptError* error) {
  return getXAttrMetaData(kStarRatingKey, path, error).doubleValue();
}

OptError OpenMeta::setString(const Value& value, const std::string& keyName,
                             const std::string& path) {
  return setXAttrMetaData(value, keyName, path);
}

Value OpenMeta::getString(const std::string& keyName, const std::string& path, OptError* error) {
  return getXAttrMetaData(keyName, path, error);
}

Value OpenMeta::getNSArrayMetaData(const std::string& metaDataKey, const std::string& path,
                                   OptError* error) {
  Value v = getXAttrMetaData(metaDataKey, path, error);
  return v.isArray() ? v : Value();
}

OptError OpenMeta::setNSArrayMetaData(const Value& array, const std::string& metaDataKey,
                                      const std::string& path) {
  if (!array.isArray()) return storeError(kParameterError, kParameterErrorText);
  return setXAttrMetaData(array, metaDataKey, path);
}

OptError OpenMeta::addToNSArrayMetaData(const Value& items, const std::string& metaDataKey,
                                        const std::string& path) {
  OptError readError;
  const Value existing = getNSArrayMetaData(metaDataKey, path, &readError);
  Array updated = existing.isArray() ? existing.asArray() : Array();
  bool changed = false;
  if (items.isArray()) {
    for (const Value& item : items.asArray()) {
      bool present = false;
      for (const Value& held : updated)
        if (held == item) {
          present = true;
          break;
        }
      if (present) continue;
      updated.push_back(item);
      changed = true;
    }
  }
  if (!changed) return readError;
  return setXAttrMetaData(Value(std::move(updated)), metaDataKey, path);
}

}  // namespace wf
