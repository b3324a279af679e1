// Reading and writing times on the command line.
#pragma once

#include "dravix/platform/wintypes.h"

#include <string>

namespace dravix::cli {

// "YYYY-MM-DD hh:mm:ss[.fff]" or "YYYY-MM-DDThh:mm:ss[.fff]" (local time).
// Throws UsageError naming `what` and the text when it is not a valid time.
SYSTEMTIME ParseTimeArg(const std::string& text, const std::string& what);
// "YYYY-MM-DD hh:mm:ss.fff"
std::string FormatTimeArg(const SYSTEMTIME& t, bool withMilliseconds = true);

// The first and last years a time on the command line may have: the range
// the recorder's time values and their arithmetic hold.
inline constexpr int kFirstYear = 1601;
inline constexpr int kLastYear = 9999;

// Unpacks a ZM time (YYYYMMDDhhmmss followed by three digits of
// milliseconds). Throws UsageError when the digits do not make a valid time.
SYSTEMTIME ParseZMTimeArg(long long zm, const std::string& what);

// Whole seconds of `t` on a plain calendar count (no time zone), for exact
// arithmetic before the recorder's own functions are called.
long long CalendarSeconds(const SYSTEMTIME& t);
// Throws UsageError saying `what` when `t + seconds` leaves the years the
// recorder's times hold.
void CheckShiftInRange(const SYSTEMTIME& t, long long seconds, const std::string& what);

}  // namespace dravix::cli
