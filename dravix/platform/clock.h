// The process-wide wall clock, with one test hook so that schedule,
// dispatcher and time tests reach any moment without sleeping.
#pragma once

#include "dravix/platform/wintypes.h"

#include <ctime>
#include <functional>

namespace dravix::platform {

// Seconds since the Unix epoch: the test clock when one is set, else time().
std::time_t Now();
// Now() as local time (localtime_r): milliseconds 0, day of week filled.
SYSTEMTIME LocalNow();

// Replaces the clock for the whole process until ClearTestClock().
// The function is called on every Now() from any thread.
void SetTestClock(std::function<std::time_t()> now);
void ClearTestClock();
bool TestClockSet();

// Local calendar time -> Unix seconds (mktime, DST chosen by the C library).
std::time_t LocalToUnix(const SYSTEMTIME& t);

}  // namespace dravix::platform
