// Clip extraction: which records a cut takes, the header it finishes, the
// text list, progress and the stop request.
#include "dravix/media/zme_to_zme.h"
#include "dravix/media/zm_file.h"
#include "dravix/media/zm_sample.h"
#include "tests/media/zm_test_util.h"
#include "tests/support/test_home.h"

#include <filesystem>
#include <thread>

namespace dravix::test {
namespace {

using namespace dravix::media;

SYSTEMTIME At(int ms) {
  SYSTEMTIME st{};
  EXPECT_TRUE(FileTimeToSystemTime(Int64ToFileTime(TestStart() + Ms(0) + static_cast<int64_t>(ms) * 10000), &st));
  return st;
}

class ClipTest : public TestHome {
 protected:
  void SetUp() override {
    TestHome::SetUp();
    src = Path("src.dat");
    dst = Path("clip.dat");
    plan = Plan(6);
    WritePlan(src, plan);
  }
  // The records a cut from..to (ms) must hold: from the first record at or
  // after `from` up to the first record at or after `to`.
  std::vector<PlannedRecord> Expected(int64_t from, int64_t to) const {
    std::vector<PlannedRecord> out;
    for (const PlannedRecord& p : plan)
      if (static_cast<int64_t>(p.time) >= std::max<int64_t>(from, 0) && static_cast<int64_t>(p.time) < to)
        out.push_back(p);
    return out;
  }
  // Compares the clip's data records with `want`, byte for byte.
  void ExpectRecords(const std::vector<PlannedRecord>& want) {
    const ZMFileHeader h = HeaderOf(dst);
    const auto heads = HeadsOf(dst, kZMDefaultDataOffset, h.DataLength());
    ASSERT_EQ(want.size(), heads.size());
    const std::string clip = ReadFile(dst), source = ReadFile(src);
    uint64_t at = kZMDefaultDataOffset;
    for (size_t i = 0; i < want.size(); ++i) {
      ASSERT_EQ(source.substr(want[i].offset, 10 + want[i].length), clip.substr(at, 10 + want[i].length)) << i;
      at += 10 + want[i].length;
    }
    EXPECT_EQ(at, clip.size());
  }
  std::string src, dst;
  std::vector<PlannedRecord> plan;
};

TEST_F(ClipTest, AMiddleRangeTakesItsRecordsAndAFinishedHeader) {
  ZMEtoZME job;
  EXPECT_EQ(0u, job.GetPercent());
  const SYSTEMTIME from = At(1500), to = At(4200);
  EXPECT_EQ(0, job.ConvertZMEToZME(dst.c_str(), src.c_str(), &from, &to, nullptr));
  EXPECT_EQ(0, job.IsValidThread());
  EXPECT_EQ(100u, job.GetPercent());
  const auto want = Expected(1500, 4200);
  ExpectRecords(want);

  const ZMFileHeader h = HeaderOf(dst), s = HeaderOf(src);
  EXPECT_EQ(s.StartTime(), h.StartTime());
  EXPECT_EQ(Ms(1500), h.LeadIn());
  EXPECT_EQ(Ms(want.back().time), h.Duration());
  EXPECT_EQ(s.DataOffset(), h.DataOffset());
  EXPECT_EQ(s.HeaderLength(), h.HeaderLength());
  EXPECT_EQ(ReadFile(src).substr(kZMHeaderSize, s.HeaderLength() - kZMHeaderSize),
            ReadFile(dst).substr(kZMHeaderSize, s.HeaderLength() - kZMHeaderSize));

  // The clip is a recording like any other: the readers agree on it, its
  // index points at its records and the check leaves it as it is.
  FILETIME ft{};
  ASSERT_EQ(S_OK, GetZMFileStartTime(dst.c_str(), &ft));
  EXPECT_EQ(TestStart() + Ms(want.front().time), FileTimeToInt64(ft));
  ASSERT_EQ(S_OK, GetZMFileEndTime(dst.c_str(), &ft));
  EXPECT_EQ(TestStart() + Ms(want.back().time), FileTimeToInt64(ft));
  __int64 length = 0;
  ASSERT_EQ(S_OK, ZMergeAVI::GetZMFileTime(dst.c_str(), &length));
  EXPECT_EQ(Ms(want.back().time) - Ms(1500), length);
  const auto index = IndexOf(Path("clip.idx"));
  ASSERT_GE(index.size(), 3u);
  const auto heads = HeadsOf(dst, kZMDefaultDataOffset, h.DataLength());
  uint32_t frames = 0;
  size_t e = 0;
  for (const PlannedRecord& r : heads) {
    if (e < index.size() && index[e].offset == r.offset) {
      EXPECT_EQ(r.time, index[e].time);
      EXPECT_EQ(frames, index[e].frame);
      ++e;
    }
    if (r.stream == 0) ++frames;
  }
  EXPECT_EQ(index.size(), e) << "an index entry points between records";
  const std::string clip = ReadFile(dst), clipIndex = ReadFile(Path("clip.idx"));
  __int64 end = 0;
  ZCheckZMFile(dst.c_str(), &end);
  EXPECT_EQ(clip, ReadFile(dst));
  EXPECT_EQ(clipIndex, ReadFile(Path("clip.idx")));
}

TEST_F(ClipTest, RangesBeforeAndAfterTheRecording) {
  ZMEtoZME job;
  SYSTEMTIME from = At(-5000), to = At(2000);
  job.ConvertZMEToZME(dst.c_str(), src.c_str(), &from, &to, nullptr);
  ExpectRecords(Expected(-5000, 2000));
  EXPECT_EQ(0, HeaderOf(dst).LeadIn());

  from = At(-9000), to = At(-1000);  // before the start: stop 0, nothing to copy
  job.ConvertZMEToZME(dst.c_str(), src.c_str(), &from, &to, nullptr);
  ExpectRecords({});

  from = At(7000), to = At(9000);  // after the end
  job.ConvertZMEToZME(dst.c_str(), src.c_str(), &from, &to, nullptr);
  ExpectRecords({});
  EXPECT_EQ(Ms(7000), HeaderOf(dst).LeadIn());

  from = At(3000), to = At(60000);  // running past the end
  job.ConvertZMEToZME(dst.c_str(), src.c_str(), &from, &to, nullptr);
  ExpectRecords(Expected(3000, 60000));

  from = to = At(3000);
  job.ConvertZMEToZME(dst.c_str(), src.c_str(), &from, &to, nullptr);
  ExpectRecords({});
  EXPECT_EQ(0u, job.GetPercent());
}

TEST_F(ClipTest, TheTextListKeepsItsArithmetic) {
  struct Case {
    std::string list;
    std::string stored;
  } cases[] = {
      {std::string("a\0b\0c\0\0", 7), std::string("a\0b\0\0", 5)},
      {std::string("one\0\0", 5), std::string("one\0\0", 5)},
      {std::string("\0", 1), std::string("\0", 1)},
      {std::string(2000, 'x') + std::string("\0y\0\0", 4), std::string("\0", 1)},
      {std::string(1999, 'x') + std::string("\0y\0\0", 4), std::string(1999, 'x') + std::string("\0\0", 2)},
  };
  const SYSTEMTIME from = At(1000), to = At(2000);
  for (const Case& c : cases) {
    ZMEtoZME job;
    job.ConvertZMEToZME(dst.c_str(), src.c_str(), &from, &to, c.list.c_str());
    const ZMFileHeader h = HeaderOf(dst);
    const std::string area = ReadFile(dst).substr(h.HeaderLength(), h.DataOffset() - h.HeaderLength());
    EXPECT_EQ(c.stored, area.substr(0, c.stored.size())) << c.list.substr(0, 8);
    EXPECT_EQ(std::string(area.size() - c.stored.size(), '\0'), area.substr(c.stored.size()));
  }
}

TEST_F(ClipTest, AStopRequestEndsTheCopyAndLeavesTheHeaderUnfinished) {
  // A source big enough that the copy takes a while; the request goes in as
  // soon as the copy has begun. A copy that finishes first is retried.
  ZMSampleOptions o;
  o.startTime = TestStart();
  o.targetBytes = 96u << 20;
  o.meanFrameBytes = 60000;
  ZMSampleStats stats;
  ASSERT_EQ(S_OK, WriteSampleRecording(src.c_str(), o, &stats));
  const SYSTEMTIME from = At(1000), to = At(static_cast<int>(stats.lastTime) - 1000);
  bool stoppedHalfWay = false;
  for (int attempt = 0; attempt < 5 && !stoppedHalfWay; ++attempt) {
    ZMEtoZME job;
    job.m_bSync = 0;
    const std::string text("note\0\0", 6);
    job.ConvertZMEToZME(dst.c_str(), src.c_str(), &from, &to, text.c_str());
    while (job.IsValidThread() && job.GetPercent() == 0) std::this_thread::yield();
    job.m_bStop = 1;
    const auto asked = std::chrono::steady_clock::now();
    job.Wait();
    EXPECT_LT(std::chrono::steady_clock::now() - asked, std::chrono::milliseconds(400));
    EXPECT_EQ(0, job.IsValidThread());
    const ZMFileHeader h = HeaderOf(dst);
    if (job.GetPercent() >= 100) continue;
    stoppedHalfWay = true;
    // The writer closed what it had; the lead-in and text list were never written.
    EXPECT_EQ(0, h.LeadIn());
    EXPECT_EQ('\0', ReadFile(dst)[h.HeaderLength()]);
    EXPECT_GT(h.DataLength(), 0u);
    FILETIME ft{};
    EXPECT_EQ(S_OK, GetZMFileEndTime(dst.c_str(), &ft));
    __int64 end = 0;
    const std::string before = ReadFile(dst);
    ZCheckZMFile(dst.c_str(), &end);
    EXPECT_EQ(before, ReadFile(dst));
  }
  EXPECT_TRUE(stoppedHalfWay);

  // A request already set when the job starts: nothing is done at all.
  std::filesystem::remove(dst);
  ZMEtoZME job;
  job.m_bStop = 1;
  job.ConvertZMEToZME(dst.c_str(), src.c_str(), &from, &to, nullptr);
  EXPECT_FALSE(std::filesystem::exists(dst));
  EXPECT_EQ(0, job.IsValidThread());
}

TEST_F(ClipTest, CopiesShareTheJobAndReportTheSameProgress) {
  ZMEtoZME job;
  const SYSTEMTIME from = At(0), to = At(3000);
  job.ConvertZMEToZME(dst.c_str(), src.c_str(), &from, &to, nullptr);
  ZMEtoZME copy(job);
  EXPECT_EQ(job.GetPercent(), copy.GetPercent());
  ZMEtoZME assigned;
  assigned = copy;
  EXPECT_EQ(100u, assigned.GetPercent());
}

}  // namespace
}  // namespace dravix::test
