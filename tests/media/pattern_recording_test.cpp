// Real video in recordings: test-pattern recordings of both codecs and
// several sizes hold only records that start a picture, decode, and carry
// the frame code of their place; the picture at a moment is the right one;
// the writing is whole or absent; JPEGs without JFIF get it.
#include "dravix/media/pattern_recording.h"
#include "dravix/media/frame_code.h"
#include "dravix/media/jfif.h"
#include "dravix/media/picture_at.h"
#include "dravix/media/picture_decoder.h"
#include "dravix/media/video_encoder.h"
#include "tests/media/zm_test_util.h"
#include "tests/support/test_home.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>

namespace dravix::test {
namespace {

using namespace dravix::media;

constexpr int64_t kUnixEpochSeconds = 11644473600;  // 1601 to 1970

uint32_t WallSecondsAt(uint32_t ms) {
  return static_cast<uint32_t>((TestStart() + static_cast<int64_t>(ms) * kTicksPerMs) / 10000000 - kUnixEpochSeconds);
}

PatternRecordingOptions Options(int codec, int w, int h, uint32_t fps, uint32_t seconds, bool audio) {
  PatternRecordingOptions o;
  o.startTime = TestStart();
  o.codec = codec;
  o.width = w;
  o.height = h;
  o.framesPerSecond = fps;
  o.seconds = seconds;
  o.audio = audio;
  return o;
}

struct Record {
  ZMRecordHead head;
  std::vector<uint8_t> payload;
};

std::vector<Record> RecordsOf(const std::string& path) {
  const std::string bytes = TestHome::ReadFile(path);
  const ZMFileHeader header = HeaderOf(path);
  std::vector<Record> out;
  for (const PlannedRecord& p : HeadsOf(path, header.DataOffset(), header.DataLength())) {
    const auto* at = reinterpret_cast<const uint8_t*>(bytes.data() + p.offset);
    if (p.offset + 10 + p.length > bytes.size()) break;
    out.push_back({ParseRecordHead(at), std::vector<uint8_t>(at + 10, at + 10 + p.length)});
  }
  return out;
}

FrameCode CodeOf(const Picture& p) {
  FrameCode code;
  EXPECT_TRUE(ReadFrameCode(p.y.data(), p.width, p.width, p.height, &code));
  return code;
}

class PatternRecording : public TestHome {};

TEST_F(PatternRecording, EveryRecordIsAValidPictureThatDecodesToItsOwnFrameCode) {
  struct Case {
    int codec;
    int width, height;
    uint32_t fps, seconds;
    bool audio;
  };
  const Case cases[] = {
      {kCodecH263, 128, 96, 10, 2, true},                                          // baseline H.263
      {kCodecH263, 176, 144, 5, 2, false},                                         // baseline H.263
      {kCodecH263, 320, 240, 10, 2, true},                                         // H.263+ (not a baseline size)
      {kCodecH263, 720, 288, 4, 1, false},                                         // H.263+
      {kCodecMJPEG, 320, 240, 10, 1, true}, {kCodecMJPEG, 704, 576, 3, 1, false},  // a size outside the size-code table
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.width) + "x" + std::to_string(c.height) +
                 (c.codec == kCodecMJPEG ? " MJPEG" : " H.263"));
    const std::string path = Path("rec.dat");
    std::string error;
    PatternRecordingStats stats;
    ASSERT_TRUE(WritePatternRecording(path.c_str(), Options(c.codec, c.width, c.height, c.fps, c.seconds, c.audio),
                                      &stats, &error))
        << error;
    const std::vector<Record> records = RecordsOf(path);
    ASSERT_EQ(records.size(), stats.records);

    ZMRecordRules rules;
    rules.streamCount = c.audio ? 2 : 1;
    rules.durationMs = HeaderOf(path).Duration() / kTicksPerMs;
    rules.videoStream = 0;
    rules.picture = c.codec == kCodecMJPEG ? ZMPictureCheck::kMJPEG : ZMPictureCheck::kH263;
    std::vector<const Record*> video;
    size_t audio = 0;
    for (const Record& r : records) {
      EXPECT_TRUE(IsValidRecord(r.head, r.payload.data(), r.payload.size(), rules)) << "record at " << r.head.time;
      if (r.head.stream == 0) {
        video.push_back(&r);
        continue;
      }
      ++audio;
      // 16-bit PCM of a tone: loud samples, not silence or a wrong format.
      int peak = 0;
      for (size_t i = 0; i + 1 < r.payload.size(); i += 2) {
        const auto sample = static_cast<int16_t>(r.payload[i] | r.payload[i + 1] << 8);
        peak = std::max(peak, std::abs(static_cast<int>(sample)));
      }
      EXPECT_GT(peak, 1000) << "audio at " << r.head.time;
    }
    const uint32_t frames = c.fps * c.seconds;
    ASSERT_EQ(video.size(), frames);
    const uint32_t lastTime = (frames - 1) * 1000 / c.fps;
    EXPECT_EQ(audio, c.audio ? lastTime / 100 + 1 : 0u) << "one 100 ms block up to the last picture";

