// ZScheduleManager: the recording schedule of the 16 cameras, and the
// daily time events it turns into.
//
// Each camera has a mode that picks one of 23 work-task lists for a day:
//   mode 0 (daily)   list 7 + camera;
//   mode 1 (weekly)  the list named by the week list at today's day of the
//                    week: 1 work, 2 off, 3 special day (0 picks list 0);
//   mode 2 (monthly) list 4 + the type of the month entry dated today:
//                    0 work, 1 off, 2 special.
// A work task is a daily window with its actions. The task check walks a
// list and takes the first task whose window holds now; that task is copied
// into the current task, from which every Is... query answers, whatever
// camera it is asked about.
//
// PostTimeSchedling posts a camera's remaining windows of today to the
// dispatcher (events 6, 8, 14, 15, 16) and writes "Schedule Event" lines to
// the live log. The settings store asks the questions; the host's handlers
// of those events start and stop recording.
//
// The manager takes no lock: use it from one thread (the host's user-
// interface thread). Loaded from "Schedule.zmi" when first used; only
// Save() writes the file.
#pragma once

#include "dravix/platform/wintypes.h"
#include "dravix/schedule/schedule_file.h"
#include "dravix/schedule/schedule_records.h"

#include <memory>
#include <string>
#include <vector>

// The second parameter of the schedule's events 6, 8, 15 and 16.
constexpr LONG kScheduleEventParam = 2222;
// The tag of a camera's schedule events: camera + 100.
constexpr int kScheduleTagBase = 100;
// The free space Save() needs on the program folder's disk.
constexpr __int64 kScheduleMinFreeSpace = 31457280;

class ZScheduleManager {
 public:
  static ZScheduleManager* Instance();
  ~ZScheduleManager();
  ZScheduleManager(const ZScheduleManager&) = delete;
  ZScheduleManager& operator=(const ZScheduleManager&) = delete;

  // --- The file -----------------------------------------------------------
  // Reads "Schedule.zmi" again (the constructor does this once). A missing
  // file gives the fresh-installation defaults: every camera disabled, mode
  // 0, Saturday and Sunday off days, Monday to Friday work days, the month
  // list from today (SetMonthDefalutValue), no tasks. A file that is not a
  // complete schedule gives the same defaults and FALSE (LoadError() says
  // why); nothing is written either way.
  BOOL Load();
  // Replaces "Schedule.zmi" (atomically) with the schedule in memory, in
  // format 1500. FALSE, writing nothing, when the program folder's disk has
  // less than 30 MB free or the file cannot be written.
  BOOL Save();
  // The format of what Load() read: 1200 (for 1100 and 1200), 1500, or 0
  // for the oldest files; 1500 for the defaults.
  LONG GetFileFormat() const { return m_format; }
  // Why the last Load() fell back to the defaults ("" when it did not).
  const std::string& LoadError() const { return m_loadError; }

  // --- Settings pages -----------------------------------------------------
  // Copies the 16 camera records and the 23 lists out. The version fields
  // are copied only from files of format 1200 or 1500; otherwise they are 0.
  void LoadSchedule(tagDSSCHEDULEOPTION* cameras, tagSCHEDULEWORKTASK* lists);
  // Copies them in and sets every camera's version to 1500; the file is
  // written only by Save().
  void SaveSchedule(const tagDSSCHEDULEOPTION* cameras, const tagSCHEDULEWORKTASK* lists);
  static void CopyDayList(std::vector<tagDSWORKTASK>& dst, const std::vector<tagDSWORKTASK>& src);
  static void CopyWeekList(std::vector<LONG>& dst, const std::vector<LONG>& src);
  static void CopyMonthList(std::vector<tagDSSCHEDULEMONTH>& dst, const std::vector<tagDSSCHEDULEMONTH>& src);
  static void CopyWorkTask(tagSCHEDULEWORKTASK& dst, const tagSCHEDULEWORKTASK& src);

  // Replaces every camera's month list with one entry per day for the 31
  // days from `from` (its date only): Saturdays and Sundays off days, the
  // other days work days.
  void SetMonthDefalutValue(SYSTEMTIME from);

  // --- Questions ----------------------------------------------------------
  // 1 if the camera's enabled field is exactly 1 (0 for a camera out of
  // range, as for every per-camera call below).
  int IsEnabled(int camera) const;
  // 0 unless enabled; else the task check of the camera's mode at now.
  int IsScheduleSetting(int camera);
  // Always 0 (the working check is the private one).
  int CheckSchedule(int camera);
  // The task check on a list; `start` gets the matched task's start.
  int CheckTaskWork(const tagSCHEDULEWORKTASK& list, const SYSTEMTIME& now, SYSTEMTIME& start);

