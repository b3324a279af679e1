// Posting a camera's day: the exact events in the dispatcher and the lines
// in the live log, at several times of day, for every connect/record
// combination, over midnight and by calendar date.
#include "dravix/base/ztime.h"
#include "dravix/log/ilog.h"
#include "dravix/schedule/idispatcher.h"
#include "dravix/schedule/zschedulemanager.h"
#include "tests/schedule/schedule_support.h"
#include "tests/support/test_home.h"

#include <cstdio>
#include <string>
#include <vector>

namespace {

using dravix::test::Configure;
using dravix::test::Date;
using dravix::test::DayClock;
using dravix::test::Task;
using dravix::test::TimeOfDay;

class SchedulePost : public dravix::test::TestHome {
 protected:
  void SetUp() override {
    TestHome::SetUp();
    clock_.Set(2008, 3, 17, 10, 0, 0);  // a Monday
    ASSERT_TRUE(ILiveLog::Instance()->SetFilename("Live.log"));
  }

  // The dispatcher's time events as "id@hh:mm:ss/second", after checking
  // the date, the first parameter and the tag of each.
  std::vector<std::string> Events(int camera, int year = 2008, int month = 3, int day = 17) {
    std::vector<std::string> out;
    for (const IDispatcher::tagDSTIMEEVENT& e : IDispatcher::Instance()->GetTimeEvents()) {
      EXPECT_EQ(e.first, static_cast<UINT_PTR>(camera));
      EXPECT_EQ(e.tag, camera + 100);
      EXPECT_EQ(e.due.wYear, year);
      EXPECT_EQ(e.due.wMonth, month);
      EXPECT_EQ(e.due.wDay, day);
      char buf[64];
      std::snprintf(buf, sizeof(buf), "%u@%02d:%02d:%02d/%ld", e.id, e.due.wHour, e.due.wMinute, e.due.wSecond,
                    static_cast<long>(e.second));
      out.push_back(buf);
    }
    return out;
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

  DayClock clock_;
};

using V = std::vector<std::string>;

TEST_F(SchedulePost, EachConnectAndRecordCombinationPostsItsOwnSequence) {
  struct Case {
    BOOL connect, record;
    V events;
    bool lines;
  };
  const Case cases[] = {
      {1, 1,
       V{"15@12:00:00/2222", "6@12:00:00/2222", "16@18:30:00/2222", "6@12:00:00/2222", "8@18:30:00/2222",
         "14@12:00:00/0", "14@18:30:00/0"},
       true},
      {1, 0,
       V{"15@12:00:00/2222", "6@12:00:00/2222", "16@18:30:00/2222", "6@18:30:00/2222", "8@18:30:00/2222",
         "14@12:00:00/0", "14@18:30:00/0"},
       true},
      {0, 1, V{"16@12:00:00/2222", "15@18:30:00/2222", "6@18:30:00/2222", "14@12:00:00/0", "14@18:30:00/0"}, false},
      {0, 0,
       V{"16@12:00:00/2222", "15@18:30:00/2222", "6@18:30:00/2222", "6@18:30:00/2222", "8@18:30:00/2222",
         "14@12:00:00/0", "14@18:30:00/0"},
       true},
      // A connect flag other than 0 or 1 takes neither of the first two rules.
      {2, 0, V{"6@18:30:00/2222", "8@18:30:00/2222", "14@12:00:00/0", "14@18:30:00/0"}, true},
  };
  ZScheduleManager* m = ZScheduleManager::Instance();
  IDispatcher* d = IDispatcher::Instance();
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "connect " << c.connect << " record " << c.record);
    WriteFile("Live.log", "");
    ASSERT_TRUE(ILiveLog::Instance()->SetFilename("Live.log"));
    d->DeleteTimeEvent(107);
    d->ProcessTimeEvent();
    d->ProcessTimeEvent();
    ASSERT_EQ(d->GetTimeEventCount(), 0u);
    Configure(7, 1, kScheduleDaily, 14, {Task(TimeOfDay(12, 0), TimeOfDay(18, 30), c.connect, c.record)});
    EXPECT_EQ(m->PostTimeSchedling(7), 1);
    EXPECT_EQ(Events(7), c.events);
    EXPECT_EQ(Log(), c.lines ? Lines("12:00:00", "18:30:00", 7) : "");
  }
}

TEST_F(SchedulePost, OnlyWindowsEndingLaterTodayArePosted) {
  ZScheduleManager* m = ZScheduleManager::Instance();
  IDispatcher* d = IDispatcher::Instance();
  const std::vector<tagDSWORKTASK> day = {
      Task(TimeOfDay(0, 0), TimeOfDay(6, 0), 0, 1),         // over by breakfast
      Task(TimeOfDay(8, 0), TimeOfDay(12, 0), 0, 1),        // the morning
      Task(TimeOfDay(13, 0), TimeOfDay(23, 59, 59), 0, 1),  // the rest of the day
      Task(TimeOfDay(9, 0), TimeOfDay(0, 0), 0, 1),         // ends at 00:00: never
  };
  Configure(0, 1, kScheduleDaily, 7, day);
  struct Case {
    int h, m, s;
    int result;
    V starts;  // the 16 events (one at each posted start)
  };
  const Case cases[] = {
      {0, 0, 0, 1, V{"16@00:00:00/2222", "16@08:00:00/2222", "16@13:00:00/2222"}},
      {7, 0, 0, 1, V{"16@08:00:00/2222", "16@13:00:00/2222"}},
      {11, 59, 59, 1, V{"16@08:00:00/2222", "16@13:00:00/2222"}},
      {12, 0, 0, 1, V{"16@13:00:00/2222"}},  // an end equal to now is not later
      {23, 59, 58, 1, V{"16@13:00:00/2222"}},
      {23, 59, 59, 0, V{}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.h << ":" << c.m << ":" << c.s);
    d->DeleteTimeEvent(100);
    d->ProcessTimeEvent();
    d->ProcessTimeEvent();
    d->ProcessTimeEvent();
    clock_.Set(2008, 3, 17, c.h, c.m, c.s);
    EXPECT_EQ(m->PostTimeSchedling(0), c.result);
    V starts;
    for (const std::string& e : Events(0))
      if (e.rfind("16@", 0) == 0) starts.push_back(e);
    EXPECT_EQ(starts, c.starts);
  }
}

