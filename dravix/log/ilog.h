// The four process-wide logs. Each is a ZBaseLog named by the host with
// SetFilename; they differ only in what is written to them.
#pragma once

#include "dravix/log/zbaselog.h"

#include <memory>

// The general log.
class ILog : public ZBaseLog {
 public:
  static ILog* Instance();

 private:
  ILog() = default;
  static std::unique_ptr<ILog> sm_inst;
};

// Schedule changes.
class IScheduleLog : public ZBaseLog {
 public:
  static IScheduleLog* Instance();

 private:
  IScheduleLog() = default;
  static std::unique_ptr<IScheduleLog> sm_inst;
};

// Live and recording events (the schedule manager's "Schedule Event" lines).
class ILiveLog : public ZBaseLog {
 public:
  static ILiveLog* Instance();

 private:
  ILiveLog() = default;
  static std::unique_ptr<ILiveLog> sm_inst;
};

// Disk recycling.
class IRecycleLog : public ZBaseLog {
 public:
  static IRecycleLog* Instance();

 private:
  IRecycleLog() = default;
  static std::unique_ptr<IRecycleLog> sm_inst;
};
