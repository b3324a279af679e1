// Check and repair: intact files are left alone, damaged tails are cut,
// damaged indexes are cut, and a file cut by a power loss comes back.
#include "dravix/media/zm_file.h"
#include "dravix/media/zm_record_walk.h"
#include "dravix/media/zme_to_zme.h"
#include "tests/media/zm_test_util.h"
#include "tests/support/test_home.h"

#include <filesystem>

namespace dravix::test {
namespace {

using namespace dravix::media;

__int64 ZmOf(int64_t fileTime) {
  SYSTEMTIME st{};
  EXPECT_TRUE(FileTimeToSystemTime(Int64ToFileTime(fileTime), &st));
  return SysTimeToZMTime(st);
}

class ZCheckTest : public TestHome {
 protected:
  void SetUp() override {
    TestHome::SetUp();
    rec = Path("cam.dat");
    idx = Path("cam.idx");
  }
  std::string rec, idx;
};

TEST_F(ZCheckTest, AnIntactFileIsLeftAloneAndReportsTheRecordBeforeTheLast) {
  const auto plan = Plan(3);
  WritePlan(rec, plan);
  const std::string before = ReadFile(rec), indexBefore = ReadFile(idx);
  __int64 end = 0;
  EXPECT_EQ(S_OK, ZCheckZMFile(rec.c_str(), &end));
  EXPECT_EQ(before, ReadFile(rec));
  EXPECT_EQ(indexBefore, ReadFile(idx));
  EXPECT_EQ(ZmOf(TestStart() + Ms(plan[plan.size() - 2].time)), end);
}

TEST_F(ZCheckTest, FilesItCannotUseAreLeftUntouched) {
  const auto plan = Plan(1);
  WritePlan(rec, plan);
  CutTo(rec, EndOf(plan.back()) - 3);
  __int64 end = 12345;
  // Wrong magic.
  Patch(rec, 0, {'X'});
  const std::string badMagic = ReadFile(rec);
  EXPECT_EQ(S_OK, ZCheckZMFile(rec.c_str(), &end));
  EXPECT_EQ(badMagic, ReadFile(rec));
  // Missing, null, and open elsewhere (a recording still being written).
  EXPECT_EQ(S_OK, ZCheckZMFile(Path("none.dat").c_str(), &end));
  EXPECT_EQ(S_OK, ZCheckZMFile(nullptr, &end));
  EXPECT_EQ(12345, end);
  ZMRecordingWriter writer;
  ASSERT_EQ(S_OK, writer.Create(Path("live.dat").c_str(), TestStart(), {ZMStreamFormat::Video(0, 2)}));
  const uint8_t frame[] = {0, 0, 0x80, 1, 2, 3};
  ASSERT_EQ(S_OK, writer.AddRecord(0, 0, frame, sizeof frame, true));
  writer.Abandon();
  const std::string live = ReadFile(Path("live.dat"));
  platform::File open;
  ASSERT_TRUE(open.OpenRead(Path("live.dat").c_str()));
  EXPECT_EQ(S_OK, ZCheckZMFile(Path("live.dat").c_str(), &end));
  EXPECT_EQ(live, ReadFile(Path("live.dat")));
  EXPECT_EQ(12345, end);
  open.Close();
  // Closed, the abandoned recording is repaired (open-ended header trimmed).
  EXPECT_EQ(S_OK, ZCheckZMFile(Path("live.dat").c_str(), &end));
  EXPECT_EQ(0u, HeaderOf(Path("live.dat")).DataLength());
}

// Each rule that makes a record invalid ends the walk at that record; the
// valid record before it is dropped with it.
TEST_F(ZCheckTest, TheFirstInvalidRecordEndsTheWalk) {
  const auto plan = Plan(2);
  const size_t bad = plan.size() - 6;
  ASSERT_EQ(0, plan[bad].stream);
  struct Case {
    const char* what;
    uint64_t at;
    std::vector<uint8_t> bytes;
    int codec = kCodecH263;
  } cases[] = {
      {"stream number", plan[bad].offset, {2}},
      {"payload length 0", plan[bad].offset + 5, {0, 0, 0, 0}},
      {"payload length over 1 MiB", plan[bad].offset + 5, {1, 0, 0x10, 0}},
      {"flag", plan[bad].offset + 9, {2}},
      {"time after the duration", plan[bad].offset + 1, {0xFF, 0xFF, 0, 0}},
      {"picture start", plan[bad].offset + 12, {0x7F}},
      {"MJPEG frame starting with a DQT marker", plan[bad].offset + 10, {0xFF, 0xD8, 0xFF, 0xDB}, kCodecMJPEG},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    WritePlan(rec, plan, c.codec);
    Patch(rec, c.at, c.bytes);
    __int64 end = 0;
    ASSERT_EQ(S_OK, ZCheckZMFile(rec.c_str(), &end));
    const ZMFileHeader h = HeaderOf(rec);
    EXPECT_EQ(plan[bad - 1].offset - kZMDefaultDataOffset, h.DataLength());
    EXPECT_EQ(Ms(plan[bad - 1].time), h.Duration());
    EXPECT_EQ(ZmOf(TestStart() + Ms(plan[bad - 2].time)), end);
  }
}

TEST_F(ZCheckTest, AnIndexEntryThatMissesARecordHeadIsCutThere) {
  const auto plan = Plan(6);
  WritePlan(rec, plan);
  const auto index = IndexOf(idx);
  ASSERT_GE(index.size(), 5u);
  // Entry 3 now points 4 bytes into its record.
  uint8_t e[16];
  StoreIndexEntry(e, ZMIndexEntry{index[3].time, index[3].frame, index[3].offset + 4});
  Patch(idx, 16 + 3 * 16, std::vector<uint8_t>(e, e + 16));
  const std::string data = ReadFile(rec);
  __int64 end = 0;
  ZCheckZMFile(rec.c_str(), &end);
  EXPECT_EQ(data, ReadFile(rec));
  EXPECT_EQ(16u + 3 * 16, std::filesystem::file_size(idx));
  const std::string cut = ReadFile(idx);
  ZCheckZMFile(rec.c_str(), &end);
  EXPECT_EQ(cut, ReadFile(idx));
  // The readers agree with and without the shortened index.
  FILETIME withIndex{}, without{};
  ASSERT_EQ(S_OK, GetZMFileEndTime(rec.c_str(), &withIndex));
  std::filesystem::remove(idx);
  ASSERT_EQ(S_OK, GetZMFileEndTime(rec.c_str(), &without));
  EXPECT_EQ(FileTimeToInt64(without), FileTimeToInt64(withIndex));
}

// A recording cut at every few bytes inside its last records, as a power
// loss leaves it, both after a clean close (true header) and while still
// being written (open-ended header).
TEST_F(ZCheckTest, PowerLossAtManyPositionsInTheLastRecords) {
  const auto plan = Plan(2, 10, 1, 120);  // every frame a key frame: the tail is indexed too
  const std::string clean = Path("clean.dat"), crashed = Path("crashed.dat");
  WritePlan(clean, plan);
  WritePlan(crashed, plan, kCodecH263, 2, true, false);
  const uint64_t fileEnd = EndOf(plan.back());
  const uint64_t from = plan[plan.size() - 5].offset;
  int checked = 0;
  for (const std::string& original : {clean, crashed}) {
    for (uint64_t cut = from; cut < fileEnd; cut += (cut % 5 == 0 ? 1 : 3)) {
      SCOPED_TRACE(original + " cut at " + std::to_string(cut));
      std::filesystem::copy_file(original, rec, std::filesystem::copy_options::overwrite_existing);
      std::filesystem::copy_file(IndexNameForWriter(original), idx, std::filesystem::copy_options::overwrite_existing);
      CutTo(rec, cut);
      size_t whole = 0;
      while (whole < plan.size() && EndOf(plan[whole]) <= cut) ++whole;
      ASSERT_GE(whole, 2u);

      __int64 end = 0;
      ASSERT_EQ(S_OK, ZCheckZMFile(rec.c_str(), &end));
      // Every whole record but the last survives, byte for byte.
      const ZMFileHeader h = HeaderOf(rec);
      ASSERT_EQ(plan[whole - 1].offset - kZMDefaultDataOffset, h.DataLength());
      EXPECT_EQ(Ms(plan[whole - 1].time), h.Duration());
      EXPECT_EQ(ZmOf(TestStart() + Ms(plan[whole - 2].time)), end);
      const auto heads = HeadsOf(rec, kZMDefaultDataOffset, h.DataLength());
      ASSERT_EQ(whole - 1, heads.size());
      const std::string now = ReadFile(rec), was = ReadFile(original);
      ASSERT_EQ(was.substr(kZMDefaultDataOffset, h.DataLength()), now.substr(kZMDefaultDataOffset, h.DataLength()));

      // A second check changes nothing.
      ZCheckZMFile(rec.c_str(), &end);
      EXPECT_EQ(now, ReadFile(rec));
      const std::string indexNow = ReadFile(idx);
      ZCheckZMFile(rec.c_str(), &end);
      EXPECT_EQ(indexNow, ReadFile(idx));

      // Every reader accepts the file.
      FILETIME ft{};
      EXPECT_EQ(S_OK, GetZMFileStartTime(rec.c_str(), &ft));
      const uint32_t moment = plan[whole / 2].time;
      size_t first = 0;
      while (plan[first].time < moment) ++first;
      __int64 length = 0, t = TestStart() + Ms(moment), off = 0, offNoIndex = 0;
      EXPECT_EQ(S_OK, ZMergeAVI::GetZMFileTime(rec.c_str(), &length));
      EXPECT_EQ(S_OK, ZMEtoZME::TimeToFilePos(rec.c_str(), &t, &off));
      EXPECT_EQ(static_cast<int64_t>(plan[first].offset), off);
      SYSTEMTIME st{};
      int codec = -1, size = -1;
      EXPECT_EQ(1, GetVideoData(rec.c_str(), &st, &length, &codec, &size));
      // The end is the last kept record's, with and without the index: no
      // index entry may still point at the dropped tail.
      EXPECT_EQ(S_OK, GetZMFileEndTime(rec.c_str(), &ft));
      EXPECT_EQ(TestStart() + Ms(plan[whole - 2].time), FileTimeToInt64(ft));
      std::filesystem::remove(idx);
      EXPECT_EQ(S_OK, GetZMFileEndTime(rec.c_str(), &ft));
      EXPECT_EQ(TestStart() + Ms(plan[whole - 2].time), FileTimeToInt64(ft));
      EXPECT_EQ(S_OK, ZMEtoZME::TimeToFilePos(rec.c_str(), &t, &offNoIndex));
      EXPECT_EQ(off, offNoIndex);
      ++checked;
    }
  }
  EXPECT_GT(checked, 200);
}

}  // namespace
}  // namespace dravix::test
