// A program outside the project that uses the installed OpenMeta store:
// built with nothing but `pkg-config --cflags --libs wrenfold-openmeta`.
// Tags a file, reads the tags back and prints them; exit status 77 when the
// file system keeps no user attributes.
#include <openmeta/OpenMeta.h>

#include <cerrno>
#include <cstdio>

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  const std::string path = argv[1];
  wf::Value tags(wf::Array{wf::Value("Work"), wf::Value("work"), wf::Value("Home")});
  if (wf::OptError error = wf::OpenMeta::setUserTags(tags, path)) {
    if (error->domain == "NSPOSIXErrorDomain" && error->code == ENOTSUP) return 77;
    std::fprintf(stderr, "setUserTags: %s\n", error->localizedDescription().c_str());
    return 1;
  }
  wf::OptError error;
  const wf::Value read = wf::OpenMeta::getUserTags(path, &error);
  if (error || !read.isArray()) return 1;
  for (const wf::Value& tag : read.asArray()) std::printf("%s\n", tag.asString().c_str());
  return 0;
}
