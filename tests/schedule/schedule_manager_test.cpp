// The schedule manager's answers: fresh defaults, the task check, the
// queries from the current task, settings-file names and the motion-
// detection file operations.
#include "dravix/base/ztime.h"
#include "dravix/schedule/idispatcher.h"
#include "dravix/schedule/zschedulemanager.h"
#include "tests/schedule/schedule_support.h"
#include "tests/support/test_home.h"

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using dravix::test::Configure;
using dravix::test::Date;
using dravix::test::DayClock;
using dravix::test::Task;
using dravix::test::TimeOfDay;

class ScheduleManager : public dravix::test::TestHome {
 protected:
  void SetUp() override {
    TestHome::SetUp();
    clock_.Set(2008, 3, 17, 10, 0, 0);  // a Monday
  }
  DayClock clock_;
};

TEST_F(ScheduleManager, AFreshInstallationHasWorkDaysAndWeekendsAndWritesNothing) {
  clock_.Set(2008, 2, 27, 9, 0, 0);  // a Wednesday, two days before a leap day
  ZScheduleManager* m = ZScheduleManager::Instance();
  EXPECT_EQ(m->GetFileFormat(), 1500);
  EXPECT_EQ(m->LoadError(), "");
  tagDSSCHEDULEOPTION cams[kScheduleCameras];
  tagSCHEDULEWORKTASK lists[kScheduleLists];
  m->LoadSchedule(cams, lists);
  for (int c = 0; c < kScheduleCameras; ++c) {
    EXPECT_EQ(cams[c].nVersion, 1500);
    EXPECT_EQ(cams[c].nEnabled, 0);
    EXPECT_EQ(cams[c].nMode, 0);
    EXPECT_EQ(cams[c].week, (std::vector<LONG>{2, 1, 1, 1, 1, 1, 2}));
    ASSERT_EQ(cams[c].month.size(), 31u);
  }
  for (const auto& l : lists) EXPECT_TRUE(l.tasks.empty());
  const auto& month = cams[0].month;
  EXPECT_EQ(month[2].date.wDay, 29);  // 2008 is a leap year
  EXPECT_EQ(month[3].date.wDay, 1);   // Saturday 1 March
  std::vector<LONG> types;
  for (size_t i = 0; i < 7; ++i) types.push_back(month[i].type);
  EXPECT_EQ(types, (std::vector<LONG>{kMonthWork, kMonthWork, kMonthWork, kMonthOff, kMonthOff, kMonthWork, kMonthWork}));
  EXPECT_EQ(month[30].date.wDay, 28);
  EXPECT_FALSE(std::filesystem::exists(Path("Schedule.zmi")));
}

TEST_F(ScheduleManager, TheTaskCheckTakesTheFirstTaskHoldingNow) {
  ZScheduleManager* m = ZScheduleManager::Instance();
  tagSCHEDULEWORKTASK list;
  list.tasks = {Task(TimeOfDay(8, 0), TimeOfDay(18, 0)), Task(TimeOfDay(22, 0), TimeOfDay(6, 0)),
                Task(TimeOfDay(12, 0), TimeOfDay(13, 0))};
  list.tasks[0].nRecordMode = 1;
  list.tasks[1].nRecordMode = 2;
  list.tasks[2].nRecordMode = 3;
  struct Case {
    int h, m, s;
    int match;
    WORD startHour;
  };
  const Case cases[] = {
      {7, 59, 59, 0, 0}, {8, 0, 0, 1, 8},  {12, 30, 0, 1, 8},  {18, 0, 0, 1, 8},  // the end is inclusive
      {18, 0, 1, 0, 0},  {22, 0, 0, 0, 0}, {22, 0, 1, 1, 22},  {3, 0, 0, 1, 22},
      {5, 59, 59, 1, 22}, {6, 0, 0, 0, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.h << ":" << c.m << ":" << c.s);
    const SYSTEMTIME now{2008, 3, 1, 17, static_cast<WORD>(c.h), static_cast<WORD>(c.m), static_cast<WORD>(c.s), 0};
    SYSTEMTIME start{};
    EXPECT_EQ(m->CheckTaskWork(list, now, start), c.match);
    if (c.match) {
      EXPECT_EQ(start.wHour, c.startHour);
    }
  }
  // A miss leaves the current task as the last match left it.
  SYSTEMTIME start{};
  ASSERT_EQ(m->CheckTaskWork(list, SYSTEMTIME{2008, 3, 1, 17, 12, 30, 0, 0}, start), 1);
  ASSERT_EQ(m->CheckTaskWork(list, SYSTEMTIME{2008, 3, 1, 17, 20, 0, 0, 0}, start), 0);
  int mode = 0;
  m->IsRecord(9, mode);
  EXPECT_EQ(mode, 1);
  EXPECT_EQ(m->CheckTaskWork(tagSCHEDULEWORKTASK{}, SYSTEMTIME{2008, 3, 1, 17, 12, 30, 0, 0}, start), 0);
}

