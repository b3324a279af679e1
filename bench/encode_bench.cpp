// Encoding camera pictures, next to the `ffmpeg` program encoding the same
// pictures with the same settings in the same run (one thread each):
//   Dravix/<codec>/<size>   VideoEncoder over pictures held in memory
//   Ffmpeg/<codec>/<size>   `ffmpeg -threads 1 -f rawvideo ... -f null -` over
//                           the same pictures in a raw file in /dev/shm,
//                           looped 8 times; the time of a one-picture run is
//                           taken off, so its start-up does not count
// The run ends with ours / ffmpeg of items_per_second for each pair:
// pictures per second of processor time (ours: the benchmark's CPU time;
// ffmpeg's: its user + system time), so a busy machine slows neither side's
// figure much (run it on a quiet one all the same). bytes_per_picture shows
// the settings match (ours is 18 bytes larger for MJPEG: the JFIF segment).
// The pictures are 30 of the moving test pattern with a frame code, as
// write-test-recording makes them; MJPEG at "MJPEGQuality" 70, H.263 at
// "ZMediaQuality" 0 with a key picture each second at 25 per second.
#include "dravix/media/codec_log.h"
#include "dravix/media/frame_code.h"
#include "dravix/media/frame_source.h"
#include "dravix/media/video_encoder.h"
#include "dravix/media/zm_format.h"
#include "median_reporter.h"

#include <benchmark/benchmark.h>

#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace dravix::media;
namespace fs = std::filesystem;

constexpr int kPictures = 30;
constexpr int kLoops = 8;
constexpr uint32_t kFps = 25;

struct Set {
  std::vector<Picture> pictures;
  std::string raw;  // the same pictures, planar 4:2:0, one after the other
};

class Fixture {
 public:
  Fixture() {
    std::error_code ec;
    const fs::path base = fs::is_directory("/dev/shm", ec) ? fs::path("/dev/shm") : fs::temp_directory_path();
    dir_ = (base / ("dravix-encode-bench-" + std::to_string(std::random_device{}()))).string();
    fs::create_directories(dir_);
    QuietCodecLog();
  }
  ~Fixture() {
    std::error_code ec;
    fs::remove_all(dir_, ec);
  }

  const Set& Get(int codec, int width, int height) {
    const std::string key = std::to_string(codec) + "_" + std::to_string(width) + "x" + std::to_string(height);
    auto it = sets_.find(key);
    if (it != sets_.end()) return it->second;
    Set& s = sets_[key];
    FrameSource source;
    FrameSourceOptions o;
    o.format = "lavfi";
    o.fullRange = VideoEncoder::FullRangeFor(codec);
    std::string error;
    if (!source.Open(FrameSource::TestPatternUrl(width, height, kFps), o, &error)) Die(error);
    s.raw = dir_ + "/" + key + ".yuv";
    std::ofstream raw(s.raw, std::ios::binary);
    for (int i = 0; i < kPictures; ++i) {
      Picture p;
      if (source.Next(&p, &error) != FrameSource::Result::kPicture) Die("the test pattern stopped: " + error);
      DrawFrameCode(p.y.data(), p.width, p.width, p.height, FrameCode{static_cast<uint32_t>(i), 0});
      raw.write(reinterpret_cast<const char*>(p.y.data()), static_cast<std::streamsize>(p.y.size()));
      raw.write(reinterpret_cast<const char*>(p.u.data()), static_cast<std::streamsize>(p.u.size()));
      raw.write(reinterpret_cast<const char*>(p.v.data()), static_cast<std::streamsize>(p.v.size()));
      s.pictures.push_back(std::move(p));
    }
    if (!raw) Die("cannot write " + s.raw);
    return s;
  }

  [[noreturn]] static void Die(const std::string& why) {
    std::fprintf(stderr, "encode_bench: %s\n", why.c_str());
    std::exit(1);
  }

 private:
  std::string dir_;
  std::map<std::string, Set> sets_;
};

Fixture& Shared() {
  static Fixture f;
  return f;
}

VideoEncoderSettings Settings(int codec, int width, int height) {
  VideoEncoderSettings s;
  s.codec = codec;
  s.width = width;
  s.height = height;
  s.framesPerSecond = kFps;
  return s;
}

void Dravix(benchmark::State& state, int codec, int width, int height) {
  const Set& set = Shared().Get(codec, width, height);
  std::string error;
  std::vector<EncodedPacket> packets;
  size_t bytes = 0;
  for (auto _ : state) {
    VideoEncoder encoder;
    if (!encoder.Open(Settings(codec, width, height), &error)) Fixture::Die(error);
    for (const Picture& p : set.pictures) {
      packets.clear();
      if (!encoder.Encode(p, &packets, &error)) Fixture::Die(error);
      for (const EncodedPacket& e : packets) bytes += e.data.size();
    }
    packets.clear();
    encoder.Flush(&packets, &error);
    benchmark::DoNotOptimize(bytes);
  }
  state.SetItemsProcessed(state.iterations() * kPictures);
  state.counters["bytes_per_picture"] =
      static_cast<double>(bytes) / static_cast<double>(state.iterations() * kPictures);
}

