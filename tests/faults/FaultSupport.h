// Small helpers of the fault and security tests: message files with the
// plug-in's time stamp, Spotlight attributes as the helper reads them, and walks of
// a folder tree for temporary files and for every file's bytes.
#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

#include "platform/plist/Value.h"
#include "support/Attributes.h"
#include "support/ListFiles.h"
#include "support/Messages.h"

namespace wf::faults {

using test::list;  // the list files that travel must be whole lists

using test::wrenfoldMessage;

// Writes the file and gives it the plug-in's time stamp attribute (a date
// long past), which the watcher needs before it imports a message.
void writeMessage(const std::string& path, const std::string& bytes);

using test::hasSpotlightAttribute;
using test::setRawSpotlightAttribute;
using test::setSpotlightAttribute;
using test::spotlightAttribute;

// Every regular file below `root` (links not followed) with its bytes.
std::map<std::string, std::string> filesBelow(const std::string& root);
// Entries below `root` named like the temporaries of the atomic writers
// (".name.tmp-*", ".name.wfcopy-*").
std::vector<std::string> temporariesBelow(const std::string& root);

void makeFolders(const std::string& path);

}  // namespace wf::faults