TEST_F(ScheduleManager, QueriesAnswerFromTheCurrentTaskWhateverTheCamera) {
  ZScheduleManager* m = ZScheduleManager::Instance();
  tagDSWORKTASK t = Task(TimeOfDay(9, 0), TimeOfDay(11, 0), 1, 1);
  t.nRecordMode = 4;
  t.bVisual = 1;
  t.bSensor = 1;
  t.bManual = 1;
  t.bExternal = 1;
  t.bPTZLoop = 1;
  t.nActionFlag = 1;
  std::strcpy(t.dsAction.szSTM, "mail.example");
  tagDSWORKTASK quiet = Task(TimeOfDay(11, 0), TimeOfDay(12, 0), 0, 0);
  quiet.bSensor = 1;
  quiet.nActionFlag = 2;
  Configure(2, 1, kScheduleDaily, 9, {t, quiet});

  EXPECT_EQ(m->GetEventFrom(2), 0);  // no task matched yet
  EXPECT_EQ(m->IsScheduleSetting(2), 1);
  EXPECT_EQ(m->CheckSchedule(2), 0);  // the public check never answers
  for (int camera : {2, 0, 15}) {
    int mode = -1;
    EXPECT_EQ(m->IsRecord(camera, mode), 1);
    EXPECT_EQ(mode, 4);
    EXPECT_EQ(m->IsConnect(camera), 1);
    EXPECT_EQ(m->IsVisual(camera), 1);
    EXPECT_EQ(m->IsSensor(camera), 1);
    EXPECT_EQ(m->IsManual(camera), 1);
    EXPECT_EQ(m->IsExternal(camera), 1);
    EXPECT_EQ(m->IsPTZLoop(camera), 1);
    EXPECT_EQ(m->GetEventFrom(camera), 7);
    tagDSACTIONOPTION a{};
    EXPECT_EQ(m->IsAction(camera, a), 1);
    EXPECT_STREQ(a.szSTM, "mail.example");
  }
  clock_.Set(2008, 3, 17, 11, 30, 0);
  EXPECT_EQ(m->IsScheduleSetting(2), 1);
  EXPECT_EQ(m->GetEventFrom(2), 2);
  tagDSACTIONOPTION a{};
  EXPECT_EQ(m->IsAction(2, a), 2);  // a flag other than 1 copies nothing
  EXPECT_EQ(a.szSTM[0], '\0');
  EXPECT_EQ(m->IsConnect(2), 0);

  // A disabled camera is not checked, so the answers stay.
  Configure(2, 0, kScheduleDaily, -1, {});
  EXPECT_EQ(m->IsEnabled(2), 0);
  EXPECT_EQ(m->IsScheduleSetting(2), 0);
  EXPECT_EQ(m->IsSensor(2), 1);
  for (int c = -1; c <= 16; ++c) EXPECT_EQ(m->CheckSchedule(c), 0);
}

TEST_F(ScheduleManager, SettingsFileNamesFollowTheModeAndDayType) {
  ZScheduleManager* m = ZScheduleManager::Instance();
  std::string name = "unchanged";
  EXPECT_EQ(m->GetScheduleSetting(3, name), 0);  // disabled
  EXPECT_EQ(name, "unchanged");

  Configure(3, 1, kScheduleDaily, 10, {Task(TimeOfDay(8, 5, 9), TimeOfDay(12, 0))});
  EXPECT_EQ(m->GetScheduleSetting(3, name), 1);
  EXPECT_EQ(name, "Visual03_D_080509.zmi");

  Configure(3, 1, kScheduleWeekly, 1, {Task(TimeOfDay(9, 30), TimeOfDay(11, 0))});
  EXPECT_EQ(m->GetScheduleSetting(3, name), 1);
  EXPECT_EQ(name, "Visual03_W_Work_093000.zmi");
  Configure(3, 1, kScheduleWeekly, 3, {Task(TimeOfDay(0, 0), TimeOfDay(23, 0))});
  clock_.Set(2008, 3, 16, 10, 0, 0);  // Sunday: off day, list 2 is empty
  EXPECT_EQ(m->GetScheduleSetting(3, name), 0);

  // By date: the first entry of today has no task holding now, the second
  // has; the plain check gives up at the first.
  clock_.Set(2008, 3, 17, 10, 0, 0);
  Configure(3, 1, kScheduleMonthly, 4, {Task(TimeOfDay(14, 0), TimeOfDay(15, 0))});
  Configure(3, 1, kScheduleMonthly, 6, {Task(TimeOfDay(9, 0), TimeOfDay(10, 30))});
  const std::vector<tagDSSCHEDULEMONTH> month = {{Date(2008, 3, 17), kMonthWork}, {Date(2008, 3, 17), kMonthSpecial}};
  Configure(3, 1, kScheduleMonthly, -1, {}, &month);
  EXPECT_EQ(m->IsScheduleSetting(3), 0);
  EXPECT_EQ(m->GetScheduleSetting(3, name), 1);
  EXPECT_EQ(name, "Visual03_M_Special_090000.zmi");

  EXPECT_EQ(ZScheduleManager::VisualFileName(12, 5, TimeOfDay(1, 2, 3)), "Visual12_M_Off_010203.zmi");
  EXPECT_EQ(ZScheduleManager::VisualFileName(12, 3, TimeOfDay(1, 2, 3)), "Visual12_W_Special_010203.zmi");
  EXPECT_EQ(ZScheduleManager::VisualFileName(12, 0, TimeOfDay(1, 2, 3)), "");
  EXPECT_EQ(ZScheduleManager::VisualFileName(16, 7, TimeOfDay(1, 2, 3)), "");
}

