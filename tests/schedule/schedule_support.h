// Shared pieces of the schedule tests: a settable wall clock, work-task
// builders, and a way to put a camera's schedule into the manager.
#pragma once

#include "dravix/platform/clock.h"
#include "dravix/schedule/zschedulemanager.h"

#include <atomic>
#include <ctime>
#include <vector>

namespace dravix::test {

// The process-wide clock set to a local calendar time, to the second.
class DayClock {
 public:
  DayClock() {
    dravix::platform::SetTestClock([] { return now_.load(); });
  }
  ~DayClock() { dravix::platform::ClearTestClock(); }
  void Set(int year, int month, int day, int hour, int minute, int second) {
    const SYSTEMTIME t{static_cast<WORD>(year), static_cast<WORD>(month), 0, static_cast<WORD>(day),
                       static_cast<WORD>(hour), static_cast<WORD>(minute), static_cast<WORD>(second), 0};
    now_.store(dravix::platform::LocalToUnix(t));
  }

 private:
  static inline std::atomic<std::time_t> now_{0};
};

inline SYSTEMTIME TimeOfDay(int hour, int minute, int second = 0) {
  // A date far from any test day: only the time of day may count.
  return SYSTEMTIME{1999, 1, 5, 1, static_cast<WORD>(hour), static_cast<WORD>(minute), static_cast<WORD>(second), 0};
}

inline tagDSWORKTASK Task(SYSTEMTIME start, SYSTEMTIME end, BOOL connect = 1, BOOL record = 1) {
  tagDSWORKTASK t{};
  t.start = start;
  t.end = end;
  t.bConnect = connect;
  t.bRecord = record;
  return t;
}

inline SYSTEMTIME Date(int year, int month, int day) {
  return SYSTEMTIME{static_cast<WORD>(year), static_cast<WORD>(month), 0, static_cast<WORD>(day), 0, 0, 0, 0};
}

// Sets a camera's enabled field and mode and replaces list `list` with
// `tasks`, through the settings-page calls.
inline void Configure(int camera, LONG enabled, LONG mode, int list, const std::vector<tagDSWORKTASK>& tasks,
                      const std::vector<tagDSSCHEDULEMONTH>* month = nullptr) {
  ZScheduleManager* m = ZScheduleManager::Instance();
  tagDSSCHEDULEOPTION cams[kScheduleCameras];
  tagSCHEDULEWORKTASK lists[kScheduleLists];
  m->LoadSchedule(cams, lists);
  cams[camera].nEnabled = enabled;
  cams[camera].nMode = mode;
  if (month != nullptr) cams[camera].month = *month;
  if (list >= 0) lists[list].tasks = tasks;
  m->SaveSchedule(cams, lists);
}

}  // namespace dravix::test
