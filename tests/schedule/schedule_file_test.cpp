// "Schedule.zmi": a file written byte by byte here, the round trip through
// our writer, the older formats, and hostile files.
#include "dravix/schedule/schedule_file.h"
#include "dravix/schedule/zschedulemanager.h"
#include "tests/support/test_home.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
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
  Bytes& le(uint32_t v, int n) {
    for (int i = 0; i < n; ++i) s.push_back(static_cast<char>((v >> (8 * i)) & 0xFF));
    return *this;
  }
  Bytes& u16(uint32_t v) { return le(v, 2); }
  Bytes& u32(uint32_t v) { return le(v, 4); }
  // A date-time in the file's order: day, day of week, hour, milliseconds,
  // minute, month, second, year.
  Bytes& time(std::initializer_list<uint32_t> fields) {
    for (uint32_t f : fields) u16(f);
    return *this;
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
    b.u32(1500).u32(c == 3 ? 1 : 0).u32(c == 3 ? 2 : 0).u16(7);
    for (uint32_t v : {2u, 1u, 1u, 1u, 1u, 1u, 2u}) b.u32(c == 3 ? v + 10 * (v == 1) : v);
    if (c == 3)
      b.u16(2).time({15, 6, 1, 2, 3, 3, 4, 2008}).u32(2).time({16, 0, 5, 6, 7, 3, 8, 2008}).u32(1);
    else
      b.u16(0);
  }
  for (int l = 0; l < 23; ++l) {
    if (l == 6) {
      // action flag, connect, manual, record, sensor, external, visual, record mode
      b.u16(1).u32(11).u32(12).u32(13).u32(14).u32(15).u32(16).u32(17).u32(18);
      b.time({21, 22, 8, 23, 30, 24, 15, 2025}).time({31, 32, 17, 33, 45, 34, 50, 2026});  // start, end
      b.u32(19).raw(Pattern(1848, 1));                                                     // PTZ loop, action
    } else if (l == 22) {
      b.u16(2);
      for (uint32_t k = 0; k < 2; ++k) {
        b.u32(1).u32(1).u32(0).u32(1).u32(0).u32(0).u32(0).u32(3);
        b.time({1, 0, k, 0, 0, 1, 0, 2008}).time({1, 0, k + 1, 0, 0, 1, 0, 2008}).u32(0).raw(Pattern(1848, 2 + k));
      }
    } else {
      b.u16(0);
    }
  }
  return b.s;
}

bool SameBytes(const SYSTEMTIME& a, const SYSTEMTIME& b) { return std::memcmp(&a, &b, sizeof(a)) == 0; }

class ScheduleFile : public dravix::test::TestHome {
 protected:
  tagDSSCHEDULEOPTION cams[kScheduleCameras];
  tagSCHEDULEWORKTASK lists[kScheduleLists];
  ZScheduleManager* M() { return ZScheduleManager::Instance(); }
};

// QUIRK(schedule-time-order): the hand-written file keeps its times in the file's own order.
TEST_F(ScheduleFile, AHandWrittenFileLoadsWithEveryFieldInPlace) {
  WriteFile("Schedule.zmi", HandWrittenFile());
  ASSERT_EQ(M()->LoadError(), "");
  EXPECT_EQ(M()->GetFileFormat(), 1500);
  M()->LoadSchedule(cams, lists);
  EXPECT_EQ(std::vector<LONG>({cams[3].nVersion, cams[3].nEnabled, cams[3].nMode}), std::vector<LONG>({1500, 1, 2}));
  EXPECT_EQ(cams[3].week, (std::vector<LONG>{2, 11, 11, 11, 11, 11, 2}));
  EXPECT_EQ(cams[0].week, (std::vector<LONG>{2, 1, 1, 1, 1, 1, 2}));
  EXPECT_TRUE(cams[0].month.empty());
  ASSERT_EQ(cams[3].month.size(), 2u);
  EXPECT_TRUE(SameBytes(cams[3].month[0].date, SYSTEMTIME{2008, 3, 6, 15, 1, 3, 4, 2}));
  EXPECT_EQ(cams[3].month[0].type, 2);
  EXPECT_EQ(cams[3].month[1].date.wDay, 16);
  EXPECT_EQ(cams[3].month[1].type, 1);

  ASSERT_EQ(lists[6].tasks.size(), 1u);
  const tagDSWORKTASK& t = lists[6].tasks[0];
  EXPECT_EQ(std::vector<LONG>({t.nActionFlag, t.bConnect, t.bManual, t.bRecord, t.bSensor, t.bExternal, t.bVisual,
                               t.nRecordMode, t.bPTZLoop}),
            std::vector<LONG>({11, 12, 13, 14, 15, 16, 17, 18, 19}));
  EXPECT_TRUE(SameBytes(t.start, SYSTEMTIME{2025, 24, 22, 21, 8, 30, 15, 23}));
  EXPECT_TRUE(SameBytes(t.end, SYSTEMTIME{2026, 34, 32, 31, 17, 45, 50, 33}));
  EXPECT_EQ(std::memcmp(&t.dsAction, Pattern(1848, 1).data(), 1848), 0);
  ASSERT_EQ(lists[22].tasks.size(), 2u);
  EXPECT_EQ(lists[22].tasks[1].start.wHour, 1);
  EXPECT_EQ(std::memcmp(&lists[22].tasks[1].dsAction, Pattern(1848, 3).data(), 1848), 0);
  for (int l : {0, 1, 5, 7, 21}) EXPECT_TRUE(lists[l].tasks.empty()) << l;
  // Our writer gives back the same bytes.
  EXPECT_EQ(SerializeScheduleFile(cams, lists), HandWrittenFile());
}