// The ffmpeg command line with the settings VideoEncoder uses.
std::string FfmpegCommand(int codec, int width, int height, const std::string& raw, int loops, int frames) {
  const VideoEncoderSettings s = Settings(codec, width, height);
  std::string cmd = "ffmpeg -nostdin -v error -threads 1 -f rawvideo -pix_fmt ";
  cmd += codec == kCodecMJPEG ? "yuvj420p" : "yuv420p";
  cmd += " -s " + std::to_string(width) + "x" + std::to_string(height) + " -r " + std::to_string(kFps);
  if (loops > 1) cmd += " -stream_loop " + std::to_string(loops - 1);
  cmd += " -i '" + raw + "' -threads 1";
  if (frames > 0) cmd += " -frames:v " + std::to_string(frames);
  if (codec == kCodecMJPEG) {
    cmd += " -c:v mjpeg -q:v " + std::to_string(VideoEncoder::MjpegQScale(s.mjpegQuality));
  } else {
    cmd += VideoEncoder::IsBaselineH263Size(width, height) ? " -c:v h263" : " -c:v h263p";
    cmd += " -b:v " + std::to_string(VideoEncoder::H263BitRate(s.zmediaQuality, width, height, kFps));
    cmd += " -g " + std::to_string(kFps) + " -bf 0 -mbd rd";
  }
  return cmd + " -f null -";
}

// The processor time (user + system) a command's processes took: what one
// core spent, whatever else the machine was doing.
double ChildCpuSeconds() {
  rusage u{};
  getrusage(RUSAGE_CHILDREN, &u);
  return static_cast<double>(u.ru_utime.tv_sec + u.ru_stime.tv_sec) +
         static_cast<double>(u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}

double Seconds(const std::string& command) {
  const double before = ChildCpuSeconds();
  if (std::system(command.c_str()) != 0) Fixture::Die("failed: " + command);
  return ChildCpuSeconds() - before;
}

void Ffmpeg(benchmark::State& state, int codec, int width, int height) {
  const Set& set = Shared().Get(codec, width, height);
  const std::string whole = FfmpegCommand(codec, width, height, set.raw, kLoops, 0);
  const std::string startup = FfmpegCommand(codec, width, height, set.raw, 1, 1);
  for (auto _ : state) {
    const double t = Seconds(whole) - Seconds(startup);
    state.SetIterationTime(t > 0 ? t : 1e-9);
  }
  state.SetItemsProcessed(state.iterations() * (kPictures * kLoops - 1));
  // The size of ffmpeg's pictures, from one pass over the pictures.
  const std::string out = set.raw + ".out";
  std::string once = FfmpegCommand(codec, width, height, set.raw, 1, 0);
  once.replace(once.size() - std::string(" -f null -").size(), std::string::npos, " -f rawvideo -y '" + out + "'");
  if (std::system(once.c_str()) == 0) {
    std::error_code ec;
    state.counters["bytes_per_picture"] = static_cast<double>(fs::file_size(out, ec)) / kPictures;
    fs::remove(out, ec);
  }
}

void Register() {
  struct Case {
    const char* name;
    int codec;
  };
  const Case codecs[] = {{"MJPEG", kCodecMJPEG}, {"H263", kCodecH263}};
  const std::pair<int, int> sizes[] = {{640, 480}, {704, 576}};
  for (const Case& c : codecs) {
    for (const auto& [w, h] : sizes) {
      const std::string tail = std::string(c.name) + "/" + std::to_string(w) + "x" + std::to_string(h);
      const int codec = c.codec, width = w, height = h;
      benchmark::RegisterBenchmark(("Dravix/" + tail).c_str(), [=](benchmark::State& s) {
        Dravix(s, codec, width, height);
      })->Unit(benchmark::kMillisecond);
      benchmark::RegisterBenchmark(("Ffmpeg/" + tail).c_str(),
                                   [=](benchmark::State& s) { Ffmpeg(s, codec, width, height); })
          ->UseManualTime()
          ->Iterations(3)
          ->Unit(benchmark::kMillisecond);
    }
  }
}

// Console output as usual, then ours / ffmpeg in pictures per processor
// second for each codec and size.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  RatioReporter() : ConsoleReporter(ConsoleOptions()) {}
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& r : runs) {
      const auto it = r.counters.find("items_per_second");
      if (r.run_type == Run::RT_Iteration && it != r.counters.end()) rates_[r.run_name.function_name] = it->second;
    }
    ConsoleReporter::ReportRuns(runs);
  }
  void Finalize() override {
    ConsoleReporter::Finalize();
    for (const auto& [name, ours] : rates_) {
      if (name.rfind("Dravix/", 0) != 0) continue;
      const auto theirs = rates_.find("Ffmpeg/" + name.substr(7));
      if (theirs != rates_.end() && theirs->second > 0)
        std::printf("%-20s ours / ffmpeg: %.2f (%.0f vs %.0f pictures per second)\n", name.substr(7).c_str(),
                    ours / theirs->second, ours, theirs->second);
    }
  }

 private:
  std::map<std::string, double> rates_;
};

}  // namespace

int main(int argc, char** argv) {
  Register();
  benchmark::Initialize(&argc, argv);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
