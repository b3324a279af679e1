// Moment to byte offset: the index jump, the 256 KiB walk with its carry,
// the ends of the data area, and the byte counts built on it.
#include "dravix/media/zm_locate.h"
#include "dravix/media/zme_to_zme.h"
#include "tests/media/zm_test_util.h"
#include "tests/support/test_home.h"

#include <filesystem>

namespace dravix::test {
namespace {

using namespace dravix::media;

class TimeToFilePosTest : public TestHome {
 protected:
  HRESULT At(const std::string& path, int64_t relative, __int64* off) {
    __int64 t = TestStart() + relative;
    return ZMEtoZME::TimeToFilePos(path.c_str(), &t, off);
  }
};

TEST_F(TimeToFilePosTest, BeforeTheStartAtOrAfterTheDurationAndDataRunningOut) {
  const std::string rec = Path("a.dat");
  const auto plan = Plan(2);
  WritePlan(rec, plan);
  const auto end = static_cast<int64_t>(EndOf(plan.back()));
  __int64 off = -1;
  EXPECT_EQ(S_OK, At(rec, -Ms(60000), &off));
  EXPECT_EQ(static_cast<int64_t>(kZMDefaultDataOffset), off);
  EXPECT_EQ(S_OK, At(rec, Ms(plan.back().time), &off));
  EXPECT_EQ(end, off);
  EXPECT_EQ(S_OK, At(rec, Ms(plan.back().time) + Ms(99999), &off));
  EXPECT_EQ(end, off);
  // Just before the last time: the first record of that time (the frame,
  // which precedes the audio of its millisecond).
  ASSERT_EQ(plan.back().time, plan[plan.size() - 2].time);
  EXPECT_EQ(S_OK, At(rec, Ms(plan.back().time) - 1, &off));
  EXPECT_EQ(static_cast<int64_t>(plan[plan.size() - 2].offset), off);

  // A duration far beyond the records and a data area that ends before the
  // file does (as the check leaves a repaired file): the walk passes the end
  // of the data area without finding the moment.
  Patch(rec, kHdrDuration, {0, 0, 0, 0, 1, 0, 0, 0});
  uint8_t length[8];
  StoreLE<uint64_t>(length, plan.back().offset - kZMDefaultDataOffset);
  Patch(rec, kHdrDataLength, std::vector<uint8_t>(length, length + 8));
  EXPECT_EQ(S_FALSE, At(rec, Ms(plan.back().time) + 1, &off));
  EXPECT_EQ(static_cast<int64_t>(plan.back().offset), off);
  // Where the file ends exactly at the data end the walk reads on and fails.
  CutTo(rec, plan.back().offset);
  EXPECT_EQ(E_FAIL, At(rec, Ms(plan.back().time) + 1, &off));
  // A data area longer than the file: the walk reads nothing more.
  Patch(rec, kHdrDataLength, {0, 0, 0, 0x10, 0, 0, 0, 0});
  EXPECT_EQ(E_FAIL, At(rec, Ms(plan.back().time) + 1, &off));
}

// QUIRK(position-without-carry)
TEST_F(TimeToFilePosTest, ARecordStraddlingARefillIsReportedPastItsHeadByTheCarry) {
  // Three 100 000-byte frames: the third starts inside the first 256 KiB
  // buffer and ends beyond it, so the walk carries its leading bytes into
  // the second fill and reports every later record `carry` bytes late.
  const std::string rec = Path("big.dat");
  std::vector<PlannedRecord> plan;
  uint64_t at = kZMDefaultDataOffset;
  for (uint32_t i = 0; i < 6; ++i) {
    plan.push_back({0, i * 1000, 100000, true, at});
    at += 100010;
  }
  WritePlan(rec, plan, kCodecH263, 2, false);
  std::filesystem::remove(Path("big.idx"));
  const uint64_t firstFillEnd = kZMDefaultDataOffset + kZMWalkBuffer;
  ASSERT_LT(plan[2].offset, firstFillEnd);
  ASSERT_GT(EndOf(plan[2]), firstFillEnd);
  const int64_t carry = static_cast<int64_t>(firstFillEnd - plan[2].offset);

  __int64 off = -1;
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(S_OK, At(rec, Ms(plan[i].time), &off));
    EXPECT_EQ(static_cast<int64_t>(plan[i].offset), off) << "record " << i;
  }
  for (int i = 2; i < 5; ++i) {
    ASSERT_EQ(S_OK, At(rec, Ms(plan[i].time), &off));
    EXPECT_EQ(static_cast<int64_t>(plan[i].offset) + carry, off) << "record " << i;
  }
  // The walk still knows where the record really is.
  ZMMoment m;
  ASSERT_EQ(S_OK, LocateMoment(rec.c_str(), TestStart() + Ms(plan[3].time), &m));
  EXPECT_EQ(static_cast<int64_t>(plan[3].offset), m.record);
  EXPECT_EQ(static_cast<int64_t>(plan[3].offset) + carry, m.reported);

