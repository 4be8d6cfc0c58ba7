#include "app/CommandLine.h"

#include <set>

#include "platform/LogKeys.h"

namespace wf {

CommandLine readCommandLine(const std::vector<std::string>& arguments) {
  CommandLine line;
  bool sawStatus = false;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& word = arguments[i];
    if (word == "-h" || word == "-help" || word == "--help") {
      line.action = CommandLine::Action::Help;
      return line;
    }
    if (word == "--version") {
      line.action = CommandLine::Action::Version;
      return line;
    }
    if (word == "--status" || word == "--json") {
      bool status = word == "--status";
      (status ? sawStatus : line.json) = true;
      continue;
    }
    if (word == "--verbose") {
      line.verbose = true;
      continue;
    }
    bool isKey = word.size() >= 2 && word[0] == '-' && word[1] != '-';
    if (!isKey || i + 1 >= arguments.size()) {
      line.action = CommandLine::Action::Misuse;
      line.offending = word;
      return line;
    }
    line.pairs.push_back(word);
    line.pairs.push_back(arguments[++i]);
  }
  // --status takes no other words; --json means nothing without it.
  if (sawStatus && (line.verbose || !line.pairs.empty())) {
    line.action = CommandLine::Action::Misuse;
    line.offending = "--status";
  } else if (sawStatus) {
    line.action = CommandLine::Action::Status;
  } else if (line.json) {
    line.action = CommandLine::Action::Misuse;
    line.offending = "--json";
  }
  return line;
}

std::vector<std::string> argumentDomainWords(const CommandLine& line) {
  std::vector<std::string> words = line.pairs;
  if (!line.verbose) return words;
  std::set<std::string> given;
  for (std::size_t i = 0; i + 1 < line.pairs.size(); i += 2) given.insert(line.pairs[i].substr(1));
  for (const std::string& key : platform::logKeys()) {
    if (given.count("WF" + key)) continue;  // what the command line says itself wins
    words.push_back("-WF" + key);
    words.emplace_back("YES");
  }
  return words;
}

std::string misuseLine(const std::string& offending) {
  return "wrenfold-helper: unknown argument '" + offending +
         "' (usage: wrenfold-helper [--verbose] [-key value]... | --status [--json]; see "
         "wrenfold-helper --help)\n";
}

}  // namespace wf
