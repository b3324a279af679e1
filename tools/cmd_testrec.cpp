// `dravix write-test-recording`: a recording of real video made from a
// moving test pattern (dravix/media/pattern_recording.h), for
// demonstrations, tests and benchmarks. `--noise` keeps the older
// synthetic mode (noise payloads behind the right picture starts), which is
// fast and what the fuzz corpora and the format benchmarks use.
//
// Both the recording and its index are staged: they appear whole when the
// command succeeds and not at all otherwise (a failure, Ctrl-C or a kill).
#include "tools/command.h"
#include "tools/progress.h"
#include "tools/stop_request.h"
#include "tools/time_arg.h"

#include "dravix/base/ztime.h"
#include "dravix/media/codec_log.h"
#include "dravix/media/pattern_recording.h"
#include "dravix/media/zm_format.h"
#include "dravix/media/zm_sample.h"

#include <csignal>

#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

namespace dravix::cli {
namespace {

using namespace dravix::media;

struct Args {
  std::string out, start, codec = "h263", size = "640x480";
  uint32_t seconds = 10, fps = 25, meanFrameBytes = 0;
  int mjpegQuality = 70, zmediaQuality = 0;
  bool audio = false, noAudio = false, noise = false;
};
Args g;

struct Size {
  int width, height;
};
// The picture sizes a recording of this system holds: the size-code table
// and the baseline H.263 sizes.
constexpr Size kSizes[] = {{320, 240}, {640, 240}, {640, 480}, {720, 240}, {720, 480}, {720, 288},
                           {720, 576}, {128, 96},  {176, 144}, {352, 288}, {704, 576}};

std::string SizeList() {
  std::string list;
  for (const Size& s : kSizes)
    list += (list.empty() ? "" : ", ") + std::to_string(s.width) + "x" + std::to_string(s.height);
  return list;
}

// "WxH" of the list, or a size code 0..6.
Size ParseSize(const std::string& text) {
  if (text.size() == 1 && text[0] >= '0' && text[0] <= '6') {
    const ZMPictureSize s = kZMPictureSizes[text[0] - '0'];
    return {s.width, s.height};
  }
  int w = 0, h = 0;
  char tail = 0;
  if (std::sscanf(text.c_str(), "%dx%d%c", &w, &h, &tail) == 2) {
    for (const Size& s : kSizes)
      if (s.width == w && s.height == h) return s;
  }
  throw UsageError("--size '" + text + "' is not a recording picture size; use one of " + SizeList() +
                   " (or a size code 0-6)");
}

int WriteNoise(int codec, const Size& size, int64_t startTime) {
  const int sizeCode = PictureSizeCode(size.width, size.height);
  if (sizeCode < 0) throw UsageError("--noise writes only the sizes of the size-code table (0-6)");
  ZMSampleOptions o;
  o.startTime = startTime;
  o.seconds = g.seconds;
  o.codec = codec;
  o.sizeCode = sizeCode;
  o.framesPerSecond = g.fps;
  o.keyInterval = g.fps;
  o.meanFrameBytes = g.meanFrameBytes ? g.meanFrameBytes : 6000;
  o.audio = g.audio;
  o.staged = true;
  ZMSampleStats stats;
  std::string error;
  const HRESULT hr = WriteSampleRecording(g.out.c_str(), o, &stats, &error);
  if (FAILED(hr))
    throw Failure("cannot write " + g.out + ": " + (error.empty() ? std::string("the writer failed") : error) +
                  ResultCodeText(hr));
  std::cout << g.out << ": " << stats.records << " records (" << stats.videoRecords << " video), " << stats.dataLength
            << " bytes of data, " << stats.indexEntries << " index entries\n";
  return kExitOk;
}

int WriteVideo(int codec, const Size& size, int64_t startTime) {
  QuietCodecLog();
  PatternRecordingOptions o;
  o.startTime = startTime;
  o.codec = codec;
  o.width = size.width;
  o.height = size.height;
  o.framesPerSecond = g.fps;
  o.seconds = g.seconds;
  o.audio = g.audio;
  o.mjpegQuality = g.mjpegQuality;
  o.zmediaQuality = g.zmediaQuality;
  StopRequest stop;
  Progress bar("write-test-recording");
  o.progress = [&bar](uint64_t done, uint64_t all) {
    bar.Update(static_cast<int>(done * 100 / all));
    return !StopRequest::Requested();
  };
  PatternRecordingStats stats;
  std::string error;
  const bool ok = WritePatternRecording(g.out.c_str(), o, &stats, &error);
  bar.Finish();
  if (stats.stopped) throw Failure("interrupted: nothing was written to " + g.out);
  if (!ok) throw Failure("cannot write " + g.out + ": " + error);
  std::cout << g.out << ": " << stats.records << " records (" << stats.videoRecords << " video, " << size.width << "x"
            << size.height << " " << (codec == kCodecMJPEG ? "MJPEG" : "H.263") << "), " << stats.dataLength
            << " bytes of data, " << stats.indexEntries << " index entries\n";
  return kExitOk;
}

int WriteTest() {
  const SYSTEMTIME start = g.start.empty() ? GetSysTime() : ParseTimeArg(g.start, "--start");
  FILETIME ft{};
  if (!SystemTimeToFileTime(start, &ft)) throw UsageError("--start is out of range");
  int codec;
  if (g.codec == "h263")
    codec = kCodecH263;
  else if (g.codec == "mjpeg")
    codec = kCodecMJPEG;
  else
    throw UsageError("--codec must be h263 or mjpeg, not '" + g.codec + "'");
  const Size size = ParseSize(g.size);
  if (g.seconds == 0) throw UsageError("--seconds 0 makes no record: give 1 or more");
  // Record times are milliseconds in 32 bits: about 49 days.
  if (g.seconds > 4294966)
    throw UsageError("--seconds " + std::to_string(g.seconds) + " is longer than a recording can be (4294966 s)");
  if (g.audio && g.noAudio) throw UsageError("--audio and --no-audio contradict each other");
  if (g.meanFrameBytes != 0 && !g.noise) throw UsageError("--frame-bytes sets noise frames: it needs --noise");
  return g.noise ? WriteNoise(codec, size, FileTimeToInt64(ft)) : WriteVideo(codec, size, FileTimeToInt64(ft));
}

void Register(CLI::App& app) {
  CLI::App* w = AddCommand(&app, "write-test-recording",
                           "Write a recording of a moving test pattern (frame number and time drawn in) and its "
                           "index; whole or not at all",
                           WriteTest);
  w->add_option("OUT", g.out, "Recording file to write (replaced; its .idx beside it)")->required();
  w->add_option("--seconds", g.seconds, "Length, 1 or more")->capture_default_str();
  w->add_option("--start", g.start, "Local time of the first picture: YYYY-MM-DD hh:mm:ss (default: now)");
  w->add_option("--codec", g.codec, "Video codec: h263 or mjpeg")->capture_default_str();
  w->add_option("--size", g.size, "Picture size WxH: " + SizeList() + "; or a size code 0-6")->capture_default_str();
  w->add_option("--fps", g.fps, "Frames per second, 1-100 (a key picture each second)")
      ->check(CLI::Range(1, 100))
      ->capture_default_str();
  w->add_option("--mjpeg-quality", g.mjpegQuality, "The camera's MJPEGQuality, 1-100")
      ->check(CLI::Range(1, 100))
      ->capture_default_str();
  w->add_option("--zmedia-quality", g.zmediaQuality, "The camera's ZMediaQuality, 0-4 (H.263 bit rate)")
      ->check(CLI::Range(0, 4))
      ->capture_default_str();
  w->add_flag("--audio", g.audio, "Add a 440 Hz tone as 8 kHz 16-bit PCM");
  w->add_flag("--no-audio", g.noAudio, "Video only (the default)");
  w->add_flag("--noise", g.noise, "Noise payloads behind the right picture starts instead of real video (fast)");
  w->add_option("--frame-bytes", g.meanFrameBytes, "With --noise: mean frame size (default 6000)");
}

const Registration reg{61, Register};

}  // namespace
}  // namespace dravix::cli
