// Owners of GLib memory and objects, and the out-parameter of a GLib call
// that reports a GError. Apart from the base owners so that the base, the
// codec and the OpenMeta library reach no GLib header.
#pragma once

#include <gio/gio.h>
#include <glib-object.h>
#include <glib.h>

#include <memory>
#include <utility>

#include "platform/base/Result.h"

namespace wf::sys {

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

// A SysError carrying the GError's domain, code and message.
SysError fromGError(const GError* error);

}  // namespace wf::sys
