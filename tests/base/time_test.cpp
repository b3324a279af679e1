#include "dravix/base/ztime.h"
#include "dravix/platform/clock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <random>
#include <utility>

namespace {

SYSTEMTIME T(int y, int mo, int d, int h = 0, int mi = 0, int s = 0, int ms = 0) {
  SYSTEMTIME t{};
  t.wYear = static_cast<WORD>(y);
  t.wMonth = static_cast<WORD>(mo);
  t.wDay = static_cast<WORD>(d);
  t.wHour = static_cast<WORD>(h);
  t.wMinute = static_cast<WORD>(mi);
  t.wSecond = static_cast<WORD>(s);
  t.wMilliseconds = static_cast<WORD>(ms);
  return t;
}

// Independent reference: seconds since the Unix epoch by std::chrono.
int64_t Unix(const SYSTEMTIME& t) {
  using namespace std::chrono;
  const sys_days d{year{t.wYear} / month{t.wMonth} / day{t.wDay}};
  return d.time_since_epoch().count() * 86400LL + t.wHour * 3600 + t.wMinute * 60 + t.wSecond;
}

TEST(ZmTime, PacksToTheSecondAndUnpacksMilliseconds) {
  // QUIRK(zm-time-whole-seconds)
  EXPECT_EQ(SysTimeToZMTime(T(2008, 3, 15, 12, 34, 56, 789)), 20080315123456000LL);
  const SYSTEMTIME back = ZMTimeToSysTime(20080315123456789LL);
  EXPECT_EQ(Unix(back), Unix(T(2008, 3, 15, 12, 34, 56)));
  EXPECT_EQ(back.wMilliseconds, 789);
}

TEST(ZmTime, ClockReadsTheInjectedMomentWithoutMilliseconds) {
  const SYSTEMTIME moment = T(2024, 2, 29, 23, 59, 58);
  const std::time_t at = dravix::platform::LocalToUnix(moment);
  dravix::platform::SetTestClock([at] { return at; });
  const SYSTEMTIME now = GetSysTime();
  EXPECT_EQ(SysTimeToZMTime(now), SysTimeToZMTime(moment));
  EXPECT_EQ(now.wMilliseconds, 0);
  EXPECT_EQ(now.wDayOfWeek, 4);  // a Thursday
  EXPECT_EQ(GetZMTime(), 20240229235958000LL);
  EXPECT_EQ(SysTimeToZMTime(AddTime(3)), 20240301000001000LL);
  EXPECT_EQ(SysTimeToZMTime(MinusTime(86400)), 20240228235958000LL);
  dravix::platform::ClearTestClock();
}

TEST(Compare, MillisecondsAndDayOfWeekNeverCount) {
  SYSTEMTIME a = T(2008, 3, 15, 12, 0, 0, 1);
  SYSTEMTIME b = T(2008, 3, 15, 12, 0, 0, 999);
  b.wDayOfWeek = 6;
  EXPECT_TRUE(a == b && a <= b && a >= b);
  EXPECT_FALSE(a != b || a < b || a > b);
  const SYSTEMTIME c = T(2008, 3, 15, 12, 0, 1);
  EXPECT_TRUE(a < c && c > a && a != c && !(c <= a));
  EXPECT_TRUE(tagDSSYSTIMEPERIOD({a, c}) < tagDSSYSTIMEPERIOD({c, a}));
  EXPECT_FALSE(tagDSSYSTIMEPERIOD({a, c}) < tagDSSYSTIMEPERIOD({b, a}));  // ends ignored
}

TEST(Difference, OneHourBothWaysAndAcrossMonthAndYearEnds) {
  struct Case {
    SYSTEMTIME a, b;
    int seconds;
  } cases[] = {
      {T(2008, 3, 15, 10), T(2008, 3, 15, 11), 3600},
      {T(2008, 2, 28, 23), T(2008, 3, 1, 1), 26 * 3600},   // leap year
      {T(2007, 2, 28, 23), T(2007, 3, 1, 1), 2 * 3600},    // common year
      {T(1900, 2, 28, 12), T(1900, 3, 1, 12), 86400},      // 1900 is not leap
      {T(2000, 2, 28, 12), T(2000, 3, 1, 12), 2 * 86400},  // 2000 is
      {T(2008, 12, 31, 23, 59, 59), T(2009, 1, 1), 1},
      {T(2008, 3, 15, 12, 0, 0, 999), T(2008, 3, 15, 12, 0, 1, 0), 1},  // QUIRK(whole-second-differences)
  };
  for (const Case& c : cases) {
    EXPECT_EQ(MinusTime(c.a, c.b), c.seconds) << FormatSTTIME(c.a) << " -> " << FormatSTTIME(c.b);
    EXPECT_EQ(MilusTime(c.a, c.b), -c.seconds) << FormatSTTIME(c.a) << " -> " << FormatSTTIME(c.b);
    EXPECT_EQ(MinusTime(c.b, c.a), -c.seconds);
  }
}

TEST(Difference, EveryWholeSecondDifferenceIsExact) {
  // The double product loses a second for about half of all differences;
  // ours must match an exact count for every one of them.
  std::mt19937 rng(20081115);
  std::uniform_int_distribution<int> year(1950, 2100), month(1, 12), day(1, 28), hour(0, 23), minsec(0, 59);
  for (int i = 0; i < 5000; ++i) {
    const SYSTEMTIME a = T(year(rng), month(rng), day(rng), hour(rng), minsec(rng), minsec(rng));
    const SYSTEMTIME b = T(year(rng), month(rng), day(rng), hour(rng), minsec(rng), minsec(rng));
    ASSERT_EQ(MinusTime(a, b), static_cast<int>(Unix(b) - Unix(a))) << FormatSTTIME(a) << " " << FormatSTTIME(b);
  }
}

TEST(Arithmetic, AddingOneSecondRepeatedlyNeverDriftsAndMillisecondsDrop) {
  SYSTEMTIME t = T(2008, 2, 29, 23, 0, 0);
  for (int i = 0; i < 7200; ++i) t = PlusTime(t, 1);
  EXPECT_EQ(SysTimeToZMTime(t), 20080301010000000LL);
  EXPECT_EQ(t.wDayOfWeek, 6);  // 2008-03-01 was a Saturday
  for (int i = 0; i < 7200; ++i) t = MinusTime(t, 1);
  EXPECT_EQ(SysTimeToZMTime(t), 20080229230000000LL);

  // Results drop milliseconds; AddTime with days has no visible effect.
  // QUIRK(add-time-days-no-effect)
  const SYSTEMTIME m = T(2008, 3, 15, 12, 34, 56, 789);
  EXPECT_EQ(PlusTime(m, 0).wMilliseconds, 0);
  EXPECT_EQ(SysTimeToZMTime(PlusTime(m, -86400 * 366)), 20070315123456000LL);  // back over Feb 29
  SYSTEMTIME copy = m;
  AddTime(copy, 1.0);
  EXPECT_EQ(std::memcmp(&copy, &m, sizeof m), 0);
}

TEST(OleDate, ConvertsBothWaysAndRoundsToTheNearestSecond) {
  // Before the epoch the days count back, the fraction still runs forward.
  const std::pair<SYSTEMTIME, double> cases[] = {
      {T(1899, 12, 30), 0.0}, {T(2000, 1, 1, 6), 36526.25}, {T(1899, 12, 29, 6), -1.25}};
  double v = 0;
  SYSTEMTIME back{};
  for (const auto& [t, days] : cases) {
    ASSERT_EQ(SystemTimeToVariantTime(t, &v), 1);
    EXPECT_DOUBLE_EQ(v, days);
    ASSERT_EQ(VariantTimeToSystemTime(days, &back), 1);
    EXPECT_EQ(SysTimeToZMTime(back), SysTimeToZMTime(t));
  }
  // 0.4999 s short of 12:00:01 rounds up to it.
  ASSERT_EQ(VariantTimeToSystemTime(36526.5 + 0.5001 / 86400, &back), 1);
  EXPECT_EQ(SysTimeToZMTime(back), 20000101120001000LL);
  EXPECT_EQ(SystemTimeToVariantTime(T(2008, 2, 30), &v), 0);  // no such day
  EXPECT_EQ(SystemTimeToVariantTime(T(2008, 13, 1), &v), 0);
}

TEST(FileTime, KnownEpochsAndMilliseconds) {
  FILETIME ft{};
  ASSERT_EQ(SystemTimeToFileTime(T(1601, 1, 1), &ft), 1);
  EXPECT_EQ(FileTimeToInt64(ft), 0);
  ASSERT_EQ(SystemTimeToFileTime(T(1970, 1, 1, 0, 0, 0, 5), &ft), 1);
  EXPECT_EQ(FileTimeToInt64(ft), 116444736000000000LL + 50000);
  SYSTEMTIME back{};
  ASSERT_EQ(FileTimeToSystemTime(Int64ToFileTime(116444736000000000LL + 90061234LL * 10000), &back), 1);
  EXPECT_EQ(SysTimeToZMTime(back) + back.wMilliseconds, 19700102010101234LL);
  EXPECT_EQ(back.wDayOfWeek, 5);  // 1970-01-02 was a Friday
  EXPECT_EQ(FileTimeToSystemTime(Int64ToFileTime(-1), &back), 0);
  EXPECT_EQ(SystemTimeToFileTime(T(1600, 12, 31), &ft), 0);
}

tagDSSYSTIMEPERIOD P(int h1, int m1, int h2, int m2, int ms1 = 0, int ms2 = 0) {
  return {T(2008, 3, 15, h1, m1, 0, ms1), T(2008, 3, 15, h2, m2, 0, ms2)};
}

TEST(Intersect, TouchingPeriodsDoNotMeetAndTiesKeepTheRightMilliseconds) {
  tagDSSYSTIMEPERIOD r = P(1, 0, 2, 0, 7, 7);
  EXPECT_EQ(IntersectSysTime(r, P(10, 0, 11, 0), P(11, 0, 12, 0)), 0);
  EXPECT_EQ(r.start.wHour, 1);  // untouched
  EXPECT_EQ(IntersectSysTime(r, P(11, 0, 12, 0), P(10, 0, 11, 0)), 0);
  ASSERT_EQ(IntersectSysTime(r, P(10, 0, 12, 0), P(11, 0, 11, 30)), 1);
  EXPECT_EQ(SysTimeToZMTime(r.start), SysTimeToZMTime(T(2008, 3, 15, 11)));
  EXPECT_EQ(r.end.wMinute, 30);
  ASSERT_EQ(IntersectSysTime(r, P(11, 0, 13, 0), P(10, 0, 12, 0)), 1);  // a starts inside b
  EXPECT_EQ(r.start.wHour, 11);
  EXPECT_EQ(r.end.wHour, 12);
  // Equal starts take b's start; equal ends take a's end.
  ASSERT_EQ(IntersectSysTime(r, P(10, 0, 12, 0, 1, 2), P(10, 0, 12, 0, 3, 4)), 1);
  EXPECT_EQ(r.start.wMilliseconds, 3);
  EXPECT_EQ(r.end.wMilliseconds, 2);
  ASSERT_EQ(IntersectSysTime(r, P(11, 0, 12, 0, 1, 2), P(10, 0, 12, 0, 3, 4)), 1);  // step 4 tie
  EXPECT_EQ(r.start.wMilliseconds, 1);
  EXPECT_EQ(r.end.wMilliseconds, 2);
}

SYSTEMTIME At(int h, int m, int s = 0, int y = 2008, int d = 15) { return T(y, 3, d, h, m, s); }

TEST(TimeOfDay, TwoThreeAndFourArgumentFormsIgnoreTheDate) {
  EXPECT_EQ(CompareTime(At(9, 0, 0, 2001, 1), At(10, 0)), 1);  // first is earlier
  EXPECT_EQ(CompareTime(At(10, 0, 0, 2001, 1), At(10, 0)), 0);
  EXPECT_EQ(CompareTime(At(11, 0), At(10, 0)), -1);
  EXPECT_EQ(CompareTime(At(8, 0), At(18, 0), At(8, 0)), 1);  // inclusive bounds
  EXPECT_EQ(CompareTime(At(8, 0), At(18, 0), At(18, 0, 0, 1999, 2)), 1);
  EXPECT_EQ(CompareTime(At(8, 0), At(18, 0), At(18, 0, 1)), -1);
  EXPECT_EQ(CompareTime(At(22, 0), At(6, 0), At(23, 0)), -1);           // no wrap
  EXPECT_EQ(CompareTime(At(12, 0), At(9, 0), At(8, 0), At(18, 0)), 1);  // t1 > t2 allowed
  EXPECT_EQ(CompareTime(At(7, 0), At(9, 0), At(8, 0), At(18, 0)), -1);
  EXPECT_EQ(CompareTime(At(9, 0), At(19, 0), At(8, 0), At(18, 0)), -1);
  EXPECT_EQ(CompareDate(At(1, 0), At(23, 0)), 1);
  EXPECT_EQ(CompareDate(At(1, 0), At(1, 0, 0, 2009)), -1);
}

TEST(TimeOfDay, DailyWindowsOverMidnight) {
  struct Case {
    int s, t, e;  // hh*100 + mm
    long expected;
  } cases[] = {
      {2200, 2330, 600, -1}, {2200, 600, 600, -1},  // over midnight: end inclusive
      {2200, 601, 600, 1},   {2200, 2159, 600, 1}, {2200, 2200, 600, -1},
      {2200, 0, 600, -1},    {800, 1800, 1800, 1}, {800, 800, 1800, -1},  // normal: end exclusive
      {800, 1759, 1800, -1}, {800, 759, 1800, 1},  {800, 759, 800, -1},
      {800, 800, 800, 1},    {800, 2300, 800, 1},  // start == end
  };
  for (const Case& c : cases) {
    EXPECT_EQ(CompareOverTime(At(c.s / 100, c.s % 100), At(c.t / 100, c.t % 100, 0, 1990, 1), At(c.e / 100, c.e % 100)),
              c.expected)
        << c.s << " " << c.t << " " << c.e;
  }
}

TEST(Calendar, DaysInMonthWithPassThrough) {
  // {month, year, answer}: months outside 1..12 come back unchanged.
  const unsigned cases[][3] = {{2, 1900, 28}, {2, 2000, 29},  {2, 2008, 29},  {2, 2007, 28},
                               {4, 2008, 30}, {12, 2008, 31}, {13, 2008, 13}, {0, 2008, 0}};
  // QUIRK(days-in-month-pass-through): months 0 and 13 come back as given.
  for (const auto& c : cases) EXPECT_EQ(TellFromDay(c[0], c[1]), c[2]) << c[0] << "/" << c[1];
  EXPECT_EQ(FormatSTTIME(T(2008, 3, 15, 12, 34, 56)), "2008/03/15 12:34:56:0000");
  EXPECT_EQ(FormatSTTIME(T(2008, 3, 5, 1, 2, 3, 45)), "2008/03/05 01:02:03:0045");
}

}  // namespace
