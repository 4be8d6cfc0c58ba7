#include "app/StatusReport.h"

#include <cmath>
#include <cstdio>
#include <ctime>

#include "app/WFHelperAppDelegate.h"

namespace wf {
namespace {

constexpr double kUnixFrom2001 = 978307200.0;

Value time(double since2001) { return Value(isoTime(since2001)); }
Value count(std::uint64_t n) { return Value(static_cast<long long>(n)); }

Value folderWatch(const FolderWatchStatus& w, Dictionary d) {
  d.emplace("path", Value(w.path));
  d.emplace("fileSystem", Value(w.fileSystem));
  d.emplace("watch", Value(w.watch));
  if (!w.reason.empty()) d.emplace("reason", Value(w.reason));
  return Value(std::move(d));
}

Value syncFolder(const SyncFolderStatus& s) {
  Dictionary lists;
  for (const auto& [name, l] : s.lists)
    lists.emplace(name,
                  Value(Dictionary{{"lastPush", time(l.lastPushTime)},
                                   {"lastPushOutcome", Value(l.lastPushOutcome)},
                                   {"lastAnnouncement", time(l.lastAnnouncementTime)},
                                   {"lastAnnouncementOutcome", Value(l.lastAnnouncementOutcome)}}));
  Array conflicts;
  for (const auto& c : s.conflicts)
    conflicts.emplace_back(Dictionary{{"path", Value(c.path)},
                                      {"list", Value(c.list)},
                                      {"engine", Value(c.engine)},
                                      {"seen", time(c.seenTime)}});
  Array refused;
  for (const auto& r : s.refused)
    refused.emplace_back(
        Dictionary{{"path", Value(r.path)}, {"reason", Value(r.reason)}, {"time", time(r.time)}});
  return folderWatch(s, Dictionary{{"lists", Value(std::move(lists))},
                                   {"conflicts", Value(std::move(conflicts))},
                                   {"refused", Value(std::move(refused))}});
}

Value mailStore(const MailStoreStatus& m) {
  Array reasons;
  for (const auto& r : m.lastRefusedReasons) reasons.emplace_back(r);
  return folderWatch(m, Dictionary{{"watchesHeld", count(m.watchesHeld)},
                                   {"watchLimit", count(m.watchLimit)},
                                   {"overflowsRecovered", count(m.overflowsRecovered)},
                                   {"imported", count(m.imported)},
                                   {"stubsLeft", count(m.stubsLeft)},
                                   {"nothingToDo", count(m.nothingToDo)},
                                   {"refused", count(m.refused)},
                                   {"lastRefusedReasons", Value(std::move(reasons))},
                                   {"pending", count(m.pending)}});
}

// The stream's own counters, read from memory at the moment of asking.
MailStoreStatus liveMailStore(WFHelperAppDelegate& d) {
  MailStoreStatus m = d.mailStoreStatus;
  if (d._openMetaStreamRef) {
    m.watchesHeld = d._openMetaStreamRef->watchesHeld();
    m.overflowsRecovered += d._openMetaStreamRef->overflowsRecovered();
  }
  return m;
}

Value intervalRun(const IntervalRunStatus& r) {
  Dictionary sources;
  for (const auto& [name, s] : r.sources)
    sources.emplace(name, Value(Dictionary{{"time", time(s.time)}, {"outcome", Value(s.outcome)}}));
  return Value(Dictionary{{"lastRun", time(r.lastRun)},
                          {"nextRun", time(r.nextRun)},
                          {"sources", Value(std::move(sources))}});
}

Value preferences(const std::vector<PreferenceStatus>& prefs) {
  Dictionary d;
  for (const auto& p : prefs)
    d.emplace(p.key, Value(Dictionary{{"value", Value(p.value)}, {"source", Value(p.source)}}));
  return Value(std::move(d));
}

Value failures(const ProcessFacts& facts) {
  Array a;
  for (const auto& [t, line] : facts.recentFailures)
    a.emplace_back(Dictionary{{"time", time(t)}, {"line", Value(line)}});
  return Value(std::move(a));
}

std::string withThousands(std::int64_t n) {
  std::string digits = std::to_string(n < 0 ? -n : n);
  std::string out;
  for (std::size_t i = 0; i < digits.size(); ++i) {
    if (i > 0 && (digits.size() - i) % 3 == 0) out += ',';
    out += digits[i];
  }
  return (n < 0 ? "-" : "") + out;
}

std::string str(const Value& v, std::string_view key) {
  Value x = v.get(key);
  return x.isString() ? x.asString() : std::string();
}

std::string watchText(const Value& folder) {
  std::string watch = str(folder, "watch");
  if (watch == "off") return "off: " + str(folder, "reason");
  std::string fs = str(folder, "fileSystem");
  return fs.empty() || watch == "inotify" ? watch : watch + ": " + fs;
}

std::string homeShortened(const std::string& path) {
  const char* home = std::getenv("HOME");
  std::string h = home ? home : "";
  if (!h.empty() && path.rfind(h + "/", 0) == 0) return "~" + path.substr(h.size());
  return path;
}

void appendJson(std::string& out, const Value& v);

void appendJsonString(std::string& out, const std::string& s) {
  out += '"';
  for (unsigned char c : s) {
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\t':
        out += "\\t";
        break;
      default:
        if (c < 0x20) {
          char buf[8];
          std::snprintf(buf, sizeof buf, "\\u%04x", c);
          out += buf;
        } else {
          out += static_cast<char>(c);
        }
    }
  }
  out += '"';
}

void appendJson(std::string& out, const Value& v) {
  switch (v.type()) {
    case Value::Type::Boolean:
      out += v.asBool() ? "true" : "false";
      break;
    case Value::Type::Integer:
      out += std::to_string(v.asInteger());
      break;
    case Value::Type::Unsigned:
      out += std::to_string(v.asUnsigned());
      break;
    case Value::Type::Real: {
      if (!std::isfinite(v.asReal())) {
        out += "null";
        break;
      }
      char buf[32];
      std::snprintf(buf, sizeof buf, "%.17g", v.asReal());
      out += buf;
      break;
    }
    case Value::Type::String:
      appendJsonString(out, v.asString());
      break;
    case Value::Type::Array: {
      out += '[';
      bool first = true;
      for (const Value& e : v.asArray()) {
        if (!first) out += ',';
        first = false;
        appendJson(out, e);
      }
      out += ']';
      break;
    }
    case Value::Type::Dictionary: {
      out += '{';
      bool first = true;
      for (const auto& [k, e] : v.asDictionary()) {
        if (!first) out += ',';
        first = false;
        appendJsonString(out, k);
        out += ':';
        appendJson(out, e);
      }
      out += '}';
      break;
    }
    default:
      out += "null";
      break;
  }
}

}  // namespace

