// `dravix export` on real recordings (made by `dravix write-test-recording`),
// checked with Debian's ffprobe and ffmpeg programs: frame counts, duration,
// rising time stamps, a clean decode, the frame codes drawn in the pictures,
// byte-identical MJPEG frames, the wall-clock captions and chapters, ranges,
// torn and growing recordings, several files with a gap, and the refusals.
#include "tests/support/run_program.h"
#include "tests/support/test_home.h"
#include "tests/support/video_check.h"
#include "tests/tools/media_tool_util.h"

#include "dravix/media/frame_code.h"
#include "dravix/media/zm_format.h"
#include "dravix/media/zm_writer.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

namespace dravix::test {
namespace {

using media::FrameCode;
namespace fs = std::filesystem;

// The start of every test recording and its seconds since 1970 (the frame
// code's clock): 2008-03-15 12:00:00 local wall clock.
constexpr const char* kStart = "2008-03-15 12:00:00";
constexpr uint32_t kStartSeconds = 1205582400;

std::string Q(const std::string& s) { return "'" + s + "'"; }

// One value per line of `ffprobe ... -of csv=p=0`.
std::vector<double> Numbers(const std::string& text) {
  std::vector<double> v;
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line))
    if (!line.empty() && line != "N/A") v.push_back(std::stod(line));
  return v;
}

std::vector<double> FrameTimes(const std::string& file) {
  return Numbers(
      RunCommand("ffprobe -v error -select_streams v:0 -show_entries frame=pts_time -of csv=p=0 " + Q(file)));
}

double Duration(const std::string& file) {
  const std::vector<double> d =
      Numbers(RunCommand("ffprobe -v error -show_entries format=duration -of csv=p=0 " + Q(file)));
  return d.empty() ? -1 : d.front();
}

// The video payloads of a recording, read straight from its records.
std::vector<std::string> VideoPayloads(const std::string& path) {
  const std::string bytes = TestHome::ReadFile(path);
  std::vector<std::string> out;
  const auto* p = reinterpret_cast<const uint8_t*>(bytes.data());
  if (bytes.size() < media::kZMHeaderSize) return out;
  uint64_t at = media::LoadLE<uint32_t>(p + media::kHdrDataOffset);
  while (at + media::kZMRecordHeadSize <= bytes.size()) {
    const media::ZMRecordHead h = media::ParseRecordHead(p + at);
    if (h.length == 0 || at + h.Size() > bytes.size()) break;
    if (h.stream == 0) out.push_back(bytes.substr(at + media::kZMRecordHeadSize, h.length));
    at += h.Size();
  }
  return out;
}

struct Chapter {
  double start;
  std::string title;
};
std::vector<Chapter> Chapters(const std::string& file) {
  std::istringstream in(
      RunCommand("ffprobe -v error -show_entries chapter=start_time:chapter_tags=title -of csv=p=0 " + Q(file)));
  std::vector<Chapter> v;
  std::string line;
  while (std::getline(in, line)) {
    const size_t comma = line.find(',');
    if (comma != std::string::npos) v.push_back({std::stod(line.substr(0, comma)), line.substr(comma + 1)});
  }
  return v;
}

// "hh:mm:ss" of a frame code's second.
std::string ClockOf(uint32_t seconds) {
  const uint32_t s = seconds % 86400;
  char buf[16];
  std::snprintf(buf, sizeof buf, "%02u:%02u:%02u", s / 3600, s / 60 % 60, s % 60);
  return buf;
}

struct Case {
  const char* codec;
  const char* size;
  int width, height;
};

// The picture sizes of the recording format's size codes 0 to 6.
constexpr Case kSizeCodes[] = {{"", "320x240", 320, 240}, {"", "640x240", 640, 240}, {"", "640x480", 640, 480},
                               {"", "720x240", 720, 240}, {"", "720x480", 720, 480}, {"", "720x288", 720, 288},
                               {"", "720x576", 720, 576}};

class Export : public TestHome {
 protected:
  // Writes a real recording; fails the test when the program fails.
  std::string Record(const std::string& name, const std::string& codec, const std::string& size, int fps, int seconds,
                     bool audio = true, const std::string& start = kStart) {
    const std::string path = Path(name);
    std::vector<std::string> args{
        "write-test-recording",  path,      "--codec", codec, "--size", size, "--fps", std::to_string(fps), "--seconds",
        std::to_string(seconds), "--start", start};
    if (audio) args.push_back("--audio");
    const ProgramResult r = RunDravix(args);
    EXPECT_EQ(r.status, 0) << r.err;
    return path;
  }
  // Exports a whole recording of `c` to both containers and checks them.
  void WholeRecording(const Case& c);
};

