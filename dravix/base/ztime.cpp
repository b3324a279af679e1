// Time arithmetic.
//
// Calendar conversions go through std::chrono's civil-date types. OLE dates
// (days since 1899-12-30) are doubles; differences and sums of times given
// to the second are computed on whole seconds, which equals truncating the
// exact product (the double route loses a second about half the time) and
// matches converting a fractional day back with rounding to the nearest
// second.
#include "dravix/base/ztime.h"

#include "dravix/platform/clock.h"

#include <chrono>
#include <cmath>
#include <cstdio>

namespace {

using std::chrono::day;
using std::chrono::days;
using std::chrono::month;
using std::chrono::sys_days;
using std::chrono::year;
using std::chrono::year_month_day;

constexpr int64_t kSecondsPerDay = 86400;
// 1899-12-30, the OLE epoch, and 1601-01-01, the FILETIME epoch.
constexpr sys_days kOleEpoch = sys_days{year{1899} / 12 / 30};
constexpr sys_days kFileTimeEpoch = sys_days{year{1601} / 1 / 1};
constexpr int64_t kTicksPerSecond = 10'000'000;

bool ValidCalendar(const SYSTEMTIME& t) {
  const year_month_day ymd{year{t.wYear}, month{t.wMonth}, day{t.wDay}};
  return t.wYear >= 100 && t.wYear <= 9999 && ymd.ok() && t.wHour < 24 && t.wMinute < 60 && t.wSecond < 60;
}

int64_t SecondOfDay(const SYSTEMTIME& t) { return t.wHour * 3600 + t.wMinute * 60 + t.wSecond; }

// Seconds since the OLE epoch, milliseconds ignored; false for a time the
// OLE conversion rejects.
bool OleSeconds(const SYSTEMTIME& t, int64_t* seconds) {
  if (!ValidCalendar(t)) return false;
  const sys_days d{year{t.wYear} / month{t.wMonth} / day{t.wDay}};
  *seconds = (d - kOleEpoch).count() * kSecondsPerDay + SecondOfDay(t);
  return true;
}

SYSTEMTIME FromDaysAndSeconds(sys_days d, int64_t secondOfDay) {
  const year_month_day ymd{d};
  const std::chrono::weekday wd{d};
  SYSTEMTIME st{};
  st.wYear = static_cast<WORD>(static_cast<int>(ymd.year()));
  st.wMonth = static_cast<WORD>(static_cast<unsigned>(ymd.month()));
  st.wDay = static_cast<WORD>(static_cast<unsigned>(ymd.day()));
  st.wDayOfWeek = static_cast<WORD>(wd.c_encoding());
  st.wHour = static_cast<WORD>(secondOfDay / 3600);
  st.wMinute = static_cast<WORD>(secondOfDay / 60 % 60);
  st.wSecond = static_cast<WORD>(secondOfDay % 60);
  st.wMilliseconds = 0;
  return st;
}

// Seconds since the OLE epoch back to a SYSTEMTIME (false out of range).
bool FromOleSeconds(int64_t seconds, SYSTEMTIME* out) {
  int64_t dayIndex = seconds / kSecondsPerDay;
  int64_t rest = seconds % kSecondsPerDay;
  if (rest < 0) {
    rest += kSecondsPerDay;
    --dayIndex;
  }
  const sys_days d = kOleEpoch + days{dayIndex};
  const int y = static_cast<int>(year_month_day{d}.year());
  if (y < 100 || y > 9999) return false;
  *out = FromDaysAndSeconds(d, rest);
  return true;
}

// Adds seconds the way the OLE round trip does; an unconvertible time
// gives day 0 of the OLE calendar, like a failed conversion's zero double.
SYSTEMTIME ShiftSeconds(const SYSTEMTIME& t, int64_t delta) {
  int64_t s = 0;
  OleSeconds(t, &s);
  SYSTEMTIME out{};
  if (!FromOleSeconds(s + delta, &out)) FromOleSeconds(0, &out);
  return out;
}

// QUIRK(whole-second-differences): exact whole seconds (the truncated exact
// product), not the day fraction times 86400 in doubles; milliseconds ignored.
int64_t DifferenceSeconds(const SYSTEMTIME& from, const SYSTEMTIME& to) {
  int64_t a = 0;
  int64_t b = 0;
  OleSeconds(from, &a);
  OleSeconds(to, &b);
  return b - a;
}

}  // namespace

SYSTEMTIME GetSysTime() { return dravix::platform::LocalNow(); }

__int64 GetZMTime() {
  const SYSTEMTIME t = GetSysTime();
  return SysTimeToZMTime(t) + t.wMilliseconds;
}

