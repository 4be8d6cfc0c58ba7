#include "Description.h"

#include "platform/plist/PropertyList.h"

namespace wf::test {

Value loadDescription(const Options& options) {
  Dictionary d;
  if (!options.descriptionFile.empty()) {
    Value file = plist::dictionaryWithContentsOfFile(options.descriptionFile);
    if (file.isDictionary()) d = file.asDictionary();
  }
  for (const auto& [key, value] : options.overrides) d[key] = value;
  return Value(std::move(d));
}

GVariant* resultVariant(const Value& v) {
  switch (v.type()) {
    case Value::Type::String:
      return g_variant_new_string(v.asString().c_str());
    case Value::Type::Boolean:
      return g_variant_new_boolean(v.asBool());
    case Value::Type::Integer:
    case Value::Type::Unsigned:
      return g_variant_new_int64(v.integerValue());
    case Value::Type::Real:
      return g_variant_new_double(v.asReal());
    case Value::Type::Array: {
      GVariantBuilder b;
      g_variant_builder_init(&b, G_VARIANT_TYPE("av"));
      for (const Value& item : v.asArray()) g_variant_builder_add(&b, "v", resultVariant(item));
      return g_variant_builder_end(&b);
    }
    case Value::Type::Dictionary: {
      GVariantBuilder b;
      g_variant_builder_init(&b, G_VARIANT_TYPE("a{sv}"));
      for (const auto& [key, item] : v.asDictionary())
        g_variant_builder_add(&b, "{sv}", key.c_str(), resultVariant(item));
      return g_variant_builder_end(&b);
    }
    default:
      return g_variant_new_string("");
  }
}

GVariant* propertyVariant(const Value& v, std::string& error) {
  if (v.isString()) return g_variant_new_string(v.asString().c_str());
  if (v.isDictionary()) {
    if (const Value* e = v.find("error")) {
      error = e->isString() ? e->asString() : "reading failed";
      return nullptr;
    }
    if (const Value* o = v.find("o");
        o && o->isString() && g_variant_is_object_path(o->asString().c_str()))
      return g_variant_new_object_path(o->asString().c_str());
  }
  if (v.isArray()) {
    GVariantBuilder b;
    g_variant_builder_init(&b, G_VARIANT_TYPE("ao"));
    for (const Value& p : v.asArray())
      if (p.isString() && g_variant_is_object_path(p.asString().c_str()))
        g_variant_builder_add(&b, "o", p.asString().c_str());
    return g_variant_builder_end(&b);
  }
  return resultVariant(v);
}

}  // namespace wf::test