// For each codec and several picture sizes: the whole recording to .mkv
// (stream copy) and .mp4 (re-encoded), checked against the records and the
// codes drawn in the pictures.
void Export::WholeRecording(const Case& c) {
  const int fps = 10, seconds = 2;
  {
    SCOPED_TRACE(std::string(c.codec) + " " + c.size);
    const std::string src = Record(std::string(c.codec) + c.size + ".dat", c.codec, c.size, fps, seconds);
    const std::vector<std::string> payloads = VideoPayloads(src);
    ASSERT_EQ(payloads.size(), static_cast<size_t>(fps * seconds));
    for (const char* ext : {".mkv", ".mp4"}) {
      SCOPED_TRACE(ext);
      const std::string out = src + ext;
      const ProgramResult r = RunDravix({"export", src, out, "--text", "gate 3"});
      ASSERT_EQ(r.status, 0) << r.err;
      EXPECT_EQ(VideoFrames(out), static_cast<int>(payloads.size()));
      EXPECT_NEAR(Duration(out), seconds, 1.0 / fps + 1e-3);
      const std::vector<double> t = FrameTimes(out);
      ASSERT_EQ(t.size(), payloads.size());
      for (size_t i = 1; i < t.size(); ++i) EXPECT_GT(t[i], t[i - 1]) << "frame " << i;
      EXPECT_NEAR(t.front(), 0.0, 1e-3);
      EXPECT_EQ(DecodeErrors(out), "");
      // Every picture is the frame it should be, at the second it was taken.
      const std::vector<FrameCode> codes = FrameCodes(out, c.width, c.height);
      ASSERT_EQ(codes.size(), payloads.size());
      for (size_t i = codes.size() / 3; i < codes.size() * 2 / 3; ++i) {
        EXPECT_EQ(codes[i].frame, i);
        EXPECT_EQ(codes[i].seconds, kStartSeconds + static_cast<uint32_t>(t[i] + 1e-6));
      }
    }
    // The stream copy keeps every MJPEG record's bytes as they are.
    if (std::string(c.codec) == "mjpeg") {
      const std::string copy =
          RunCommand("ffmpeg -nostdin -v error -i " + Q(src + ".mkv") + " -map 0:v -c copy -f mjpeg -");
      std::string all;
      for (const std::string& p : payloads) all += p;
      EXPECT_TRUE(copy == all) << "the exported frames differ from the records";
    }
  }
}

TEST_F(Export, WholeMjpegRecordingToBothContainers) {
  for (const Case& c : kSizeCodes) WholeRecording(Case{"mjpeg", c.size, c.width, c.height});
}

TEST_F(Export, WholeH263RecordingToBothContainers) {
  // Baseline H.263 for 176x144, H.263+ for the sizes of the size codes.
  WholeRecording(Case{"h263", "176x144", 176, 144});
  for (const Case& c : kSizeCodes) WholeRecording(Case{"h263", c.size, c.width, c.height});
}

