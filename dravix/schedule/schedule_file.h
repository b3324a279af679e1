// "Schedule.zmi": the schedule of the 16 cameras and the 23 work-task
// lists as one stream of little-endian values.
//
//   16 camera records: version (32-bit; absent in format 0), enabled,
//     mode (32-bit each), the week list, then the month list;
//   the 23 work-task lists, list 0 first.
//
// Every list is a count and its elements. A count is 16-bit; 65535 or more
// is written as 65535 followed by a 32-bit count. A date-time is eight
// 16-bit values in the order day, day of week, hour, milliseconds, minute,
// month, second, year (that order holds everywhere in the file). A month
// entry is a date-time and a 32-bit type; a week entry a 32-bit type. A
// work task is: action flag, connect, manual, record, sensor, external,
// visual, record mode (32-bit each), start, end, PTZ loop (32-bit) and the
// action record as its 1848 raw bytes.
//
// The first 32-bit value tells the format: 1100 or 1200 is format 1200,
// 1500 is format 1500 (both as above), anything else is the format of
// files written before version 1100 (format 0), read again from byte 0:
// its camera records have no version, and its work tasks are start, end,
// connect, record, visual, manual, sensor, action flag (32-bit each) and the
// action record of that time, field by field: the text fields from mail
// server to pager message without the 32 reserved bytes, then the nine
// action switches, the delay and the alarm id (1656 bytes). Fields that
// layout lacks (record mode, external, PTZ loop, reserved bytes, the four
// list names and the alarm text) read as zero.
//
// The parser trusts nothing in the bytes: a count is checked against what
// the rest of the file can hold before anything is allocated, and a file
// that ends early is rejected whole.
#pragma once

#include "dravix/platform/wintypes.h"
#include "dravix/schedule/schedule_records.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace dravix::schedule {

inline constexpr const char* kScheduleFileName = "Schedule.zmi";

// The format values a file can be in.
constexpr LONG kFormatOld = 0;
constexpr LONG kFormat1200 = 1200;
constexpr LONG kFormat1500 = 1500;

// Sizes of one element in the file.
constexpr size_t kFileWeekEntry = 4;
constexpr size_t kFileMonthEntry = 16 + 4;
constexpr size_t kFileWorkTask = 8 * 4 + 16 + 16 + 4 + sizeof(tagDSACTIONOPTION);
constexpr size_t kFileOldWorkTask = 16 + 16 + 6 * 4 + 1656;

struct ScheduleData {
  LONG format = kFormat1500;
  tagDSSCHEDULEOPTION camera[kScheduleCameras];
  tagSCHEDULEWORKTASK list[kScheduleLists];
};

// The format a file starting with `first` is in.
LONG ScheduleFormatOf(uint32_t first);

// Reads a whole file. false, with `error` saying what and where, when the
// bytes are not a complete schedule (trailing bytes after the last list
// are ignored). `out` is filled only on success. A camera's version is 0 in
// format 0.
bool ParseScheduleFile(const uint8_t* data, size_t size, ScheduleData* out, std::string* error);

// The bytes of a file in format 1500; every camera record carries version
// 1500 whatever its version field holds.
std::string SerializeScheduleFile(const tagDSSCHEDULEOPTION (&camera)[kScheduleCameras],
                                  const tagSCHEDULEWORKTASK (&list)[kScheduleLists]);

}  // namespace dravix::schedule
