#include "dravix/platform/clock.h"

#include <memory>
#include <mutex>

namespace dravix::platform {
namespace {

std::mutex g_mutex;
std::shared_ptr<std::function<std::time_t()>> g_test_clock;

}  // namespace

std::time_t Now() {
  std::shared_ptr<std::function<std::time_t()>> clock;
  {
    std::lock_guard<std::mutex> lock(g_mutex);
    clock = g_test_clock;
  }
  return clock ? (*clock)() : std::time(nullptr);
}

SYSTEMTIME LocalNow() {
  const std::time_t now = Now();
  std::tm tm{};
  localtime_r(&now, &tm);
  SYSTEMTIME st{};
  st.wYear = static_cast<WORD>(tm.tm_year + 1900);
  st.wMonth = static_cast<WORD>(tm.tm_mon + 1);
  st.wDayOfWeek = static_cast<WORD>(tm.tm_wday);
  st.wDay = static_cast<WORD>(tm.tm_mday);
  st.wHour = static_cast<WORD>(tm.tm_hour);
  st.wMinute = static_cast<WORD>(tm.tm_min);
  st.wSecond = static_cast<WORD>(tm.tm_sec);
  st.wMilliseconds = 0;
  return st;
}

bool TestClockSet() {
  std::lock_guard<std::mutex> lock(g_mutex);
  return g_test_clock != nullptr;
}

void SetTestClock(std::function<std::time_t()> now) {
  auto clock = std::make_shared<std::function<std::time_t()>>(std::move(now));
  std::lock_guard<std::mutex> lock(g_mutex);
  g_test_clock = std::move(clock);
}

void ClearTestClock() {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_test_clock.reset();
}

std::time_t LocalToUnix(const SYSTEMTIME& t) {
  std::tm tm{};
  tm.tm_year = t.wYear - 1900;
  tm.tm_mon = t.wMonth - 1;
  tm.tm_mday = t.wDay;
  tm.tm_hour = t.wHour;
  tm.tm_min = t.wMinute;
  tm.tm_sec = t.wSecond;
  tm.tm_isdst = -1;
  return mktime(&tm);
}

}  // namespace dravix::platform