// Tags, captions and chapters of a Matroska export: the captions give the
// wall-clock second of the pictures they lie on.
TEST_F(Export, MatroskaCarriesWallClock) {
  const std::string src = Record("cam07.dat", "mjpeg", "320x240", 10, 3);
  const std::string out = Path("cam07.mkv");
  ASSERT_EQ(RunDravix({"export", src, out, "--text", "gate 3", "--text", "north"}).status, 0);
  const std::string tags = RunCommand("ffprobe -v error -show_entries format_tags -of default=nw=1 " + Q(out));
  EXPECT_NE(tags.find("TAG:CAMERA=cam07"), std::string::npos) << tags;
  EXPECT_NE(tags.find("TAG:TEXT_1=gate 3"), std::string::npos) << tags;
  EXPECT_NE(tags.find("TAG:TEXT_2=north"), std::string::npos) << tags;
  EXPECT_NE(tags.find("creation_time=2008-03-15T12:00:00"), std::string::npos) << tags;

  const std::vector<double> t = FrameTimes(out);
  const std::vector<FrameCode> codes = FrameCodes(out, 320, 240);
  ASSERT_EQ(codes.size(), t.size());
  // SubRip cues: "n", "hh:mm:ss,mmm --> hh:mm:ss,mmm", "2008-03-15 hh:mm:ss".
  std::istringstream in(RunCommand("ffmpeg -nostdin -v error -i " + Q(out) + " -map 0:s -f srt -"));
  std::string number, times, text, blank;
  int cues = 0;
  while (std::getline(in, number) && std::getline(in, times) && std::getline(in, text)) {
    std::getline(in, blank);
    ++cues;
    int h1, m1, s1, ms1, h2, m2, s2, ms2;
    ASSERT_EQ(std::sscanf(times.c_str(), "%d:%d:%d,%d --> %d:%d:%d,%d", &h1, &m1, &s1, &ms1, &h2, &m2, &s2, &ms2), 8);
    const double a = h1 * 3600 + m1 * 60 + s1 + ms1 / 1000.0, b = h2 * 3600 + m2 * 60 + s2 + ms2 / 1000.0;
    int covered = 0;
    for (size_t i = 0; i < t.size(); ++i) {
      if (t[i] + 1e-6 < a || t[i] + 1e-6 >= b) continue;
      ++covered;
      EXPECT_EQ(text, "2008-03-15 " + ClockOf(codes[i].seconds)) << "cue " << number << " on frame " << i;
    }
    EXPECT_GT(covered, 0) << "cue " << number << " lies on no picture";
  }
  EXPECT_EQ(cues, 3);
  // One chapter per index entry at least, each at a picture's time.
  const std::vector<Chapter> ch = Chapters(out);
  ASSERT_FALSE(ch.empty());
  EXPECT_NEAR(ch.front().start, 0.0, 1e-3);
}

// --from/--to: the .mkv starts at the key picture at or before "from" and
// has a chapter at the requested moment; the .mp4 starts exactly there.
TEST_F(Export, RangeStartsAtKeyPictureOrExactly) {
  // H.263 at 10 fps: key pictures once a second (frames 0, 10, 20, ...).
  const std::string src = Record("r.dat", "h263", "352x288", 10, 4);
  const std::vector<std::string> args{"--from", "2008-03-15 12:00:01.450", "--to", "2008-03-15 12:00:02.500"};
  std::vector<std::string> mkv{"export", src, Path("r.mkv")}, mp4{"export", src, Path("r.mp4")};
  mkv.insert(mkv.end(), args.begin(), args.end());
  mp4.insert(mp4.end(), args.begin(), args.end());
  ProgramResult r = RunDravix(mkv);
  ASSERT_EQ(r.status, 0) << r.err;
  r = RunDravix(mp4);
  ASSERT_EQ(r.status, 0) << r.err;

  const std::vector<FrameCode> k = FrameCodes(Path("r.mkv"), 352, 288);
  ASSERT_FALSE(k.empty());
  EXPECT_EQ(k.front().frame, 10u);  // the key picture at 1.0 s
  EXPECT_EQ(k.back().frame, 24u);   // the last before 2.5 s
  EXPECT_EQ(DecodeErrors(Path("r.mkv")), "");
  bool requested = false;
  for (const Chapter& c : Chapters(Path("r.mkv")))
    requested = requested || (std::abs(c.start - 0.45) < 1e-3 && c.title.find("requested") != std::string::npos);
  EXPECT_TRUE(requested);

  const std::vector<FrameCode> m = FrameCodes(Path("r.mp4"), 352, 288);
  ASSERT_FALSE(m.empty());
  EXPECT_EQ(m.front().frame, 15u);  // the first at or after 1.45 s
  EXPECT_EQ(m.back().frame, 24u);
  EXPECT_EQ(VideoFrames(Path("r.mp4")), 10);
  const std::vector<double> t = FrameTimes(Path("r.mp4"));
  ASSERT_FALSE(t.empty());
  EXPECT_NEAR(t.front(), 0.05, 1e-3);  // time stamps count from "from"
}

