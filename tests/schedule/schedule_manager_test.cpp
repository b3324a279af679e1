// The schedule manager: fresh defaults, the task check, the queries from the
// current task, settings-file names, motion-detection files, and posting a
// camera's day (the exact events in the dispatcher and the live-log lines).
#include "dravix/log/ilog.h"
#include "dravix/platform/clock.h"
#include "dravix/schedule/idispatcher.h"
#include "dravix/schedule/zschedulemanager.h"
#include "tests/support/schedule_support.h"
#include "tests/support/test_home.h"

#include <atomic>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using V = std::vector<std::string>;

using dravix::test::At;
using dravix::test::Configure;
using dravix::test::Task;
using dravix::test::TimeOfDay;

class Schedule : public dravix::test::TestHome {
 protected:
  void SetUp() override {
    TestHome::SetUp();
    SetClock(At(2008, 3, 17, 10));  // a Monday
    ASSERT_TRUE(ILiveLog::Instance()->SetFilename("Live.log"));
  }
  static void SetClock(const SYSTEMTIME& t) { dravix::test::DayClock::Set(t); }

  // The dispatcher's time events as "id@hh:mm", after checking the date, the
  // seconds, the parameters (camera; 2222, or 0 for event 14) and the tag.
  static V Events(int camera, int day = 17) {
    V out;
    for (const IDispatcher::tagDSTIMEEVENT& e : IDispatcher::Instance()->GetTimeEvents()) {
      EXPECT_EQ(e.first, static_cast<UINT_PTR>(camera));
      EXPECT_EQ(e.second, e.id == 14 ? 0 : 2222);
      EXPECT_EQ(e.tag, camera + 100);
      EXPECT_EQ(std::vector<int>({e.due.wYear, e.due.wMonth, e.due.wDay, e.due.wSecond}),
                std::vector<int>({2008, 3, day, 0}));
      char buf[64];
      std::snprintf(buf, sizeof(buf), "%u@%02d:%02d", e.id, e.due.wHour, e.due.wMinute);
      out.push_back(buf);
    }
    return out;
  }
  // Removes every time event of the camera.
  static void ClearEvents(int camera) {
    IDispatcher::Instance()->DeleteTimeEvent(static_cast<UINT>(camera + 100));
    for (int i = 0; i < 2; ++i) IDispatcher::Instance()->ProcessTimeEvent();
    ASSERT_EQ(IDispatcher::Instance()->GetTimeEventCount(), 0u);
  }
  std::string Log() { return ReadFile(Path("Live.log")); }
  static std::string Lines(const char* start, const char* end, int camera) {
    char buf[256];
    std::snprintf(buf, sizeof(buf),
                  "Schedule Event : 2008/03/17 %s:0000 , Camera%02d ZE_START_RECORDING\r\n"
                  "Schedule Event : 2008/03/17 %s:0000 , Camera%02d ZE_STOP_RECORDING\r\n",
                  start, camera, end, camera);
    return buf;
  }
  ZScheduleManager* M() { return ZScheduleManager::Instance(); }

 private:
  dravix::test::DayClock clock_;
};

TEST_F(Schedule, AFreshInstallationHasWorkDaysAndWeekendsAndWritesNothing) {
  SetClock(At(2008, 2, 27, 9));  // a Wednesday, two days before a leap day
  EXPECT_EQ(M()->GetFileFormat(), 1500);
  EXPECT_EQ(M()->LoadError(), "");
  tagDSSCHEDULEOPTION cams[kScheduleCameras];
  tagSCHEDULEWORKTASK lists[kScheduleLists];
  M()->LoadSchedule(cams, lists);
  for (const auto& c : cams) {
    EXPECT_EQ(std::vector<LONG>({c.nVersion, c.nEnabled, c.nMode}), std::vector<LONG>({1500, 0, 0}));
    EXPECT_EQ(c.week, (std::vector<LONG>{2, 1, 1, 1, 1, 1, 2}));
    ASSERT_EQ(c.month.size(), 31u);
  }
  for (const auto& l : lists) EXPECT_TRUE(l.tasks.empty());
  const auto& month = cams[0].month;
  std::vector<LONG> days, types;
  for (size_t i = 0; i < 7; ++i) {
    days.push_back(month[i].date.wDay);
    types.push_back(month[i].type);
  }
  EXPECT_EQ(days, (std::vector<LONG>{27, 28, 29, 1, 2, 3, 4}));  // 2008 is a leap year
  EXPECT_EQ(types,
            (std::vector<LONG>{kMonthWork, kMonthWork, kMonthWork, kMonthOff, kMonthOff, kMonthWork, kMonthWork}));
  EXPECT_EQ(month[30].date.wDay, 28);
  EXPECT_FALSE(std::filesystem::exists(Path("Schedule.zmi")));
}

