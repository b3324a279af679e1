#include "tools/time_arg.h"

#include "tools/command.h"

#include <chrono>
#include <cstdio>
#include <string>

namespace dravix::cli {

namespace {

// The time of these fields, or false when they do not name one the
// recorder's times hold.
bool MakeTime(int y, int mo, int d, int h, int mi, int s, int ms, SYSTEMTIME* out) {
  const std::chrono::year_month_day ymd{std::chrono::year{y}, std::chrono::month{static_cast<unsigned>(mo)},
                                        std::chrono::day{static_cast<unsigned>(d)}};
  if (!ymd.ok() || y < kFirstYear || y > kLastYear || h < 0 || h > 23 || mi < 0 || mi > 59 || s < 0 || s > 59 ||
      ms < 0 || ms > 999) {
    return false;
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
  *out = t;
  return true;
}

}  // namespace

SYSTEMTIME ParseTimeArg(const std::string& text, const std::string& what) {
  // Exactly "YYYY-MM-DD hh:mm:ss" or with "T" for the blank, then
  // optionally ".fff": every other character a digit.
  static constexpr char kShape[] = "dddd-dd-dd?dd:dd:dd.ddd";
  bool ok = text.size() == 19 || text.size() == 23;
  for (size_t i = 0; ok && i < text.size(); ++i) {
    const char c = text[i], want = kShape[i];
    ok = want == 'd' ? (c >= '0' && c <= '9') : want == '?' ? (c == ' ' || c == 'T') : c == want;
  }
  const auto num = [&text, ok](size_t at, size_t len) { return ok ? std::stoi(text.substr(at, len)) : 0; };
  SYSTEMTIME t{};
  if (!ok || !MakeTime(num(0, 4), num(5, 2), num(8, 2), num(11, 2), num(14, 2), num(17, 2),
                       text.size() == 23 ? num(20, 3) : 0, &t)) {
    throw UsageError(what + ": '" + text + "' is not a time of the form YYYY-MM-DD hh:mm:ss[.fff] in the years " +
                     std::to_string(kFirstYear) + " to " + std::to_string(kLastYear));
  }
  return t;
}

SYSTEMTIME ParseZMTimeArg(long long zm, const std::string& what) {
  const auto unpack = [](long long v, SYSTEMTIME* t) {
    const auto digits = [v](long long unit, long long count) { return static_cast<int>(v / unit % count); };
    return v >= 0 &&
           MakeTime(static_cast<int>(v / 10000000000000LL), digits(100000000000LL, 100), digits(1000000000LL, 100),
                    digits(10000000, 100), digits(100000, 100), digits(1000, 100), digits(1, 1000), t);
  };
  SYSTEMTIME t{};
  if (unpack(zm, &t)) return t;
  std::string message = what + ": " + std::to_string(zm) +
                        " is not a ZM time, whose digits are YYYYMMDDhhmmss and then three of milliseconds";
  // The usual slip: a time to the second without the milliseconds.
  if (zm < 100000000000000LL && unpack(zm * 1000, &t)) message += " (did you mean " + std::to_string(zm) + "000?)";
  throw UsageError(message);
}

long long CalendarSeconds(const SYSTEMTIME& t) {
  const std::chrono::year_month_day ymd{std::chrono::year{t.wYear}, std::chrono::month{t.wMonth},
                                        std::chrono::day{t.wDay}};
  const long long days = std::chrono::sys_days{ymd}.time_since_epoch().count();
  return days * 86400 + t.wHour * 3600LL + t.wMinute * 60LL + t.wSecond;
}

void CheckShiftInRange(const SYSTEMTIME& t, long long seconds, const std::string& what) {
  SYSTEMTIME first{}, last{};
  MakeTime(kFirstYear, 1, 1, 0, 0, 0, 0, &first);
  MakeTime(kLastYear, 12, 31, 23, 59, 59, 0, &last);
  const long long result = CalendarSeconds(t) + seconds;
  if (result < CalendarSeconds(first) || result > CalendarSeconds(last)) {
    throw UsageError(what + " falls outside " + FormatTimeArg(first, false) + " to " + FormatTimeArg(last, false) +
                     ", the times the recorder holds");
  }
}

std::string FormatTimeArg(const SYSTEMTIME& t, bool withMilliseconds) {
  char buf[48];
  if (withMilliseconds)
    std::snprintf(buf, sizeof buf, "%04d-%02d-%02d %02d:%02d:%02d.%03d", t.wYear, t.wMonth, t.wDay, t.wHour, t.wMinute,
                  t.wSecond, t.wMilliseconds);
  else
    std::snprintf(buf, sizeof buf, "%04d-%02d-%02d %02d:%02d:%02d", t.wYear, t.wMonth, t.wDay, t.wHour, t.wMinute,
                  t.wSecond);
  return buf;
}

}  // namespace dravix::cli
