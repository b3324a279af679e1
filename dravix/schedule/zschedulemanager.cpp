// The schedule manager.
//
// Posting a day (PostList). For each task of the day's list, in order, the
// start and end are moved onto today's date; a task whose end is not later
// today than now is skipped. Otherwise these events go to the dispatcher,
// all with the camera as first parameter, 2222 as second (0 for event 14)
// and camera + 100 as tag, in exactly this order, each rule adding to the
// ones before it:
//   connect 1:              15 at start, 6 at start, 16 at end;
//   connect 0:              16 at start, 15 at end, 6 at end;
//   connect 1 and record 1: 6 at start, 8 at end, and the two live-log lines;
//   record 0:               6 at end, 8 at end, and the two live-log lines;
//   always:                 14 at start, 14 at end;
// then the window joins the camera's posted list. The two lines name the
// start ("ZE_START_RECORDING") and the end ("ZE_STOP_RECORDING") of the
// window. A window over midnight (end earlier than start) is posted with
// both ends on today's date, so its start lies after its end.
//
// The task check passes (start, end, now) to CompareOverTime, whose
// parameters are (start, t, end): the task's end stands as the tested time
// and now as the window's end. This is the established call and it is kept:
// a task 08:00-18:00 holds 08:00 to 18:00 inclusive, a task 22:00-06:00
// holds the times after 22:00 and before 06:00.
#include "dravix/schedule/zschedulemanager.h"

#include "dravix/base/single_instance.h"
#include "dravix/base/zfile.h"
#include "dravix/base/ztime.h"
#include "dravix/log/ilog.h"
#include "dravix/platform/atomic_file.h"
#include "dravix/platform/file_io.h"
#include "dravix/platform/files.h"
#include "dravix/schedule/event_ids.h"
#include "dravix/schedule/idispatcher.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace dravix::schedule {
namespace {

__int64 RealFreeSpace(const char* path) { return GetDiskFreeSpaceA(path); }
FreeSpaceProbe g_probe = nullptr;

}  // namespace

void SetFreeSpaceProbe(FreeSpaceProbe probe) { g_probe = probe; }

}  // namespace dravix::schedule

namespace {

using namespace dravix::schedule;

bool ValidCamera(int camera) { return camera >= 0 && camera < kScheduleCameras; }

void OnDate(SYSTEMTIME& t, const SYSTEMTIME& day) {
  t.wYear = day.wYear;
  t.wMonth = day.wMonth;
  t.wDay = day.wDay;
}

std::string Format(const char* format, int camera, const char* kind, const SYSTEMTIME& t) {
  char buf[96];
  std::snprintf(buf, sizeof(buf), format, camera, kind, t.wHour, t.wMinute, t.wSecond);
  return buf;
}

const std::vector<tagSCHEDULEPOSTED> kNoPosted;

}  // namespace

std::unique_ptr<ZScheduleManager> ZScheduleManager::sm_inst;

ZScheduleManager* ZScheduleManager::Instance() {
  return dravix::base::SingleInstance(sm_inst, [] { return new ZScheduleManager(); });
}

ZScheduleManager::ZScheduleManager() { Load(); }
ZScheduleManager::~ZScheduleManager() = default;

void ZScheduleManager::SetDefaults() {
  m_format = kScheduleVersion;
  for (tagDSSCHEDULEOPTION& c : m_camera) {
    c.nVersion = kScheduleVersion;
    c.nEnabled = 0;
    c.nMode = kScheduleDaily;
    c.week = {kWeekOff, kWeekWork, kWeekWork, kWeekWork, kWeekWork, kWeekWork, kWeekOff};
  }
  for (tagSCHEDULEWORKTASK& l : m_list) l.tasks.clear();
  SetMonthDefalutValue(GetSysTime());
}