TEST_F(Schedule, TheTaskCheckTakesTheFirstTaskHoldingNow) {
  tagSCHEDULEWORKTASK list;
  list.tasks = {Task(8, 0, 18, 0), Task(22, 0, 6, 0), Task(12, 0, 13, 0)};
  for (LONG i = 0; i < 3; ++i) list.tasks[i].nRecordMode = i + 1;
  struct Case {
    int h, m, s;
    WORD startHour;  // 0: no match
  } const cases[] = {
      {7, 59, 59, 0}, {8, 0, 0, 8},  {12, 30, 0, 8}, {18, 0, 0, 8},  // the end is inclusive
      {18, 0, 1, 0},  {22, 0, 0, 0}, {22, 0, 1, 22}, {3, 0, 0, 22}, {5, 59, 59, 22}, {6, 0, 0, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.h << ":" << c.m << ":" << c.s);
    SYSTEMTIME start{};
    EXPECT_EQ(M()->CheckTaskWork(list, At(2008, 3, 17, c.h, c.m, c.s), start), c.startHour != 0);
    EXPECT_EQ(start.wHour, c.startHour);
  }
  // A miss leaves the current task as the last match left it.
  SYSTEMTIME start{};
  ASSERT_EQ(M()->CheckTaskWork(list, At(2008, 3, 17, 12, 30), start), 1);
  ASSERT_EQ(M()->CheckTaskWork(list, At(2008, 3, 17, 20, 0), start), 0);
  int mode = 0;
  M()->IsRecord(9, mode);
  EXPECT_EQ(mode, 1);
}

TEST_F(Schedule, QueriesAnswerFromTheCurrentTaskWhateverTheCamera) {
  tagDSWORKTASK t = Task(9, 0, 11, 0);
  t.nRecordMode = 4;
  t.bVisual = t.bSensor = t.bManual = t.bExternal = t.bPTZLoop = t.nActionFlag = 1;
  std::strcpy(t.dsAction.szSTM, "mail.example");
  tagDSWORKTASK quiet = Task(11, 0, 12, 0, 0, 0);
  quiet.bSensor = 1;
  quiet.nActionFlag = 2;
  Configure(2, 1, kScheduleDaily, 9, {t, quiet});

  EXPECT_EQ(M()->GetEventFrom(2), 0);  // no task matched yet
  EXPECT_EQ(M()->IsScheduleSetting(2), 1);
  for (int camera : {2, 0, 15}) {
    int mode = -1;
    tagDSACTIONOPTION a{};
    EXPECT_EQ(M()->IsRecord(camera, mode), 1);
    EXPECT_EQ(mode, 4);
    EXPECT_EQ(std::vector<int>({M()->IsConnect(camera), M()->IsVisual(camera), M()->IsSensor(camera),
                                M()->IsManual(camera), M()->IsExternal(camera), M()->IsPTZLoop(camera)}),
              std::vector<int>(6, 1));
    EXPECT_EQ(M()->GetEventFrom(camera), 7);
    EXPECT_EQ(M()->IsAction(camera, a), 1);
    EXPECT_STREQ(a.szSTM, "mail.example");
  }
  SetClock(At(2008, 3, 17, 11, 30));
  EXPECT_EQ(M()->IsScheduleSetting(2), 1);
  EXPECT_EQ(M()->GetEventFrom(2), 2);
  tagDSACTIONOPTION a{};
  EXPECT_EQ(M()->IsAction(2, a), 2);  // a flag other than 1 copies nothing
  EXPECT_EQ(a.szSTM[0], '\0');
  EXPECT_EQ(M()->IsConnect(2), 0);

  // A disabled camera is not checked, so the answers stay.
  Configure(2, 0, kScheduleDaily, -1, {});
  EXPECT_EQ(M()->IsScheduleSetting(2), 0);
  EXPECT_EQ(M()->IsSensor(2), 1);
  for (int c = -1; c <= 16; ++c) EXPECT_EQ(M()->CheckSchedule(c), 0);  // the public check never answers
}

