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

namespace detail {
template <class T>
T&& tryValue(Result<T>&& result) {
  return std::move(result).value();
}
inline void tryValue(Result<void>&& /*result*/) {}
}  // namespace detail

}  // namespace wf::sys

// Propagation in one line: evaluates a Result, returns its error from the
// function around it on failure, else yields the value (nothing for
// Result<void>):
//   UniqueFd fd = WF_TRY(openRegularFile(path));
//   WF_TRY(writeAll(fd.get(), bytes));
// A GNU statement expression, which GCC and Clang (the project's two
// compilers) both have: no standard C++ expression can return from the
// enclosing function, and the alternative, a declaring macro, cannot stand
// as the body of an unbraced if. __extension__ tells -Wpedantic it is meant.
#define WF_TRY(expr)                                     \
  __extension__({                                        \
    auto wfTryResult = (expr);                           \
    if (!wfTryResult) return wfTryResult.error();        \
    ::wf::sys::detail::tryValue(std::move(wfTryResult)); \
  })