BOOL ZScheduleManager::Load() {
  m_loadError.clear();
  const std::string path = GetModulePath() + dravix::schedule::kScheduleFileName;
  if (!FileExists(path.c_str())) {
    SetDefaults();
    return TRUE;
  }
  std::string error = "cannot read the file";
  const bool regular = dravix::platform::CheckRegularFile(path, &error);  // a FIFO must not block
  std::ifstream in;
  if (regular) in.open(path, std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  auto data = std::make_unique<dravix::schedule::ScheduleData>();
  const bool ok = regular && !in.bad() &&
                  dravix::schedule::ParseScheduleFile(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(),
                                                      data.get(), &error);
  if (!ok) {
    SetDefaults();
    m_loadError = path + ": " + error;
    return FALSE;
  }
  m_format = data->format;
  for (int c = 0; c < kScheduleCameras; ++c) m_camera[c] = std::move(data->camera[c]);
  for (int l = 0; l < kScheduleLists; ++l) m_list[l] = std::move(data->list[l]);
  return TRUE;
}

BOOL ZScheduleManager::Save() {
  const std::string folder = GetModulePath();
  const auto probe = dravix::schedule::g_probe ? dravix::schedule::g_probe : dravix::schedule::RealFreeSpace;
  if (probe(folder.c_str()) < kScheduleMinFreeSpace) return FALSE;
  const std::string bytes = dravix::schedule::SerializeScheduleFile(m_camera, m_list);
  return dravix::platform::ReplaceFileAtomically(folder + dravix::schedule::kScheduleFileName, bytes) ? TRUE : FALSE;
}

void ZScheduleManager::LoadSchedule(tagDSSCHEDULEOPTION* cameras, tagSCHEDULEWORKTASK* lists) {
  const bool versioned = m_format == dravix::schedule::kFormat1200 || m_format == dravix::schedule::kFormat1500;
  for (int c = 0; c < kScheduleCameras; ++c) {
    cameras[c].nVersion = versioned ? m_camera[c].nVersion : 0;
    cameras[c].nEnabled = m_camera[c].nEnabled;
    cameras[c].nMode = m_camera[c].nMode;
    CopyMonthList(cameras[c].month, m_camera[c].month);
    CopyWeekList(cameras[c].week, m_camera[c].week);
  }
  for (int l = 0; l < kScheduleLists; ++l) CopyWorkTask(lists[l], m_list[l]);
}

void ZScheduleManager::SaveSchedule(const tagDSSCHEDULEOPTION* cameras, const tagSCHEDULEWORKTASK* lists) {
  for (int c = 0; c < kScheduleCameras; ++c) {
    m_camera[c].nVersion = kScheduleVersion;
    m_camera[c].nEnabled = cameras[c].nEnabled;
    m_camera[c].nMode = cameras[c].nMode;
    CopyMonthList(m_camera[c].month, cameras[c].month);
    CopyWeekList(m_camera[c].week, cameras[c].week);
  }
  for (int l = 0; l < kScheduleLists; ++l) CopyWorkTask(m_list[l], lists[l]);
}

void ZScheduleManager::CopyDayList(std::vector<tagDSWORKTASK>& dst, const std::vector<tagDSWORKTASK>& src) {
  if (&dst == &src) return;
  dst.clear();
  dst.reserve(src.size());
  for (const tagDSWORKTASK& t : src) dst.push_back(t);
}

void ZScheduleManager::CopyWeekList(std::vector<LONG>& dst, const std::vector<LONG>& src) {
  if (&dst == &src) return;
  dst.clear();
  dst.reserve(src.size());
  for (LONG v : src) dst.push_back(v);
}

void ZScheduleManager::CopyMonthList(std::vector<tagDSSCHEDULEMONTH>& dst, const std::vector<tagDSSCHEDULEMONTH>& src) {
  if (&dst == &src) return;
  dst.clear();
  dst.reserve(src.size());
  for (const tagDSSCHEDULEMONTH& m : src) dst.push_back(m);
}

void ZScheduleManager::CopyWorkTask(tagSCHEDULEWORKTASK& dst, const tagSCHEDULEWORKTASK& src) {
  CopyDayList(dst.tasks, src.tasks);
}

void ZScheduleManager::SetMonthDefalutValue(SYSTEMTIME from) {
  SYSTEMTIME day{};
  day.wYear = from.wYear;
  day.wMonth = from.wMonth;
  day.wDay = from.wDay;
  std::vector<tagDSSCHEDULEMONTH> month;
  month.reserve(31);
  for (int i = 0; i < 31; ++i) {
    const SYSTEMTIME d = PlusTime(day, i * 86400);
    const bool weekend = d.wDayOfWeek == 0 || d.wDayOfWeek == 6;
    month.push_back(tagDSSCHEDULEMONTH{d, weekend ? kMonthOff : kMonthWork});
  }
  for (tagDSSCHEDULEOPTION& c : m_camera) c.month = month;
}

// ------------------------------------------------------------------ checks

int ZScheduleManager::IsEnabled(int camera) const {
  return ValidCamera(camera) && m_camera[camera].nEnabled == 1 ? 1 : 0;
}

int ZScheduleManager::IsScheduleSetting(int camera) {
  if (!IsEnabled(camera)) return 0;
  return CheckSchedule(m_camera[camera].nMode, camera);
}

int ZScheduleManager::CheckSchedule(int /*camera*/) { return 0; }

int ZScheduleManager::CheckTaskWork(const tagSCHEDULEWORKTASK& list, const SYSTEMTIME& now) {
  for (const tagDSWORKTASK& t : list.tasks) {
    if (CompareOverTime(t.start, t.end, now) == 1) {
      m_current = t;
      return 1;
    }
  }
  return 0;
}

int ZScheduleManager::CheckTaskWork(const tagSCHEDULEWORKTASK& list, const SYSTEMTIME& now, SYSTEMTIME& start) {
  if (!CheckTaskWork(list, now)) return 0;
  start = m_current.start;
  return 1;
}

// The one rule for which task lists a camera's schedule offers on a day:
// mode 0 its own daily list; mode 1 the list of today's week-day type
// (0..3, list 0 included); mode 2 list 4 + type for each month entry dated
// today, in list order. `visit(list)` sees them in that order until it
// returns true; a day type that names no list comes as -1. The callers
// differ only in how far they go: the check stops at the first offer, the
// posting takes the first real list, and GetScheduleSetting tries each.
template <typename Visit>
bool ZScheduleManager::ForEachListOfDay(int mode, int camera, const SYSTEMTIME& now, Visit visit) const {
  const tagDSSCHEDULEOPTION& c = m_camera[camera];
  switch (mode) {
    case kScheduleDaily:
      return visit(kFirstDailyList + camera);
    case kScheduleWeekly: {
      if (now.wDayOfWeek >= c.week.size()) return visit(-1);
      const LONG type = c.week[now.wDayOfWeek];
      return visit(type >= 0 && type <= kWeekSpecial ? static_cast<int>(type) : -1);
    }
    case kScheduleMonthly:
      for (const tagDSSCHEDULEMONTH& m : c.month) {
        if (CompareDate(m.date, now) != 1) continue;
        const bool known = m.type >= kMonthWork && m.type <= kMonthSpecial;
        if (visit(known ? kFirstMonthList + static_cast<int>(m.type) : -1)) return true;
      }
      return false;
    default:
      return false;
  }
}

int ZScheduleManager::CheckSchedule(int mode, int camera) {
  if (!ValidCamera(camera)) return 0;
  const SYSTEMTIME now = GetSysTime();
  int matched = 0;
  ForEachListOfDay(mode, camera, now, [&](int list) {
    matched = list >= 0 ? CheckTaskWork(m_list[list], now) : 0;
    return true;  // only the first offer counts
  });
  return matched;
}

int ZScheduleManager::ListOfDay(int camera, const SYSTEMTIME& now) const {
  if (!ValidCamera(camera)) return -1;
  int found = -1;
  ForEachListOfDay(m_camera[camera].nMode, camera, now, [&](int list) {
    found = list;
    return list >= 0;
  });
  return found;
}

// ------------------------------------------------------------------ queries

int ZScheduleManager::IsConnect(int) const { return m_current.bConnect; }
int ZScheduleManager::IsRecord(int, int& recordMode) const {
  recordMode = m_current.nRecordMode;
  return m_current.bRecord;
}
int ZScheduleManager::IsVisual(int) const { return m_current.bVisual; }
int ZScheduleManager::IsManual(int) const { return m_current.bManual; }
int ZScheduleManager::IsSensor(int) const { return m_current.bSensor; }
int ZScheduleManager::IsExternal(int) const { return m_current.bExternal; }
int ZScheduleManager::IsPTZLoop(int) const { return m_current.bPTZLoop; }

int ZScheduleManager::IsAction(int, tagDSACTIONOPTION& action) const {
  if (m_current.nActionFlag == 1) action = m_current.dsAction;
  return m_current.nActionFlag;
}

int ZScheduleManager::GetEventFrom(int) const {
  int from = 0;
  if (m_current.bVisual) from |= 1;
  if (m_current.bSensor) from |= 2;
  if (m_current.bManual) from |= 4;
  return from;
}

int ZScheduleManager::GetScheduleSetting(int camera, std::string& name) {
  if (!IsEnabled(camera)) return 0;
  const SYSTEMTIME now = GetSysTime();
  // Every offer of the day gets its turn, unlike the plain check. List 0
  // has no settings-file name, so a week day of type 0 never answers here.
  return ForEachListOfDay(m_camera[camera].nMode, camera, now,
                          [&](int list) {
                            SYSTEMTIME start{};
                            if (list <= 0 || !CheckTaskWork(m_list[list], now, start)) return false;
                            name = VisualFileName(camera, list, start);
                            return true;
                          })
             ? 1
             : 0;
}

// ------------------------------------------------------------------ posting

int ZScheduleManager::PostTimeSchedling(int camera) {
  if (!IsEnabled(camera)) return 0;
  const SYSTEMTIME now = GetSysTime();
  const int list = ListOfDay(camera, now);
  if (list < 0) return 0;
  return PostList(camera, list, now);
}

int ZScheduleManager::PostList(int camera, int list, const SYSTEMTIME& now) {
  IDispatcher* d = IDispatcher::Instance();
  const int tag = camera + kScheduleTagBase;
  const auto post = [&](UINT id, const SYSTEMTIME& at, LONG second) {
    d->PostTimeEvent(id, at, static_cast<UINT_PTR>(camera), second, tag);
  };
  const auto logLines = [&](const SYSTEMTIME& start, const SYSTEMTIME& end) {
    ILiveLog* log = ILiveLog::Instance();
    log->WriteV("Schedule Event : %s , Camera%02d ZE_START_RECORDING\r\n", FormatSTTIME(start).c_str(), camera);
    log->WriteV("Schedule Event : %s , Camera%02d ZE_STOP_RECORDING\r\n", FormatSTTIME(end).c_str(), camera);
  };
  int posted = 0;
  for (const tagDSWORKTASK& t : m_list[list].tasks) {
    SYSTEMTIME start = t.start;
    SYSTEMTIME end = t.end;
    OnDate(start, now);
    OnDate(end, now);
    if (CompareTime(end, now) != -1) continue;
    if (t.bConnect == 1) {
      post(kEventState15, start, kScheduleEventParam);
      post(kEventStartRecording, start, kScheduleEventParam);
      post(kEventState16, end, kScheduleEventParam);
    }
    if (t.bConnect == 0) {
      post(kEventState16, start, kScheduleEventParam);
      post(kEventState15, end, kScheduleEventParam);
      post(kEventStartRecording, end, kScheduleEventParam);
    }
    if (t.bConnect == 1 && t.bRecord == 1) {
      post(kEventStartRecording, start, kScheduleEventParam);
      post(kEventStopRecording, end, kScheduleEventParam);
      logLines(start, end);
    }
    if (t.bRecord == 0) {
      post(kEventStartRecording, end, kScheduleEventParam);
      post(kEventStopRecording, end, kScheduleEventParam);
      logLines(start, end);
    }
    post(kEventBoundary, start, 0);
    post(kEventBoundary, end, 0);
    m_posted[camera].push_back(tagSCHEDULEPOSTED{camera, start, end});
    posted = 1;
  }
  return posted;
}

const std::vector<tagSCHEDULEPOSTED>& ZScheduleManager::GetPostedList(int camera) const {
  return ValidCamera(camera) ? m_posted[camera] : kNoPosted;
}

// --------------------------------------------------- motion-detection files

// QUIRK(visual-detection-now): event 13, due at once, with no camera.
int ZScheduleManager::PostVisualDerection() {
  IDispatcher::Instance()->PostTimeEvent(kEventVisual, GetSysTime(), 0, 0, 0);
  return 1;
}

int ZScheduleManager::CheckDetectorIsExc(int camera, SYSTEMTIME t) const {
  if (!ValidCamera(camera)) return 0;
  for (const tagSCHEDULEPOSTED& p : m_posted[camera])
    if (CompareOverTime(p.start, t, p.end) == -1) return 1;
  return 0;
}

void ZScheduleManager::DelDetectorList(int camera) {
  if (ValidCamera(camera)) m_posted[camera].clear();
}

std::string ZScheduleManager::VisualFileName(int camera, int list, const SYSTEMTIME& start) {
  static const char* const kKinds[] = {nullptr, "W_Work", "W_Off", "W_Special", "M_Work", "M_Off", "M_Special"};
  if (!ValidCamera(camera) || list <= 0 || list >= kScheduleLists) return "";
  if (list >= kFirstDailyList) return Format("Visual%02d_%s%02d%02d%02d.zmi", camera, "D_", start);
  return Format("Visual%02d_%s_%02d%02d%02d.zmi", camera, kKinds[list], start);
}

int ZScheduleManager::AddVisualFile(int camera, int list, const SYSTEMTIME& start) {
  const std::string name = VisualFileName(camera, list, start);
  if (name.empty()) return 0;
  const std::string path = GetModulePath() + name;
  if (dravix::platform::PathExists(path)) return 1;
  char base[32];
  std::snprintf(base, sizeof(base), "Visual%02d.zmi", camera);
  std::error_code ec;
  if (dravix::platform::PathExists(GetModulePath() + base))
    return std::filesystem::copy_file(GetModulePath() + base, path, ec) ? 1 : 0;
  return std::ofstream(path, std::ios::binary).good() ? 1 : 0;
}

int ZScheduleManager::DelVisualFile(int camera, int list, const SYSTEMTIME& start) {
  const std::string name = VisualFileName(camera, list, start);
  if (name.empty()) return 0;
  const std::string path = GetModulePath() + name;
  dravix::platform::DeleteFileAt(path);
  return dravix::platform::PathExists(path) ? 0 : 1;
}

int ZScheduleManager::RemoveVisualFile(int camera) {
  if (!ValidCamera(camera)) return 0;
  char mask[32];
  std::snprintf(mask, sizeof(mask), "Visual%02d_*.zmi", camera);
  std::vector<std::string> names;
  if (!dravix::platform::FindFiles(GetModulePath() + mask, &names)) return 0;
  int removed = 0;
  for (const std::string& n : names)
    if (dravix::platform::DeleteFileAt(GetModulePath() + n)) ++removed;
  return removed;
}

void ZScheduleManager::Modify_Old_VisualFile(int camera, int list, const SYSTEMTIME& start) {
  m_oldVisual = VisualFileName(camera, list, start);
}

void ZScheduleManager::Modify_New_VisualFile(int camera, int list, const SYSTEMTIME& start) {
  m_newVisual = VisualFileName(camera, list, start);
}

int ZScheduleManager::VisualFileOption(int option) {
  int moved = 0;
  if (option == 1 && !m_oldVisual.empty() && !m_newVisual.empty() && m_oldVisual != m_newVisual &&
      dravix::platform::PathExists(GetModulePath() + m_oldVisual)) {
    std::error_code ec;
    std::filesystem::rename(GetModulePath() + m_oldVisual, GetModulePath() + m_newVisual, ec);
    moved = ec ? 0 : 1;
  }
  m_oldVisual.clear();
  m_newVisual.clear();
  return moved;
}

int ZScheduleManager::Modify_DelOld_VisualFile() {
  if (m_oldVisual.empty()) return 0;
  const std::string path = GetModulePath() + m_oldVisual;
  dravix::platform::DeleteFileAt(path);
  return dravix::platform::PathExists(path) ? 0 : 1;
}

int ZScheduleManager::Modify_DelNew_VisualFile() {
  if (m_newVisual.empty()) return 0;
  const std::string path = GetModulePath() + m_newVisual;
  dravix::platform::DeleteFileAt(path);
  return dravix::platform::PathExists(path) ? 0 : 1;
}
