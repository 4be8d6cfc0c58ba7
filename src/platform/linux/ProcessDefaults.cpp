#include "platform/linux/ProcessDefaults.h"

#include <sys/stat.h>

#include "platform/plist/PropertyList.h"

namespace wf::platform {

Dictionary parseArgumentDomain(const std::vector<std::string>& arguments) {
  Dictionary::Entries domain;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& arg = arguments[i];
    if (arg.size() < 2 || arg[0] != '-') continue;
    if (i + 1 >= arguments.size()) break;
    domain.emplace_back(arg.substr(1), Value(arguments[i + 1]));
    ++i;
  }
  return Dictionary::fromEntries(std::move(domain));  // a later pair wins
}

ProcessDefaults::ProcessDefaults(Dictionary arguments, std::string domainFile)
    : arguments_(std::move(arguments)), file_(std::move(domainFile)) {}

Value ProcessDefaults::objectForKey(const std::string& key) {
  if (auto it = arguments_.find(key); it != arguments_.end()) return it->second;
  const Dictionary& own = ownDomain();
  if (auto it = own.find(key); it != own.end()) return it->second;
  return {};
}

const Dictionary& ProcessDefaults::ownDomain() {
  struct stat st;
  if (file_.empty() || stat(file_.c_str(), &st) != 0) {
    own_.clear();
    seen_ = false;
    return own_;
  }
  bool same = seen_ && st.st_dev == dev_ && st.st_ino == ino_ && st.st_size == size_ &&
              st.st_mtim.tv_sec == mtime_.tv_sec && st.st_mtim.tv_nsec == mtime_.tv_nsec &&
              st.st_ctim.tv_sec == ctime_.tv_sec && st.st_ctim.tv_nsec == ctime_.tv_nsec;
  if (same) return own_;
  seen_ = true;
  dev_ = st.st_dev;
  ino_ = st.st_ino;
  size_ = st.st_size;
  mtime_ = st.st_mtim;
  ctime_ = st.st_ctim;
  // A file that is no property-list dictionary holds no defaults.
  Value read = plist::dictionaryWithContentsOfFile(file_);
  own_ = read.isDictionary() ? read.asDictionary() : Dictionary{};
  return own_;
}

}  // namespace wf::platform
