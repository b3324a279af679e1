#include "dravix/schedule/schedule_file.h"

#include <cstring>
#include <memory>

namespace dravix::schedule {
namespace {

constexpr uint32_t kEscapedCount = 0xFFFF;

// Little-endian reads that stop at the end of the bytes: once a read falls
// short every later read yields 0 and ok() stays false.
class Reader {
 public:
  Reader(const uint8_t* data, size_t size) : p_(data), left_(size) {}

  bool ok() const { return ok_; }
  size_t left() const { return left_; }

  uint16_t U16() {
    uint8_t b[2] = {};
    Bytes(b, 2);
    return static_cast<uint16_t>(b[0] | (b[1] << 8));
  }
  uint32_t U32() {
    uint8_t b[4] = {};
    Bytes(b, 4);
    return static_cast<uint32_t>(b[0]) | (static_cast<uint32_t>(b[1]) << 8) | (static_cast<uint32_t>(b[2]) << 16) |
           (static_cast<uint32_t>(b[3]) << 24);
  }
  LONG I32() { return static_cast<LONG>(U32()); }
  void Bytes(void* out, size_t n) {
    if (!ok_ || n > left_) {
      ok_ = false;
      left_ = 0;
      return;
    }
    std::memcpy(out, p_, n);
    p_ += n;
    left_ -= n;
  }
  SYSTEMTIME Time() {
    SYSTEMTIME t{};
    t.wDay = U16();
    t.wDayOfWeek = U16();
    t.wHour = U16();
    t.wMilliseconds = U16();
    t.wMinute = U16();
    t.wMonth = U16();
    t.wSecond = U16();
    t.wYear = U16();
    return t;
  }

 private:
  const uint8_t* p_;
  size_t left_;
  bool ok_ = true;
};

class Writer {
 public:
  void U16(uint16_t v) {
    out_.push_back(static_cast<char>(v & 0xFF));
    out_.push_back(static_cast<char>(v >> 8));
  }
  void U32(uint32_t v) {
    for (int i = 0; i < 4; ++i) out_.push_back(static_cast<char>((v >> (8 * i)) & 0xFF));
  }
  void I32(LONG v) { U32(static_cast<uint32_t>(v)); }
  void Bytes(const void* data, size_t n) { out_.append(static_cast<const char*>(data), n); }
  void Count(size_t n) {
    if (n < kEscapedCount) {
      U16(static_cast<uint16_t>(n));
      return;
    }
    U16(static_cast<uint16_t>(kEscapedCount));
    U32(static_cast<uint32_t>(n));
  }
  // QUIRK(schedule-time-order): day, day of week, hour, milliseconds, minute,
  // month, second, year, the order of every time in this file.
  void Time(const SYSTEMTIME& t) {
    for (WORD w : {t.wDay, t.wDayOfWeek, t.wHour, t.wMilliseconds, t.wMinute, t.wMonth, t.wSecond, t.wYear}) U16(w);
  }
  std::string& str() { return out_; }

