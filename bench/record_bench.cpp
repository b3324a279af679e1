// The recorder at work, in real time (each case runs once; the time shown is
// the wall clock):
//
//   StoreMjpeg/16   sixteen 640x480 cameras at 25 pictures a second from
//                   MJPEG sources (a clip of S seconds made by `ffmpeg`,
//                   read at its own pace), stored as they come into files
//                   on the disk of the temporary folder. Every camera must
//                   store every picture of its clip: `dropped` counts the
//                   ones missing (0 is the bar); `cpu_per_camera` is the
//                   processor time per camera as a share of one core.
//   Cameras/<codec>          how many 640x480 25-per-second cameras the
//   FfmpegProcesses/<codec>  machine keeps up with when every picture must
//                   be encoded (from the moving test pattern), against one
//                   `ffmpeg -re` process per camera encoding the same pattern
//                   with the same settings (-threads 1, to a null output).
//                   A first short run measures the processor time of one
//                   camera; the estimate of what the cores hold is then run
//                   for T seconds, and 5% more (or fewer) at a time while
//                   every camera keeps up (or until it does): ours store at
//                   least 98% of their pictures over T after a second's
//                   start, every ffmpeg reports a speed of at least 0.98.
//                   `cameras` is that number; compare Cameras with
//                   FfmpegProcesses.
//
// S is $DRAVIX_RECORD_BENCH_SECONDS (default 60), T a twelfth of it (at
// least 5). The files are deleted at the end.
#include "dravix/media/codec_log.h"
#include "dravix/media/video_encoder.h"
#include "dravix/media/zm_format.h"
#include "dravix/media/zm_summary.h"
#include "dravix/recorder/camera_recorder.h"

#include <benchmark/benchmark.h>

#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace dravix;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr int kWidth = 640;
constexpr int kHeight = 480;
constexpr uint32_t kFps = 25;
constexpr int kMjpegQuality = 70;

[[noreturn]] void Die(const std::string& why) {
  std::fprintf(stderr, "record_bench: %s\n", why.c_str());
  std::exit(1);
}

int Seconds() {
  const char* text = std::getenv("DRAVIX_RECORD_BENCH_SECONDS");
  const int s = text != nullptr ? std::atoi(text) : 60;
  return s > 0 ? s : 60;
}
int TrialSeconds() { return std::max(5, Seconds() / 12); }

