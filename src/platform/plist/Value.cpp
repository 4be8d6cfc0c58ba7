#include "platform/plist/Value.h"

#include <cmath>
#include <limits>

#include "platform/base/TextScan.h"

namespace wf {

Value Value::null() {
  Value v;
  v.v_ = Nothing{true};
  return v;
}

Value::Value(const char* s) : v_(std::make_shared<const std::string>(s ? s : "")) {}
Value::Value(std::string_view s) : v_(std::make_shared<const std::string>(s)) {}
Value::Value(std::string s) : v_(std::make_shared<const std::string>(std::move(s))) {}
Value::Value(Data d) : v_(std::make_shared<const Data>(std::move(d))) {}
Value::Value(Array a) : v_(std::make_shared<const Array>(std::move(a))) {}
Value::Value(Dictionary d) : v_(std::make_shared<const Dictionary>(std::move(d))) {}

void Value::setUnsigned(unsigned long long u) {
  // Values that fit the signed range are plain integers, as NSNumber keeps them.
  if (u <= static_cast<unsigned long long>(std::numeric_limits<std::int64_t>::max()))
    v_ = static_cast<std::int64_t>(u);
  else
    v_ = static_cast<std::uint64_t>(u);
}

bool Value::isNumber() const {
  switch (type()) {
    case Type::Boolean:
    case Type::Integer:
    case Type::Unsigned:
    case Type::Real:
      return true;
    default:
      return false;
  }
}

bool Value::boolValue() const {
  switch (type()) {
    case Type::Boolean:
      return asBool();
    case Type::Integer:
      return asInteger() != 0;
    case Type::Unsigned:
      return true;
    case Type::Real:
      return asReal() != 0.0;
    case Type::String:
      return text::boolValue(asString());
    default:
      return false;
  }
}

std::int64_t Value::integerValue() const {
  switch (type()) {
    case Type::Boolean:
      return asBool() ? 1 : 0;
    case Type::Integer:
      return asInteger();
    case Type::Unsigned:
      return static_cast<std::int64_t>(asUnsigned());
    case Type::Real: {
      double d = asReal();
      if (std::isnan(d)) return 0;
      if (d >= 9223372036854775807.0) return std::numeric_limits<std::int64_t>::max();
      if (d <= -9223372036854775808.0) return std::numeric_limits<std::int64_t>::min();
      return static_cast<std::int64_t>(d);
    }
    case Type::String:
      return text::integerValue(asString());
    default:
      return 0;
  }
}

std::uint64_t Value::unsignedIntegerValue() const {
  if (type() == Type::Unsigned) return asUnsigned();
  return static_cast<std::uint64_t>(integerValue());
}

double Value::doubleValue() const {
  switch (type()) {
    case Type::Boolean:
      return asBool() ? 1.0 : 0.0;
    case Type::Integer:
      return static_cast<double>(asInteger());
    case Type::Unsigned:
      return static_cast<double>(asUnsigned());
    case Type::Real:
      return asReal();
    case Type::String:
      return text::doubleValue(asString());
    default:
      return 0.0;
  }
}

const Value* Value::find(std::string_view key) const {
  if (!isDictionary()) return nullptr;
  const auto& d = asDictionary();
  auto it = d.find(key);
  return it == d.end() ? nullptr : &it->second;
}

Value Value::get(std::string_view key) const {
  const Value* v = find(key);
  return v ? *v : Value();
}

Value Value::valueForKeyPath(std::string_view keyPath) const {
  Value current = *this;
  while (true) {
    auto dot = keyPath.find('.');
    std::string_view key = keyPath.substr(0, dot);
    current = current.get(key);
    if (dot == std::string_view::npos || current.isNil()) return current;
    keyPath.remove_prefix(dot + 1);
  }
}

std::size_t Value::count() const {
  if (isArray()) return asArray().size();
  if (isDictionary()) return asDictionary().size();
  return 0;
}

namespace {

// Numbers compare by value as NSNumber does; NaN equals NaN so that a value
// read back from a file equals what was written.
bool numbersEqual(const Value& a, const Value& b) {
  using T = Value::Type;
  bool ar = a.type() == T::Real, br = b.type() == T::Real;
  if (!ar && !br) {
    bool au = a.type() == T::Unsigned, bu = b.type() == T::Unsigned;
    if (au || bu) return au && bu && a.asUnsigned() == b.asUnsigned();
    return a.integerValue() == b.integerValue();
  }
  if (ar && br) {
    double x = a.asReal(), y = b.asReal();
    if (std::isnan(x) || std::isnan(y)) return std::isnan(x) && std::isnan(y);
    return x == y;
  }
  // One real, one integral: equal only when the real is exactly that integer.
  const Value& i = ar ? b : a;
  double d = ar ? a.asReal() : b.asReal();
  if (std::isnan(d) || std::floor(d) != d) return false;
  if (i.type() == T::Unsigned)
    return d >= 9223372036854775808.0 && d < 18446744073709551616.0 &&
           static_cast<std::uint64_t>(d) == i.asUnsigned();
  if (d >= 9223372036854775808.0 || d < -9223372036854775808.0) return false;
  return static_cast<std::int64_t>(d) == i.integerValue();
}

}  // namespace

bool Value::operator==(const Value& other) const {
  if (isNumber() && other.isNumber()) return numbersEqual(*this, other);
  if (type() != other.type()) return false;
  switch (type()) {
    case Type::Nil:
    case Type::Null:
      return true;
    case Type::String:
      return std::get<StrP>(v_) == std::get<StrP>(other.v_) || asString() == other.asString();
    case Type::Date: {
      // As with reals, an undefined date equals itself so that it survives
      // a round trip through a file.
      double x = asDate().seconds, y = other.asDate().seconds;
      return x == y || (std::isnan(x) && std::isnan(y));
    }
    case Type::Data:
      return asData() == other.asData();
    case Type::Array:
      return std::get<ArrP>(v_) == std::get<ArrP>(other.v_) || asArray() == other.asArray();
    case Type::Dictionary:
      return std::get<DictP>(v_) == std::get<DictP>(other.v_) ||
             asDictionary() == other.asDictionary();
    case Type::Uid:
      return asUid() == other.asUid();
    default:
      return false;
  }
}

}  // namespace wf
