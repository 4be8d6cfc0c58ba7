// Default URL-scheme handlers through $XDG_CONFIG_HOME/mimeapps.list: the
// handler of scheme S is the default application of
// "x-scheme-handler/S" in [Default Applications].
#pragma once

#include <string>

#include "platform/Platform.h"
#include "platform/UrlHandlers.h"

namespace wf::platform {

class MimeAppsUrlHandlers : public UrlHandlers {
 public:
  MimeAppsUrlHandlers(const Environment& environment, Workspace& workspace)
      : environment_(environment), workspace_(workspace) {}
  // kLSApplicationNotFoundErr when no desktop entry "<id>.desktop" is
  // installed; kLSUnknownErr when the scheme is no URL scheme or the list
  // cannot be read or written. The list is replaced atomically and only when
  // it changes.
  long setDefaultHandlerForURLScheme(const std::string& scheme,
                                     const std::string& bundleIdentifier) override;

  // -10814: which desktop entry is missing where, and that the schemes keep
  // their handler; -10810: the list that could not be written.
  std::string explainFailure(long status, const std::string& bundleIdentifier,
                             const std::vector<std::string>& schemes) const override;

  std::string mimeAppsListPath() const;

 private:
  const Environment& environment_;
  Workspace& workspace_;
};

}  // namespace wf::platform
