// The scripts that ask Things and Things 3 for their active projects. They
// are handed to the application exactly as written here.
#pragma once

namespace wf {

extern const char* const kThingsProjectsScript;
extern const char* const kThings3ProjectsScript;

}  // namespace wf