 private:
  std::string out_;
};

// Reads a list count and checks it against the bytes left, each element
// taking at least `elementSize` of them.
bool ReadCount(Reader& r, size_t elementSize, const std::string& what, size_t* count, std::string* error) {
  uint32_t n = r.U16();
  if (n == kEscapedCount) n = r.U32();
  if (!r.ok()) {
    *error = what + ": the file ends in the list count";
    return false;
  }
  if (n > r.left() / elementSize) {
    *error = what + ": count " + std::to_string(n) + " needs " +
             std::to_string(static_cast<uint64_t>(n) * elementSize) + " bytes, only " + std::to_string(r.left()) +
             " left";
    return false;
  }
  *count = n;
  return true;
}

void ReadTask(Reader& r, tagDSWORKTASK* t) {
  t->nActionFlag = r.I32();
  t->bConnect = r.I32();
  t->bManual = r.I32();
  t->bRecord = r.I32();
  t->bSensor = r.I32();
  t->bExternal = r.I32();
  t->bVisual = r.I32();
  t->nRecordMode = r.I32();
  t->start = r.Time();
  t->end = r.Time();
  t->bPTZLoop = r.I32();
  r.Bytes(&t->dsAction, sizeof(t->dsAction));
}

// The work task of files written before version 1100.
void ReadOldTask(Reader& r, tagDSWORKTASK* t) {
  t->start = r.Time();
  t->end = r.Time();
  t->bConnect = r.I32();
  t->bRecord = r.I32();
  t->bVisual = r.I32();
  t->bManual = r.I32();
  t->bSensor = r.I32();
  t->nActionFlag = r.I32();
  tagDSACTIONOPTION& a = t->dsAction;
  r.Bytes(a.szSTM, sizeof(a.szSTM));
  r.Bytes(a.szSender, sizeof(a.szSender));
  r.Bytes(a.szRecAdr, sizeof(a.szRecAdr));
  r.Bytes(a.szFaxComPort, sizeof(a.szFaxComPort));
  r.Bytes(a.szFaxNumber, sizeof(a.szFaxNumber));
  r.Bytes(a.szSelNur, sizeof(a.szSelNur));
  r.Bytes(a.szPhoneComPort, sizeof(a.szPhoneComPort));
  r.Bytes(a.szTelNur, sizeof(a.szTelNur));
  r.Bytes(a.szDefVoicename, sizeof(a.szDefVoicename));
  r.Bytes(a.szVoiceFilename, sizeof(a.szVoiceFilename));
  r.Bytes(a.szPagerComPort, sizeof(a.szPagerComPort));
  r.Bytes(a.szPagerNumber, sizeof(a.szPagerNumber));
  r.Bytes(a.szContext, sizeof(a.szContext));
  for (BOOL* b :
       {&a.bEmail, &a.bFax, &a.bPhone, &a.bPager, &a.bAlarm, &a.bLoop, &a.bFlash, &a.bFlashMotion, &a.bSingleView})
    *b = r.I32();
  a.nDelaySec = r.I32();
  a.nAlarmID = r.I32();
}

}  // namespace

LONG ScheduleFormatOf(uint32_t first) {
  if (first == 1100 || first == 1200) return kFormat1200;
  if (first == 1500) return kFormat1500;
  return kFormatOld;
}

bool ParseScheduleFile(const uint8_t* data, size_t size, ScheduleData* out, std::string* error) {
  std::string ignored;
  if (error == nullptr) error = &ignored;
  Reader probe(data, size);
  const uint32_t first = probe.U32();
  if (!probe.ok()) {
    *error = "the file holds " + std::to_string(size) + " bytes, fewer than one value";
    return false;
  }
  auto d = std::make_unique<ScheduleData>();
  d->format = ScheduleFormatOf(first);
  const bool old = d->format == kFormatOld;

  Reader r(data, size);
  for (int c = 0; c < kScheduleCameras; ++c) {
    tagDSSCHEDULEOPTION& cam = d->camera[c];
    const std::string where = "camera " + std::to_string(c);
    cam.nVersion = old ? 0 : r.I32();
    cam.nEnabled = r.I32();
    cam.nMode = r.I32();
    size_t n = 0;
    if (!ReadCount(r, kFileWeekEntry, where + " week list", &n, error)) return false;
    cam.week.resize(n);
    for (LONG& v : cam.week) v = r.I32();
    if (!ReadCount(r, kFileMonthEntry, where + " month list", &n, error)) return false;
    cam.month.resize(n);
    for (tagDSSCHEDULEMONTH& m : cam.month) {
      m.date = r.Time();
      m.type = r.I32();
    }
    if (!r.ok()) {
      *error = where + ": the file ends inside the record";
      return false;
    }
  }
  const size_t taskSize = old ? kFileOldWorkTask : kFileWorkTask;
  for (int l = 0; l < kScheduleLists; ++l) {
    size_t n = 0;
    if (!ReadCount(r, taskSize, "work-task list " + std::to_string(l), &n, error)) return false;
    d->list[l].tasks.resize(n);
    for (tagDSWORKTASK& t : d->list[l].tasks) {
      t = tagDSWORKTASK{};
      if (old)
        ReadOldTask(r, &t);
      else
        ReadTask(r, &t);
    }
    if (!r.ok()) {
      *error = "work-task list " + std::to_string(l) + ": the file ends inside a task";
      return false;
    }
  }
  *out = std::move(*d);
  return true;
}

std::string SerializeScheduleFile(const tagDSSCHEDULEOPTION (&camera)[kScheduleCameras],
                                  const tagSCHEDULEWORKTASK (&list)[kScheduleLists]) {
  Writer w;
  for (const tagDSSCHEDULEOPTION& cam : camera) {
    w.I32(kScheduleVersion);
    w.I32(cam.nEnabled);
    w.I32(cam.nMode);
    w.Count(cam.week.size());
    for (LONG v : cam.week) w.I32(v);
    w.Count(cam.month.size());
    for (const tagDSSCHEDULEMONTH& m : cam.month) {
      w.Time(m.date);
      w.I32(m.type);
    }
  }
  for (const tagSCHEDULEWORKTASK& l : list) {
    w.Count(l.tasks.size());
    for (const tagDSWORKTASK& t : l.tasks) {
      for (LONG v : {t.nActionFlag, t.bConnect, t.bManual, t.bRecord, t.bSensor, t.bExternal, t.bVisual, t.nRecordMode})
        w.I32(v);
      w.Time(t.start);
      w.Time(t.end);
      w.I32(t.bPTZLoop);
      w.Bytes(&t.dsAction, sizeof(t.dsAction));
    }
  }
  return std::move(w.str());
}

}  // namespace dravix::schedule