TEST_F(Schedule, SettingsFileNamesFollowTheModeAndDayType) {
  std::string name = "unchanged";
  EXPECT_EQ(M()->GetScheduleSetting(3, name), 0);  // disabled
  EXPECT_EQ(name, "unchanged");
  tagDSWORKTASK odd = Task(8, 5, 12, 0);
  odd.start.wSecond = 9;
  Configure(3, 1, kScheduleDaily, 10, {odd});
  EXPECT_EQ(M()->GetScheduleSetting(3, name), 1);
  EXPECT_EQ(name, "Visual03_D_080509.zmi");
  Configure(3, 1, kScheduleWeekly, 1, {Task(9, 30, 11, 0)});
  EXPECT_EQ(M()->GetScheduleSetting(3, name), 1);
  EXPECT_EQ(name, "Visual03_W_Work_093000.zmi");
  Configure(3, 1, kScheduleWeekly, 3, {Task(0, 0, 23, 0)});
  SetClock(At(2008, 3, 16, 10));  // Sunday: an off day, and list 2 is empty
  EXPECT_EQ(M()->GetScheduleSetting(3, name), 0);
  SetClock(At(2008, 3, 17, 10));

  // By date: the first entry of today has no task holding now, the second
  // has; the plain check gives up at the first.
  Configure(3, 1, kScheduleMonthly, 4, {Task(14, 0, 15, 0)});
  Configure(3, 1, kScheduleMonthly, 6, {Task(9, 0, 10, 30)});
  const std::vector<tagDSSCHEDULEMONTH> month = {{At(2008, 3, 17), kMonthWork}, {At(2008, 3, 17), kMonthSpecial}};
  Configure(3, 1, kScheduleMonthly, -1, {}, &month);
  EXPECT_EQ(M()->IsScheduleSetting(3), 0);
  EXPECT_EQ(M()->GetScheduleSetting(3, name), 1);
  EXPECT_EQ(name, "Visual03_M_Special_090000.zmi");

  EXPECT_EQ(ZScheduleManager::VisualFileName(12, 5, TimeOfDay(1, 2, 3)), "Visual12_M_Off_010203.zmi");
  EXPECT_EQ(ZScheduleManager::VisualFileName(12, 3, TimeOfDay(1, 2, 3)), "Visual12_W_Special_010203.zmi");
  EXPECT_EQ(ZScheduleManager::VisualFileName(12, 0, TimeOfDay(1, 2, 3)), "");
  EXPECT_EQ(ZScheduleManager::VisualFileName(16, 7, TimeOfDay(1, 2, 3)), "");
}

TEST_F(Schedule, MotionDetectionFilesFollowTheTasks) {
  WriteFile("Visual01.zmi", "motion settings");
  EXPECT_EQ(M()->AddVisualFile(1, 8, TimeOfDay(8, 0)), 1);
  EXPECT_EQ(M()->AddVisualFile(2, 0, TimeOfDay(9, 0)), 0);  // list 0 has no files
  // A start moved from 08:00 to 08:30 takes its settings along; a cancelled
  // edit moves nothing.
  M()->Modify_Old_VisualFile(1, 8, TimeOfDay(8, 0));
  M()->Modify_New_VisualFile(1, 8, TimeOfDay(8, 30));
  EXPECT_EQ(M()->VisualFileOption(1), 1);
  EXPECT_EQ(ReadFile(Path("Visual01_D_080000.zmi")), "");
  M()->Modify_Old_VisualFile(1, 8, TimeOfDay(8, 30));
  M()->Modify_New_VisualFile(1, 8, TimeOfDay(9, 0));
  EXPECT_EQ(M()->VisualFileOption(0), 0);
  EXPECT_EQ(ReadFile(Path("Visual01_D_083000.zmi")), "motion settings");
  WriteFile("Visual02_D_100000.zmi", "x");
  WriteFile("Visual02_W_Off_100000.zmi", "x");
  EXPECT_EQ(M()->RemoveVisualFile(2), 2);
  EXPECT_EQ(M()->RemoveVisualFile(1), 1);
  EXPECT_EQ(ReadFile(Path("Visual01.zmi")), "motion settings");
  EXPECT_EQ(M()->PostVisualDerection(), 1);  // QUIRK(visual-detection-now): event 13, due now
  const auto events = IDispatcher::Instance()->GetTimeEvents();
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(std::vector<int>({static_cast<int>(events[0].id), events[0].due.wHour, events[0].due.wDay}),
            std::vector<int>({13, 10, 17}));
}

