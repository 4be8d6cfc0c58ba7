#include <map>
#include <string>
#include <vector>

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
  std::map<long, std::vector<std::string>> failed;
  for (const Scheme& scheme : kSchemes) {
    long status = handlers->setDefaultHandlerForURLScheme(scheme.name, "com.apple.mail");
    if (status != 0) {
      NSLog(scheme.failure, status);
      failed[status].push_back(scheme.name);
    }
  }
  // The status speaks Launch Services; one more line per kind of failure
  // says in the platform's terms what is missing and what to do.
  for (const auto& [status, schemes] : failed) {
    std::string explanation = handlers->explainFailure(status, "com.apple.mail", schemes);
    if (!explanation.empty()) NSLogMessage(explanation);
  }
}

}  // namespace wf
