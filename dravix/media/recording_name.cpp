#include "dravix/media/recording_name.h"

#include "dravix/media/zm_format.h"
#include "dravix/platform/clock.h"

#include <chrono>
#include <cstdio>
#include <ctime>

namespace dravix::media {
namespace {

constexpr int64_t kUnixEpoch = 116444736000000000;  // 1970-01-01 as a FILETIME

std::tm WallFields(int64_t localFileTime, int* ms) {
  const int64_t unixMs = (localFileTime - kUnixEpoch) / kTicksPerMs;
  const std::time_t t = static_cast<std::time_t>(unixMs / 1000);
  std::tm tm{};
  gmtime_r(&t, &tm);
  *ms = static_cast<int>(unixMs % 1000);
  return tm;
}

}  // namespace

int64_t LocalFileTimeNow() {
  const auto now = std::chrono::system_clock::now();
  // A test clock moves the second; the millisecond stays the real one.
  const std::time_t t = platform::TestClockSet() ? platform::Now() : std::chrono::system_clock::to_time_t(now);
  std::tm tm{};
  localtime_r(&t, &tm);
  const int64_t ms = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  return kUnixEpoch + (static_cast<int64_t>(timegm(&tm)) * 1000 + ms) * kTicksPerMs;
}

std::string RecordingPath(const std::string& folder, int camera, int64_t localFileTime) {
  int ms = 0;
  const std::tm tm = WallFields(localFileTime, &ms);
  char tail[64];
  std::snprintf(tail, sizeof tail, "%04d-%02d-%02d/cam%02d/%02d%02d%02d%03d-%02d.dat", tm.tm_year + 1900, tm.tm_mon + 1,
                tm.tm_mday, camera % 100, tm.tm_hour, tm.tm_min, tm.tm_sec, ms, camera % 100);
  std::string path = folder;
  if (!path.empty() && path.back() != '/') path += '/';
  return path + tail;
}

bool ParseRecordingPath(const std::string& path, RecordingName* out) {
  // ".../YYYY-MM-DD/camNN/hhmmssmmm-NN.dat": the last 36 characters.
  constexpr size_t kTail = 10 + 1 + 5 + 1 + 16;
  if (path.size() < kTail) return false;
  const std::string tail = path.substr(path.size() - kTail);
  int y = 0, mo = 0, d = 0, cam = 0, h = 0, mi = 0, s = 0, ms = 0, cam2 = 0, n = 0;
  if (std::sscanf(tail.c_str(), "%4d-%2d-%2d/cam%2d/%2d%2d%2d%3d-%2d.dat%n", &y, &mo, &d, &cam, &h, &mi, &s, &ms, &cam2,
                  &n) != 9 ||
      static_cast<size_t>(n) != kTail)
    return false;
  if (cam != cam2 || cam < 1 || mo < 1 || mo > 12 || d < 1 || d > 31 || h > 23 || mi > 59 || s > 59) return false;
  if (path.size() > kTail && path[path.size() - kTail - 1] != '/') return false;
  out->camera = cam;
  out->start = SYSTEMTIME{};
  out->start.wYear = static_cast<WORD>(y);
  out->start.wMonth = static_cast<WORD>(mo);
  out->start.wDay = static_cast<WORD>(d);
  out->start.wHour = static_cast<WORD>(h);
  out->start.wMinute = static_cast<WORD>(mi);
  out->start.wSecond = static_cast<WORD>(s);
  out->start.wMilliseconds = static_cast<WORD>(ms);
  return true;
}

}  // namespace dravix::media