    // Straight through: every picture carries its own ordinal and second,
    // and key pictures come at least once a second.
    PictureDecoder decoder;
    ASSERT_TRUE(decoder.Open(c.codec, &error)) << error;
    uint32_t sinceKey = 0;
    std::vector<uint32_t> keys;
    for (uint32_t i = 0; i < frames; ++i) {
      const Record& r = *video[i];
      EXPECT_EQ(r.head.time, i * 1000 / c.fps);
      sinceKey = r.head.flag == 1 ? 0 : sinceKey + 1;
      if (r.head.flag == 1) keys.push_back(i);
      EXPECT_LT(sinceKey, c.fps) << "picture " << i;
      Picture picture;
      bool got = false;
      ASSERT_TRUE(decoder.Decode(r.payload.data(), r.payload.size(), &picture, &got, &error)) << error;
      ASSERT_TRUE(got) << "picture " << i;
      EXPECT_EQ(picture.width, c.width);
      EXPECT_EQ(picture.height, c.height);
      const FrameCode code = CodeOf(picture);
      EXPECT_EQ(code.frame, i);
      EXPECT_EQ(code.seconds, WallSecondsAt(r.head.time));
    }
    ASSERT_FALSE(keys.empty());
    EXPECT_EQ(keys.front(), 0u);

    // From the middle: a fresh decoder starting at the key picture at or
    // before the middle one reaches it with the right picture.
    const uint32_t middle = frames / 2;
    uint32_t from = 0;
    for (uint32_t k : keys)
      if (k <= middle) from = k;
    PictureDecoder fresh;
    ASSERT_TRUE(fresh.Open(c.codec, &error)) << error;
    Picture picture;
    for (uint32_t i = from; i <= middle; ++i) {
      bool got = false;
      ASSERT_TRUE(fresh.Decode(video[i]->payload.data(), video[i]->payload.size(), &picture, &got, &error)) << error;
    }
    EXPECT_EQ(CodeOf(picture).frame, middle);
  }
}

TEST_F(PatternRecording, PictureAtAMomentIsTheLastOneAtOrBeforeIt) {
  const std::string h263 = Path("h.dat"), mjpeg = Path("m.dat");
  std::string error;
  ASSERT_TRUE(WritePatternRecording(h263.c_str(), Options(kCodecH263, 176, 144, 10, 2, true), nullptr, &error))
      << error;
  ASSERT_TRUE(WritePatternRecording(mjpeg.c_str(), Options(kCodecMJPEG, 176, 144, 10, 2, false), nullptr, &error))
      << error;
  struct Case {
    int64_t ms;     // from the start
    int64_t frame;  // expected picture, -1: none
  };
  const Case cases[] = {{0, 0},     {99, 0},    {550, 5},   {1000, 10}, {1050, 10},
                        {1999, 19}, {2800, 19}, {3000, -1}, {-1, -1}};
  for (const std::string& path : {h263, mjpeg}) {
    for (const Case& c : cases) {
      SCOPED_TRACE(path + " at " + std::to_string(c.ms) + " ms");
      PictureAtMoment found;
      const bool ok = FindPictureAt(path.c_str(), TestStart() + c.ms * kTicksPerMs, true, &found, &error);
      ASSERT_EQ(ok, c.frame >= 0) << error;
      if (!ok) continue;
      EXPECT_EQ(found.frame, static_cast<uint64_t>(c.frame));
      EXPECT_EQ(CodeOf(found.picture).frame, static_cast<uint32_t>(c.frame));
      EXPECT_EQ(found.jpeg.empty(), path == h263);
    }
  }

  // The MJPEG bytes are the record's own.
  PictureAtMoment found;
  ASSERT_TRUE(FindPictureAt(mjpeg.c_str(), TestStart() + 550 * kTicksPerMs, false, &found, &error)) << error;
  std::vector<const Record*> video;
  const std::vector<Record> records = RecordsOf(mjpeg);
  EXPECT_EQ(found.jpeg, records[5].payload);
  EXPECT_TRUE(found.picture.y.empty()) << "not decoded when not asked";

  // A torn file shows what it holds up to the tear: the last whole picture.
  const std::vector<PlannedRecord> heads = HeadsOf(h263, HeaderOf(h263).DataOffset(), HeaderOf(h263).DataLength());
  const PlannedRecord* last = nullptr;
  for (const PlannedRecord& p : heads)
    if (p.stream == 0) last = &p;
  ASSERT_NE(last, nullptr);
  CutTo(h263, last->offset + 10 + last->length / 2);
  ASSERT_TRUE(FindPictureAt(h263.c_str(), TestStart() + 1950 * kTicksPerMs, true, &found, &error)) << error;
  EXPECT_EQ(CodeOf(found.picture).frame, 18u);
}

