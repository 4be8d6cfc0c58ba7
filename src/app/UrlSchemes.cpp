#include "app/WFHelperAppDelegate.h"
#include "platform/UrlHandlers.h"

namespace wf {

void WFHelperAppDelegate::registerWrenfoldUrlSchema() {
  // The plug-in answers these URLs inside Mail, so Mail must receive them.
  // Done at every launch: a handler the user chose meanwhile is undone.
  struct Scheme {
    const char* name;
    const char* failure;
  };
  static constexpr Scheme kSchemes[] = {
      {"wrenfoldlog", "Couldn't set handler for Wrenfold wfdefaults: %ld"},
      {"wrenfoldkeyword", "Couldn't set handler for Wrenfold Keyword Search: %ld"},
      // The short form has always logged the long form's text.
      {"wfkw", "Couldn't set handler for Wrenfold Keyword Search: %ld"},
      {"wrenfoldproject", "Couldn't set handler for Wrenfold Project Search: %ld"},
  };
  platform::UrlHandlers* handlers = services_.urlHandlers;
  if (!handlers) return;
  for (const Scheme& scheme : kSchemes) {
    long status = handlers->setDefaultHandlerForURLScheme(scheme.name, "com.apple.mail");
    if (status != 0) NSLog(scheme.failure, status);
  }
}

}  // namespace wf