TEST_F(Schedule, EachConnectAndRecordCombinationPostsItsOwnSequence) {
  struct Case {
    BOOL connect, record;
    V events;
    bool lines;
  } const cases[] = {
      {1, 1, V{"15@12:00", "6@12:00", "16@18:30", "6@12:00", "8@18:30", "14@12:00", "14@18:30"}, true},
      {1, 0, V{"15@12:00", "6@12:00", "16@18:30", "6@18:30", "8@18:30", "14@12:00", "14@18:30"}, true},
      {0, 1, V{"16@12:00", "15@18:30", "6@18:30", "14@12:00", "14@18:30"}, false},
      {0, 0, V{"16@12:00", "15@18:30", "6@18:30", "6@18:30", "8@18:30", "14@12:00", "14@18:30"}, true},
      // A connect flag other than 0 or 1 takes neither of the first two rules.
      {2, 0, V{"6@18:30", "8@18:30", "14@12:00", "14@18:30"}, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "connect " << c.connect << " record " << c.record);
    WriteFile("Live.log", "");
    ASSERT_TRUE(ILiveLog::Instance()->SetFilename("Live.log"));
    ClearEvents(7);
    Configure(7, 1, kScheduleDaily, 14, {Task(12, 0, 18, 30, c.connect, c.record)});
    EXPECT_EQ(M()->PostTimeSchedling(7), 1);
    EXPECT_EQ(Events(7), c.events);
    EXPECT_EQ(Log(), c.lines ? Lines("12:00:00", "18:30:00", 7) : "");
  }
}

TEST_F(Schedule, OnlyWindowsEndingLaterTodayArePosted) {
  Configure(0, 1, kScheduleDaily, 7,
            {Task(0, 0, 6, 0, 0), Task(8, 0, 12, 0, 0), Task(13, 0, 23, 59, 0),
             Task(9, 0, 0, 0, 0)});  // the last ends at 00:00: never posted
  struct Case {
    int h, m, s;
    V starts;  // the 16 events (one at each posted start)
  } const cases[] = {
      {0, 0, 0, V{"16@00:00", "16@08:00", "16@13:00"}},
      {7, 0, 0, V{"16@08:00", "16@13:00"}},
      {11, 59, 59, V{"16@08:00", "16@13:00"}},
      {12, 0, 0, V{"16@13:00"}},  // an end equal to now is not later
      {23, 58, 59, V{"16@13:00"}},
      {23, 59, 0, V{}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.h << ":" << c.m << ":" << c.s);
    ClearEvents(0);
    SetClock(At(2008, 3, 17, c.h, c.m, c.s));
    EXPECT_EQ(M()->PostTimeSchedling(0), c.starts.empty() ? 0 : 1);
    V starts;
    for (const std::string& e : Events(0))
      if (e.rfind("16@", 0) == 0) starts.push_back(e);
    EXPECT_EQ(starts, c.starts);
  }
  // The detector list holds every posted window until it is dropped.
  EXPECT_EQ(M()->CheckDetectorIsExc(0, At(2008, 3, 17, 12, 0)), 0);
  EXPECT_EQ(M()->CheckDetectorIsExc(0, At(2008, 3, 17, 13, 30)), 1);
  EXPECT_EQ(M()->CheckDetectorIsExc(1, At(2008, 3, 17, 13, 30)), 0);
  M()->DelDetectorList(0);
  EXPECT_EQ(M()->CheckDetectorIsExc(0, At(2008, 3, 17, 13, 30)), 0);
  EXPECT_TRUE(M()->GetPostedList(0).empty());
}

