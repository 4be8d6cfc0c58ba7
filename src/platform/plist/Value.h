// Property-list values: the currency of every file and attribute the helper
// reads or writes. Immutable and cheap to copy: containers, strings and data
// are shared, scalars are held inline.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

namespace wf {

class Value;
class Dictionary;  // platform/plist/Dictionary.h, included at the end
using Array = std::vector<Value>;
using Data = std::vector<std::uint8_t>;

// Seconds since 2001-01-01 00:00:00 UTC, as Foundation keeps dates.
struct Date {
  double seconds = 0;
  static Date distantPast() { return {-63114076800.0}; }   // 0001-01-01
  static Date distantFuture() { return {63113904000.0}; }  // 4001-01-01
  bool operator==(const Date& o) const { return seconds == o.seconds; }
};

// A keyed archive's reference to one of its objects (CFKeyedArchiverUID):
// a number of its own kind that equals only another UID of the same number.
struct Uid {
  std::uint64_t value = 0;
  bool operator==(const Uid& o) const { return value == o.value; }
};

class Value {
 public:
  enum class Type : std::uint8_t {
    Nil,   // no object at all
    Null,  // NSNull: a placeholder object, never serialised
    Boolean,
    Integer,   // signed 64-bit
    Unsigned,  // unsigned 64-bit above the signed range
    Real,
    String,  // UTF-8
    Date,
    Data,
    Array,
    Dictionary,
    Uid,  // keyed-archive object reference
  };

  Value() noexcept = default;
  static Value null();

  // A bool constructor that a pointer or integer cannot select by accident.
  template <typename B, std::enable_if_t<std::is_same_v<B, bool>, int> = 0>
  Value(B b) : v_(b) {}
  Value(int i) : v_(static_cast<std::int64_t>(i)) {}
  Value(long i) : v_(static_cast<std::int64_t>(i)) {}
  Value(long long i) : v_(static_cast<std::int64_t>(i)) {}
  Value(unsigned i) : v_(static_cast<std::int64_t>(i)) {}
  Value(unsigned long u) { setUnsigned(u); }
  Value(unsigned long long u) { setUnsigned(u); }
  Value(double d) : v_(d) {}
  Value(const char* s);
  Value(std::string_view s);
  Value(std::string s);
  Value(Date d) : v_(d) {}
  Value(Uid u) : v_(u) {}
  Value(Data d);
  Value(Array a);
  Value(Dictionary d);

  Type type() const {
    std::size_t i = v_.index();
    if (i == 0) return std::get<0>(v_).null ? Type::Null : Type::Nil;
    return static_cast<Type>(i + 1);
  }
  bool isNil() const { return type() == Type::Nil; }
  bool isNull() const { return type() == Type::Null; }
  bool isBoolean() const { return type() == Type::Boolean; }
  bool isInteger() const { return type() == Type::Integer || type() == Type::Unsigned; }
  bool isReal() const { return type() == Type::Real; }
  // NSNumber: booleans, integers and reals alike.
  bool isNumber() const;
  bool isString() const { return type() == Type::String; }
  bool isDate() const { return type() == Type::Date; }
  bool isData() const { return type() == Type::Data; }
  bool isArray() const { return type() == Type::Array; }
  bool isDictionary() const { return type() == Type::Dictionary; }
  bool isUid() const { return type() == Type::Uid; }

  // Typed access; the type must match (checked, throws std::bad_variant_access).
  bool asBool() const { return std::get<bool>(v_); }
  std::int64_t asInteger() const { return std::get<std::int64_t>(v_); }
  std::uint64_t asUnsigned() const { return std::get<std::uint64_t>(v_); }
  double asReal() const { return std::get<double>(v_); }
  const std::string& asString() const { return *std::get<StrP>(v_); }
  Date asDate() const { return std::get<Date>(v_); }
  const Data& asData() const { return *std::get<DataP>(v_); }
  const Array& asArray() const { return *std::get<ArrP>(v_); }
  const Dictionary& asDictionary() const { return *std::get<DictP>(v_); }
  Uid asUid() const { return std::get<Uid>(v_); }

  // NSNumber / NSString conversions. Other types give NO / 0.
  bool boolValue() const;
  std::int64_t integerValue() const;
  std::uint64_t unsignedIntegerValue() const;
  double doubleValue() const;

  // Dictionary lookup: nullptr when absent or when this is no dictionary.
  const Value* find(std::string_view key) const;
  // The same as a value: nil when absent.
  Value get(std::string_view key) const;
  // valueForKeyPath: of dictionaries ("a.b.c"); nil where the path breaks.
  Value valueForKeyPath(std::string_view keyPath) const;
  // Array count, dictionary count, 0 otherwise.
  std::size_t count() const;

  // Foundation's isEqual:, numbers by value across bool/int/real.
  bool operator==(const Value& other) const;
  bool operator!=(const Value& other) const { return !(*this == other); }

 private:
  using StrP = std::shared_ptr<const std::string>;
  using DataP = std::shared_ptr<const Data>;
  using ArrP = std::shared_ptr<const Array>;
  using DictP = std::shared_ptr<const Dictionary>;
  // Nil and NSNull share one alternative: with more than eleven, the
  // standard library dispatches copies and destruction through a table of
  // function pointers instead of a switch, which costs the readers ~15%.
  // Value-initialised (null false) as the variant's first alternative.
  struct Nothing {
    bool null;
    bool operator==(const Nothing& o) const { return null == o.null; }
  };
  void setUnsigned(unsigned long long u);

  std::variant<Nothing, bool, std::int64_t, std::uint64_t, double, StrP, Date, DataP, ArrP, DictP,
               Uid>
      v_;
};

}  // namespace wf

#include "platform/plist/Dictionary.h"