  // The current task's fields.
  int IsConnect(int camera) const;
  int IsRecord(int camera, int& recordMode) const;
  int IsVisual(int camera) const;
  int IsManual(int camera) const;
  int IsSensor(int camera) const;
  int IsExternal(int camera) const;
  int IsPTZLoop(int camera) const;
  // The action flag; when it is 1 the action record is copied out too.
  int IsAction(int camera, tagDSACTIONOPTION& action) const;
  // 1 visual + 2 sensor + 4 manual.
  int GetEventFrom(int camera) const;
  // 0 unless enabled and a task of today holds now; else 1 and the name of
  // that task's motion-detection settings file. In mode 2 every month entry
  // dated today is tried in turn until one has a task that holds now.
  int GetScheduleSetting(int camera, std::string& name);

  // --- Time events --------------------------------------------------------
  // Posts today's remaining windows of the camera (see the .cpp). 1 when a
  // task was posted, 0 otherwise (also for a disabled camera).
  int PostTimeSchedling(int camera);
  // The task list that posting uses for `camera` on the day of `now`, or
  // -1 when the schedule offers none (whether or not the camera is enabled).
  int ListOfDay(int camera, const SYSTEMTIME& now) const;
  // The windows posted for a camera, oldest first.
  const std::vector<tagSCHEDULEPOSTED>& GetPostedList(int camera) const;

  // --- Motion-detection settings files -----------------------------------
  // A task with motion detection has a settings file of its own in the
  // program folder, named as GetScheduleSetting names it (see
  // VisualFileName). These keep the files in step with schedule edits.
  //
  // Posts event 13 (re-evaluate motion detection), due now, parameters 0.
  int PostVisualDerection();
  // 1 if `t`'s time of day lies in a window posted for the camera.
  int CheckDetectorIsExc(int camera, SYSTEMTIME t) const;
  // Forgets the windows posted for the camera (before posting a new day).
  void DelDetectorList(int camera);
  // The file name of a task of `list` starting at `start` for the camera:
  // "Visual%02d_D_%02d%02d%02d.zmi" for a daily list, "..._W_Work_...",
  // "W_Off", "W_Special" for lists 1..3 and "M_Work", "M_Off", "M_Special"
  // for lists 4..6. "" for list 0 or an index out of range.
  static std::string VisualFileName(int camera, int list, const SYSTEMTIME& start);
  // Creates the task's file when missing, as a copy of the camera's own
  // motion settings "Visual%02d.zmi" when there is one, else empty. 1 when
  // the file exists afterwards.
  int AddVisualFile(int camera, int list, const SYSTEMTIME& start);
  // Deletes the task's file; 1 when it is gone afterwards.
  int DelVisualFile(int camera, int list, const SYSTEMTIME& start);
  // Deletes every task file of the camera ("Visual%02d_*.zmi"); the count.
  int RemoveVisualFile(int camera);
  // An edit of a task's start in two steps: name the file before and after
  // the edit, then VisualFileOption(1) moves the settings to the new name
  // (an existing file of that name is replaced) or VisualFileOption(0)
  // drops the edit. Both forget the names. VisualFileOption returns 1 when
  // a file was moved.
  void Modify_Old_VisualFile(int camera, int list, const SYSTEMTIME& start);
  void Modify_New_VisualFile(int camera, int list, const SYSTEMTIME& start);
  int VisualFileOption(int option);
  // Delete the named old file (the task was removed) or new file (a task
  // being added was cancelled); 1 when it is gone afterwards.
  int Modify_DelOld_VisualFile();
  int Modify_DelNew_VisualFile();

 private:
  ZScheduleManager();
  void SetDefaults();
  // The task check; copies a matched task into the current task.
  int CheckTaskWork(const tagSCHEDULEWORKTASK& list, const SYSTEMTIME& now);
  int CheckSchedule(int mode, int camera);
  // Offers today's task lists of `camera` under `mode` to `visit`.
  template <typename Visit>
  bool ForEachListOfDay(int mode, int camera, const SYSTEMTIME& now, Visit visit) const;
  int PostList(int camera, int list, const SYSTEMTIME& now);

  static std::unique_ptr<ZScheduleManager> sm_inst;

  LONG m_format = kScheduleVersion;
  std::string m_loadError;
  tagDSSCHEDULEOPTION m_camera[kScheduleCameras];
  tagSCHEDULEWORKTASK m_list[kScheduleLists];
  tagDSWORKTASK m_current{};
  std::vector<tagSCHEDULEPOSTED> m_posted[kScheduleCameras];
  std::string m_oldVisual;
  std::string m_newVisual;
};

namespace dravix::schedule {

// Free bytes of the disk holding a path; negative when unknown.
using FreeSpaceProbe = __int64 (*)(const char* path);
// Replaces the free-space query of Save() (tests); null restores
// GetDiskFreeSpaceA.
void SetFreeSpaceProbe(FreeSpaceProbe probe);

}  // namespace dravix::schedule