TEST_F(ScheduleManager, MotionDetectionFilesFollowTheTasks) {
  ZScheduleManager* m = ZScheduleManager::Instance();
  WriteFile("Visual01.zmi", "motion settings");
  EXPECT_EQ(m->AddVisualFile(1, 8, TimeOfDay(8, 0)), 1);
  EXPECT_EQ(ReadFile(Path("Visual01_D_080000.zmi")), "motion settings");
  EXPECT_EQ(m->AddVisualFile(2, 0, TimeOfDay(9, 0)), 0);  // list 0 has no files

  // A start moved from 08:00 to 08:30 takes its settings along.
  m->Modify_Old_VisualFile(1, 8, TimeOfDay(8, 0));
  m->Modify_New_VisualFile(1, 8, TimeOfDay(8, 30));
  EXPECT_EQ(m->VisualFileOption(1), 1);
  EXPECT_EQ(ReadFile(Path("Visual01_D_083000.zmi")), "motion settings");
  EXPECT_EQ(ReadFile(Path("Visual01_D_080000.zmi")), "");
  // A cancelled edit moves nothing.
  m->Modify_Old_VisualFile(1, 8, TimeOfDay(8, 30));
  m->Modify_New_VisualFile(1, 8, TimeOfDay(9, 0));
  EXPECT_EQ(m->VisualFileOption(0), 0);
  EXPECT_EQ(ReadFile(Path("Visual01_D_083000.zmi")), "motion settings");

  WriteFile("Visual02_D_100000.zmi", "x");
  WriteFile("Visual02_W_Off_100000.zmi", "x");
  EXPECT_EQ(m->RemoveVisualFile(2), 2);
  EXPECT_EQ(m->RemoveVisualFile(1), 1);
  EXPECT_EQ(ReadFile(Path("Visual01.zmi")), "motion settings");
}

TEST_F(ScheduleManager, TheDetectorListHoldsThePostedWindows) {
  ZScheduleManager* m = ZScheduleManager::Instance();
  Configure(6, 1, kScheduleDaily, 13, {Task(TimeOfDay(12, 0), TimeOfDay(13, 0)), Task(TimeOfDay(22, 0), TimeOfDay(23, 0))});
  ASSERT_EQ(m->PostTimeSchedling(6), 1);
  EXPECT_EQ(m->CheckDetectorIsExc(6, SYSTEMTIME{2008, 3, 1, 17, 12, 30, 0, 0}), 1);
  EXPECT_EQ(m->CheckDetectorIsExc(6, SYSTEMTIME{2008, 3, 1, 17, 13, 0, 0, 0}), 0);
  EXPECT_EQ(m->CheckDetectorIsExc(6, SYSTEMTIME{2008, 3, 1, 17, 22, 30, 0, 0}), 1);
  EXPECT_EQ(m->CheckDetectorIsExc(5, SYSTEMTIME{2008, 3, 1, 17, 12, 30, 0, 0}), 0);
  m->DelDetectorList(6);
  EXPECT_EQ(m->CheckDetectorIsExc(6, SYSTEMTIME{2008, 3, 1, 17, 12, 30, 0, 0}), 0);
  EXPECT_TRUE(m->GetPostedList(6).empty());

  const size_t before = IDispatcher::Instance()->GetTimeEventCount();
  EXPECT_EQ(m->PostVisualDerection(), 1);
  const auto events = IDispatcher::Instance()->GetTimeEvents();
  ASSERT_EQ(events.size(), before + 1);
  EXPECT_EQ(events.back().id, 13u);
  EXPECT_EQ(events.back().due.wHour, 10);
  EXPECT_EQ(events.back().due.wDay, 17);
}

}  // namespace
