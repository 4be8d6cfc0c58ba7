// The one result type of every wrapper of a system call or GLib call: a
// value, or the error that the call reported (errno, or a GError's domain,
// code and message, see platform/glib/Owners.h). Foundation-shaped APIs
// translate it at their edge.
#pragma once

#include <string>
#include <utility>
#include <variant>

namespace wf::sys {

struct SysError {
  static constexpr const char* kErrnoDomain = "errno";

  std::string domain = kErrnoDomain;
  int code = 0;
  std::string message;

  static SysError fromErrno(int err);
  bool isErrno(int err) const { return domain == kErrnoDomain && code == err; }
  // errno when the error is one, else 0.
  int errnoValue() const { return domain == kErrnoDomain ? code : 0; }
  // "message (domain code)".
  std::string describe() const;
};

template <class T>
class [[nodiscard]] Result {
 public:
  Result(T value) : state_(std::in_place_index<0>, std::move(value)) {}
  Result(SysError error) : state_(std::in_place_index<1>, std::move(error)) {}

  bool ok() const { return state_.index() == 0; }
  explicit operator bool() const { return ok(); }
  T& value() & { return std::get<0>(state_); }
  const T& value() const& { return std::get<0>(state_); }
  T&& value() && { return std::get<0>(std::move(state_)); }
  T* operator->() { return &value(); }
  const T* operator->() const { return &value(); }
  T& operator*() & { return value(); }
  const T& operator*() const& { return value(); }
  const SysError& error() const { return std::get<1>(state_); }

 private:
  std::variant<T, SysError> state_;
};

template <>
class [[nodiscard]] Result<void> {
 public:
  Result() = default;
  Result(SysError error) : error_(std::move(error)), ok_(false) {}

  bool ok() const { return ok_; }
  explicit operator bool() const { return ok_; }
  const SysError& error() const { return error_; }

 private:
  SysError error_;
  bool ok_ = true;
};

inline Result<void> success() { return {}; }
inline SysError errnoError(int err) { return SysError::fromErrno(err); }

}  // namespace wf::sys