class Folder {
 public:
  Folder() {
    path_ = (fs::temp_directory_path() / ("dravix-record-bench-" + std::to_string(std::random_device{}()))).string();
    fs::create_directories(path_);
  }
  ~Folder() {
    std::error_code ec;
    fs::remove_all(path_, ec);
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

double CpuSeconds(int who) {
  rusage u{};
  getrusage(who, &u);
  return static_cast<double>(u.ru_utime.tv_sec + u.ru_stime.tv_sec) +
         static_cast<double>(u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}

double Since(Clock::time_point t) { return std::chrono::duration<double>(Clock::now() - t).count(); }

recorder::CameraRecorderSettings Camera(int camera, const std::string& url, int codec, const std::string& folder) {
  recorder::CameraRecorderSettings s;
  s.camera = camera;
  s.url = url;
  s.folder = folder;
  s.codec = codec;
  s.width = kWidth;
  s.height = kHeight;
  s.framesPerSecond = kFps;
  s.mjpegQuality = kMjpegQuality;
  return s;
}

// The records of camera `camera`'s files under `folder`.
uint64_t StoredPictures(const std::string& folder, int camera) {
  char tail[16];
  std::snprintf(tail, sizeof tail, "-%02d.dat", camera);
  uint64_t records = 0;
  for (const auto& e : fs::recursive_directory_iterator(folder)) {
    const std::string p = e.path().string();
    if (p.size() < 7 || p.compare(p.size() - 7, 7, tail) != 0) continue;
    media::ZMFileSummary summary;
    if (media::SummarizeRecording(p.c_str(), &summary) != S_OK) Die("cannot read " + p);
    records += summary.records;
  }
  return records;
}

void StoreMjpeg(benchmark::State& state) {
  const int cameras = static_cast<int>(state.range(0));
  const int seconds = Seconds();
  Folder folder;
  const std::string clip = folder.path() + "/source.mkv";
  const std::string make = "ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=" + std::to_string(kWidth) + "x" +
                           std::to_string(kHeight) + ":rate=" + std::to_string(kFps) + " -t " +
                           std::to_string(seconds) + " -c:v mjpeg -q:v " +
                           std::to_string(media::VideoEncoder::MjpegQScale(kMjpegQuality)) + " -y '" + clip + "'";
  if (std::system(make.c_str()) != 0) Die("failed: " + make);
  const uint64_t expected = static_cast<uint64_t>(seconds) * kFps;
  for (auto _ : state) {
    std::vector<std::unique_ptr<recorder::CameraRecorder>> recorders;
    const double cpuBefore = CpuSeconds(RUSAGE_SELF);
    const auto begun = Clock::now();
    for (int i = 0; i < cameras; ++i) {
      auto r = std::make_unique<recorder::CameraRecorder>();
      recorder::CameraRecorderSettings s = Camera(i + 1, clip, media::kCodecMJPEG, folder.path() + "/rec");
      s.reopen = false;  // the clip's end ends the camera
      std::string error;
      if (!r->Start(s, &error)) Die(error);
      recorders.push_back(std::move(r));
    }
    for (auto& r : recorders)
      while (r->IsRecording() && Since(begun) < seconds + 30)
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    for (auto& r : recorders) r->Stop();
    const double wall = Since(begun);
    const double cpu = CpuSeconds(RUSAGE_SELF) - cpuBefore;
    state.SetIterationTime(wall);
    uint64_t dropped = 0;
    for (int i = 0; i < cameras; ++i) {
      const uint64_t stored = StoredPictures(folder.path() + "/rec", i + 1);
      dropped += stored < expected ? expected - stored : 0;
      if (stored > expected) Die("camera " + std::to_string(i + 1) + " stored more pictures than its clip has");
    }
    state.counters["dropped"] = static_cast<double>(dropped);
    state.counters["pictures_per_camera"] = static_cast<double>(expected);
    state.counters["cpu_per_camera"] = cpu / wall / cameras;
  }
}

// `cameras` cameras encoding the test pattern: once all have started and
// run a second, whether each stores at least 98% of its pictures over the
// next `seconds`; and the processor seconds of the whole run.
bool OursKeepUp(int codec, int cameras, int seconds, double* cpu) {
  Folder folder;
  std::vector<std::unique_ptr<recorder::CameraRecorder>> recorders;
  const double cpuBefore = CpuSeconds(RUSAGE_SELF);
  for (int i = 0; i < cameras; ++i) {
    auto r = std::make_unique<recorder::CameraRecorder>();
    std::string error;
    // Camera numbers repeat after 16: each sixteen write to their own folder.
    if (!r->Start(Camera(i % 16 + 1, "testsrc", codec, folder.path() + "/rec" + std::to_string(i / 16)), &error))
      Die(error);
    recorders.push_back(std::move(r));
  }
  std::this_thread::sleep_for(std::chrono::seconds(1));
  std::vector<uint64_t> before;
  for (auto& r : recorders) before.push_back(r->Pictures());
  std::this_thread::sleep_for(std::chrono::seconds(seconds));
  bool kept = true;
  for (size_t i = 0; i < recorders.size(); ++i)
    kept = kept && static_cast<double>(recorders[i]->Pictures() - before[i]) >= 0.98 * seconds * kFps;
  for (auto& r : recorders) r->Stop();
  *cpu = CpuSeconds(RUSAGE_SELF) - cpuBefore;
  return kept;
}

// The same with one `ffmpeg -re` process per camera, each told to encode
// `seconds` + 1 of the pattern: whether every one kept a speed of at least
// 0.98 (ffmpeg's own figure, from its progress report: encoded time over
// the time since it began encoding, so its start-up does not count).
bool FfmpegKeepsUp(int codec, int processes, int seconds, double* cpu) {
  Folder folder;
  std::string cmd = "ffmpeg -nostdin -v error -re -f lavfi -i testsrc2=size=" + std::to_string(kWidth) + "x" +
                    std::to_string(kHeight) + ":rate=" + std::to_string(kFps) + " -t " + std::to_string(seconds + 1) +
                    " -threads 1";
  if (codec == media::kCodecMJPEG) {
    cmd += " -pix_fmt yuvj420p -c:v mjpeg -q:v " + std::to_string(media::VideoEncoder::MjpegQScale(kMjpegQuality));
  } else {
    cmd += " -c:v h263p -b:v " + std::to_string(media::VideoEncoder::H263BitRate(0, kWidth, kHeight, kFps)) + " -g " +
           std::to_string(kFps) + " -bf 0 -mbd rd";
  }
  cmd += " -f null - -progress ";
  const double cpuBefore = CpuSeconds(RUSAGE_CHILDREN);
  std::vector<pid_t> children;
  for (int i = 0; i < processes; ++i) {
    const std::string run = cmd + folder.path() + "/progress" + std::to_string(i);
    const pid_t pid = fork();
    if (pid < 0) Die("cannot start ffmpeg");
    if (pid == 0) {
      execl("/bin/sh", "sh", "-c", run.c_str(), static_cast<char*>(nullptr));
      _exit(127);
    }
    children.push_back(pid);
  }
  for (const pid_t pid : children) {
    int status = 0;
    waitpid(pid, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) Die("failed: " + cmd);
  }
  *cpu = CpuSeconds(RUSAGE_CHILDREN) - cpuBefore;
  bool kept = true;
  for (int i = 0; i < processes; ++i) {
    // The last "speed=0.99x" line of the report.
    std::FILE* f = std::fopen((folder.path() + "/progress" + std::to_string(i)).c_str(), "r");
    if (f == nullptr) Die("ffmpeg wrote no progress report");
    double speed = -1;
    char line[256];
    while (std::fgets(line, sizeof line, f) != nullptr) std::sscanf(line, "speed=%lfx", &speed);
    std::fclose(f);
    if (speed < 0) Die("ffmpeg's progress report gives no speed");
    kept = kept && speed >= 0.98;
  }
  return kept;
}

using Trial = bool (*)(int codec, int cameras, int seconds, double* cpu);

// The most cameras `trial` keeps up with: from what the cores hold at the
// processor time of a short two-camera run, up or down in steps of 5%.
void Capacity(benchmark::State& state, int codec, Trial trial) {
  const int seconds = TrialSeconds();
  const double cores = static_cast<double>(std::max(1u, std::thread::hardware_concurrency()));
  for (auto _ : state) {
    const auto begun = Clock::now();
    double cpu = 0;
    trial(codec, 2, 3, &cpu);
    const double perCamera = cpu / 2 / 4;  // share of a core over the run's 4 s
    const int estimate = std::max(1, static_cast<int>(std::floor(cores / perCamera)));
    const int step = std::max(1, estimate / 20);
    int cameras = estimate;
    if (trial(codec, cameras, seconds, &cpu)) {
      while (trial(codec, cameras + step, seconds, &cpu)) cameras += step;
    } else {
      do cameras = std::max(1, cameras - step);
      while (cameras > 1 && !trial(codec, cameras, seconds, &cpu));
    }
    state.SetIterationTime(Since(begun));
    state.counters["cameras"] = cameras;
    state.counters["estimate"] = estimate;
  }
}

}  // namespace

int main(int argc, char** argv) {
  media::QuietCodecLog();
  benchmark::RegisterBenchmark("StoreMjpeg", StoreMjpeg)
      ->Arg(16)
      ->Iterations(1)
      ->UseManualTime()
      ->Unit(benchmark::kSecond);
  struct Case {
    const char* name;
    int codec;
  };
  for (const Case c : {Case{"MJPEG", media::kCodecMJPEG}, Case{"H263", media::kCodecH263}}) {
    const int codec = c.codec;
    benchmark::RegisterBenchmark((std::string("Cameras/") + c.name).c_str(),
                                 [codec](benchmark::State& s) { Capacity(s, codec, OursKeepUp); })
        ->Iterations(1)
        ->UseManualTime()
        ->Unit(benchmark::kSecond);
    benchmark::RegisterBenchmark((std::string("FfmpegProcesses/") + c.name).c_str(),
                                 [codec](benchmark::State& s) { Capacity(s, codec, FfmpegKeepsUp); })
        ->Iterations(1)
        ->UseManualTime()
        ->Unit(benchmark::kSecond);
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
