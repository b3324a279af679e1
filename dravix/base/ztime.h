// Time values and arithmetic on SYSTEMTIME.
//
// ZM time is a calendar time written as decimal digits,
// YYYYMMDDhhmmss * 1000 + milliseconds: it orders correctly but differences
// of two ZM times are not durations. Every comparison here goes through
// SysTimeToZMTime and so is to the second (milliseconds and day of week
// never count).
//
// Arithmetic converts through the OLE automation date (days since
// 1899-12-30 as a double). Differences of times given to the second are
// exact; converting a fractional day back rounds to the nearest second.
// Several asymmetries are deliberate and relied on by callers: they are
// noted on each declaration.
#pragma once

#include "dravix/platform/wintypes.h"

#include <string>

struct tagDSSYSTIMEPERIOD {
  SYSTEMTIME start;
  SYSTEMTIME end;
};

// --- Clock (local time, one-second resolution; see platform/clock.h) -----
// The current local time: milliseconds 0, day of week filled.
SYSTEMTIME GetSysTime();
// The current local time as a ZM time (milliseconds included in the
// formula; they are 0 from this clock).
__int64 GetZMTime();

// --- Conversions --------------------------------------------------------
// Packs to the second and multiplies by 1000 without adding milliseconds:
// the result always ends in 000 (deliberate).
__int64 SysTimeToZMTime(const SYSTEMTIME& t);
// Unpacks with unsigned division; milliseconds kept, day of week 0.
SYSTEMTIME ZMTimeToSysTime(__int64 t);

// OLE automation dates. SystemTimeToVariantTime ignores milliseconds;
// VariantTimeToSystemTime rounds to the nearest second, fills the day of
// week and sets milliseconds 0. Both return 1 on success, 0 for a date the
// conversion cannot represent.
int SystemTimeToVariantTime(const SYSTEMTIME& t, double* days);
int VariantTimeToSystemTime(double days, SYSTEMTIME* t);

// FILETIME (100 ns since 1601-01-01) <-> SYSTEMTIME, no time-zone
// conversion (recording files store local wall-clock times). Return 1 on
// success, 0 for an out-of-range value.
int SystemTimeToFileTime(const SYSTEMTIME& t, FILETIME* ft);
int FileTimeToSystemTime(const FILETIME& ft, SYSTEMTIME* t);

// --- Arithmetic (seconds are signed 32-bit; results have milliseconds 0) -
SYSTEMTIME AddTime(int seconds);                  // GetSysTime() + seconds
SYSTEMTIME MinusTime(int seconds);                // GetSysTime() - seconds
SYSTEMTIME PlusTime(SYSTEMTIME t, int seconds);   // t + seconds
SYSTEMTIME MinusTime(SYSTEMTIME t, int seconds);  // t - seconds
// Seconds from a to b (b - a), truncated toward zero.
int MinusTime(SYSTEMTIME a, SYSTEMTIME b);
// Seconds a - b (the opposite sign of MinusTime), truncated toward zero.
LONG MilusTime(SYSTEMTIME a, SYSTEMTIME b);
// Adds days to its own by-value copy and returns nothing: no effect visible
// to the caller. QUIRK(add-time-days-no-effect): kept, it is part of the interface.
void AddTime(SYSTEMTIME t, double days);

// --- Comparison (to the second, through SysTimeToZMTime) ---------------
int operator<(const SYSTEMTIME& a, const SYSTEMTIME& b);
int operator>(const SYSTEMTIME& a, const SYSTEMTIME& b);
int operator<=(const SYSTEMTIME& a, const SYSTEMTIME& b);
int operator>=(const SYSTEMTIME& a, const SYSTEMTIME& b);
int operator==(const SYSTEMTIME& a, const SYSTEMTIME& b);
int operator!=(const SYSTEMTIME& a, const SYSTEMTIME& b);
// Compares the periods' start times only.
bool operator<(const tagDSSYSTIMEPERIOD& a, const tagDSSYSTIMEPERIOD& b);

// 1 and result filled when a and b overlap (touching periods do not);
// 0 and result untouched otherwise. Tie-breaks: equal starts take b's
// start, equal ends take a's end.
int IntersectSysTime(tagDSSYSTIMEPERIOD& result, const tagDSSYSTIMEPERIOD& a, const tagDSSYSTIMEPERIOD& b);

// --- Time-of-day tests (results 1 / -1, 0 only where said) -------------
// 1 if a's time of day is earlier than b's, 0 if equal, -1 if later.
LONG CompareTime(const SYSTEMTIME& a, const SYSTEMTIME& b);
// 1 if start <= t <= end (inclusive, no wrap over midnight), else -1.
LONG CompareTime(const SYSTEMTIME& start, const SYSTEMTIME& end, const SYSTEMTIME& t);
// 1 if both t1 and t2 lie within [start, end], else -1.
LONG CompareTime(const SYSTEMTIME& t1, const SYSTEMTIME& t2, const SYSTEMTIME& start, const SYSTEMTIME& end);
// -1 if t lies in the daily window start..end (which may run over
// midnight), 1 if it does not.
LONG CompareOverTime(const SYSTEMTIME& start, const SYSTEMTIME& t, const SYSTEMTIME& end);
// 1 if year, month and day are equal, else -1.
LONG CompareDate(const SYSTEMTIME& a, const SYSTEMTIME& b);

// Days in the month; any month number outside 1..12 is returned unchanged
// (deliberate pass-through).
UINT TellFromDay(UINT month, UINT year);

// "%d/%02d/%02d %02d:%02d:%02d:%04d": 2008/03/15 12:34:56:0000.
std::string FormatSTTIME(const SYSTEMTIME& t);
