// The readers: start and end time, length, video description, and every
// result code the header reader can give them.
#include "dravix/media/zm_file.h"
#include "dravix/media/zm_header_reader.h"
#include "dravix/media/zme_to_zme.h"
#include "tests/media/zm_test_util.h"
#include "tests/support/test_home.h"

#include <filesystem>

namespace dravix::test {
namespace {

using namespace dravix::media;

class ZMReaderTest : public TestHome {
 protected:
  void SetUp() override {
    TestHome::SetUp();
    rec = Path("cam01.dat");
    plan = Plan(3);
    WritePlan(rec, plan);
  }
  std::string rec;
  std::vector<PlannedRecord> plan;
};

struct Answers {
  HRESULT startHr, endHr, lenHr;
  int64_t start = 0, end = 0, length = 0;
  int video = 0;
  std::vector<int64_t> positions;
};

Answers Ask(const std::string& path, const std::vector<PlannedRecord>& plan) {
  Answers a{};
  FILETIME ft{};
  a.startHr = GetZMFileStartTime(path.c_str(), &ft);
  a.start = FileTimeToInt64(ft);
  a.endHr = GetZMFileEndTime(path.c_str(), &ft);
  a.end = FileTimeToInt64(ft);
  a.lenHr = ZMergeAVI::GetZMFileTime(path.c_str(), &a.length);
  SYSTEMTIME st{};
  __int64 dur = 0;
  int codec = -1, size = -1;
  a.video = GetVideoData(path.c_str(), &st, &dur, &codec, &size);
  for (const PlannedRecord& p : plan) {
    for (int64_t delta : {int64_t{0}, int64_t{1}}) {
      __int64 t = TestStart() + Ms(p.time) + delta, off = -1;
      EXPECT_EQ(S_OK, ZMEtoZME::TimeToFilePos(path.c_str(), &t, &off));
      a.positions.push_back(off);
    }
  }
  return a;
}

TEST_F(ZMReaderTest, AnswersOfAWrittenFileAreTheSameWithAndWithoutItsIndex) {
  const Answers with = Ask(rec, plan);
  EXPECT_EQ(S_OK, with.startHr);
  EXPECT_EQ(TestStart(), with.start);
  EXPECT_EQ(S_OK, with.endHr);
  EXPECT_EQ(TestStart() + Ms(plan.back().time), with.end);
  EXPECT_EQ(S_OK, with.lenHr);
  EXPECT_EQ(Ms(plan.back().time), with.length);
  EXPECT_EQ(1, with.video);
  // Each moment lands on the first record at or after it.
  size_t i = 0;
  for (const PlannedRecord& p : plan) {
    // At or beyond the duration (the last record's time): the data end.
    const uint64_t dataEnd = EndOf(plan.back());
    uint64_t exact = dataEnd, after = dataEnd;
    for (auto it = plan.rbegin(); it != plan.rend(); ++it) {
      if (it->time >= p.time && p.time < plan.back().time) exact = it->offset;
      if (Ms(it->time) >= Ms(p.time) + 1 && p.time < plan.back().time) after = it->offset;
    }
    EXPECT_EQ(static_cast<int64_t>(exact), with.positions[i++]) << "time " << p.time;
    EXPECT_EQ(static_cast<int64_t>(after), with.positions[i++]) << "time " << p.time << " + 100 ns";
  }

  ASSERT_GE(IndexOf(Path("cam01.idx")).size(), 3u);
  std::filesystem::remove(Path("cam01.idx"));
  const Answers without = Ask(rec, plan);
  EXPECT_EQ(with.startHr, without.startHr);
  EXPECT_EQ(with.start, without.start);
  EXPECT_EQ(with.endHr, without.endHr);
  EXPECT_EQ(with.end, without.end);
  EXPECT_EQ(with.length, without.length);
  EXPECT_EQ(with.positions, without.positions);
}

TEST_F(ZMReaderTest, NullPointersMissingFilesWrongMagicAndWrongStreamTag) {
  FILETIME ft{};
  __int64 v = 0, t = TestStart();
  SYSTEMTIME st{};
  int codec = 0, size = 0;
  EXPECT_EQ(E_POINTER, GetZMFileStartTime(rec.c_str(), nullptr));
  EXPECT_EQ(E_POINTER, GetZMFileEndTime(rec.c_str(), nullptr));
  EXPECT_EQ(E_POINTER, ZMergeAVI::GetZMFileTime(rec.c_str(), nullptr));
  EXPECT_EQ(E_POINTER, ZMEtoZME::TimeToFilePos(rec.c_str(), nullptr, &v));

  const auto expect = [&](const char* name, HRESULT times, HRESULT lengthAndPosition) {
    EXPECT_EQ(times, GetZMFileStartTime(name, &ft));
    EXPECT_EQ(times, GetZMFileEndTime(name, &ft));
    EXPECT_EQ(lengthAndPosition, ZMergeAVI::GetZMFileTime(name, &v));
    EXPECT_EQ(lengthAndPosition, ZMEtoZME::TimeToFilePos(name, &t, &v));
    EXPECT_EQ(0, GetVideoData(name, &st, &v, &codec, &size));
  };
  expect(nullptr, E_POINTER, E_POINTER);
  expect(Path("nothing.dat").c_str(), E_FAIL, E_FAIL);
  // The start and end times turn every header problem into E_FAIL.
  for (uint64_t at : {uint64_t{0}, uint64_t{kZMHeaderSize}, uint64_t{kZMHeaderSize + 164}}) {
    SCOPED_TRACE(at == 0 ? "magic" : "stream tag");
    WritePlan(rec, plan);
    Patch(rec, at, {'Z', 'M', 'F', 'X'});
    expect(rec.c_str(), E_FAIL, E_UNEXPECTED);
  }
  EXPECT_EQ(E_FAIL, GetZMFileStartTime(std::string(600, 'a').c_str(), &ft));
}

TEST_F(ZMReaderTest, EveryTruncatedHeaderAndAHugeFormatLengthIsAShortRead) {
  const std::string whole = ReadFile(rec);
  const uint32_t headerEnd = HeaderOf(rec).HeaderLength();
  ASSERT_EQ(kZMHeaderSize + 164u + 94u, headerEnd);
  for (uint32_t n = 0; n < headerEnd; ++n) {
    Spit(rec, whole.substr(0, n));
    platform::File f;
    ASSERT_TRUE(f.OpenRead(rec.c_str()));
    ZMHeaderReader r;
    ASSERT_EQ(E_FAIL, r.Read(f, false)) << n << " bytes";
    EXPECT_TRUE(r.streams().empty());
    __int64 v = 0;
    ASSERT_EQ(E_FAIL, ZMergeAVI::GetZMFileTime(rec.c_str(), &v)) << n << " bytes";
  }
  // Whole stream records but no data: the header reads, the times do not.
  Spit(rec, whole.substr(0, headerEnd));
  __int64 v = 0;
  EXPECT_EQ(S_OK, ZMergeAVI::GetZMFileTime(rec.c_str(), &v));
  FILETIME ft{};
  EXPECT_EQ(E_FAIL, GetZMFileStartTime(rec.c_str(), &ft));
  EXPECT_EQ(E_FAIL, GetZMFileEndTime(rec.c_str(), &ft));
  // A huge format length is a short read too, not an allocation.
  Patch(rec, kZMHeaderSize + kStrFormatLength, {0xF0, 0xFF, 0xFF, 0xFF});
  EXPECT_EQ(E_FAIL, ZMergeAVI::GetZMFileTime(rec.c_str(), &v));
}

TEST_F(ZMReaderTest, StartTimeReadsByte4096AndNeedsAPayload) {
  // The first record's time counts, and the data offset field does not.
  WritePlan(rec, Plan(1));
  Patch(rec, kZMDefaultDataOffset + 1, {0x39, 0x30, 0, 0});  // time 12345 ms
  Patch(rec, kHdrDataOffset, {0x00, 0x20, 0, 0});            // data offset 8192
  FILETIME ft{};
  ASSERT_EQ(S_OK, GetZMFileStartTime(rec.c_str(), &ft));
  EXPECT_EQ(TestStart() + Ms(12345), FileTimeToInt64(ft));
  Patch(rec, kZMDefaultDataOffset + 5, {0, 0, 0, 0});  // payload length 0
  EXPECT_EQ(E_FAIL, GetZMFileStartTime(rec.c_str(), &ft));
}

TEST_F(ZMReaderTest, EndTimeWalksFromTheLastIndexEntry) {
  // The records before the last entry are never read: damage there does not
  // matter with the index and does without it.
  ASSERT_GE(IndexOf(Path("cam01.idx")).size(), 2u);
  Patch(rec, plan[1].offset + 5, {0, 0, 0, 0});
  FILETIME ft{};
  ASSERT_EQ(S_OK, GetZMFileEndTime(rec.c_str(), &ft));
  EXPECT_EQ(TestStart() + Ms(plan.back().time), FileTimeToInt64(ft));
  // A final partial entry of up to 8 bytes keeps the previous offset.
  const std::string idx = ReadFile(Path("cam01.idx"));
  Spit(Path("cam01.idx"), idx + std::string(8, '\x7f'));
  ASSERT_EQ(S_OK, GetZMFileEndTime(rec.c_str(), &ft));
  EXPECT_EQ(TestStart() + Ms(plan.back().time), FileTimeToInt64(ft));
  // An offset that cannot be sought fails.
  Spit(Path("cam01.idx"), idx + std::string(16, '\xff'));
  EXPECT_EQ(E_FAIL, GetZMFileEndTime(rec.c_str(), &ft));
  std::filesystem::remove(Path("cam01.idx"));
  EXPECT_EQ(E_FAIL, GetZMFileEndTime(rec.c_str(), &ft));

  // An empty payload after the last entry, and data beyond the file, fail.
  WritePlan(rec, plan);
  Patch(rec, plan[plan.size() - 5].offset + 5, {0, 0, 0, 0});
  EXPECT_EQ(E_FAIL, GetZMFileEndTime(rec.c_str(), &ft));
  WritePlan(rec, plan);
  CutTo(rec, EndOf(plan.back()) - 1);
  EXPECT_EQ(E_FAIL, GetZMFileEndTime(rec.c_str(), &ft));
  std::filesystem::remove(Path("cam01.idx"));
  EXPECT_EQ(E_FAIL, GetZMFileEndTime(rec.c_str(), &ft));
}

TEST_F(ZMReaderTest, LengthSubtractsALeadInOnlyWhenShorterThanTheDuration) {
  const int64_t duration = Ms(plan.back().time);
  struct Case {
    int64_t leadIn, length;
  } cases[] = {{0, duration}, {Ms(500), duration - Ms(500)}, {duration, duration}, {duration + 1, duration}};
  for (const Case& c : cases) {
    WritePlan(rec, plan, kCodecH263, 2, true, true, c.leadIn);
    __int64 length = -1;
    ASSERT_EQ(S_OK, ZMergeAVI::GetZMFileTime(rec.c_str(), &length));
    EXPECT_EQ(c.length, length) << "lead-in " << c.leadIn;
  }
}

TEST_F(ZMReaderTest, VideoDataCodecsAndPictureSizes) {
  const int64_t leadIn = Ms(1500);
  for (int codec : {kCodecH263, kCodecMJPEG}) {
    for (int code = 0; code < 7; ++code) {
      WritePlan(rec, Plan(1, 10, 10, 300, false), codec, code, false, true, leadIn);
      SYSTEMTIME st{};
      __int64 duration = 0;
      int gotCodec = -1, gotSize = -1;
      ASSERT_EQ(1, GetVideoData(rec.c_str(), &st, &duration, &gotCodec, &gotSize));
      EXPECT_EQ(codec, gotCodec);
      EXPECT_EQ(code, gotSize);
      EXPECT_EQ(Ms(900), duration);
      EXPECT_EQ(12, st.wHour);
      EXPECT_EQ(1, st.wSecond);
      EXPECT_EQ(500, st.wMilliseconds);
    }
  }
  // 704 x 576 and an unknown subtype leave the caller's values alone.
  WritePlan(rec, Plan(1, 10, 10, 300, false), kCodecH263, 6, false);
  Patch(rec, kZMHeaderSize + kStrFormat + kVihWidth, {0xC0, 0x02, 0, 0});
  Patch(rec, kZMHeaderSize + kStrSubtype, {0x11});
  SYSTEMTIME st{};
  __int64 duration = 0;
  int codec = 77, size = 77;
  ASSERT_EQ(1, GetVideoData(rec.c_str(), &st, &duration, &codec, &size));
  EXPECT_EQ(77, codec);
  EXPECT_EQ(77, size);
}

TEST_F(ZMReaderTest, IndexNamesDifferBetweenTheFunctionsForAFolderWithADot) {
  // rec.v2/cam01.dat: TimeToFilePos cuts at the first dot and reads rec.idx
  // beside the folder; the end time cuts at the last dot (rec.v2/cam01.idx).
  std::filesystem::create_directory(Path("rec.v2"));
  const std::string dotted = Path("rec.v2/cam01.dat");
  WritePlan(dotted, plan);
  ASSERT_TRUE(std::filesystem::exists(Path("rec.v2/cam01.idx")));
  // A decoy rec.idx whose only entry sends every walk to a late record.
  const PlannedRecord& late = plan[plan.size() - 3];
  std::string decoy(16, '\0');
  uint8_t e[16];
  StoreIndexEntry(e, ZMIndexEntry{0, 0, late.offset});
  decoy.append(reinterpret_cast<char*>(e), 16);
  Spit(Path("rec.idx"), decoy);

  __int64 t = TestStart(), off = 0;
  ASSERT_EQ(S_OK, ZMEtoZME::TimeToFilePos(dotted.c_str(), &t, &off));
  EXPECT_EQ(static_cast<int64_t>(late.offset), off);

  // The end time does not see the decoy; a damaged cam01.idx it does see.
  FILETIME ft{};
  ASSERT_EQ(S_OK, GetZMFileEndTime(dotted.c_str(), &ft));
  EXPECT_EQ(TestStart() + Ms(plan.back().time), FileTimeToInt64(ft));
  Spit(Path("rec.v2/cam01.idx"), std::string(16, '\0') + std::string(16, '\xff'));
  EXPECT_EQ(E_FAIL, GetZMFileEndTime(dotted.c_str(), &ft));

  // The check uses the index beside the file too: it cuts cam01.idx at an
  // entry off its record and leaves the decoy alone.
  WritePlan(dotted, plan);
  const auto index = IndexOf(Path("rec.v2/cam01.idx"));
  StoreIndexEntry(e, ZMIndexEntry{index[1].time, index[1].frame, index[1].offset + 4});
  Patch(Path("rec.v2/cam01.idx"), 32, std::vector<uint8_t>(e, e + 16));
  __int64 end = 0;
  ZCheckZMFile(dotted.c_str(), &end);
  EXPECT_EQ(32u, std::filesystem::file_size(Path("rec.v2/cam01.idx")));
  EXPECT_EQ(decoy, ReadFile(Path("rec.idx")));
}

}  // namespace
}  // namespace dravix::test