  // GetSize is built on the reported positions.
  SYSTEMTIME from{2008, 3, 0, 15, 12, 0, 1, 0}, to{2008, 3, 0, 15, 12, 0, 4, 0};
  __int64 size = -1;
  ASSERT_EQ(1, ZMEtoZME::GetSize(rec.c_str(), from, to, &size));
  EXPECT_EQ(static_cast<int64_t>(plan[4].offset) + carry - static_cast<int64_t>(plan[1].offset), size);
  ASSERT_EQ(1, ZMEtoZME::GetSize(rec.c_str(), to, from, &size));
  EXPECT_EQ(0, size);
  EXPECT_EQ(0, ZMEtoZME::GetSize(std::string(512, 'x').c_str(), from, to, &size));
  EXPECT_EQ(0, ZMEtoZME::GetSize(rec.c_str(), from, to, nullptr));
}

TEST_F(TimeToFilePosTest, ARecordLargerThanTheBufferFailsTheWalk) {
  const std::string rec = Path("huge.dat");
  std::vector<PlannedRecord> plan{
      {0, 0, 300000, true, 4096}, {0, 1000, 100, true, 4096 + 300010}, {0, 2000, 100, true, 4096 + 300120}};
  WritePlan(rec, plan, kCodecH263, 2, false);
  // From its index entry the record after it is found; a walk that has
  // to cross the big record cannot be made.
  __int64 off = -1;
  EXPECT_EQ(S_OK, At(rec, Ms(1000), &off));
  EXPECT_EQ(4096 + 300010, off);
  EXPECT_EQ(E_FAIL, At(rec, 0, &off));
  std::filesystem::remove(Path("huge.idx"));
  EXPECT_EQ(E_FAIL, At(rec, Ms(1000), &off));
}

TEST_F(TimeToFilePosTest, TheIndexJumpSkipsTheRecordsBeforeIt) {
  // Damage before the last entry at or before the moment is never walked
  // over with the index; without it the walk goes astray.
  const std::string rec = Path("a.dat");
  const auto plan = Plan(3);
  WritePlan(rec, plan);
  const auto index = IndexOf(Path("a.idx"));
  ASSERT_GE(index.size(), 3u);
  const ZMIndexEntry& entry = index[2];
  Patch(rec, plan[3].offset + 5, {0xFF, 0xFF, 0x0F, 0});  // a huge payload length
  __int64 off = -1;
  ASSERT_EQ(S_OK, At(rec, Ms(entry.time), &off));
  EXPECT_EQ(static_cast<int64_t>(entry.offset), off);
  std::filesystem::remove(Path("a.idx"));
  EXPECT_NE(S_OK, At(rec, Ms(entry.time), &off));

  // An entry whose offset cannot be sought fails.
  Spit(Path("a.idx"), std::string(16, '\0') + std::string(16, '\0').replace(8, 8, 8, '\xff'));
  EXPECT_EQ(E_FAIL, At(rec, Ms(entry.time), &off));
}

}  // namespace
}  // namespace dravix::test