TEST_F(Schedule, AWindowOverMidnightIsPostedOnlyBeforeItsEnd) {
  Configure(2, 1, kScheduleDaily, 9, {Task(22, 0, 6, 0)});
  SetClock(At(2008, 3, 17, 23));  // inside the window, but today's 06:00 has passed
  EXPECT_EQ(M()->PostTimeSchedling(2), 0);
  SetClock(At(2008, 3, 17, 7));
  EXPECT_EQ(M()->PostTimeSchedling(2), 0);
  SetClock(At(2008, 3, 17, 3));
  EXPECT_EQ(M()->PostTimeSchedling(2), 1);
  // Both ends land on today: the start comes after the end.
  EXPECT_EQ(Events(2), (V{"15@22:00", "6@22:00", "16@06:00", "6@22:00", "8@06:00", "14@22:00", "14@06:00"}));
  EXPECT_EQ(Log(), Lines("22:00:00", "06:00:00", 2));
  const auto& posted = M()->GetPostedList(2);
  ASSERT_EQ(posted.size(), 1u);
  EXPECT_EQ(posted[0].camera, 2);
  EXPECT_EQ(posted[0].start.wHour, 22);
  EXPECT_EQ(posted[0].end.wDay, 17);
}

TEST_F(Schedule, ByDateTheFirstUsableEntryOfTodayCounts) {
  Configure(5, 1, kScheduleMonthly, 4, {Task(11, 0, 12, 0)});  // work
  Configure(5, 1, kScheduleMonthly, 5, {Task(13, 0, 14, 0)});  // off
  Configure(5, 1, kScheduleMonthly, 6, {Task(15, 0, 16, 0)});  // special
  const std::vector<tagDSSCHEDULEMONTH> month = {
      {At(2008, 3, 16), kMonthSpecial},
      {At(2008, 3, 17), 9},  // not a day type: passed over by posting
      {At(2008, 3, 17), kMonthOff},
      {At(2008, 3, 17), kMonthWork},
  };
  Configure(5, 1, kScheduleMonthly, -1, {}, &month);
  EXPECT_EQ(M()->PostTimeSchedling(5), 1);
  EXPECT_EQ(Events(5), (V{"15@13:00", "6@13:00", "16@14:00", "6@13:00", "8@14:00", "14@13:00", "14@14:00"}));
  // The check stops at the first entry dated today, whatever its type.
  SetClock(At(2008, 3, 17, 13, 30));
  EXPECT_EQ(M()->IsScheduleSetting(5), 0);
  SetClock(At(2008, 3, 18, 10));  // no entry for today: nothing
  EXPECT_EQ(M()->PostTimeSchedling(5), 0);
}

TEST_F(Schedule, ByWeekdayTheDayTypePicksTheListAndOnlyAnEnabledCameraPosts) {
  Configure(1, 1, kScheduleWeekly, 1, {Task(9, 0, 17, 0, 0)});   // work days
  Configure(1, 1, kScheduleWeekly, 2, {Task(20, 0, 21, 0, 0)});  // off days
  SetClock(At(2008, 3, 15, 10));                                 // Saturday: an off day
  EXPECT_EQ(M()->PostTimeSchedling(1), 1);
  EXPECT_EQ(Events(1, 15), (V{"16@20:00", "15@21:00", "6@21:00", "14@20:00", "14@21:00"}));
  ClearEvents(1);
  for (const auto& [enabled, mode] : {std::pair<LONG, LONG>{0, kScheduleWeekly}, {2, kScheduleWeekly}, {1, 7}}) {
    Configure(1, enabled, mode, -1, {});
    EXPECT_EQ(M()->PostTimeSchedling(1), 0) << enabled << "/" << mode;
  }
  EXPECT_EQ(M()->PostTimeSchedling(16), 0);
  EXPECT_EQ(IDispatcher::Instance()->GetTimeEventCount(), 0u);
  EXPECT_EQ(Log(), "");
}

}  // namespace
