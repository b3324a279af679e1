// Pieces shared by the tests of the schedule manager and of the readers
// that follow it: calendar times, work tasks, a camera's schedule set
// through the settings-page calls, and a settable wall clock.
#pragma once

#include "dravix/platform/clock.h"
#include "dravix/schedule/zschedulemanager.h"

#include <atomic>
#include <ctime>
#include <vector>

namespace dravix::test {

inline SYSTEMTIME At(int year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
  return SYSTEMTIME{
      static_cast<WORD>(year),   static_cast<WORD>(month),  0, static_cast<WORD>(day), static_cast<WORD>(hour),
      static_cast<WORD>(minute), static_cast<WORD>(second), 0};
}

// A time of day on a date far from any test day: only the time may count.
inline SYSTEMTIME TimeOfDay(int hour, int minute, int second = 0) { return At(1999, 1, 1, hour, minute, second); }

inline tagDSWORKTASK Task(int fromHour, int fromMinute, int toHour, int toMinute, BOOL connect = 1, BOOL record = 1) {
  tagDSWORKTASK t{};
  t.start = TimeOfDay(fromHour, fromMinute);
  t.end = TimeOfDay(toHour, toMinute);
  t.bConnect = connect;
  t.bRecord = record;
  return t;
}

// Sets a camera's enabled field and mode and replaces list `list` (unless
// -1) with `tasks`, through the settings-page calls.
inline void Configure(int camera, LONG enabled, LONG mode, int list, const std::vector<tagDSWORKTASK>& tasks,
                      const std::vector<tagDSSCHEDULEMONTH>* month = nullptr) {
  tagDSSCHEDULEOPTION cams[kScheduleCameras];
  tagSCHEDULEWORKTASK lists[kScheduleLists];
  ZScheduleManager::Instance()->LoadSchedule(cams, lists);
  cams[camera].nEnabled = enabled;
  cams[camera].nMode = mode;
  if (month != nullptr) cams[camera].month = *month;
  if (list >= 0) lists[list].tasks = tasks;
  ZScheduleManager::Instance()->SaveSchedule(cams, lists);
}

// While it lives, the process-wide clock reads the local time last set.
class DayClock {
 public:
  DayClock() {
    dravix::platform::SetTestClock([] { return now_.load(); });
  }
  ~DayClock() { dravix::platform::ClearTestClock(); }
  DayClock(const DayClock&) = delete;
  DayClock& operator=(const DayClock&) = delete;
  static void Set(const SYSTEMTIME& t) { now_.store(dravix::platform::LocalToUnix(t)); }

 private:
  static inline std::atomic<std::time_t> now_{0};
};

}  // namespace dravix::test
