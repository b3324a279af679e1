#include "dravix/recorder/record_events.h"

#include "dravix/base/ztime.h"

#include <cstdio>
#include <map>
#include <sstream>

namespace dravix::recorder {
namespace {

std::string TimeText(int64_t fileTime) {
  SYSTEMTIME t{};
  FileTimeToSystemTime(Int64ToFileTime(fileTime), &t);
  return FormatSTTIME(t);
}

// A FormatSTTIME text at `p` ("2026/11/25 13:06:43:0664"); false when it
// is not one.
bool ParseTime(const char* p, int64_t* fileTime, int* used) {
  int y = 0, mo = 0, d = 0, h = 0, mi = 0, s = 0, ms = 0, n = 0;
  if (std::sscanf(p, "%d/%d/%d %d:%d:%d:%d%n", &y, &mo, &d, &h, &mi, &s, &ms, &n) != 7) return false;
  const auto w = [](int v) { return static_cast<WORD>(v); };
  const SYSTEMTIME t{w(y), w(mo), 0, w(d), w(h), w(mi), w(s), w(ms)};  // the day of week is not read
  FILETIME ft{};
  if (!SystemTimeToFileTime(t, &ft)) return false;
  *fileTime = FileTimeToInt64(ft);
  *used = n;
  return true;
}

// "<prefix> : <time> , CameraNN <rest>": the time, the camera (from 1) and
// the rest of the line.
bool ParseEvent(const std::string& line, const char* prefix, int64_t* at, int* camera, std::string* rest) {
  const std::string head = std::string(prefix) + " : ";
  if (line.compare(0, head.size(), head) != 0) return false;
  int used = 0;
  if (!ParseTime(line.c_str() + head.size(), at, &used)) return false;
  int nn = -1, n = 0;
  if (std::sscanf(line.c_str() + head.size() + used, " , Camera%d %n", &nn, &n) != 1 || nn < 0) return false;
  *camera = nn + 1;
  *rest = line.substr(head.size() + used + n);
  return true;
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    lines.push_back(line);
  }
  return lines;
}

}  // namespace

std::string SourceOfflineLine(int camera, int64_t at, const std::string& why) {
  char head[96];
  std::snprintf(head, sizeof head, "Record Event : %s , Camera%02d SOURCE_OFFLINE ", TimeText(at).c_str(), camera - 1);
  return head + why + "\r\n";
}

std::string SourceOnlineLine(int camera, int64_t at) {
  char line[96];
  std::snprintf(line, sizeof line, "Record Event : %s , Camera%02d SOURCE_ONLINE\r\n", TimeText(at).c_str(),
                camera - 1);
  return line;
}

std::string DiskLine(int camera, int64_t at, bool full) {
  char line[96];
  std::snprintf(line, sizeof line, "Record Event : %s , Camera%02d %s\r\n", TimeText(at).c_str(), camera - 1,
                full ? "DISK_FULL" : "DISK_OK");
  return line;
}

std::string RecycledLine(int camera, int64_t at, int64_t start, int64_t end, const std::string& path) {
  char head[160];
  std::snprintf(head, sizeof head, "Recycle Event : %s , Camera%02d RECYCLED %s ~ %s , ", TimeText(at).c_str(),
                camera - 1, TimeText(start).c_str(), TimeText(end).c_str());
  return head + path + "\r\n";
}

std::vector<SourceOutage> ReadOutages(const std::string& text) {
  std::vector<SourceOutage> out;
  std::map<std::pair<int, bool>, size_t> open;  // (camera, disk) -> its spell without an end yet
  for (const std::string& line : Lines(text)) {
    int64_t at = 0;
    int camera = 0;
    std::string rest;
    if (!ParseEvent(line, "Record Event", &at, &camera, &rest)) continue;
    const bool disk = rest.rfind("DISK_", 0) == 0;
    const auto key = std::make_pair(camera, disk);
    if (rest.rfind("SOURCE_OFFLINE", 0) == 0 || rest.rfind("DISK_FULL", 0) == 0) {
      if (open.count(key)) continue;  // still down: the first line tells the start
      open[key] = out.size();
      out.push_back({camera, at, 0, disk || rest.size() <= 15 ? "" : rest.substr(15), disk});
    } else if (rest.rfind("SOURCE_ONLINE", 0) == 0 || rest.rfind("DISK_OK", 0) == 0) {
      const auto it = open.find(key);
      if (it == open.end()) continue;
      out[it->second].end = at;
      open.erase(it);
    }
  }
  return out;
}

std::vector<RecycledRecording> ReadRecycled(const std::string& text) {
  std::vector<RecycledRecording> out;
  for (const std::string& line : Lines(text)) {
    int64_t at = 0;
    int camera = 0;
    std::string rest;
    if (!ParseEvent(line, "Recycle Event", &at, &camera, &rest) || rest.rfind("RECYCLED ", 0) != 0) continue;
    RecycledRecording r;
    r.camera = camera;
    int used = 0, used2 = 0;
    const char* p = rest.c_str() + 9;
    if (!ParseTime(p, &r.start, &used)) continue;
    p += used;
    if (std::string_view(p).rfind(" ~ ", 0) != 0 || !ParseTime(p + 3, &r.end, &used2)) continue;
    p += 3 + used2;
    if (std::string_view(p).rfind(" , ", 0) == 0) r.path = p + 3;
    out.push_back(r);
  }
  return out;
}

}  // namespace dravix::recorder
