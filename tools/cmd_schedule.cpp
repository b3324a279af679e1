// `dravix schedule`: the recording schedule of "Schedule.zmi".
//   show [CAMERA]     every camera at a glance, or one camera's week, month
//                     and day with its tasks;
//   post CAMERA       what the recorder posts for the camera today: the time
//                     events and the live-log lines (written to the log);
//   enable, disable, add-task
//                     small edits, saved to the file at once.
#include "dravix/base/zfile.h"
#include "dravix/base/ztime.h"
#include "dravix/log/ilog.h"
#include "dravix/platform/clock.h"
#include "dravix/platform/file_io.h"
#include "dravix/schedule/event_ids.h"
#include "dravix/schedule/idispatcher.h"
#include "dravix/schedule/schedule_file.h"
#include "dravix/schedule/zschedulemanager.h"
#include "tools/command.h"
#include "tools/edit.h"
#include "tools/table.h"
#include "tools/time_arg.h"

#include <nlohmann/json.hpp>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>

namespace dravix::cli {
namespace {

struct Options {
  int camera = -1;
  CLI::Option* showCamera = nullptr;  // given to `show`, else every camera
  int mode = -1;
  int list = -1;
  std::string start;
  std::string end;
  std::string at;
  std::string log = "Live.log";
  int connect = 1;
  int record = 1;
  int recordMode = 0;
  bool visual = false, sensor = false, manual = false, external = false, ptzLoop = false;
};

Options& Opts() {
  static Options o;
  return o;
}

const char* const kDays[] = {"Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"};

std::string ModeName(LONG mode) {
  switch (mode) {
    case kScheduleDaily:
      return "every day alike";
    case kScheduleWeekly:
      return "by day of the week";
    case kScheduleMonthly:
      return "by calendar date";
    default:
      return "unknown mode " + std::to_string(mode);
  }
}

std::string WeekTypeName(LONG t) {
  switch (t) {
    case 0:
      return "list 0";
    case kWeekWork:
      return "work day";
    case kWeekOff:
      return "off day";
    case kWeekSpecial:
      return "special day";
    default:
      return "unknown " + std::to_string(t);
  }
}

std::string MonthTypeName(LONG t) {
  switch (t) {
    case kMonthWork:
      return "work day";
    case kMonthOff:
      return "off day";
    case kMonthSpecial:
      return "special day";
    default:
      return "unknown " + std::to_string(t);
  }
}

std::string Clock(const SYSTEMTIME& t) {
  char b[32];
  std::snprintf(b, sizeof(b), "%02d:%02d:%02d", t.wHour, t.wMinute, t.wSecond);
  return b;
}

std::string Day(const SYSTEMTIME& t) {
  char b[32];
  std::snprintf(b, sizeof(b), "%04d-%02d-%02d", t.wYear, t.wMonth, t.wDay);
  return b;
}

std::string Window(const tagDSWORKTASK& t) { return Clock(t.start) + "-" + Clock(t.end); }

std::string Windows(const tagSCHEDULEWORKTASK& list) {
  if (list.tasks.empty()) return "-";
  std::string s;
  for (const tagDSWORKTASK& t : list.tasks) s += (s.empty() ? "" : ", ") + Window(t);
  return s;
}

nlohmann::ordered_json WindowsJson(const tagSCHEDULEWORKTASK& list) {
  auto j = nlohmann::ordered_json::array();
  for (const tagDSWORKTASK& t : list.tasks) j.push_back(Window(t));
  return j;
}

struct Snapshot {
  tagDSSCHEDULEOPTION cams[kScheduleCameras];
  tagSCHEDULEWORKTASK lists[kScheduleLists];
};

std::unique_ptr<Snapshot> Take() {
  ZScheduleManager* m = ZScheduleManager::Instance();
  if (!m->LoadError().empty()) throw Failure(m->LoadError());
  auto s = std::make_unique<Snapshot>();
  m->LoadSchedule(s->cams, s->lists);
  return s;
}

void CheckCamera(int camera) {
  if (camera < 0 || camera >= kScheduleCameras) throw UsageError("CAMERA must be 0 to 15");
}

std::string Flag(LONG v) { return v == 1 ? "yes" : v == 0 ? "-" : std::to_string(v); }

nlohmann::ordered_json TasksJson(const tagSCHEDULEWORKTASK& list) {
  auto j = nlohmann::ordered_json::array();
  for (size_t i = 0; i < list.tasks.size(); ++i) {
    const tagDSWORKTASK& k = list.tasks[i];
    j.push_back({{"index", i},
                 {"start", Clock(k.start)},
                 {"end", Clock(k.end)},
                 {"connect", k.bConnect},
                 {"record", k.bRecord},
                 {"mode", k.nRecordMode},
                 {"motion", k.bVisual},
                 {"sensor", k.bSensor},
                 {"manual", k.bManual},
                 {"action", k.nActionFlag},
                 {"external", k.bExternal},
                 {"ptz_loop", k.bPTZLoop}});
  }
  return j;
}

void PrintTasks(const tagSCHEDULEWORKTASK& list) {
  Table t({"index", "start", "end", "connect", "record", "mode", "motion", "sensor", "manual", "action", "external",
           "PTZ loop"});
  for (size_t i = 0; i < list.tasks.size(); ++i) {
    const tagDSWORKTASK& k = list.tasks[i];
    t.Add({std::to_string(i), Clock(k.start), Clock(k.end), Flag(k.bConnect), Flag(k.bRecord),
           std::to_string(k.nRecordMode), Flag(k.bVisual), Flag(k.bSensor), Flag(k.bManual), Flag(k.nActionFlag),
           Flag(k.bExternal), Flag(k.bPTZLoop)});
  }
  if (t.empty())
    std::cout << "  (no tasks)\n";
  else
    t.Print(std::cout);
}

// One camera's schedule as JSON: the same parts as the text, each list of
// windows and tasks in full.
int ShowCameraJson(const Snapshot& s, int c, const SYSTEMTIME& today, nlohmann::ordered_json j) {
  using Json = nlohmann::ordered_json;
  const tagDSSCHEDULEOPTION& cam = s.cams[c];
  j["camera"] = c;
  j["enabled"] = cam.nEnabled == 1;
  j["mode"] = cam.nMode;
  j["week"] = Json::array();
  for (size_t d = 0; d < cam.week.size(); ++d) {
    const LONG t = cam.week[d];
    const bool known = t >= 0 && t <= kWeekSpecial;
    j["week"].push_back({{"day", d < 7 ? Json(kDays[d]) : Json(d)},
                         {"type", t},
                         {"list", known ? Json(t) : Json(nullptr)},
                         {"windows", known ? WindowsJson(s.lists[t]) : Json(nullptr)}});
  }
  j["month"] = Json::array();
  for (const tagDSSCHEDULEMONTH& m : cam.month) {
    const bool known = m.type >= kMonthWork && m.type <= kMonthSpecial;
    j["month"].push_back({{"date", Day(m.date)},
                          {"day", kDays[m.date.wDayOfWeek % 7]},
                          {"type", m.type},
                          {"list", known ? Json(kFirstMonthList + m.type) : Json(nullptr)},
                          {"windows", known ? WindowsJson(s.lists[kFirstMonthList + m.type]) : Json(nullptr)}});
  }
  const int l = ZScheduleManager::Instance()->ListOfDay(c, today);
  j["list_today"] = l < 0 ? Json(nullptr) : Json(l);
  j["tasks_today"] = l < 0 ? Json(nullptr) : TasksJson(s.lists[l]);
  // The lists that take turns with today's in modes 1 and 2.
  j["other_lists"] = Json::array();
  if (cam.nMode != kScheduleDaily) {
    const int first = cam.nMode == kScheduleWeekly ? 0 : kFirstMonthList;
    for (int k = first; k < first + (cam.nMode == kScheduleWeekly ? 4 : 3); ++k)
      if (k != l && !s.lists[k].tasks.empty())
        j["other_lists"].push_back({{"list", k}, {"tasks", TasksJson(s.lists[k])}});
  }
  std::cout << j.dump(2) << "\n";
  return kExitOk;
}

int Show() {
  const Options& o = Opts();
  const auto s = Take();
  const SYSTEMTIME today = GetSysTime();
  const bool json = Globals().json;
  nlohmann::ordered_json j;
  j["file"] = GetModulePath() + schedule::kScheduleFileName;
  j["date"] = Day(today);
  j["day"] = kDays[today.wDayOfWeek % 7];
  if (o.showCamera->count() == 0) {
    Table t({"camera", "enabled", "mode", "list today", "windows today"});
    j["cameras"] = nlohmann::ordered_json::array();
    for (int c = 0; c < kScheduleCameras; ++c) {
      const int l = ZScheduleManager::Instance()->ListOfDay(c, today);
      t.Add({std::to_string(c), s->cams[c].nEnabled == 1 ? "yes" : "no",
             std::to_string(s->cams[c].nMode) + " " + ModeName(s->cams[c].nMode), l < 0 ? "none" : std::to_string(l),
             l < 0 ? "-" : Windows(s->lists[l])});
      j["cameras"].push_back({{"camera", c},
                              {"enabled", s->cams[c].nEnabled == 1},
                              {"mode", s->cams[c].nMode},
                              {"list_today", l < 0 ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(l)},
                              {"windows_today", l < 0 ? nlohmann::ordered_json(nullptr) : WindowsJson(s->lists[l])}});
    }
    if (json) {
      std::cout << j.dump(2) << "\n";
      return kExitOk;
    }
    std::cout << "Schedule of " << GetModulePath() << "Schedule.zmi (" << kDays[today.wDayOfWeek % 7] << " "
              << Day(today) << ")\n";
    t.Print(std::cout);
    return kExitOk;
  }
  CheckCamera(o.camera);
  const int c = o.camera;
  const tagDSSCHEDULEOPTION& cam = s->cams[c];
  if (json) return ShowCameraJson(*s, c, today, std::move(j));
  std::cout << "Camera " << c << ": " << (cam.nEnabled == 1 ? "enabled" : "not enabled") << ", " << ModeName(cam.nMode)
            << "\n";

  std::cout << "\nWeek" << (cam.nMode == kScheduleWeekly ? "" : " (used in mode 1)") << "\n";
  Table week({"day", "type", "list", "windows"});
  for (size_t d = 0; d < cam.week.size(); ++d) {
    const LONG t = cam.week[d];
    const bool known = t >= 0 && t <= kWeekSpecial;
    week.Add({d < 7 ? kDays[d] : "day " + std::to_string(d), WeekTypeName(t), known ? std::to_string(t) : "-",
              known ? Windows(s->lists[t]) : "-"});
  }
  week.Print(std::cout);

  if (cam.nMode != kScheduleMonthly) {
    std::cout << "\nMonth (used in mode 2): " << cam.month.size() << " dates";
    if (!cam.month.empty()) std::cout << ", " << Day(cam.month.front().date) << " to " << Day(cam.month.back().date);
    std::cout << "\n";
  }
  if (cam.nMode == kScheduleMonthly) std::cout << "\nMonth\n";
  Table month({"date", "day", "type", "list", "windows"});
  for (const tagDSSCHEDULEMONTH& m : cam.month) {
    const bool known = m.type >= kMonthWork && m.type <= kMonthSpecial;
    month.Add({Day(m.date), kDays[m.date.wDayOfWeek % 7], MonthTypeName(m.type),
               known ? std::to_string(kFirstMonthList + m.type) : "-",
               known ? Windows(s->lists[kFirstMonthList + m.type]) : "-"});
  }
  if (cam.nMode == kScheduleMonthly) month.Print(std::cout);

  const int l = ZScheduleManager::Instance()->ListOfDay(c, today);
  std::cout << "\nDay: " << kDays[today.wDayOfWeek % 7] << " " << Day(today);
  if (l < 0) {
    std::cout << ": no list for today\n";
    return kExitOk;
  }
  std::cout << ", list " << l << "\n";
  PrintTasks(s->lists[l]);
  if (cam.nMode == kScheduleDaily) return kExitOk;
  // In modes 1 and 2 several lists take turns: show the others too.
  const int first = cam.nMode == kScheduleWeekly ? 0 : kFirstMonthList;
  for (int k = first; k < first + (cam.nMode == kScheduleWeekly ? 4 : 3); ++k) {
    if (k == l || s->lists[k].tasks.empty()) continue;
    std::cout << "\nList " << k << "\n";
    PrintTasks(s->lists[k]);
  }
  return kExitOk;
}

std::string EventName(UINT id) {
  const char* meaning = schedule::EventIdMeaning(id);
  return meaning != nullptr ? std::to_string(id) + " " + meaning : std::to_string(id);
}

int Post() {
  const Options& o = Opts();
  CheckCamera(o.camera);
  if (!o.at.empty()) {
    const std::time_t at = platform::LocalToUnix(ParseTimeArg(o.at, "--at"));
    platform::SetTestClock([at] { return at; });
  }
  ZScheduleManager* m = ZScheduleManager::Instance();
  if (!m->LoadError().empty()) throw Failure(m->LoadError());
  ILiveLog* log = ILiveLog::Instance();
  if (!log->SetFilename(o.log.c_str())) throw Failure("cannot open the live log " + o.log + " in " + GetModulePath());
  const std::string logPath = log->GetFilePath();
  const __int64 logStart = FileSize(logPath.c_str());

  const SYSTEMTIME now = GetSysTime();
  const int posted = m->PostTimeSchedling(o.camera);
  const auto events = IDispatcher::Instance()->GetTimeEvents();

  std::vector<std::string> lines;
  {
    std::ifstream in(logPath, std::ios::binary);
    in.seekg(logStart > 0 ? logStart : 0);
    std::string line;
    while (std::getline(in, line)) {
      if (!line.empty() && line.back() == '\r') line.pop_back();
      lines.push_back(line);
    }
  }
  if (Globals().json) {
    nlohmann::ordered_json j;
    j["camera"] = o.camera;
    j["now"] = FormatTimeArg(now, false);
    j["enabled"] = m->IsEnabled(o.camera) != 0;
    // How many time events were posted, as the text says.
    j["posted"] = posted ? events.size() : 0;
    j["events"] = nlohmann::ordered_json::array();
    for (const auto& e : events)
      j["events"].push_back({{"time", FormatTimeArg(e.due, false)},
                             {"event", e.id},
                             {"first", static_cast<uint64_t>(e.first)},
                             {"second", static_cast<int64_t>(e.second)},
                             {"tag", e.tag}});
    j["log"] = lines;
    std::cout << j.dump(2) << "\n";
    return kExitOk;
  }
  std::cout << "Camera " << o.camera << " on " << kDays[now.wDayOfWeek % 7] << " " << FormatTimeArg(now, false) << ": ";
  if (!posted) {
    std::cout << (m->IsEnabled(o.camera) ? "nothing left to post today\n" : "not enabled, nothing posted\n");
    return kExitOk;
  }
  std::cout << events.size() << " time events posted\n";
  Table t({"time", "event", "first (camera)", "second", "tag"});
  for (const auto& e : events)
    t.Add({FormatTimeArg(e.due, false), EventName(e.id), std::to_string(e.first), std::to_string(e.second),
           std::to_string(e.tag)});
  t.Print(std::cout);
  std::cout << "\nLive log (" << logPath << "):\n";
  for (const std::string& l : lines) std::cout << "  " << l << "\n";
  return kExitOk;
}

// Applies an edit through the settings-page calls and saves the file.
template <typename Edit>
void Change(Edit edit) {
  // Read, change and save under the folder's edit lock, so that two edits
  // at once both land; the manager reads the file only once the lock is held.
  const FileEdit lock(GetModulePath() + schedule::kScheduleFileName);
  lock.Read();  // a file that exists but cannot be read stops here, named with its reason
  ZScheduleManager* m = ZScheduleManager::Instance();
  if (!m->LoadError().empty()) throw Failure(m->LoadError() + " (not changed)");
  auto s = std::make_unique<Snapshot>();
  m->LoadSchedule(s->cams, s->lists);
  edit(*s);
  m->SaveSchedule(s->cams, s->lists);
  platform::SetLastFileError(0);
  if (!m->Save()) {
    const int err = platform::LastFileError();
    throw Failure("could not write " + lock.file() + ": " +
                  (err != 0 ? platform::FileErrorText(err) : "less than 30 MB free on its disk"));
  }
}

int Enable() {
  const Options& o = Opts();
  CheckCamera(o.camera);
  if (o.mode != -1 && (o.mode < 0 || o.mode > 2)) throw UsageError("--mode must be 0, 1 or 2");
  Change([&o](Snapshot& s) {
    s.cams[o.camera].nEnabled = 1;
    if (o.mode != -1) s.cams[o.camera].nMode = o.mode;
  });
  std::cout << "camera " << o.camera << " enabled\n";
  return kExitOk;
}

int Disable() {
  CheckCamera(Opts().camera);
  Change([](Snapshot& s) { s.cams[Opts().camera].nEnabled = 0; });
  std::cout << "camera " << Opts().camera << " disabled\n";
  return kExitOk;
}

SYSTEMTIME ParseClock(const std::string& text, const char* what) {
  int h = 0, m = 0, s = 0, used = 0;
  const int n = std::sscanf(text.c_str(), "%2d:%2d%n:%2d%n", &h, &m, &used, &s, &used);
  if (n < 2 || static_cast<size_t>(used) != text.size() || h < 0 || h > 23 || m < 0 || m > 59 || s < 0 || s > 59)
    throw UsageError(std::string(what) + ": '" + text + "' is not a time of day hh:mm[:ss]");
  SYSTEMTIME t = GetSysTime();
  t.wHour = static_cast<WORD>(h);
  t.wMinute = static_cast<WORD>(m);
  t.wSecond = static_cast<WORD>(s);
  t.wMilliseconds = 0;
  return t;
}

int AddTask() {
  const Options& o = Opts();
  CheckCamera(o.camera);
  const int list = o.list == -1 ? kFirstDailyList + o.camera : o.list;
  if (list < 0 || list >= kScheduleLists) throw UsageError("--list must be 0 to 22");
  tagDSWORKTASK t{};
  t.start = ParseClock(o.start, "START");
  t.end = ParseClock(o.end, "END");
  t.bConnect = o.connect;
  t.bRecord = o.record;
  t.nRecordMode = o.recordMode;
  t.bVisual = o.visual;
  t.bSensor = o.sensor;
  t.bManual = o.manual;
  t.bExternal = o.external;
  t.bPTZLoop = o.ptzLoop;
  Change([&](Snapshot& s) { s.lists[list].tasks.push_back(t); });
  std::cout << "list " << list << ": added " << Clock(t.start) << "-" << Clock(t.end) << "\n";
  return kExitOk;
}

void Register(CLI::App& app) {
  Options& o = Opts();
  CLI::App* sched = AddCommand(&app, "schedule", "The recording schedule (\"Schedule.zmi\")");
  sched->require_subcommand(1);

  CLI::App* show = AddCommand(sched, "show", "All cameras, or one camera's week, month and day", Show);
  o.showCamera = show->add_option("CAMERA", o.camera, "Camera 0 to 15 (every camera when left out)");
  AddJsonFlag(show);

  CLI::App* post = AddCommand(sched, "post",
                              "Post the camera's remaining windows of today as the recorder does, and show the "
                              "time events and the live-log lines (appended to the live log)",
                              Post);
  post->add_option("CAMERA", o.camera, "Camera 0 to 15")->required();
  post->add_option("--at", o.at, "Pretend the clock reads this local time (YYYY-MM-DD hh:mm:ss)");
  post->add_option("--log", o.log, "The live log's file name in the program folder (default Live.log)");
  AddJsonFlag(post);

  CLI::App* enable = AddCommand(sched, "enable", "Enable a camera's schedule and save", Enable);
  enable->add_option("CAMERA", o.camera, "Camera 0 to 15")->required();
  enable->add_option("--mode", o.mode, "0 every day alike, 1 by day of the week, 2 by calendar date");
  AllowCreateHome(enable);
  CLI::App* disable = AddCommand(sched, "disable", "Disable a camera's schedule and save", Disable);
  disable->add_option("CAMERA", o.camera, "Camera 0 to 15")->required();

  CLI::App* add = AddCommand(sched, "add-task", "Append a daily window to a task list and save", AddTask);
  add->add_option("CAMERA", o.camera, "Camera 0 to 15")->required();
  add->add_option("START", o.start, "Start, hh:mm[:ss]")->required();
  add->add_option("END", o.end, "End, hh:mm[:ss] (earlier than START: over midnight)")->required();
  add->add_option("--list", o.list,
                  "Task list: 7 + CAMERA (default) for every day, 1/2/3 work/off/special week day, "
                  "4/5/6 work/off/special date");
  add->add_option("--connect", o.connect, "Connect flag (default 1)");
  add->add_option("--record", o.record, "Record flag (default 1)");
  add->add_option("--record-mode", o.recordMode, "Record mode handed to the recorder (default 0)");
  add->add_flag("--motion", o.visual, "Motion detection in the window");
  add->add_flag("--sensor", o.sensor, "Sensor events in the window");
  add->add_flag("--manual", o.manual, "Manual events in the window");
  add->add_flag("--external", o.external, "Output to the external device");
  add->add_flag("--ptz-loop", o.ptzLoop, "PTZ preset loop");
  AllowCreateHome(add);
  add->footer(
      "Examples:\n"
      "  dravix schedule add-task 0 08:00 12:00                      # camera 0 records 8 to 12 every day\n"
      "  dravix schedule add-task 0 22:00 06:00 --record 0 --motion  # over midnight, motion only\n"
      "  dravix schedule add-task 3 09:00 17:30 --list 1             # the work-day list of the week\n"
      "`dravix schedule enable CAMERA` turns the camera's schedule on; `schedule show CAMERA` lists it.");
}

const Registration reg{55, Register};

}  // namespace
}  // namespace dravix::cli
