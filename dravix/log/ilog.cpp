#include "dravix/log/ilog.h"

#include "dravix/base/notice.h"
#include "dravix/base/single_instance.h"

namespace {

// The general log takes the notices of the floors below it.
[[maybe_unused]] const bool g_notices =
    (dravix::base::SetNoticeSink([](const std::string& line) { ILog::Instance()->Write(line.c_str()); }), true);

}  // namespace

std::unique_ptr<ILog> ILog::sm_inst;
std::unique_ptr<IScheduleLog> IScheduleLog::sm_inst;
std::unique_ptr<ILiveLog> ILiveLog::sm_inst;
std::unique_ptr<IRecycleLog> IRecycleLog::sm_inst;

ILog* ILog::Instance() {
  return dravix::base::SingleInstance(sm_inst, [] { return new ILog; });
}
IScheduleLog* IScheduleLog::Instance() {
  return dravix::base::SingleInstance(sm_inst, [] { return new IScheduleLog; });
}
ILiveLog* ILiveLog::Instance() {
  return dravix::base::SingleInstance(sm_inst, [] { return new ILiveLog; });
}
IRecycleLog* IRecycleLog::Instance() {
  return dravix::base::SingleInstance(sm_inst, [] { return new IRecycleLog; });
}
