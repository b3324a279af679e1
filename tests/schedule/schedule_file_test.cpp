// "Schedule.zmi": a file written byte by byte here, the round trip through
// our writer, the older formats, and hostile files.
#include "dravix/schedule/schedule_file.h"
#include "dravix/schedule/zschedulemanager.h"
#include "tests/support/test_home.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

// Every allocation of this test program is measured, so that a hostile
// count can be shown not to reach the allocator.
namespace {
std::atomic<size_t> g_largestAllocation{0};
}  // namespace

void* operator new(size_t n) {
  size_t seen = g_largestAllocation.load(std::memory_order_relaxed);
  while (n > seen && !g_largestAllocation.compare_exchange_weak(seen, n, std::memory_order_relaxed)) {
  }
  if (void* p = std::malloc(n != 0 ? n : 1)) return p;
  throw std::bad_alloc();
}
void* operator new[](size_t n) { return operator new(n); }
void* operator new(size_t n, const std::nothrow_t&) noexcept {
  try {
    return operator new(n);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
void* operator new[](size_t n, const std::nothrow_t& t) noexcept { return operator new(n, t); }
// The replacement pair is malloc/free on both sides; GCC cannot see that
// once a delete is inlined next to a new.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, size_t) noexcept { std::free(p); }
void operator delete[](void* p, size_t) noexcept { std::free(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { std::free(p); }
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif

namespace {

using dravix::schedule::ParseScheduleFile;
using dravix::schedule::ScheduleData;
using dravix::schedule::SerializeScheduleFile;

// Little-endian values appended by hand.
struct Bytes {
  std::string s;
  Bytes& u16(unsigned v) {
    s.push_back(static_cast<char>(v & 0xFF));
    s.push_back(static_cast<char>((v >> 8) & 0xFF));
    return *this;
  }
  Bytes& u32(uint32_t v) {
    for (int i = 0; i < 4; ++i) s.push_back(static_cast<char>((v >> (8 * i)) & 0xFF));
    return *this;
  }
  // A date-time in the file's order: day, day of week, hour, milliseconds,
  // minute, month, second, year.
  Bytes& time(unsigned day, unsigned dow, unsigned hour, unsigned ms, unsigned minute, unsigned month, unsigned second,
              unsigned year) {
    return u16(day).u16(dow).u16(hour).u16(ms).u16(minute).u16(month).u16(second).u16(year);
  }
  Bytes& raw(const std::string& b) {
    s += b;
    return *this;
  }
};

std::string Pattern(size_t n, int seed) {
  std::string p(n, '\0');
  for (size_t i = 0; i < n; ++i) p[i] = static_cast<char>((i * 7 + static_cast<size_t>(seed)) % 251 + 1);
  return p;
}

bool Parse(const std::string& bytes, ScheduleData* out, std::string* error = nullptr) {
  return ParseScheduleFile(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), out, error);
}

// A file in format 1500: camera 3 enabled in mode 2 with two month entries,
// one task in list 6 and two in list 22; every other list empty.
std::string HandWrittenFile() {
  Bytes b;
  for (int c = 0; c < 16; ++c) {
    b.u32(1500).u32(c == 3 ? 1 : 0).u32(c == 3 ? 2 : 0);
    b.u16(7);
    for (uint32_t v : {2u, 1u, 1u, 1u, 1u, 1u, 2u}) b.u32(c == 3 ? v + 10 * (v == 1) : v);
    if (c == 3) {
      b.u16(2);
      b.time(15, 6, 1, 2, 3, 3, 4, 2008).u32(2);
      b.time(16, 0, 5, 6, 7, 3, 8, 2008).u32(1);
    } else {
      b.u16(0);
    }
  }
  for (int l = 0; l < 23; ++l) {
    if (l == 6) {
      b.u16(1);
      // action flag, connect, manual, record, sensor, external, visual, record mode
      b.u32(11).u32(12).u32(13).u32(14).u32(15).u32(16).u32(17).u32(18);
      b.time(21, 22, 8, 23, 30, 24, 15, 2025);  // start
      b.time(31, 32, 17, 33, 45, 34, 50, 2026);  // end
      b.u32(19);                                 // PTZ loop
      b.raw(Pattern(1848, 1));
    } else if (l == 22) {
      b.u16(2);
      for (int k = 0; k < 2; ++k) {
        b.u32(1).u32(1).u32(0).u32(1).u32(0).u32(0).u32(0).u32(3);
        b.time(1, 0, static_cast<unsigned>(k), 0, 0, 1, 0, 2008).time(1, 0, static_cast<unsigned>(k) + 1, 0, 0, 1, 0, 2008);
        b.u32(0);
        b.raw(Pattern(1848, 2 + k));
      }
    } else {
      b.u16(0);
    }
  }
  return b.s;
}

class ScheduleFile : public dravix::test::TestHome {};

TEST_F(ScheduleFile, AHandWrittenFileLoadsWithEveryFieldInPlace) {
  WriteFile("Schedule.zmi", HandWrittenFile());
  ZScheduleManager* m = ZScheduleManager::Instance();
  ASSERT_EQ(m->LoadError(), "");
  EXPECT_EQ(m->GetFileFormat(), 1500);
  tagDSSCHEDULEOPTION cams[kScheduleCameras];
  tagSCHEDULEWORKTASK lists[kScheduleLists];
  m->LoadSchedule(cams, lists);

  EXPECT_EQ(cams[3].nVersion, 1500);
  EXPECT_EQ(cams[3].nEnabled, 1);
  EXPECT_EQ(cams[3].nMode, 2);
  EXPECT_EQ(cams[3].week, (std::vector<LONG>{2, 11, 11, 11, 11, 11, 2}));
  EXPECT_EQ(cams[0].week, (std::vector<LONG>{2, 1, 1, 1, 1, 1, 2}));
  EXPECT_EQ(cams[0].nEnabled, 0);
  EXPECT_TRUE(cams[0].month.empty());
  ASSERT_EQ(cams[3].month.size(), 2u);
  const SYSTEMTIME& d = cams[3].month[0].date;
  EXPECT_EQ(d.wDay, 15);
  EXPECT_EQ(d.wDayOfWeek, 6);
  EXPECT_EQ(d.wHour, 1);
  EXPECT_EQ(d.wMilliseconds, 2);
  EXPECT_EQ(d.wMinute, 3);
  EXPECT_EQ(d.wMonth, 3);
  EXPECT_EQ(d.wSecond, 4);
  EXPECT_EQ(d.wYear, 2008);
  EXPECT_EQ(cams[3].month[0].type, 2);
  EXPECT_EQ(cams[3].month[1].date.wDay, 16);
  EXPECT_EQ(cams[3].month[1].type, 1);

  ASSERT_EQ(lists[6].tasks.size(), 1u);
  const tagDSWORKTASK& t = lists[6].tasks[0];
  EXPECT_EQ(t.nActionFlag, 11);
  EXPECT_EQ(t.bConnect, 12);
  EXPECT_EQ(t.bManual, 13);
  EXPECT_EQ(t.bRecord, 14);
  EXPECT_EQ(t.bSensor, 15);
  EXPECT_EQ(t.bExternal, 16);
  EXPECT_EQ(t.bVisual, 17);
  EXPECT_EQ(t.nRecordMode, 18);
  EXPECT_EQ(t.bPTZLoop, 19);
  const SYSTEMTIME startWant{2025, 24, 22, 21, 8, 30, 15, 23};
  const SYSTEMTIME endWant{2026, 34, 32, 31, 17, 45, 50, 33};
  EXPECT_EQ(std::memcmp(&t.start, &startWant, sizeof(SYSTEMTIME)), 0);
  EXPECT_EQ(std::memcmp(&t.end, &endWant, sizeof(SYSTEMTIME)), 0);
  EXPECT_EQ(std::memcmp(&t.dsAction, Pattern(1848, 1).data(), 1848), 0);
  ASSERT_EQ(lists[22].tasks.size(), 2u);
  EXPECT_EQ(lists[22].tasks[1].start.wHour, 1);
  EXPECT_EQ(std::memcmp(&lists[22].tasks[1].dsAction, Pattern(1848, 3).data(), 1848), 0);
  for (int l : {0, 1, 5, 7, 21}) EXPECT_TRUE(lists[l].tasks.empty()) << l;

  // Our writer gives back the same bytes.
  EXPECT_EQ(SerializeScheduleFile(cams, lists), HandWrittenFile());
}

TEST_F(ScheduleFile, SaveThenLoadGivesTheSameSchedule) {
  ZScheduleManager* m = ZScheduleManager::Instance();
  dravix::schedule::SetFreeSpaceProbe([](const char*) -> __int64 { return 1LL << 40; });
  tagDSSCHEDULEOPTION cams[kScheduleCameras];
  tagSCHEDULEWORKTASK lists[kScheduleLists];
  m->LoadSchedule(cams, lists);
  for (int c = 0; c < kScheduleCameras; ++c) {
    cams[c].nEnabled = c % 3;
    cams[c].nMode = c % 4;
    cams[c].week.assign(static_cast<size_t>(c), c * 10);
    cams[c].month.assign(1, tagDSSCHEDULEMONTH{SYSTEMTIME{2009, 2, 1, 3, 4, 5, 6, 7}, c});
  }
  cams[5].week.assign(70000, 3);  // past the 16-bit count
  for (int l = 0; l < kScheduleLists; ++l)
    for (int k = 0; k < l % 3; ++k) {
      tagDSWORKTASK t;  // every byte different from its neighbours
      std::memcpy(&t, Pattern(sizeof(t), l * 10 + k).data(), sizeof(t));
      lists[l].tasks.push_back(t);
    }
  m->SaveSchedule(cams, lists);
  ASSERT_TRUE(m->Save());

  // The escaped count of camera 5's week list: 0xFFFF, then 70000.
  const std::string file = ReadFile(Path("Schedule.zmi"));
  size_t at = 0;
  for (int c = 0; c < 5; ++c) at += 12 + 2 + 4 * static_cast<size_t>(c) + 2 + 20;
  EXPECT_EQ(file.substr(at + 12, 6), std::string("\xFF\xFF\x70\x11\x01\x00", 6));

  tagDSSCHEDULEOPTION other[kScheduleCameras];
  m->SaveSchedule(other, lists);  // forget, then read back
  ASSERT_TRUE(m->Load());
  tagDSSCHEDULEOPTION back[kScheduleCameras];
  tagSCHEDULEWORKTASK backLists[kScheduleLists];
  m->LoadSchedule(back, backLists);
  for (int c = 0; c < kScheduleCameras; ++c) {
    EXPECT_EQ(back[c].nVersion, 1500);
    EXPECT_EQ(back[c].nEnabled, cams[c].nEnabled);
    EXPECT_EQ(back[c].nMode, cams[c].nMode);
    EXPECT_EQ(back[c].week, cams[c].week);
    ASSERT_EQ(back[c].month.size(), 1u);
    EXPECT_EQ(std::memcmp(&back[c].month[0], &cams[c].month[0], sizeof(tagDSSCHEDULEMONTH)), 0);
  }
  for (int l = 0; l < kScheduleLists; ++l) {
    ASSERT_EQ(backLists[l].tasks.size(), lists[l].tasks.size());
    for (size_t k = 0; k < lists[l].tasks.size(); ++k)
      EXPECT_EQ(std::memcmp(&backLists[l].tasks[k], &lists[l].tasks[k], sizeof(tagDSWORKTASK)), 0) << l << "/" << k;
  }
}

TEST_F(ScheduleFile, SaveNeedsThirtyMegabytesFree) {
  ZScheduleManager* m = ZScheduleManager::Instance();
  dravix::schedule::SetFreeSpaceProbe([](const char*) -> __int64 { return 31457279; });
  EXPECT_FALSE(m->Save());
  EXPECT_EQ(ReadFile(Path("Schedule.zmi")), "");
  dravix::schedule::SetFreeSpaceProbe([](const char*) -> __int64 { return 31457280; });
  EXPECT_TRUE(m->Save());
  ScheduleData d;
  ASSERT_TRUE(Parse(ReadFile(Path("Schedule.zmi")), &d));
  EXPECT_EQ(d.camera[0].week, (std::vector<LONG>{2, 1, 1, 1, 1, 1, 2}));
  dravix::schedule::SetFreeSpaceProbe(nullptr);
}

TEST(ScheduleFormat, TheFirstValueTellsTheFormat) {
  const std::pair<uint32_t, LONG> cases[] = {{1100, 1200}, {1200, 1200}, {1500, 1500}, {0, 0},   {1, 0},
                                             {1099, 0},    {1300, 0},    {1501, 0},    {1400, 0}, {0xFFFFFFFFu, 0}};
  for (const auto& [first, format] : cases) EXPECT_EQ(dravix::schedule::ScheduleFormatOf(first), format) << first;
}

TEST_F(ScheduleFile, VersionsAreHandedOutOnlyFromVersionedFormats) {
  // A format-1200 file that says 1100 in its first record.
  std::string bytes = HandWrittenFile();
  Bytes first;
  first.u32(1100);
  bytes.replace(0, 4, first.s);
  WriteFile("Schedule.zmi", bytes);
  ZScheduleManager* m = ZScheduleManager::Instance();
  EXPECT_EQ(m->GetFileFormat(), 1200);
  tagDSSCHEDULEOPTION cams[kScheduleCameras];
  tagSCHEDULEWORKTASK lists[kScheduleLists];
  m->LoadSchedule(cams, lists);
  EXPECT_EQ(cams[0].nVersion, 1100);
  EXPECT_EQ(cams[1].nVersion, 1500);

  // SaveSchedule sets 1500, but an old file's format still rules: 0.
  Bytes old;
  for (int c = 0; c < 16; ++c) old.u32(0).u32(0).u16(0).u16(0);
  for (int l = 0; l < 23; ++l) old.u16(0);
  WriteFile("Schedule.zmi", old.s);
  ASSERT_TRUE(m->Load());
  EXPECT_EQ(m->GetFileFormat(), 0);
  m->SaveSchedule(cams, lists);
  m->LoadSchedule(cams, lists);
  EXPECT_EQ(cams[0].nVersion, 0);
}

TEST(ScheduleFormat, OldFilesAreReadFromTheStartInTheirOwnLayout) {
  Bytes b;
  for (int c = 0; c < 16; ++c) {
    b.u32(c == 0 ? 1 : 0).u32(c == 0 ? 1 : 0);  // enabled, mode: no version
    b.u16(1).u32(static_cast<uint32_t>(c));
    b.u16(c == 1 ? 1 : 0);
    if (c == 1) b.time(9, 1, 0, 0, 0, 6, 0, 1999).u32(1);
  }
  for (int l = 0; l < 23; ++l) {
    if (l != 1) {
      b.u16(0);
      continue;
    }
    b.u16(1);
    b.time(1, 0, 8, 0, 0, 1, 0, 1999).time(1, 0, 18, 0, 30, 1, 0, 1999);
    b.u32(1).u32(2).u32(3).u32(4).u32(5).u32(6);  // connect, record, visual, manual, sensor, action flag
    // The action of that time: texts without the reserved bytes, then the
    // nine switches, the delay and the alarm id.
    b.raw(std::string(32, 'M')).raw(std::string(32, 'S')).raw(std::string(160, 'R'));
    b.raw(std::string(32, 'F')).raw(std::string(160, 'N')).raw(std::string(32, 'L'));
    b.raw(std::string(32, 'P')).raw(std::string(160, 'T')).raw(std::string(260, 'D')).raw(std::string(260, 'V'));
    b.raw(std::string(32, 'G')).raw(std::string(160, 'H')).raw(std::string(260, 'C'));
    for (uint32_t v = 21; v <= 29; ++v) b.u32(v);
    b.u32(30).u32(31);
  }
  ASSERT_EQ(b.s.size(), 16u * 16 + 20 + 23 * 2 + 1712);
  ScheduleData d;
  std::string error;
  ASSERT_TRUE(Parse(b.s, &d, &error)) << error;
  EXPECT_EQ(d.format, 0);
  EXPECT_EQ(d.camera[0].nVersion, 0);
  EXPECT_EQ(d.camera[0].nEnabled, 1);
  EXPECT_EQ(d.camera[0].nMode, 1);
  EXPECT_EQ(d.camera[7].week, std::vector<LONG>{7});
  ASSERT_EQ(d.camera[1].month.size(), 1u);
  EXPECT_EQ(d.camera[1].month[0].date.wYear, 1999);
  ASSERT_EQ(d.list[1].tasks.size(), 1u);
  const tagDSWORKTASK& t = d.list[1].tasks[0];
  EXPECT_EQ(t.start.wHour, 8);
  EXPECT_EQ(t.end.wMinute, 30);
  EXPECT_EQ((std::vector<LONG>{t.bConnect, t.bRecord, t.bVisual, t.bManual, t.bSensor, t.nActionFlag}),
            (std::vector<LONG>{1, 2, 3, 4, 5, 6}));
  EXPECT_EQ((std::vector<LONG>{t.nRecordMode, t.bExternal, t.bPTZLoop}), (std::vector<LONG>{0, 0, 0}));
  const tagDSACTIONOPTION& a = t.dsAction;
  EXPECT_EQ(a.szSTM[31], 'M');
  EXPECT_EQ(a.szPhoneComPort[0], 'P');
  EXPECT_EQ(a.byReserved[0], 0);
  EXPECT_EQ(a.szTelNur[0][0], 'T');
  EXPECT_EQ(a.szContext[259], 'C');
  EXPECT_EQ(a.bEmail, 21);
  EXPECT_EQ(a.bSingleView, 29);
  EXPECT_EQ(a.nDelaySec, 30);
  EXPECT_EQ(a.nAlarmID, 31);
  EXPECT_EQ(a.szListMail[0], '\0');
  EXPECT_EQ(a.szAlarm[0], '\0');
}

TEST(ScheduleHostile, EveryTruncationIsRejected) {
  const std::string whole = HandWrittenFile();
  ScheduleData d;
  ASSERT_TRUE(Parse(whole, &d));
  for (size_t n = 0; n < whole.size(); n += (n < 400 ? 1 : 97)) {
    ScheduleData out;
    out.format = 77;
    std::string error;
    EXPECT_FALSE(Parse(whole.substr(0, n), &out, &error)) << n;
    EXPECT_FALSE(error.empty()) << n;
    EXPECT_EQ(out.format, 77) << n;  // untouched
  }
  EXPECT_FALSE(Parse(whole.substr(0, whole.size() - 1), &d));
}

TEST(ScheduleHostile, HugeCountsAreRefusedBeforeAnyAllocation) {
  struct Case {
    const char* what;
    std::string bytes;
  };
  Bytes week;  // camera 0's week list: 65535, then a 32-bit count
  week.u32(1500).u32(1).u32(0).u16(0xFFFF).u32(0xFFFFFFF0u).raw(std::string(64, '\0'));
  Bytes month;
  month.u32(1500).u32(1).u32(0).u16(0).u16(0xFFFF).u32(0x7FFFFFFFu).raw(std::string(64, '\0'));
  Bytes tasks;  // every camera empty, then list 0 claims 65535 tasks without the escape
  for (int c = 0; c < 16; ++c) tasks.u32(1500).u32(0).u32(0).u16(0).u16(0);
  tasks.u16(0xFFFE).raw(std::string(4096, '\0'));
  Bytes escapedTasks;
  for (int c = 0; c < 16; ++c) escapedTasks.u32(1500).u32(0).u32(0).u16(0).u16(0);
  escapedTasks.u16(0).u16(0xFFFF).u32(0xFFFFFFFFu);
  const Case cases[] = {{"week count", week.s},
                        {"month count", month.s},
                        {"task count", tasks.s},
                        {"escaped task count", escapedTasks.s}};
  for (const Case& c : cases) {
    g_largestAllocation = 0;
    ScheduleData* d = new ScheduleData();
    const size_t base = g_largestAllocation;
    std::string error;
    EXPECT_FALSE(Parse(c.bytes, d, &error)) << c.what;
    EXPECT_NE(error.find("count"), std::string::npos) << c.what << ": " << error;
    EXPECT_LE(g_largestAllocation.load(), std::max<size_t>(base, 64 * 1024)) << c.what;
    delete d;
  }
}

TEST_F(ScheduleFile, AFileThatIsNotAScheduleGivesTheDefaultsAndStays) {
  std::string bytes = HandWrittenFile();
  bytes.resize(bytes.size() - 10);
  WriteFile("Schedule.zmi", bytes);
  ZScheduleManager* m = ZScheduleManager::Instance();
  EXPECT_NE(m->LoadError().find("Schedule.zmi"), std::string::npos);
  EXPECT_FALSE(m->Load());
  EXPECT_EQ(m->IsEnabled(3), 0);
  tagDSSCHEDULEOPTION cams[kScheduleCameras];
  tagSCHEDULEWORKTASK lists[kScheduleLists];
  m->LoadSchedule(cams, lists);
  EXPECT_EQ(cams[3].week, (std::vector<LONG>{2, 1, 1, 1, 1, 1, 2}));
  EXPECT_EQ(ReadFile(Path("Schedule.zmi")), bytes);
}

}  // namespace
