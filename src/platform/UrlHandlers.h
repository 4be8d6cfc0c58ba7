// Default handlers of URL schemes: which application opens a URL of a
// scheme. The helper makes Mail the handler of the plug-in's schemes.
#pragma once

#include <string>
#include <vector>

namespace wf::platform {

// Launch Services' status when no application has the identifier.
constexpr long kLSApplicationNotFoundErr = -10814;
// Launch Services' status for any other failure (the setting could not be
// stored).
constexpr long kLSUnknownErr = -10810;

class UrlHandlers {
 public:
  virtual ~UrlHandlers() = default;
  // Makes the application `bundleIdentifier` the default handler of
  // `scheme`; 0 on success, else a Launch Services status.
  virtual long setDefaultHandlerForURLScheme(const std::string& scheme,
                                             const std::string& bundleIdentifier) = 0;
  // What a failed `status` means here and what the user can do about it,
  // for the `schemes` that failed so; "" when there is nothing to add to
  // the status itself.
  virtual std::string explainFailure(long status, const std::string& bundleIdentifier,
                                     const std::vector<std::string>& schemes) const {
    (void)status, (void)bundleIdentifier, (void)schemes;
    return "";
  }
};

}  // namespace wf::platform