TEST_F(PatternRecording, NothingIsLeftWhenTheWorkStopsOrCannotStart) {
  const std::string path = Path("stop.dat");
  PatternRecordingOptions o = Options(kCodecH263, 128, 96, 10, 5, true);
  o.progress = [](uint64_t done, uint64_t) { return done < 12; };
  PatternRecordingStats stats;
  std::string error;
  EXPECT_FALSE(WritePatternRecording(path.c_str(), o, &stats, &error));
  EXPECT_TRUE(stats.stopped);
  EXPECT_TRUE(std::filesystem::is_empty(home())) << "stopped work leaves no file";

  struct Case {
    std::string path;
    PatternRecordingOptions options;
  };
  const Case refused[] = {
      {Path("none/x.dat"), Options(kCodecH263, 128, 96, 10, 1, false)},  // no such folder
      {Path("zero.dat"), Options(kCodecH263, 128, 96, 10, 0, false)},    // no record
      {Path("odd.dat"), Options(kCodecH263, 322, 240, 10, 1, false)},    // H.263+ needs multiples of 4
      {Path("tiny.dat"), Options(kCodecMJPEG, 64, 48, 10, 1, false)},    // smaller than the frame code
  };
  for (const Case& c : refused) {
    EXPECT_FALSE(WritePatternRecording(c.path.c_str(), c.options, nullptr, &error)) << c.path;
    EXPECT_FALSE(error.empty()) << c.path;
  }
  EXPECT_TRUE(std::filesystem::is_empty(home()));
}

TEST(Jfif, PicturesWithoutAnApp0SegmentGetOne) {
  using Bytes = std::vector<uint8_t>;
  Bytes withApp0(std::begin(kJfifApp0), std::end(kJfifApp0));
  withApp0.insert(withApp0.begin(), {0xFF, 0xD8});
  struct Case {
    Bytes in;
    bool ok;
    Bytes out;
  };
  Bytes dqt = withApp0;
  dqt.insert(dqt.end(), {0xFF, 0xDB, 0x00});
  const Case cases[] = {
      {{0xFF, 0xD8, 0xFF, 0xE0, 0x00, 0x10}, true, {0xFF, 0xD8, 0xFF, 0xE0, 0x00, 0x10}},  // already JFIF
      {{0xFF, 0xD8, 0xFF, 0xDB, 0x00}, true, dqt},                                         // tables first
      {{0xFF, 0xD8, 0xFF}, false, {0xFF, 0xD8, 0xFF}},                                     // too short
      {{0x00, 0x00, 0x80, 0x02}, false, {0x00, 0x00, 0x80, 0x02}},                         // not a JPEG
  };
  for (const Case& c : cases) {
    Bytes b = c.in;
    EXPECT_EQ(EnsureJfifApp0(&b), c.ok);
    EXPECT_EQ(b, c.out);
  }
}

TEST(VideoEncoder, RefusesWhatItCannotEncode) {
  std::string error;
  struct Case {
    int codec, width, height;
    uint32_t fps;
  };
  const Case cases[] = {
      {kCodecH263, 322, 240, 25}, {kCodecH263, 2052, 1152, 25}, {kCodecMJPEG, 320, 240, 0}, {7, 320, 240, 25}};
  for (const Case& c : cases) {
    VideoEncoder e;
    VideoEncoderSettings s;
    s.codec = c.codec;
    s.width = c.width;
    s.height = c.height;
    s.framesPerSecond = c.fps;
    EXPECT_FALSE(e.Open(s, &error)) << c.width << "x" << c.height;
  }
  VideoEncoder e;
  VideoEncoderSettings s;
  s.width = 176;
  s.height = 144;
  ASSERT_TRUE(e.Open(s, &error)) << error;
  Picture wrongSize, wrongRange;
  wrongSize.Resize(128, 96);
  wrongRange.Resize(176, 144);
  wrongRange.fullRange = true;  // H.263 takes video range
  std::vector<EncodedPacket> out;
  EXPECT_FALSE(e.Encode(wrongSize, &out, &error));
  EXPECT_FALSE(e.Encode(wrongRange, &out, &error));
  EXPECT_TRUE(out.empty());
}

}  // namespace
}  // namespace dravix::test
