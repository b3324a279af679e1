#include "tools/time_arg.h"

#include "tools/command.h"

#include <chrono>
#include <cstdio>

namespace dravix::cli {

SYSTEMTIME ParseTimeArg(const std::string& text, const std::string& what) {
  int y = 0, mo = 0, d = 0, h = 0, mi = 0, s = 0, ms = 0;
  char sep = 0;
  int used = 0;
  const int n = std::sscanf(text.c_str(), "%4d-%2d-%2d%c%2d:%2d:%2d%n", &y, &mo, &d, &sep, &h, &mi, &s, &used);
  bool ok = n == 7 && (sep == ' ' || sep == 'T');
  if (ok && static_cast<size_t>(used) < text.size()) {
    int more = 0;
    ok = std::sscanf(text.c_str() + used, ".%3d%n", &ms, &more) == 1 && static_cast<size_t>(used + more) == text.size();
  }
  const std::chrono::year_month_day ymd{std::chrono::year{y}, std::chrono::month{static_cast<unsigned>(mo)},
                                        std::chrono::day{static_cast<unsigned>(d)}};
  if (!ok || !ymd.ok() || y < 1601 || y > 9999 || h > 23 || mi > 59 || s > 59 || ms < 0) {
    throw UsageError(what + ": '" + text + "' is not a time of the form YYYY-MM-DD hh:mm:ss[.fff]");
  }
  SYSTEMTIME t{};
  t.wYear = static_cast<WORD>(y);
  t.wMonth = static_cast<WORD>(mo);
  t.wDay = static_cast<WORD>(d);
  t.wDayOfWeek = static_cast<WORD>(std::chrono::weekday{std::chrono::sys_days{ymd}}.c_encoding());
  t.wHour = static_cast<WORD>(h);
  t.wMinute = static_cast<WORD>(mi);
  t.wSecond = static_cast<WORD>(s);
  t.wMilliseconds = static_cast<WORD>(ms);
  return t;
}

std::string FormatTimeArg(const SYSTEMTIME& t, bool withMilliseconds) {
  char buf[48];
  if (withMilliseconds)
    std::snprintf(buf, sizeof buf, "%04d-%02d-%02d %02d:%02d:%02d.%03d", t.wYear, t.wMonth, t.wDay, t.wHour,
                  t.wMinute, t.wSecond, t.wMilliseconds);
  else
    std::snprintf(buf, sizeof buf, "%04d-%02d-%02d %02d:%02d:%02d", t.wYear, t.wMonth, t.wDay, t.wHour, t.wMinute,
                  t.wSecond);
  return buf;
}

}  // namespace dravix::cli