__int64 SysTimeToZMTime(const SYSTEMTIME& t) {
  __int64 v = t.wYear;
  v = v * 100 + t.wMonth;
  v = v * 100 + t.wDay;
  v = v * 100 + t.wHour;
  v = v * 100 + t.wMinute;
  v = v * 100 + t.wSecond;
  return v * 1000;  // QUIRK(zm-time-whole-seconds): milliseconds deliberately left out
}

SYSTEMTIME ZMTimeToSysTime(__int64 value) {
  uint64_t t = static_cast<uint64_t>(value);
  SYSTEMTIME st{};
  st.wMilliseconds = static_cast<WORD>(t % 1000);
  t /= 1000;
  st.wSecond = static_cast<WORD>(t % 100);
  t /= 100;
  st.wMinute = static_cast<WORD>(t % 100);
  t /= 100;
  st.wHour = static_cast<WORD>(t % 100);
  t /= 100;
  st.wDay = static_cast<WORD>(t % 100);
  t /= 100;
  st.wMonth = static_cast<WORD>(t % 100);
  st.wYear = static_cast<WORD>(t / 100);
  st.wDayOfWeek = 0;
  return st;
}

int SystemTimeToVariantTime(const SYSTEMTIME& t, double* daysOut) {
  int64_t s = 0;
  if (daysOut == nullptr || !OleSeconds(t, &s)) return 0;
  const int64_t whole = s >= 0 ? s / kSecondsPerDay : -((-s + kSecondsPerDay - 1) / kSecondsPerDay);
  const double fraction = static_cast<double>(s - whole * kSecondsPerDay) / kSecondsPerDay;
  // Before the epoch the integer part counts days back and the fraction
  // still runs forward: 1899-12-29 06:00 is -1.25.
  *daysOut = whole >= 0 ? static_cast<double>(whole) + fraction : static_cast<double>(whole) - fraction;
  return 1;
}

int VariantTimeToSystemTime(double daysIn, SYSTEMTIME* t) {
  if (t == nullptr || !std::isfinite(daysIn) || std::fabs(daysIn) > 3.0e6) return 0;
  const double whole = std::trunc(daysIn);
  const double fraction = std::fabs(daysIn - whole);
  const int64_t seconds =
      static_cast<int64_t>(whole) * kSecondsPerDay + static_cast<int64_t>(std::llround(fraction * kSecondsPerDay));
  return FromOleSeconds(seconds, t) ? 1 : 0;
}

int SystemTimeToFileTime(const SYSTEMTIME& t, FILETIME* ft) {
  if (ft == nullptr) return 0;
  const year_month_day ymd{year{t.wYear}, month{t.wMonth}, day{t.wDay}};
  if (t.wYear < 1601 || t.wYear > 30827 || !ymd.ok() || t.wHour > 23 || t.wMinute > 59 || t.wSecond > 59 ||
      t.wMilliseconds > 999)
    return 0;
  const int64_t dayCount = (sys_days{ymd} - kFileTimeEpoch).count();
  const int64_t ticks = (dayCount * kSecondsPerDay + SecondOfDay(t)) * kTicksPerSecond + t.wMilliseconds * 10'000;
  *ft = Int64ToFileTime(ticks);
  return 1;
}