TEST_F(ScheduleFile, SaveNeedsThirtyMegabytesFreeAndLoadGivesBackWhatWasSaved) {
  M()->LoadSchedule(cams, lists);
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
  M()->SaveSchedule(cams, lists);
  dravix::schedule::SetFreeSpaceProbe([](const char*) -> __int64 { return 31457279; });
  EXPECT_FALSE(M()->Save());
  EXPECT_EQ(ReadFile(Path("Schedule.zmi")), "");
  dravix::schedule::SetFreeSpaceProbe([](const char*) -> __int64 { return 31457280; });
  ASSERT_TRUE(M()->Save());
  dravix::schedule::SetFreeSpaceProbe(nullptr);

  // The escaped count of camera 5's week list: 0xFFFF, then 70000.
  size_t at = 0;
  for (size_t c = 0; c < 5; ++c) at += 12 + 2 + 4 * c + 2 + 20;
  EXPECT_EQ(ReadFile(Path("Schedule.zmi")).substr(at + 12, 6), std::string("\xFF\xFF\x70\x11\x01\x00", 6));

  tagDSSCHEDULEOPTION back[kScheduleCameras];
  tagSCHEDULEWORKTASK backLists[kScheduleLists];
  M()->SaveSchedule(back, backLists);  // forget, then read back
  ASSERT_TRUE(M()->Load());
  M()->LoadSchedule(back, backLists);
  for (int c = 0; c < kScheduleCameras; ++c) {
    EXPECT_EQ(std::vector<LONG>({back[c].nVersion, back[c].nEnabled, back[c].nMode}),
              std::vector<LONG>({1500, cams[c].nEnabled, cams[c].nMode}));
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

TEST_F(ScheduleFile, TheFirstValueTellsTheFormatVersionsAndWhatIsNotASchedule) {
  const std::pair<uint32_t, LONG> cases[] = {{1100, 1200}, {1200, 1200}, {1500, 1500}, {0, 0},    {1, 0},
                                             {1099, 0},    {1300, 0},    {1501, 0},    {1400, 0}, {0xFFFFFFFFu, 0}};
  for (const auto& [first, format] : cases) EXPECT_EQ(dravix::schedule::ScheduleFormatOf(first), format) << first;

  // A format-1200 file that says 1100 in its first record.
  WriteFile("Schedule.zmi", Bytes().u32(1100).s + HandWrittenFile().substr(4));
  EXPECT_EQ(M()->GetFileFormat(), 1200);
  M()->LoadSchedule(cams, lists);
  EXPECT_EQ(cams[0].nVersion, 1100);
  EXPECT_EQ(cams[1].nVersion, 1500);

  // SaveSchedule sets 1500, but an old file's format still rules: 0.
  Bytes old;
  for (int c = 0; c < 16; ++c) old.u32(0).u32(0).u16(0).u16(0);
  for (int l = 0; l < 23; ++l) old.u16(0);
  WriteFile("Schedule.zmi", old.s);
  ASSERT_TRUE(M()->Load());
  EXPECT_EQ(M()->GetFileFormat(), 0);
  M()->SaveSchedule(cams, lists);
  M()->LoadSchedule(cams, lists);
  EXPECT_EQ(cams[0].nVersion, 0);

  // A file that is not a schedule gives the defaults and stays as it is.
  const std::string bytes = HandWrittenFile().substr(10);
  WriteFile("Schedule.zmi", bytes);
  EXPECT_FALSE(M()->Load());
  EXPECT_NE(M()->LoadError().find("Schedule.zmi"), std::string::npos);
  EXPECT_EQ(M()->IsEnabled(3), 0);
  M()->LoadSchedule(cams, lists);
  EXPECT_EQ(cams[3].week, (std::vector<LONG>{2, 1, 1, 1, 1, 1, 2}));
  EXPECT_EQ(ReadFile(Path("Schedule.zmi")), bytes);
}

TEST(ScheduleFormat, OldFilesAreReadFromTheStartInTheirOwnLayout) {
  Bytes b;
  for (uint32_t c = 0; c < 16; ++c) {
    b.u32(c == 0).u32(c == 0).u16(1).u32(c).u16(c == 1);  // enabled, mode (no version), week, month count
    if (c == 1) b.time({9, 1, 0, 0, 0, 6, 0, 1999}).u32(1);
  }
  for (int l = 0; l < 23; ++l) {
    b.u16(l == 1);
    if (l != 1) continue;
    b.time({1, 0, 8, 0, 0, 1, 0, 1999}).time({1, 0, 18, 0, 30, 1, 0, 1999});
    b.u32(1).u32(2).u32(3).u32(4).u32(5).u32(6);  // connect, record, visual, manual, sensor, action flag
    // The action of that time: texts without the reserved bytes, then the
    // nine switches, the delay and the alarm id.
    for (const auto& [n, c] : {std::pair<size_t, char>{32, 'M'},
                               {32, 'S'},
                               {160, 'R'},
                               {32, 'F'},
                               {160, 'N'},
                               {32, 'L'},
                               {32, 'P'},
                               {160, 'T'},
                               {260, 'D'},
                               {260, 'V'},
                               {32, 'G'},
                               {160, 'H'},
                               {260, 'C'}})
      b.raw(std::string(n, c));
    for (uint32_t v = 21; v <= 31; ++v) b.u32(v);
  }
  ASSERT_EQ(b.s.size(), 16u * 16 + 20 + 23 * 2 + 1712);
  ScheduleData d;
  std::string error;
  ASSERT_TRUE(Parse(b.s, &d, &error)) << error;
  EXPECT_EQ(d.format, 0);
  EXPECT_EQ(std::vector<LONG>({d.camera[0].nVersion, d.camera[0].nEnabled, d.camera[0].nMode}),
            std::vector<LONG>({0, 1, 1}));
  EXPECT_EQ(d.camera[7].week, std::vector<LONG>{7});
  ASSERT_EQ(d.camera[1].month.size(), 1u);
  EXPECT_EQ(d.camera[1].month[0].date.wYear, 1999);
  ASSERT_EQ(d.list[1].tasks.size(), 1u);
  const tagDSWORKTASK& t = d.list[1].tasks[0];
  EXPECT_EQ(t.start.wHour, 8);
  EXPECT_EQ(t.end.wMinute, 30);
  EXPECT_EQ(std::vector<LONG>({t.bConnect, t.bRecord, t.bVisual, t.bManual, t.bSensor, t.nActionFlag, t.nRecordMode,
                               t.bExternal, t.bPTZLoop}),
            std::vector<LONG>({1, 2, 3, 4, 5, 6, 0, 0, 0}));
  const tagDSACTIONOPTION& a = t.dsAction;
  EXPECT_EQ(std::string({a.szSTM[31], a.szPhoneComPort[0], a.szTelNur[0][0], a.szContext[259]}), "MPTC");
  EXPECT_EQ(std::vector<LONG>({a.bEmail, a.bSingleView, a.nDelaySec, a.nAlarmID}), std::vector<LONG>({21, 29, 30, 31}));
  EXPECT_EQ(std::vector<int>({a.byReserved[0], a.szListMail[0], a.szAlarm[0]}), std::vector<int>(3, 0));
}

TEST(ScheduleHostile, TruncatedFilesAndHugeCountsAreRejected) {
  const std::string whole = HandWrittenFile();
  for (size_t n = 0; n < whole.size(); n += (n < 400 ? 1 : 97)) {
    ScheduleData out;
    out.format = 77;
    std::string error;
    EXPECT_FALSE(Parse(whole.substr(0, n), &out, &error)) << n;
    EXPECT_FALSE(error.empty()) << n;
    EXPECT_EQ(out.format, 77) << n;  // untouched
  }
  ScheduleData d;
  EXPECT_FALSE(Parse(whole.substr(0, whole.size() - 1), &d));
  EXPECT_TRUE(Parse(whole, &d));

  // Huge counts are refused before any allocation.
  Bytes tasks, escapedTasks;  // every camera empty, then list 0 claims many tasks
  for (int c = 0; c < 16; ++c) tasks.u32(1500).u32(0).u32(0).u16(0).u16(0);
  escapedTasks = tasks;
  const std::pair<const char*, std::string> cases[] = {
      {"week count", Bytes().u32(1500).u32(1).u32(0).u16(0xFFFF).u32(0xFFFFFFF0u).raw(std::string(64, '\0')).s},
      {"month count", Bytes().u32(1500).u32(1).u32(0).u16(0).u16(0xFFFF).u32(0x7FFFFFFFu).raw(std::string(64, '\0')).s},
      // Fewer tasks than bytes left, far more than those bytes can hold.
      {"task count", tasks.u16(0x1000).raw(std::string(4096, '\0')).s},
      {"escaped task count", escapedTasks.u16(0).u16(0xFFFF).u32(0xFFFFFFFFu).s},
  };
  for (const auto& [what, bytes] : cases) {
    g_largestAllocation = 0;
    auto* d = new ScheduleData();
    const size_t base = g_largestAllocation;
    std::string error;
    EXPECT_FALSE(Parse(bytes, d, &error)) << what;
    EXPECT_NE(error.find("count"), std::string::npos) << what << ": " << error;
    EXPECT_LE(g_largestAllocation.load(), std::max<size_t>(base, 64 * 1024)) << what;
    delete d;
  }
}

}  // namespace