std::string isoTime(double since2001) {
  if (since2001 == 0) return "";
  auto t = static_cast<time_t>(std::floor(since2001 + kUnixFrom2001));
  tm utc;
  gmtime_r(&t, &utc);
  char buf[32];
  std::strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%SZ", &utc);
  return buf;
}

Value statusReport(WFHelperAppDelegate& d, const ProcessFacts& facts) {
  return Value(Dictionary{{"pid", Value(facts.pid)},
                          {"version", Value(facts.version)},
                          {"launched", time(facts.launched)},
                          {"bus", Value(facts.bus)},
                          {"log", Value(facts.log)},
                          {"droppedLogLines", count(facts.droppedLogLines)},
                          {"preferences", preferences(d.preferences)},
                          {"syncFolder", syncFolder(d.syncStatus)},
                          {"mailStore", mailStore(liveMailStore(d))},
                          {"intervalRun", intervalRun(d.intervalStatus)},
                          {"recentFailures", failures(facts)}});
}

std::string statusSummaryLine(const Value& report) {
  Value mail = report.get("mailStore");
  Value sync = report.get("syncFolder");
  std::string line;
  if (str(mail, "watch") == "off")
    line = "Mail store not watched (" + str(mail, "reason") + ")";
  else
    line = "Watching " + withThousands(mail.get("watchesHeld").integerValue()) + " mail folders (" +
           watchText(mail) + ")";
  if (!str(sync, "path").empty()) {
    line += str(sync, "watch") == "off" ? " and not " : " and ";
    line += homeShortened(str(sync, "path")) + " (" + watchText(sync) + ")";
  }
  line += "; " + withThousands(mail.get("imported").integerValue()) + " imports, " +
          withThousands(static_cast<std::int64_t>(report.get("recentFailures").count())) +
          " failures";
  return line;
}

std::string statusJson(const Value& report) {
  std::string out;
  appendJson(out, report);
  return out + "\n";
}

std::string statusText(const Value& report) {
  std::string out = "wrenfold-helper " + str(report, "version") + ", pid " +
                    std::to_string(report.get("pid").integerValue()) + ", launched " +
                    str(report, "launched") + "\n";
  out += statusSummaryLine(report) + "\n";
  Value run = report.get("intervalRun");
  if (!str(run, "lastRun").empty())
    out += "Interval run: last " + str(run, "lastRun") + ", next " + str(run, "nextRun") + "\n";
  if (std::int64_t dropped = report.get("droppedLogLines").integerValue())
    out += "Log lines dropped: " + std::to_string(dropped) + "\n";
  Value failures = report.get("recentFailures");
  if (failures.count() > 0) {
    const Value& last = failures.asArray().back();
    std::string line = str(last, "line");
    if (auto nl = line.find('\n'); nl != std::string::npos) line = line.substr(0, nl);
    out += "Last failure (" + str(last, "time") + "): " + line + "\n";
  }
  return out;
}

}  // namespace wf
