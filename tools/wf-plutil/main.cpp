// wf-plutil: checks, prints and converts property lists with the helper's
// own codec, for systems that have no plutil.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "PrettyPrint.h"
#include "platform/plist/PropertyList.h"

namespace {

const char kUsage[] =
    "usage: wf-plutil <command> [options] file...\n"
    "\n"
    "Commands:\n"
    "  -lint file...                     check that each file is a valid property list\n"
    "  -p file                           print the property list in a readable form\n"
    "  -convert xml1|binary1 [-o out] file...\n"
    "                                    rewrite each file in the given format, in place\n"
    "                                    or to `out` (\"-\" for standard output)\n"
    "  -help                             show this text\n"
    "\n"
    "Files that cannot be read are reported and left untouched; the exit status\n"
    "is 1 when any file fails, 0 otherwise.\n";

int usageError(const std::string& message) {
  std::fprintf(stderr, "wf-plutil: %s\n\n%s", message.c_str(), kUsage);
  return 1;
}

// Reads a file for the commands below; "-" is standard input.
bool load(const std::string& path, wf::Value& v, std::string& error) {
  if (path != "-") {
    v = wf::plist::readFile(path, &error);
    return !v.isNil();
  }
  std::string bytes;
  char buf[65536];
  ssize_t n;
  while ((n = ::read(STDIN_FILENO, buf, sizeof buf)) != 0) {
    if (n < 0) {
      if (errno == EINTR) continue;
      error = std::string("cannot read standard input: ") + std::strerror(errno);
      return false;
    }
    bytes.append(buf, static_cast<std::size_t>(n));
  }
  std::string message;
  v = wf::plist::parse(bytes, &message);
  if (v.isNil()) error = "<stdin>: " + message;
  return !v.isNil();
}

int lint(const std::vector<std::string>& files) {
  int status = 0;
  for (const std::string& path : files) {
    wf::Value v;
    std::string error;
    if (load(path, v, error)) {
      std::printf("%s: OK\n", path.c_str());
    } else {
      std::fprintf(stderr, "%s\n", error.c_str());
      status = 1;
    }
  }
  return status;
}

int print(const std::vector<std::string>& files) {
  int status = 0;
  for (const std::string& path : files) {
    wf::Value v;
    std::string error;
    if (!load(path, v, error)) {
      std::fprintf(stderr, "%s\n", error.c_str());
      status = 1;
      continue;
    }
    std::string text = wf::plutil::prettyPrint(v);
    std::fwrite(text.data(), 1, text.size(), stdout);
  }
  return status;
}

bool writeOut(const std::string& out, const std::string& bytes, std::string& error) {
  if (out == "-") {
    if (std::fwrite(bytes.data(), 1, bytes.size(), stdout) != bytes.size() ||
        std::fflush(stdout) != 0) {
      error = std::string("cannot write standard output: ") + std::strerror(errno);
      return false;
    }
    return true;
  }
  return wf::plist::writeFileAtomically(out, bytes, &error);
}

int convert(const std::string& format, const std::string& out,
            const std::vector<std::string>& files) {
  wf::plist::Format f;
  if (format == "xml1")
    f = wf::plist::Format::XML;
  else if (format == "binary1")
    f = wf::plist::Format::Binary;
  else
    return usageError("unknown format \"" + format + "\" (use xml1 or binary1)");
  if (!out.empty() && files.size() != 1) return usageError("-o needs exactly one input file");
  int status = 0;
  for (const std::string& path : files) {
    wf::Value v;
    std::string error, bytes;
    if (!load(path, v, error)) {
      std::fprintf(stderr, "%s\n", error.c_str());
      status = 1;
      continue;
    }
    if (!wf::plist::serialize(v, f, bytes, &error)) {
      std::fprintf(stderr, "%s: %s\n", path.c_str(), error.c_str());
      status = 1;
      continue;
    }
    // In place, or to -o; standard input converts to standard output.
    std::string target = out.empty() ? path : out;
    if (!writeOut(target, bytes, error)) {
      std::fprintf(stderr, "%s\n", error.c_str());
      status = 1;
    }
  }
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  if (args.empty()) return usageError("no command given");
  const std::string command = args[0];
  if (command == "-help" || command == "--help" || command == "-h") {
    std::fputs(kUsage, stdout);
    return 0;
  }
  std::vector<std::string> files;
  std::string format, out;
  for (std::size_t i = 1; i < args.size(); ++i) {
    const std::string& a = args[i];
    if (command == "-convert" && format.empty() && i == 1) {
      format = a;
    } else if (command == "-convert" && a == "-o") {
      if (i + 1 >= args.size()) return usageError("-o needs a file name");
      out = args[++i];
    } else if (a == "--") {
      files.insert(files.end(), args.begin() + static_cast<std::ptrdiff_t>(i) + 1, args.end());
      break;
    } else if (a.size() > 1 && a[0] == '-') {
      return usageError("unknown option " + a);
    } else {
      files.push_back(a);
    }
  }
  if (command == "-convert" && format.empty()) return usageError("-convert needs a format");
  if (files.empty()) return usageError("no files given");
  if (command == "-lint") return lint(files);
  if (command == "-p") return print(files);
  if (command == "-convert") return convert(format, out, files);
  return usageError("unknown command " + command);
}
