// The records of the recording schedule: one per camera (mode, week and
// month lists), the work tasks (daily time windows with their actions) and
// the periods the manager has posted to the dispatcher.
#pragma once

#include "dravix/config/cameraoption.h"
#include "dravix/platform/wintypes.h"

#include <cstddef>
#include <vector>

// How a camera's day is chosen.
enum ScheduleMode : LONG {
  kScheduleDaily = 0,    // the same tasks every day (list 7 + camera)
  kScheduleWeekly = 1,   // by day of the week (lists 0..3)
  kScheduleMonthly = 2,  // by calendar date (lists 4..6)
};

// Week-list day types (list = the type itself).
constexpr LONG kWeekWork = 1;
constexpr LONG kWeekOff = 2;
constexpr LONG kWeekSpecial = 3;
// Month-entry day types (list = 4 + the type).
constexpr LONG kMonthWork = 0;
constexpr LONG kMonthOff = 1;
constexpr LONG kMonthSpecial = 2;

constexpr int kScheduleCameras = 16;
constexpr int kScheduleLists = 23;
constexpr int kFirstMonthList = 4;
constexpr int kFirstDailyList = 7;  // + camera
constexpr LONG kScheduleVersion = 1500;

// One calendar date of the month list: only year, month and day of `date`
// count.
struct tagDSSCHEDULEMONTH {
  SYSTEMTIME date;
  LONG type;  // kMonthWork, kMonthOff or kMonthSpecial
};
static_assert(sizeof(tagDSSCHEDULEMONTH) == 20);

// One work task: a daily window (only the times of day of start and end
// count; a window may run over midnight) and what applies inside it.
struct tagDSWORKTASK {
  SYSTEMTIME start;
  SYSTEMTIME end;
  BOOL bConnect;
  BOOL bRecord;
  LONG nRecordMode;  // handed out with the record flag
  BOOL bVisual;      // motion detection
  BOOL bManual;
  BOOL bSensor;
  LONG nActionFlag;
  tagDSACTIONOPTION dsAction;
  BOOL bExternal;  // output to an external device
  BOOL bPTZLoop;
};
static_assert(sizeof(tagDSWORKTASK) == 32 + 7 * 4 + 1848 + 8);
static_assert(offsetof(tagDSWORKTASK, dsAction) == 60);

// One of the 23 work-task lists.
struct tagSCHEDULEWORKTASK {
  std::vector<tagDSWORKTASK> tasks;
};

// The schedule of one camera.
struct tagDSSCHEDULEOPTION {
  LONG nVersion = kScheduleVersion;
  LONG nEnabled = 0;  // scheduled only when exactly 1
  LONG nMode = kScheduleDaily;
  std::vector<tagDSSCHEDULEMONTH> month;
  std::vector<LONG> week;  // by day of week, 0 = Sunday
};

// A task window whose events were posted for a camera.
struct tagSCHEDULEPOSTED {
  int camera;
  SYSTEMTIME start;
  SYSTEMTIME end;
};
