// The verbs of wf-defaults; each returns the exit status.
#pragma once

#include <string>
#include <vector>

namespace wf::defaults {

using Args = std::vector<std::string>;

// The usage text, naming the program as it was run.
std::string usage(const std::string& program);

int read(const std::string& program, const Args& args);
int readType(const std::string& program, const Args& args);
int write(const std::string& program, const Args& args);
int remove(const std::string& program, const Args& args);
int rename(const std::string& program, const Args& args);
int domains(const std::string& program, const Args& args);
int find(const std::string& program, const Args& args);
int exportDomain(const std::string& program, const Args& args);
int importDomain(const std::string& program, const Args& args);

}  // namespace wf::defaults