int FileTimeToSystemTime(const FILETIME& ft, SYSTEMTIME* t) {
  const int64_t ticks = FileTimeToInt64(ft);
  if (t == nullptr || ticks < 0) return 0;
  const int64_t seconds = ticks / kTicksPerSecond;
  const sys_days d = kFileTimeEpoch + days{seconds / kSecondsPerDay};
  if (static_cast<int>(year_month_day{d}.year()) > 30827) return 0;
  *t = FromDaysAndSeconds(d, seconds % kSecondsPerDay);
  t->wMilliseconds = static_cast<WORD>(ticks % kTicksPerSecond / 10'000);
  return 1;
}

SYSTEMTIME AddTime(int seconds) { return PlusTime(GetSysTime(), seconds); }

SYSTEMTIME MinusTime(int seconds) { return MinusTime(GetSysTime(), seconds); }

SYSTEMTIME PlusTime(SYSTEMTIME t, int seconds) { return ShiftSeconds(t, seconds); }

SYSTEMTIME MinusTime(SYSTEMTIME t, int seconds) { return ShiftSeconds(t, -static_cast<int64_t>(seconds)); }

int MinusTime(SYSTEMTIME a, SYSTEMTIME b) { return static_cast<int>(DifferenceSeconds(a, b)); }

LONG MilusTime(SYSTEMTIME a, SYSTEMTIME b) { return static_cast<LONG>(DifferenceSeconds(b, a)); }

void AddTime(SYSTEMTIME t, double daysToAdd) {
  // Works on its own copy and returns nothing: no effect for the caller.
  double v = 0;
  SystemTimeToVariantTime(t, &v);
  VariantTimeToSystemTime(v + daysToAdd, &t);
}

int operator<(const SYSTEMTIME& a, const SYSTEMTIME& b) { return SysTimeToZMTime(a) < SysTimeToZMTime(b); }
int operator>(const SYSTEMTIME& a, const SYSTEMTIME& b) { return SysTimeToZMTime(a) > SysTimeToZMTime(b); }
int operator<=(const SYSTEMTIME& a, const SYSTEMTIME& b) { return SysTimeToZMTime(a) <= SysTimeToZMTime(b); }
int operator>=(const SYSTEMTIME& a, const SYSTEMTIME& b) { return SysTimeToZMTime(a) >= SysTimeToZMTime(b); }
int operator==(const SYSTEMTIME& a, const SYSTEMTIME& b) { return SysTimeToZMTime(a) == SysTimeToZMTime(b); }
int operator!=(const SYSTEMTIME& a, const SYSTEMTIME& b) { return SysTimeToZMTime(a) != SysTimeToZMTime(b); }

bool operator<(const tagDSSYSTIMEPERIOD& a, const tagDSSYSTIMEPERIOD& b) { return (a.start < b.start) != 0; }

int IntersectSysTime(tagDSSYSTIMEPERIOD& result, const tagDSSYSTIMEPERIOD& a, const tagDSSYSTIMEPERIOD& b) {
  if (a.start >= b.end) return 0;
  if (a.end <= b.start) return 0;  // periods that only touch do not intersect
  if (a.start <= b.start) {
    result.start = b.start;
    result.end = a.end <= b.end ? a.end : b.end;
  } else {
    result.start = a.start;
    result.end = a.end <= b.end ? a.end : b.end;
  }
  return 1;
}

// The time-of-day tests move their operands onto one date, so only the
// second of the day counts (milliseconds never do).
LONG CompareTime(const SYSTEMTIME& a, const SYSTEMTIME& b) {
  const int64_t x = SecondOfDay(a);
  const int64_t y = SecondOfDay(b);
  if (x < y) return 1;
  return x == y ? 0 : -1;
}

LONG CompareTime(const SYSTEMTIME& start, const SYSTEMTIME& end, const SYSTEMTIME& t) {
  const int64_t s = SecondOfDay(start);
  const int64_t e = SecondOfDay(end);
  const int64_t x = SecondOfDay(t);
  return s <= x && x <= e ? 1 : -1;
}

LONG CompareTime(const SYSTEMTIME& t1, const SYSTEMTIME& t2, const SYSTEMTIME& start, const SYSTEMTIME& end) {
  const int64_t s = SecondOfDay(start);
  const int64_t e = SecondOfDay(end);
  const int64_t x1 = SecondOfDay(t1);
  const int64_t x2 = SecondOfDay(t2);
  if (!(s <= x1)) return -1;
  if (!(x1 <= e)) return -1;
  if (!(s <= x2)) return -1;
  if (!(x2 <= e)) return -1;
  return 1;
}

LONG CompareOverTime(const SYSTEMTIME& start, const SYSTEMTIME& t, const SYSTEMTIME& end) {
  const int64_t S = SecondOfDay(start);
  const int64_t T = SecondOfDay(t);
  const int64_t E = SecondOfDay(end);
  if (T >= S) {
    if (S > E) return -1;  // over midnight, and t is after the start
    return E > T ? -1 : 1;
  }
  if (T > E) return 1;
  return E <= S ? -1 : 1;
}

LONG CompareDate(const SYSTEMTIME& a, const SYSTEMTIME& b) {
  if (a.wYear != b.wYear) return -1;
  if (a.wMonth != b.wMonth) return -1;
  if (a.wDay != b.wDay) return -1;
  return 1;
}

UINT TellFromDay(UINT monthNumber, UINT yearNumber) {
  switch (monthNumber) {
    case 4:
    case 6:
    case 9:
    case 11:
      return 30;
    case 1:
    case 3:
    case 5:
    case 7:
    case 8:
    case 10:
    case 12:
      return 31;
    case 2:
      if (yearNumber % 4 != 0) return 28;
      if (yearNumber % 100 != 0) return 29;
      return yearNumber % 400 == 0 ? 29 : 28;
    default:
      return monthNumber;  // QUIRK(days-in-month-pass-through)
  }
}

std::string FormatSTTIME(const SYSTEMTIME& t) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "%d/%02d/%02d %02d:%02d:%02d:%04d", t.wYear, t.wMonth, t.wDay, t.wHour, t.wMinute,
                t.wSecond, t.wMilliseconds);
  return buf;
}
