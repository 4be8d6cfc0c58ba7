// The user's home folder, looked up in one place: HOME when set, else the
// password database; empty when neither names one.
#pragma once

#include <string>

namespace wf::sys {

std::string homeFolder();

}  // namespace wf::sys
