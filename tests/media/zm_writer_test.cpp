// The writer: byte layout of what it writes, the records it refuses, its
// index, and appended copies split anywhere.
#include "dravix/media/zm_writer.h"
#include "tests/media/zm_test_util.h"
#include "tests/support/test_home.h"

namespace dravix::test {
namespace {

using namespace dravix::media;

class WriterTest : public TestHome {};

TEST_F(WriterTest, HeaderAndStreamRecordsSitWhereReadersLook) {
  const auto plan = Plan(2);
  WritePlan(Path("a.dat"), plan, kCodecMJPEG, 6);
  const std::string b = ReadFile(Path("a.dat"));
  auto u32 = [&](size_t at) { return LoadLE<uint32_t>(reinterpret_cast<const uint8_t*>(b.data() + at)); };
  auto guid = [&](size_t at) { return LoadGuid(reinterpret_cast<const uint8_t*>(b.data() + at)); };
  EXPECT_EQ("ZMFF", b.substr(0, 4));
  EXPECT_EQ(69u + 164u + 94u, u32(8));
  EXPECT_EQ(2, b[44]);
  EXPECT_EQ(4096u, u32(45));
  EXPECT_EQ(EndOf(plan.back()) - 4096, u32(49));
  EXPECT_EQ(Ms(plan.back().time), HeaderOf(Path("a.dat")).Duration());
  // Video stream record at 69: tag, length, "vids", subtype, format type at
  // 52, format length at 72, VIDEOINFOHEADER at 76 with 720 x 576.
  EXPECT_EQ("STRM", b.substr(69, 4));
  EXPECT_EQ(164u, u32(69 + 4));
  EXPECT_EQ("vids", b.substr(69 + 8, 4));
  EXPECT_TRUE(guid(69 + 24) == kSubtypeMJPEG);
  EXPECT_TRUE(guid(69 + 52) == kFormatVideoInfo);
  EXPECT_EQ(0u, u32(69 + 68));
  EXPECT_EQ(88u, u32(69 + 72));
  EXPECT_EQ(720u, u32(69 + 76 + 52));
  EXPECT_EQ(576u, u32(69 + 76 + 56));
  EXPECT_EQ("STRM", b.substr(69 + 164, 4));
  EXPECT_EQ("auds", b.substr(69 + 164 + 8, 4));
  // Free space up to the data, and the first record right at 4096.
  EXPECT_EQ(std::string(4096 - 327, '\0'), b.substr(327, 4096 - 327));
  EXPECT_EQ(0, b[4096]);
  EXPECT_EQ(plan[0].length, u32(4096 + 5));
}

TEST_F(WriterTest, RefusesRecordsTheCheckWouldCut) {
  ZMRecordingWriter w;
  ASSERT_EQ(S_OK, w.Create(Path("a.dat").c_str(), TestStart(),
                           {ZMStreamFormat::Video(kCodecH263, 2), ZMStreamFormat::Audio()}));
  const uint8_t pic[] = {0, 0, 0x81, 9, 9};
  const uint8_t notPic[] = {0, 0, 0x7F, 9, 9};
  std::vector<uint8_t> big(kZMMaxPayload + 1, 0);
  EXPECT_EQ(S_OK, w.AddRecord(0, 100, pic, sizeof pic, true));
  EXPECT_EQ(E_INVALIDARG, w.AddRecord(2, 100, pic, sizeof pic, false));
  EXPECT_EQ(E_INVALIDARG, w.AddRecord(1, 100, pic, 0, false));
  EXPECT_EQ(E_INVALIDARG, w.AddRecord(1, 100, big.data(), kZMMaxPayload + 1, false));
  EXPECT_EQ(E_INVALIDARG, w.AddRecord(0, 100, notPic, sizeof notPic, false));
  EXPECT_EQ(E_INVALIDARG, w.AddRecord(0, 100, pic, 2, false));
  EXPECT_EQ(E_INVALIDARG, w.AddRecord(1, 99, pic, sizeof pic, false));
  EXPECT_EQ(E_POINTER, w.AddRecord(1, 100, nullptr, 1, false));
  EXPECT_EQ(S_OK, w.AddRecord(1, 100, notPic, sizeof notPic, false));
  EXPECT_EQ(E_INVALIDARG, w.AddRecord(0, 100, big.data(), kZMMaxPayload, false));  // zeros: no picture
  EXPECT_EQ(2u, w.RecordCount());
  EXPECT_EQ(E_INVALIDARG, ZMRecordingWriter().Create(Path("b.dat").c_str(), TestStart(), {}));
  EXPECT_EQ(E_INVALIDARG,
            ZMRecordingWriter().Create(Path("b.dat").c_str(), TestStart(), {ZMStreamFormat::Video(0, 0)}, 200));
}

TEST_F(WriterTest, IndexHasEveryKeyFrameAndOneEntryASecond) {
  // Key frames every 3 s, so the one-second rule has to fill in.
  const auto plan = Plan(10, 10, 30);
  WritePlan(Path("a.dat"), plan);
  const auto index = IndexOf(Path("a.idx"));
  size_t e = 0;
  uint32_t frames = 0;
  int64_t lastEntry = -1000000;
  for (const PlannedRecord& p : plan) {
    const bool has = e < index.size() && index[e].offset == p.offset;
    if (p.stream == 0 && p.key) {
      EXPECT_TRUE(has) << "key frame at " << p.time;
    }
    if (has) {
      EXPECT_EQ(p.time, index[e].time);
      EXPECT_EQ(frames, index[e].frame);
      lastEntry = p.time;
      ++e;
    }
    EXPECT_LE(static_cast<int64_t>(p.time) - lastEntry, 1000) << "no entry for a second at " << p.time;
    if (p.stream == 0) ++frames;
  }
  EXPECT_EQ(index.size(), e);
}

TEST_F(WriterTest, AppendedBytesSplitAnywhereMakeTheSameFileAndIndex) {
  const auto plan = Plan(2, 10, 5, 80);
  WritePlan(Path("a.dat"), plan);
  const std::string original = ReadFile(Path("a.dat")), originalIndex = ReadFile(Path("a.idx"));
  const std::string data = original.substr(4096);
  std::vector<uint8_t> streams(original.begin() + 69, original.begin() + HeaderOf(Path("a.dat")).HeaderLength());
  for (size_t piece : {1u, 3u, 10u, 11u, 97u, 4000u}) {
    ZMRecordingWriter w;
    ASSERT_EQ(S_OK, w.CreateRaw(Path("b.dat").c_str(), TestStart(), streams, 2, 4096));
    // The last record arrives without its final byte and is cut off.
    const size_t total = data.size() - 1;
    for (size_t at = 0; at < total; at += piece)
      ASSERT_EQ(S_OK,
                w.AppendRecordBytes(reinterpret_cast<const uint8_t*>(data.data() + at), std::min(piece, total - at)));
    ASSERT_EQ(S_OK, w.Close());
    EXPECT_EQ(plan[plan.size() - 2].time, HeaderOf(Path("b.dat")).Duration() / 10000) << piece;
    EXPECT_EQ(original.substr(4096, plan.back().offset - 4096), ReadFile(Path("b.dat")).substr(4096)) << piece;
    const std::string index = ReadFile(Path("b.idx"));
    EXPECT_EQ(originalIndex.substr(0, index.size()), index) << piece;
  }
}

TEST_F(WriterTest, AnAbandonedFileKeepsAnOpenEndedHeader) {
  const auto plan = Plan(1);
  WritePlan(Path("a.dat"), plan, kCodecH263, 2, true, false);
  const ZMFileHeader h = HeaderOf(Path("a.dat"));
  EXPECT_EQ(ZMRecordingWriter::kOpenDataLength, h.DataLength());
  EXPECT_EQ(ZMRecordingWriter::kOpenDuration, h.Duration());
  EXPECT_EQ(EndOf(plan.back()), ReadFile(Path("a.dat")).size());
}

}  // namespace
}  // namespace dravix::test