// A recording torn by a power cut (a copy cut mid-record) and one another
// process is still writing: both export up to their last whole record, and
// neither is changed.
TEST_F(Export, TornAndGrowingRecordings) {
  const std::string whole = Record("w.dat", "mjpeg", "320x240", 10, 2);
  const std::string bytes = ReadFile(whole);
  const std::vector<std::string> payloads = VideoPayloads(whole);
  // Cut in the middle of the 15th video record's payload.
  const size_t cut = bytes.find(payloads[14]) + payloads[14].size() / 2;
  WriteFile("torn.dat", bytes.substr(0, cut));
  fs::copy_file(Path("w.idx"), Path("torn.idx"));
  const std::string torn = Path("torn.dat");
  ProgramResult r = RunDravix({"export", torn, Path("torn.mkv")});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.err.find("incomplete record"), std::string::npos) << r.err;
  EXPECT_EQ(VideoFrames(Path("torn.mkv")), 14);
  EXPECT_EQ(DecodeErrors(Path("torn.mkv")), "");
  EXPECT_EQ(ReadFile(torn), bytes.substr(0, cut));

  // Damage inside the data (a picture start broken) stops there and says so.
  std::string broken = bytes;
  broken[bytes.find(payloads[5]) + 3] = 0x00;
  WriteFile("broken.dat", broken);
  r = RunDravix({"export", Path("broken.dat"), Path("broken.mkv")});
  EXPECT_EQ(r.status, 1) << r.err;
  EXPECT_NE(r.err.find("invalid record"), std::string::npos) << r.err;
  EXPECT_EQ(VideoFrames(Path("broken.mkv")), 5);
  EXPECT_EQ(ReadFile(Path("broken.dat")), broken);

  // Growing: this process keeps writing while the program exports. Each
  // picture is padded after its end to the writer's direct-write size, so
  // every record is in the file when AddRecord returns.
  media::ZMRecordingWriter w;
  ASSERT_EQ(w.Create(Path("live.dat").c_str(), 0x01C8868A5F8BC000LL,
                     {media::ZMStreamFormat::Video(media::kCodecMJPEG, 0, 10)}),
            S_OK);
  auto add = [&](uint32_t i) {
    std::string p = payloads[i];
    p.resize(std::max<size_t>(p.size(), 64 * 1024), '\0');
    return w.AddRecord(0, i * 100, p.data(), static_cast<uint32_t>(p.size()), true);
  };
  for (uint32_t i = 0; i < 8; ++i) ASSERT_EQ(add(i), S_OK);
  r = RunDravix({"export", Path("live.dat"), Path("live.mkv")});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(VideoFrames(Path("live.mkv")), 8);
  const std::vector<FrameCode> live = FrameCodes(Path("live.mkv"), 320, 240);
  ASSERT_EQ(live.size(), 8u);
  EXPECT_EQ(live.back().frame, 7u);
  for (uint32_t i = 8; i < 12; ++i) ASSERT_EQ(add(i), S_OK);
  ASSERT_EQ(w.Close(), S_OK);
  r = RunDravix({"export", Path("live.dat"), Path("live.mkv")});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(VideoFrames(Path("live.mkv")), 12);
}

// Three recordings of one camera, the third after a gap, given out of
// order: one file in time order, time stamps following the wall clock, a
// chapter at the gap.
TEST_F(Export, SeveralRecordingsWithAGap) {
  const std::string a = Record("a.dat", "h263", "176x144", 10, 2, true, "2008-03-15 12:00:00");
  const std::string b = Record("b.dat", "h263", "176x144", 10, 2, true, "2008-03-15 12:00:02");
  const std::string c = Record("c.dat", "h263", "176x144", 10, 2, true, "2008-03-15 12:00:10");
  const ProgramResult r = RunDravix({"export", c, a, b, Path("abc.mkv")});
  ASSERT_EQ(r.status, 0) << r.err;
  const std::string out = Path("abc.mkv");
  EXPECT_EQ(VideoFrames(out), 60);
  EXPECT_EQ(DecodeErrors(out), "");
  const std::vector<double> t = FrameTimes(out);
  const std::vector<FrameCode> codes = FrameCodes(out, 176, 144);
  ASSERT_EQ(t.size(), 60u);
  ASSERT_EQ(codes.size(), 60u);
  for (size_t i = 1; i < t.size(); ++i) EXPECT_GT(t[i], t[i - 1]);
  EXPECT_NEAR(t[20], 2.0, 1e-3);   // b follows a without a gap
  EXPECT_NEAR(t[40], 10.0, 1e-3);  // c keeps its distance on the wall clock
  EXPECT_EQ(codes[40].seconds, kStartSeconds + 10);
  bool gap = false;
  for (const Chapter& ch : Chapters(out))
    gap = gap || (std::abs(ch.start - 10.0) < 1e-3 && ch.title.find("gap") != std::string::npos);
  EXPECT_TRUE(gap);
}