TEST_F(SchedulePost, AWindowOverMidnightIsPostedOnlyBeforeItsEnd) {
  ZScheduleManager* m = ZScheduleManager::Instance();
  Configure(2, 1, kScheduleDaily, 9, {Task(TimeOfDay(22, 0), TimeOfDay(6, 0), 1, 1)});
  clock_.Set(2008, 3, 17, 23, 0, 0);  // inside the window, but today's 06:00 has passed
  EXPECT_EQ(m->PostTimeSchedling(2), 0);
  clock_.Set(2008, 3, 17, 7, 0, 0);
  EXPECT_EQ(m->PostTimeSchedling(2), 0);
  clock_.Set(2008, 3, 17, 3, 0, 0);
  EXPECT_EQ(m->PostTimeSchedling(2), 1);
  // Both ends land on today: the start comes after the end.
  EXPECT_EQ(Events(2), (V{"15@22:00:00/2222", "6@22:00:00/2222", "16@06:00:00/2222", "6@22:00:00/2222",
                          "8@06:00:00/2222", "14@22:00:00/0", "14@06:00:00/0"}));
  EXPECT_EQ(Log(), Lines("22:00:00", "06:00:00", 2));
  const auto& posted = m->GetPostedList(2);
  ASSERT_EQ(posted.size(), 1u);
  EXPECT_EQ(posted[0].camera, 2);
  EXPECT_EQ(posted[0].start.wHour, 22);
  EXPECT_EQ(posted[0].end.wDay, 17);
  EXPECT_EQ(m->GetPostedList(3).size(), 0u);
}

TEST_F(SchedulePost, ByDateTheFirstUsableEntryOfTodayCounts) {
  ZScheduleManager* m = ZScheduleManager::Instance();
  Configure(5, 1, kScheduleMonthly, 4, {Task(TimeOfDay(11, 0), TimeOfDay(12, 0), 1, 1)});  // work
  Configure(5, 1, kScheduleMonthly, 5, {Task(TimeOfDay(13, 0), TimeOfDay(14, 0), 1, 1)});  // off
  Configure(5, 1, kScheduleMonthly, 6, {Task(TimeOfDay(15, 0), TimeOfDay(16, 0), 1, 1)});  // special
  const std::vector<tagDSSCHEDULEMONTH> month = {
      {Date(2008, 3, 16), kMonthSpecial},
      {Date(2008, 3, 17), 9},  // not a day type: passed over by posting
      {Date(2008, 3, 17), kMonthOff},
      {Date(2008, 3, 17), kMonthWork},
  };
  Configure(5, 1, kScheduleMonthly, -1, {}, &month);
  EXPECT_EQ(m->PostTimeSchedling(5), 1);
  EXPECT_EQ(Events(5), (V{"15@13:00:00/2222", "6@13:00:00/2222", "16@14:00:00/2222", "6@13:00:00/2222",
                          "8@14:00:00/2222", "14@13:00:00/0", "14@14:00:00/0"}));
  // The check stops at the first entry dated today, whatever its type.
  clock_.Set(2008, 3, 17, 13, 30, 0);
  EXPECT_EQ(m->IsScheduleSetting(5), 0);

  // No entry for today: nothing.
  clock_.Set(2008, 3, 18, 10, 0, 0);
  EXPECT_EQ(m->PostTimeSchedling(5), 0);
}

TEST_F(SchedulePost, ByWeekdayTheDayTypePicksTheList) {
  ZScheduleManager* m = ZScheduleManager::Instance();
  Configure(1, 1, kScheduleWeekly, 1, {Task(TimeOfDay(9, 0), TimeOfDay(17, 0), 0, 1)});   // work days
  Configure(1, 1, kScheduleWeekly, 2, {Task(TimeOfDay(20, 0), TimeOfDay(21, 0), 0, 1)});  // off days
  clock_.Set(2008, 3, 15, 10, 0, 0);  // Saturday: an off day
  EXPECT_EQ(m->PostTimeSchedling(1), 1);
  EXPECT_EQ(Events(1, 2008, 3, 15),
            (V{"16@20:00:00/2222", "15@21:00:00/2222", "6@21:00:00/2222", "14@20:00:00/0", "14@21:00:00/0"}));
}

TEST_F(SchedulePost, ADisabledCameraPostsNothing) {
  ZScheduleManager* m = ZScheduleManager::Instance();
  for (LONG enabled : {0, 2}) {
    Configure(4, enabled, kScheduleDaily, 11, {Task(TimeOfDay(12, 0), TimeOfDay(13, 0))});
    EXPECT_EQ(m->PostTimeSchedling(4), 0) << enabled;
  }
  Configure(4, 1, 7, 11, {Task(TimeOfDay(12, 0), TimeOfDay(13, 0))});  // no such mode
  EXPECT_EQ(m->PostTimeSchedling(4), 0);
  EXPECT_EQ(m->PostTimeSchedling(16), 0);
  EXPECT_EQ(IDispatcher::Instance()->GetTimeEventCount(), 0u);
  EXPECT_EQ(Log(), "");
}

}  // namespace
