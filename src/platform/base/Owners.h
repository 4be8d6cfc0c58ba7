// Owners of the resources the system hands out: file descriptors, directory
// streams and GLib memory and objects. Nothing outside this header calls a
// release function by hand.
#pragma once

#include <dirent.h>
#include <gio/gio.h>
#include <glib-object.h>
#include <glib.h>
#include <unistd.h>

#include <memory>
#include <utility>

namespace wf::sys {

class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : fd_(fd) {}
  ~UniqueFd() { reset(); }
  UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;

  int get() const { return fd_; }
  bool valid() const { return fd_ >= 0; }
  explicit operator bool() const { return valid(); }
  int release() { return std::exchange(fd_, -1); }
  void reset(int fd = -1) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
  }
  // close() whose result counts: a write-back error surfaces here.
  int closeChecked() {
    int fd = release();
    return fd >= 0 ? ::close(fd) : 0;
  }

 private:
  int fd_ = -1;
};

struct DirCloser {
  void operator()(DIR* d) const { ::closedir(d); }
};
using UniqueDir = std::unique_ptr<DIR, DirCloser>;

// GLib's release functions by type; GObject types are released with
// g_object_unref.
inline void gRelease(GError* p) { g_error_free(p); }
inline void gRelease(GVariant* p) { g_variant_unref(p); }
inline void gRelease(GVariantIter* p) { g_variant_iter_free(p); }
inline void gRelease(GVariantBuilder* p) { g_variant_builder_unref(p); }
inline void gRelease(GKeyFile* p) { g_key_file_unref(p); }
inline void gRelease(GDBusNodeInfo* p) { g_dbus_node_info_unref(p); }
inline void gRelease(GSource* p) { g_source_unref(p); }
inline void gRelease(GMainLoop* p) { g_main_loop_unref(p); }
inline void gRelease(GMainContext* p) { g_main_context_unref(p); }
inline void gRelease(char* p) { g_free(p); }
inline void gRelease(unsigned char* p) { g_free(p); }
inline void gRelease(GDateTime* p) { g_date_time_unref(p); }
inline void gRelease(char** p) { g_strfreev(p); }
// Every other type held by a GPtr is a GObject (GDBusConnection, GFile, …).
template <class T>
inline void gRelease(T* p) {
  g_object_unref(p);
}

template <class T>
struct GReleaser {
  void operator()(T* p) const {
    if (p) gRelease(p);
  }
};

template <class T>
using GPtr = std::unique_ptr<T, GReleaser<T>>;

// Takes ownership of a pointer GLib handed over ("transfer full").
template <class T>
GPtr<T> adoptG(T* p) {
  return GPtr<T>(p);
}

// The out-parameter of a GLib call that reports a GError:
//   GErrorOut err; if (!g_call(..., err.out())) use(err.get());
class GErrorOut {
 public:
  GError** out() {
    error_.reset();
    raw_ = nullptr;
    return &raw_;
  }
  // Owns what the call left behind.
  const GError* get() {
    if (raw_) error_.reset(std::exchange(raw_, nullptr));
    return error_.get();
  }
  ~GErrorOut() {
    if (raw_) g_error_free(raw_);
  }

 private:
  GError* raw_ = nullptr;
  GPtr<GError> error_;
};

}  // namespace wf::sys
