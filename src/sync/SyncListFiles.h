// The names of the four list files that travel through the sync folder.
#pragma once

#include <string>
#include <vector>

namespace wf {

const std::vector<std::string>& syncListFileNames();

}  // namespace wf
