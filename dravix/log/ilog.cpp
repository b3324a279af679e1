#include "dravix/log/ilog.h"

#include "dravix/base/notice.h"

#include <mutex>

namespace {

// Creates T's one instance on first use, safely from any thread.
template <typename T>
T* Single(std::unique_ptr<T>& slot, std::once_flag& once, T* (*make)()) {
  std::call_once(once, [&] { slot.reset(make()); });
  return slot.get();
}

std::once_flag g_log_once, g_schedule_once, g_live_once, g_recycle_once;

// The general log takes the notices of the floors below it.
[[maybe_unused]] const bool g_notices =
    (dravix::base::SetNoticeSink([](const std::string& line) { ILog::Instance()->Write(line.c_str()); }), true);

}  // namespace

std::unique_ptr<ILog> ILog::sm_inst;
std::unique_ptr<IScheduleLog> IScheduleLog::sm_inst;
std::unique_ptr<ILiveLog> ILiveLog::sm_inst;
std::unique_ptr<IRecycleLog> IRecycleLog::sm_inst;

ILog* ILog::Instance() {
  return Single<ILog>(sm_inst, g_log_once, [] { return new ILog; });
}
IScheduleLog* IScheduleLog::Instance() {
  return Single<IScheduleLog>(sm_inst, g_schedule_once, [] { return new IScheduleLog; });
}
ILiveLog* ILiveLog::Instance() {
  return Single<ILiveLog>(sm_inst, g_live_once, [] { return new ILiveLog; });
}
IRecycleLog* IRecycleLog::Instance() {
  return Single<IRecycleLog>(sm_inst, g_recycle_once, [] { return new IRecycleLog; });
}