// Refusals and failures: the output is whole or absent, a wrong request is
// a usage error, the source is never the output.
TEST_F(Export, RefusesAndLeavesNothingHalfWritten) {
  const std::string src = Record("s.dat", "mjpeg", "320x240", 5, 1, false);
  struct {
    std::vector<std::string> args;
    int status;
    const char* says;
  } cases[] = {
      {{"export", src, Path("s.avi")}, 2, ".mkv"},
      {{"export", Path("s.mkv"), src}, 2, ".mkv"},  // arguments the wrong way round
      {{"export", src, Path("s.mkv"), "--from", "2008-03-15 12:00:01", "--to", "2008-03-15 12:00:01"}, 2, "after"},
      {{"export", src, Path("s.mkv"), "--from", "2008-03-15 12:00:00"}, 2, "together"},
      {{"export", src, Path("missing/s.mkv")}, 1, "missing"},
      {{"export", Path("none.dat"), Path("s.mkv")}, 1, "none.dat"},
      {{"export", src, Path("s.mkv"), "--from", "2009-01-01 00:00:00", "--to", "2009-01-01 00:00:05"}, 1, "no record"},
  };
  for (const auto& c : cases) {
    const ProgramResult r = RunDravix(c.args);
    EXPECT_EQ(r.status, c.status) << c.args[2] << ": " << r.err;
    EXPECT_NE(r.err.find(c.says), std::string::npos) << r.err;
    EXPECT_FALSE(fs::exists(Path("s.mkv")));
  }
  // The output is the source under another name: refused, source intact.
  const std::string before = ReadFile(src);
  fs::create_hard_link(src, Path("same.mkv"));
  const ProgramResult same = RunDravix({"export", src, Path("same.mkv")});
  EXPECT_EQ(same.status, 2) << same.err;
  EXPECT_EQ(ReadFile(src), before);
  // A failed export leaves an existing output as it was.
  WriteFile("keep.mkv", "old");
  EXPECT_EQ(RunDravix({"export", Path("none.dat"), Path("keep.mkv")}).status, 1);
  EXPECT_EQ(ReadFile(Path("keep.mkv")), "old");
}

// Each file operation of an export fails in turn. The writes among them
// fail on the writing thread, in the middle of the muxing. The export says
// why, exits 1 and leaves the old output as it was (only the index is
// optional: without it the export runs through).
TEST_F(Export, EveryFailedFileOperationIsReportedAndKeepsTheOldOutput) {
  const std::string src = Record("s.dat", "mjpeg", "640x480", 25, 6, false);
  const std::vector<std::string> args{"export", src, Path("keep.mkv")};
  const int calls = CountFileOperations(args);
  ASSERT_GE(calls, 7);  // the source, its index, the output, writes, flushes, the rename
  int ranThrough = 0;
  for (int n = 1; n <= calls; ++n) {
    SCOPED_TRACE("failing file operation " + std::to_string(n) + " of " + std::to_string(calls));
    WriteFile("keep.mkv", "old");
    ProgramOptions o;
    o.env = {{"DRAVIX_FAIL_IO", std::to_string(n)}};
    const ProgramResult r = RunDravix(args, o);
    if (r.status == 0) {
      ++ranThrough;
      continue;
    }
    EXPECT_EQ(r.status, 1) << r.err;
    const bool saysWhere = r.err.find("keep.mkv") != std::string::npos || r.err.find("s.dat") != std::string::npos;
    EXPECT_TRUE(saysWhere) << r.err;
    EXPECT_EQ(ReadFile(Path("keep.mkv")), "old");
  }
  EXPECT_LE(ranThrough, 1);
  ASSERT_EQ(RunDravix(args).status, 0);
  EXPECT_EQ(RunCommand("ffmpeg -v error -i " + Q(Path("keep.mkv")) + " -f null - 2>&1"), "");
  EXPECT_EQ(VideoFrames(Path("keep.mkv")), 6 * 25);
}

}  // namespace
}  // namespace dravix::test
